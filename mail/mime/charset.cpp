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

// Labels with fewer characters than the code page that converts them: the sets of 94 rows of 94
// characters, in which both bytes are 0xA1 or above. Many programs write text of the whole code
// page under such a label; this library reads that, and does not write it.
struct StrictLabel {
  std::uint32_t codePage;
  unsigned lastLeadByte;
  std::string_view extended[2];  // a label with one of these in it means the whole code page
};

constexpr std::uint32_t kGbk = 936;
constexpr StrictLabel kStrictLabels[] = {{kGbk, 0xF7, {"gbk", "936"}}, {949, 0xFE, {"uhc", "949"}}};

// Characters of GBK in places that GB 2312 leaves free, first and last.
constexpr unsigned kGbkOnly[][2] = {{0xA2A1, 0xA2AA}, {0xA6E0, 0xA6F5}, {0xA8BB, 0xA8C0}};

constexpr std::uint32_t kBig5 = 950;
constexpr std::string_view kEuroSign = "\xE2\x82\xAC";  // Big5 has none

// Whether `bytes`, in the label's code page, are characters of the label's own set.
bool areInSet(const StrictLabel& label, std::string_view bytes) {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const unsigned lead = static_cast<unsigned char>(bytes[i]);
    if (lead < 0x80) continue;
    const unsigned trail = ++i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0;
    if (lead < 0xA1 || lead > label.lastLeadByte || trail < 0xA1) return false;
    const unsigned character = lead << 8 | trail;
    const bool gbkOnly = std::any_of(
        std::begin(kGbkOnly), std::end(kGbkOnly),
        [character](const auto& range) { return range[0] <= character && character <= range[1]; });
    if (gbkOnly && label.codePage == kGbk) return false;
  }
  return true;
}

bool fitsLabel(const Charset& charset, std::string_view utf8, std::string_view bytes) {
  const auto names = [&charset](std::string_view part) {
    return charset.name().find(part) != std::string::npos;
  };
  if (charset.codePage() == kBig5 && names("big5")) {
    return utf8.find(kEuroSign) == std::string_view::npos;
  }
  return std::all_of(
      std::begin(kStrictLabels), std::end(kStrictLabels), [&](const StrictLabel& label) {
        return label.codePage != charset.codePage() ||
               std::any_of(std::begin(label.extended), std::end(label.extended), names) ||
               areInSet(label, bytes);
      });
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
         fitsLabel(charset, utf8, bytes);
}

std::string repairedUtf8(std::string_view text) {
  if (base::isValidUtf8(text)) return std::string(text);
  return base::utf16ToUtf8(base::utf8ToUtf16(text));
}

}  // namespace kelvado
