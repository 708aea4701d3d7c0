// The tree of parts as MIME text (RFC 5322, RFC 2045, RFC 2046): read from it and written to it.
// Reading is linear in the text for a given depth, never goes deeper than kMaxPartDepth, and
// accepts what other programs make: folded fields, LF alone as a line end, a missing last boundary,
// a body without a line end. Pure: no files, no network.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "base/log_base.h"
#include "mail/mime/email2.h"
#include "mail/mime/mime_sink.h"

namespace kelvado {

// Beyond these a text is refused. Real mail stays far below them.
inline constexpr std::size_t kMaxPartDepth = 64;
inline constexpr std::size_t kMaxParts = 10000;
inline constexpr std::size_t kMaxHeaderFields = 2000;    // of one part
inline constexpr std::size_t kMaxHeaderBytes = 1 << 20;  // of one part; lists can be long

class MimeMessage2 {
 public:
  // Null when the text goes beyond a limit, which is logged. Private fields are left out.
  static std::unique_ptr<Email2> parse(std::string_view text, base::LogBase& log);

  // The message as Email2::appendMime says. The caller finishes the sink.
  static void write(const Email2& message, MimeSink& sink);

  // Whether the part, which has an original, still is what was read from it.
  static bool isUnchanged(const Email2& part);

 private:
  class Reader;

  static bool writePart(const Email2& part, std::string_view messageCharset, MimeSink& sink);
  static bool writeContent(const Email2& part, std::string_view messageCharset, MimeSink& sink);
  static bool writeBody(const Email2& part, MimeSink& sink);
};

}  // namespace kelvado
