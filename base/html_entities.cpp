// The named and numeric character references of HTML: one of the functions of html_to_text.h.
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <iterator>
#include <optional>

#include "base/html_to_text.h"
#include "base/unicode.h"

namespace base {
namespace {

// U+00A0 to U+00FF, in order.
constexpr std::string_view kLatin1[] = {
    "nbsp",   "iexcl",  "cent",   "pound",  "curren", "yen",    "brvbar", "sect",   "uml",
    "copy",   "ordf",   "laquo",  "not",    "shy",    "reg",    "macr",   "deg",    "plusmn",
    "sup2",   "sup3",   "acute",  "micro",  "para",   "middot", "cedil",  "sup1",   "ordm",
    "raquo",  "frac14", "frac12", "frac34", "iquest", "Agrave", "Aacute", "Acirc",  "Atilde",
    "Auml",   "Aring",  "AElig",  "Ccedil", "Egrave", "Eacute", "Ecirc",  "Euml",   "Igrave",
    "Iacute", "Icirc",  "Iuml",   "ETH",    "Ntilde", "Ograve", "Oacute", "Ocirc",  "Otilde",
    "Ouml",   "times",  "Oslash", "Ugrave", "Uacute", "Ucirc",  "Uuml",   "Yacute", "THORN",
    "szlig",  "agrave", "aacute", "acirc",  "atilde", "auml",   "aring",  "aelig",  "ccedil",
    "egrave", "eacute", "ecirc",  "euml",   "igrave", "iacute", "icirc",  "iuml",   "eth",
    "ntilde", "ograve", "oacute", "ocirc",  "otilde", "ouml",   "divide", "oslash", "ugrave",
    "uacute", "ucirc",  "uuml",   "yacute", "thorn",  "yuml"};
static_assert(std::size(kLatin1) == 0x60);

struct Entity {
  std::string_view name;
  char32_t character;
};
constexpr Entity kOthers[] = {
    {"amp", '&'},       {"lt", '<'},        {"gt", '>'},        {"quot", '"'},
    {"apos", '\''},     {"OElig", 0x152},   {"oelig", 0x153},   {"Scaron", 0x160},
    {"scaron", 0x161},  {"Yuml", 0x178},    {"ensp", 0x2002},   {"emsp", 0x2003},
    {"thinsp", 0x2009}, {"zwnj", 0x200C},   {"zwj", 0x200D},    {"ndash", 0x2013},
    {"mdash", 0x2014},  {"lsquo", 0x2018},  {"rsquo", 0x2019},  {"sbquo", 0x201A},
    {"ldquo", 0x201C},  {"rdquo", 0x201D},  {"bdquo", 0x201E},  {"bull", 0x2022},
    {"hellip", 0x2026}, {"lsaquo", 0x2039}, {"rsaquo", 0x203A}, {"euro", 0x20AC},
    {"trade", 0x2122},  {"larr", 0x2190},   {"rarr", 0x2192}};
constexpr std::size_t kLongestReference = 12;  // between "&" and ";"

std::optional<char32_t> numbered(std::string_view digits) {
  const bool hexadecimal = digits.starts_with('x') || digits.starts_with('X');
  if (hexadecimal) digits.remove_prefix(1);
  std::uint32_t number = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, number, hexadecimal ? 16 : 10);
  const bool surrogate = number >= 0xD800 && number < 0xE000;
  if (error != std::errc() || stop != end || number == 0 || number > 0x10FFFF || surrogate) {
    return std::nullopt;
  }
  return static_cast<char32_t>(number);
}

std::string utf8Of(char32_t character) {
  std::u16string wide;
  if (character >= 0x10000) {
    wide += static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10));
    wide += static_cast<char16_t>(0xDC00 + (character & 0x3FF));
  } else {
    wide += static_cast<char16_t>(character);
  }
  return utf16ToUtf8(wide);
}

std::optional<char32_t> characterOf(std::string_view reference) {
  if (reference.starts_with('#')) return numbered(reference.substr(1));
  const auto* const latin = std::find(std::begin(kLatin1), std::end(kLatin1), reference);
  if (latin != std::end(kLatin1)) return static_cast<char32_t>(0xA0 + (latin - kLatin1));
  const auto* const other =
      std::find_if(std::begin(kOthers), std::end(kOthers),
                   [reference](const Entity& entity) { return entity.name == reference; });
  if (other == std::end(kOthers)) return std::nullopt;
  return other->character;
}

}  // namespace

std::string withoutEntities(std::string_view html) {
  std::string text;
  for (std::size_t at = 0; (at = html.find('&')) != std::string_view::npos;) {
    text += html.substr(0, at);
    html.remove_prefix(at);
    const std::size_t end = html.substr(0, kLongestReference + 2).find(';');
    const std::optional<char32_t> character =
        end == std::string_view::npos ? std::nullopt : characterOf(html.substr(1, end - 1));
    if (character) {
      text += utf8Of(*character);
    } else {
      text += '&';
    }
    html.remove_prefix(character ? end + 1 : 1);
  }
  return text.append(html);
}

}  // namespace base
