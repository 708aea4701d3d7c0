// A character set as a message names it, and the conversion of text to and from it. Pure.
// Used where text is written or read, and where a message chooses its charset.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "mail/mime/charset_naming.h"

namespace kelvado {

class Charset {
 public:
  Charset() = default;  // none
  explicit Charset(std::string_view name);

  // The one that a message adopts for the text: UTF-8 when it is not ASCII. The body and further
  // names, which are not known yet, may not fit in a narrower one.
  static Charset forText(std::string_view utf8);

  const std::string& name() const { return name_; }
  // kNoCodePage when there is no charset, or one of an unknown name.
  std::uint32_t codePage() const { return codePage_; }
  bool isUtf8() const;
  // Whether ASCII characters are single bytes of their own value, so that its bytes have lines: not
  // in UTF-16, UTF-32 and EBCDIC.
  bool isAsciiBased() const;
  bool isUsAscii() const { return codePage_ == kUsAsciiCodePage; }

 private:
  std::string name_;  // lower case
  std::uint32_t codePage_ = kNoCodePage;
};

class EncodingConvert {
 public:
  // False, with `out` empty, when the charset is unknown to the system. `lossy` (may be null) is
  // set when a character had to be replaced.
  static bool toUtf8(const Charset& from, std::string_view bytes, std::string& out,
                     bool* lossy = nullptr);
  static bool fromUtf8(const Charset& to, std::string_view utf8, std::string& out,
                       bool* lossy = nullptr);
  // Whether the text comes back as it was (some charsets replace a character by a similar one), and
  // every reader who knows the charset's name can read it.
  static bool carries(const Charset& charset, std::string_view utf8);
};

// The text as valid UTF-8: each ill-formed part becomes U+FFFD.
std::string repairedUtf8(std::string_view text);

}  // namespace kelvado
