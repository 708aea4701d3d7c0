#include "mail/mime/charset.h"

#include <algorithm>
#include <iterator>

#include "base/ascii.h"
#include "base/unicode.h"
#include "platform/text/code_page.h"

namespace kelvado {
namespace {

struct CodePageRange {
  std::uint32_t first, last;
};

constexpr CodePageRange kNotAsciiBased[] = {
    {37, 37},       {500, 500},     {870, 870},     {875, 875},     {1026, 1026},
    {1047, 1047},   {1140, 1149},   {1200, 1201},   {20273, 20424}, {20833, 20838},
    {20871, 20871}, {20880, 20880}, {20905, 20924}, {21025, 21025}, {65005, 65006},
};

// Text of the label "utf-16" may begin with a mark that tells the byte order; without one it is in
// the label's own, big-endian (RFC 2781 section 4.3).
constexpr std::uint32_t kUtf16LittleEndian = 1200;
constexpr std::string_view kLittleEndianMark = "\xFF\xFE";
constexpr std::string_view kBigEndianMark = "\xFE\xFF";

bool beginsWithMark(const Charset& charset, std::string_view bytes) {
  return charset.name() == "utf-16" &&
         (bytes.starts_with(kLittleEndianMark) || bytes.starts_with(kBigEndianMark));
}

}  // namespace

Charset::Charset(std::string_view name)
    : name_(base::lowered(base::trimmed(name))), codePage_(CharsetNaming::getCodePage(name_)) {}

Charset Charset::forText(std::string_view utf8) {
  return Charset(base::contains8bit(utf8) ? "utf-8" : "us-ascii");
}

bool Charset::isUtf8() const {
  return codePage_ == platform::kCodePageUtf8;
}

bool Charset::isAsciiBased() const {
  return std::none_of(
      std::begin(kNotAsciiBased), std::end(kNotAsciiBased),
      [this](const auto& row) { return row.first <= codePage_ && codePage_ <= row.last; });
}

bool EncodingConvert::toUtf8(const Charset& from, std::string_view bytes, std::string& out,
                             bool* lossy) {
  if (!beginsWithMark(from, bytes)) {
    return platform::codePageToUtf8(from.codePage(), bytes, out, lossy);
  }
  const bool little = bytes.starts_with(kLittleEndianMark);
  const std::uint32_t codePage = little ? kUtf16LittleEndian : from.codePage();
  return platform::codePageToUtf8(codePage, bytes.substr(kBigEndianMark.size()), out, lossy);
}

bool EncodingConvert::fromUtf8(const Charset& to, std::string_view utf8, std::string& out,
                               bool* lossy) {
  const bool converted = platform::utf8ToCodePage(to.codePage(), utf8, out, lossy);
  if (beginsWithMark(to, out)) out.insert(0, kBigEndianMark);  // text that would read as one
  return converted;
}

bool EncodingConvert::carries(const Charset& charset, std::string_view utf8) {
  std::string bytes;
  std::string back;
  return fromUtf8(charset, utf8, bytes) && toUtf8(charset, bytes, back) && back == utf8;
}

std::string repairedUtf8(std::string_view text) {
  if (base::isValidUtf8(text)) return std::string(text);
  return base::utf16ToUtf8(base::utf8ToUtf16(text));
}

}  // namespace kelvado
