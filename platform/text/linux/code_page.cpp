// Code pages by iconv, and the ANSI code page, which is UTF-8 here.
#include "platform/text/code_page.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <iterator>

#include <iconv.h>

#include "base/unicode.h"

namespace platform {
namespace {

constexpr std::uint32_t kCodePageWindows1252 = 1252;

struct CodePageName {
  std::uint32_t codePage;
  const char* name;  // iconv's
  std::size_t unit;  // bytes to step over when one does not decode
};

// By rising code page. Missing are those that iconv cannot convert.
constexpr CodePageName kCodePages[] = {
    {37, "IBM037", 1},          {437, "IBM437", 1},        {500, "IBM500", 1},
    {708, "ASMO-708", 1},       {737, "CP737", 1},         {775, "CP775", 1},
    {850, "IBM850", 1},         {852, "IBM852", 1},        {855, "IBM855", 1},
    {857, "IBM857", 1},         {858, "CP858", 1},         {860, "IBM860", 1},
    {861, "IBM861", 1},         {862, "IBM862", 1},        {863, "IBM863", 1},
    {864, "IBM864", 1},         {865, "IBM865", 1},        {866, "IBM866", 1},
    {869, "IBM869", 1},         {870, "IBM870", 1},        {874, "CP874", 1},
    {875, "CP875", 1},          {932, "CP932", 1},         {936, "CP936", 1},
    {949, "CP949", 1},          {950, "CP950", 1},         {1026, "IBM1026", 1},
    {1047, "IBM1047", 1},       {1140, "IBM1140", 1},      {1141, "IBM1141", 1},
    {1142, "IBM1142", 1},       {1143, "IBM1143", 1},      {1144, "IBM1144", 1},
    {1145, "IBM1145", 1},       {1146, "IBM1146", 1},      {1147, "IBM1147", 1},
    {1148, "IBM1148", 1},       {1149, "IBM1149", 1},      {1200, "UTF-16LE", 2},
    {1201, "UTF-16BE", 2},      {1250, "CP1250", 1},       {1251, "CP1251", 1},
    {1252, "CP1252", 1},        {1253, "CP1253", 1},       {1254, "CP1254", 1},
    {1255, "CP1255", 1},        {1256, "CP1256", 1},       {1257, "CP1257", 1},
    {1258, "CP1258", 1},        {1361, "JOHAB", 1},        {10000, "MACINTOSH", 1},
    {10007, "MAC-CYRILLIC", 1}, {10017, "MAC-UK", 1},      {10029, "MAC-CENTRALEUROPE", 1},
    {10079, "MAC-IS", 1},       {20127, "US-ASCII", 1},    {20273, "IBM273", 1},
    {20277, "IBM277", 1},       {20278, "IBM278", 1},      {20280, "IBM280", 1},
    {20284, "IBM284", 1},       {20285, "IBM285", 1},      {20290, "IBM290", 1},
    {20297, "IBM297", 1},       {20420, "IBM420", 1},      {20423, "IBM423", 1},
    {20424, "IBM424", 1},       {20866, "KOI8-R", 1},      {20871, "IBM871", 1},
    {20880, "IBM880", 1},       {20905, "IBM905", 1},      {20932, "EUC-JP", 1},
    {20936, "GB2312", 1},       {20949, "EUC-KR", 1},      {21025, "IBM1025", 1},
    {21866, "KOI8-U", 1},       {28591, "ISO-8859-1", 1},  {28592, "ISO-8859-2", 1},
    {28593, "ISO-8859-3", 1},   {28594, "ISO-8859-4", 1},  {28595, "ISO-8859-5", 1},
    {28596, "ISO-8859-6", 1},   {28597, "ISO-8859-7", 1},  {28598, "ISO-8859-8", 1},
    {28599, "ISO-8859-9", 1},   {28603, "ISO-8859-13", 1}, {28605, "ISO-8859-15", 1},
    {38598, "ISO-8859-8", 1},   {50220, "ISO-2022-JP", 1}, {50221, "ISO-2022-JP", 1},
    {50222, "ISO-2022-JP", 1},  {50225, "ISO-2022-KR", 1}, {50227, "ISO-2022-CN", 1},
    {51932, "EUC-JP", 1},       {51936, "EUC-CN", 1},      {51949, "EUC-KR", 1},
    {54936, "GB18030", 1},      {65000, "UTF-7", 1},       {65001, "UTF-8", 1},
    {65005, "UTF-32LE", 4},     {65006, "UTF-32BE", 4},
};

const CodePageName* findCodePage(std::uint32_t codePage) {
  const auto* found = std::lower_bound(
      std::begin(kCodePages), std::end(kCodePages), codePage,
      [](const CodePageName& row, std::uint32_t number) { return row.codePage < number; });
  return found != std::end(kCodePages) && found->codePage == codePage ? found : nullptr;
}

// One direction of iconv.
class Converter {
 public:
  Converter(const char* to, const char* from) : handle_(iconv_open(to, from)) {}
  ~Converter() {
    if (usable()) iconv_close(handle_);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  bool usable() const { return handle_ != reinterpret_cast<iconv_t>(-1); }  // NOLINT

  // Appends to `out` what converts, and takes it off `text`; true when that was all of it.
  bool convert(std::string_view& text, std::string& out) {
    char* in = const_cast<char*>(text.data());  // iconv reads it only
    std::size_t left = text.size();
    const bool complete = pump(&in, &left, out);
    text.remove_prefix(text.size() - left);
    return complete;
  }

  // Ends the text: back to the initial shift state.
  void finish(std::string& out) { pump(nullptr, nullptr, out); }

 private:
  bool pump(char** in, std::size_t* left, std::string& out) {
    std::array<char, 4096> buffer;
    for (;;) {
      char* to = buffer.data();
      std::size_t room = buffer.size();
      const std::size_t result = iconv(handle_, in, left, &to, &room);
      const int reason = errno;
      out.append(buffer.data(), buffer.size() - room);
      if (result != static_cast<std::size_t>(-1)) return true;
      if (reason != E2BIG) return false;
    }
  }

  iconv_t handle_;
};

// What MultiByteToWideChar makes of each byte from 0x80 to 0x9F.
constexpr char16_t kWindows1252[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

std::u16string windows1252ToUtf16(std::string_view text) {
  std::u16string out;
  out.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    out += byte >= 0x80 && byte < 0xA0 ? kWindows1252[byte - 0x80] : static_cast<char16_t>(byte);
  }
  return out;
}

// Whether the UTF-8 text begins with one of the control characters that Windows-1252 carries in the
// bytes it gives no other meaning; iconv has nothing for them.
bool startsWithWindows1252Control(std::string_view utf8) {
  if (utf8.size() < 2 || utf8[0] != '\xC2') return false;
  const auto byte = static_cast<unsigned char>(utf8[1]);
  return byte < 0xA0 && kWindows1252[byte - 0x80] == byte;
}

}  // namespace

std::u16string ansiToUtf16(std::string_view text) {
  return base::isValidUtf8(text) ? base::utf8ToUtf16(text) : windows1252ToUtf16(text);
}

std::string utf16ToAnsi(std::u16string_view text) {
  return base::utf16ToUtf8(text);
}

std::size_t findInAnsi(std::string_view text, char c, std::size_t from) {
  return text.find(c, from);  // all bytes of a longer UTF-8 character are beyond ASCII
}

std::string_view ansiStart(std::string_view text, std::size_t limit) {
  return base::isValidUtf8(text) ? base::utf8Start(text, limit) : text.substr(0, limit);
}

bool codePageToUtf8(std::uint32_t codePage, std::string_view text, std::string& out, bool* lossy) {
  out.clear();
  const CodePageName* page = findCodePage(codePage);
  if (page == nullptr) return false;
  bool replaced = false;
  if (codePage == kCodePageUtf8) {
    replaced = !base::isValidUtf8(text);
    out = replaced ? base::utf16ToUtf8(base::utf8ToUtf16(text)) : std::string(text);
  } else if (codePage == kCodePageWindows1252) {
    out = base::utf16ToUtf8(windows1252ToUtf16(text));
  } else {
    Converter converter("UTF-8", page->name);
    if (!converter.usable()) return false;
    while (!converter.convert(text, out) && !text.empty()) {
      replaced = true;
      out += "\xEF\xBF\xBD";
      text.remove_prefix(std::min(page->unit, text.size()));
    }
    converter.finish(out);
  }
  if (replaced && lossy != nullptr) *lossy = true;
  return true;
}

bool utf8ToCodePage(std::uint32_t codePage, std::string_view utf8, std::string& out, bool* lossy) {
  out.clear();
  const CodePageName* page = findCodePage(codePage);
  if (page == nullptr) return false;
  std::string repaired;
  bool replaced = !base::isValidUtf8(utf8);
  if (replaced) {
    repaired = base::utf16ToUtf8(base::utf8ToUtf16(utf8));
    utf8 = repaired;
  }
  if (codePage == kCodePageUtf8) {
    out = utf8;
  } else {
    Converter converter(page->name, "UTF-8");
    if (!converter.usable()) return false;
    while (!converter.convert(utf8, out) && !utf8.empty()) {
      if (codePage == kCodePageWindows1252 && startsWithWindows1252Control(utf8)) {
        out += utf8[1];
        utf8.remove_prefix(2);
        continue;
      }
      replaced = true;
      utf8.remove_prefix(base::utf8CharacterLength(utf8));
      std::string_view mark = "?";
      converter.convert(mark, out);
    }
    converter.finish(out);
  }
  if (replaced && lossy != nullptr) *lossy = true;
  return true;
}

}  // namespace platform
