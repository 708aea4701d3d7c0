#include "mail/mime/charset.h"

#include <algorithm>
#include <iterator>

#include "base/ascii.h"
#include "base/unicode.h"
#include "mail/mime/latin_charsets.h"
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

// Text with the label "utf-16" may begin with a mark for the byte order; without one it is
// big-endian (RFC 2781 section 4.3).
constexpr std::uint32_t kUtf16LittleEndian = 1200;
constexpr std::string_view kLittleEndianMark = "\xFF\xFE";
constexpr std::string_view kBigEndianMark = "\xFE\xFF";

bool beginsWithMark(const Charset& charset, std::string_view bytes) {
  return charset.name() == "utf-16" &&
         (bytes.starts_with(kLittleEndianMark) || bytes.starts_with(kBigEndianMark));
}

// Labels with fewer characters than the code page that converts them. Many programs write text of
// the whole code page under such a label; this library reads that, and does not write it.
struct StrictLabel {
  std::uint32_t codePage;
  std::uint32_t strictCodePage;
  std::string_view extended[2];  // a label with one of these in it means the whole code page
};

constexpr StrictLabel kStrictLabels[] = {
    {936, 20936, {"gbk", "936"}},
    {949, 20949, {"uhc", "949"}},
};

constexpr std::uint32_t kBig5 = 950;
constexpr std::string_view kEuroSign = "\xE2\x82\xAC";  // Big5 has none

bool fitsLabel(const Charset& charset, std::string_view utf8) {
  const auto names = [&charset](std::string_view part) {
    return charset.name().find(part) != std::string::npos;
  };
  if (charset.codePage() == kBig5 && names("big5")) {
    return utf8.find(kEuroSign) == std::string_view::npos;
  }
  for (const StrictLabel& label : kStrictLabels) {
    if (label.codePage != charset.codePage() ||
        std::any_of(std::begin(label.extended), std::end(label.extended), names)) {
      continue;
    }
    std::string bytes;
    bool lossy = false;
    return platform::utf8ToCodePage(label.strictCodePage, utf8, bytes, &lossy) && !lossy;
  }
  return true;
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
  if (isLatinCodePage(from.codePage())) {
    out = latinToUtf8(from.codePage(), bytes);
    return true;
  }
  if (!beginsWithMark(from, bytes)) {
    return platform::codePageToUtf8(from.codePage(), bytes, out, lossy);
  }
  const bool little = bytes.starts_with(kLittleEndianMark);
  const std::uint32_t codePage = little ? kUtf16LittleEndian : from.codePage();
  return platform::codePageToUtf8(codePage, bytes.substr(kBigEndianMark.size()), out, lossy);
}

bool EncodingConvert::fromUtf8(const Charset& to, std::string_view utf8, std::string& out,
                               bool* lossy) {
  if (isLatinCodePage(to.codePage())) {
    bool replaced = false;
    out = utf8ToLatin(to.codePage(), utf8, replaced);
    if (replaced && lossy != nullptr) *lossy = true;
    return true;
  }
  const bool converted = platform::utf8ToCodePage(to.codePage(), utf8, out, lossy);
  if (beginsWithMark(to, out)) out.insert(0, kBigEndianMark);  // text that would read as one
  return converted;
}

bool EncodingConvert::carries(const Charset& charset, std::string_view utf8) {
  std::string bytes;
  std::string back;
  return fromUtf8(charset, utf8, bytes) && toUtf8(charset, bytes, back) && back == utf8 &&
         fitsLabel(charset, utf8);
}

std::string repairedUtf8(std::string_view text) {
  if (base::isValidUtf8(text)) return std::string(text);
  return base::utf16ToUtf8(base::utf8ToUtf16(text));
}

}  // namespace kelvado
