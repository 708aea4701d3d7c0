// Uuencode ("begin 666" lines), for attachments of uuencoded messages. Pure. The reader of MIME
// text decodes it; encoding is public API that nothing here calls.
#pragma once

#include <string>
#include <string_view>

#include "mail/mime/encoding_base.h"

namespace kelvado {

class Uu : public EncodingBase {
 public:
  // `filename` stands in the begin line, without its line breaks.
  explicit Uu(std::string_view filename) : filename_(filename) {}

  void encode(std::string_view bytes, StringBuffer& out) const override;

  // The file of the first "begin" line; false when there is none. Of a text that ends
  // early, the bytes so far. `filename` may be null.
  static bool decode(std::string_view text, std::string& bytes, std::string* filename = nullptr);

 private:
  std::string filename_;
};

}  // namespace kelvado
