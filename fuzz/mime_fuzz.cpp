// MIME text: any text can be read or is refused; what the library writes of it has no line that
// mail may not have, and is read again as the same tree of parts with the same bodies.
#include <string>

#include "base/log_null.h"
#include "base/text.h"
#include "fuzz/fuzz.h"
#include "mail/mime/charset.h"
#include "mail/mime/mime_message2.h"

using namespace kelvado;

namespace {

constexpr std::size_t kMaxLine = 998;  // RFC 5322 section 2.1.1

std::string written(Email2& message) {
  message.normaliseTransferEncodings();
  std::string text;
  message.appendMime(text);
  return text;
}

// Text may change its kind of line end on the way.
std::string linesOf(const Email2& part) {
  std::string lines;
  base::appendWithCrLf(part.contentType().isText() ? part.textBody() : std::string(part.body()),
                       lines);
  return lines;
}

void requireEqual(const Email2& left, const Email2& right) {
  require(left.children().size() == right.children().size());
  for (std::size_t i = 0; i < left.children().size(); ++i) {
    requireEqual(*left.children()[i], *right.children()[i]);
  }
  // Such text has no lines unless it was encoded; it is kept as far as possible.
  if (!Charset(left.contentType().charset).isAsciiBased()) return;
  require(linesOf(left) == linesOf(right));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  base::LogNull log;
  const auto message = MimeMessage2::parse(textOf(data, size), log);
  if (message == nullptr) return 0;
  const std::string text = written(*message);
  requireLines(text, kMaxLine);
  const auto again = MimeMessage2::parse(text, log);
  require(again != nullptr);
  requireEqual(*message, *again);
  for (const char* type : {"text/plain", "text/html"}) {
    if (const Email2* part = message->findText(type)) part->textBody();
  }
  return 0;
}
