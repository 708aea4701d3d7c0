#include "mail/mime/charset.h"

#include "mail/mime/text_tools.h"
#include "platform/code_page.h"

namespace kelvado {

Charset::Charset(std::string_view name)
    : name_(lowered(trimmed(name))), codePage_(CharsetNaming::getCodePage(name_)) {}

Charset Charset::forText(std::string_view utf8) {
  return Charset(contains8bit(utf8) ? "utf-8" : "us-ascii");
}

bool Charset::isUtf8() const {
  return codePage_ == platform::kCodePageUtf8;
}

bool Charset::isWide() const {
  return codePage_ == 1200 || codePage_ == 1201 || codePage_ == 65005 || codePage_ == 65006;
}

bool EncodingConvert::toUtf8(const Charset& from, std::string_view bytes, std::string& out,
                             bool* lossy) {
  return platform::codePageToUtf8(from.codePage(), bytes, out, lossy);
}

bool EncodingConvert::fromUtf8(const Charset& to, std::string_view utf8, std::string& out,
                               bool* lossy) {
  return platform::utf8ToCodePage(to.codePage(), utf8, out, lossy);
}

std::string repairedUtf8(std::string_view text) {
  if (platform::isValidUtf8(text)) return std::string(text);
  return platform::utf16ToUtf8(platform::utf8ToUtf16(text));
}

}  // namespace kelvado
