#include "mail/mime/charset_naming.h"

#include <algorithm>
#include <charconv>
#include <iterator>

#include "base/ascii.h"
#include "platform/text/code_page.h"

namespace kelvado {
namespace {

struct Row {
  std::uint32_t codePage;
  std::string_view name;
};

// By rising code page.
constexpr Row kRows[] = {
    {37, "ibm037"},
    {437, "ibm437"},
    {500, "ibm500"},
    {708, "asmo-708"},
    {720, "dos-720"},
    {737, "ibm737"},
    {775, "ibm775"},
    {850, "ibm850"},
    {852, "ibm852"},
    {855, "ibm855"},
    {857, "ibm857"},
    {858, "ibm00858"},
    {860, "ibm860"},
    {861, "ibm861"},
    {862, "dos-862"},
    {863, "ibm863"},
    {864, "ibm864"},
    {865, "ibm865"},
    {866, "cp866"},
    {869, "ibm869"},
    {870, "ibm870"},
    {874, "windows-874"},
    {875, "cp875"},
    {932, "shift_jis"},
    {936, "gb2312"},
    {949, "ks_c_5601-1987"},
    {950, "big5"},
    {1026, "ibm1026"},
    {1047, "ibm01047"},
    {1140, "ibm01140"},
    {1141, "ibm01141"},
    {1142, "ibm01142"},
    {1143, "ibm01143"},
    {1144, "ibm01144"},
    {1145, "ibm01145"},
    {1146, "ibm01146"},
    {1147, "ibm01147"},
    {1148, "ibm01148"},
    {1149, "ibm01149"},
    {1200, "unicode"},
    {1201, "unicodefffe"},
    {1250, "windows-1250"},
    {1251, "windows-1251"},
    {1252, "windows-1252"},
    {1253, "windows-1253"},
    {1254, "windows-1254"},
    {1255, "windows-1255"},
    {1256, "windows-1256"},
    {1257, "windows-1257"},
    {1258, "windows-1258"},
    {1361, "johab"},
    {10000, "macintosh"},
    {10001, "x-mac-japanese"},
    {10002, "x-mac-chinesetrad"},
    {10003, "x-mac-korean"},
    {10004, "x-mac-arabic"},
    {10005, "x-mac-hebrew"},
    {10006, "x-mac-greek"},
    {10007, "x-mac-cyrillic"},
    {10008, "x-mac-chinesesimp"},
    {10010, "x-mac-romanian"},
    {10017, "x-mac-ukrainian"},
    {10021, "x-mac-thai"},
    {10029, "x-mac-ce"},
    {10079, "x-mac-icelandic"},
    {10081, "x-mac-turkish"},
    {10082, "x-mac-croatian"},
    {20000, "x-chinese-cns"},
    {20001, "x-cp20001"},
    {20002, "x-chinese-eten"},
    {20003, "x-cp20003"},
    {20004, "x-cp20004"},
    {20005, "x-cp20005"},
    {20105, "x-ia5"},
    {20106, "x-ia5-german"},
    {20107, "x-ia5-swedish"},
    {20108, "x-ia5-norwegian"},
    {20127, "us-ascii"},
    {20261, "x-cp20261"},
    {20269, "x-cp20269"},
    {20273, "ibm273"},
    {20277, "ibm277"},
    {20278, "ibm278"},
    {20280, "ibm280"},
    {20284, "ibm284"},
    {20285, "ibm285"},
    {20290, "ibm290"},
    {20297, "ibm297"},
    {20420, "ibm420"},
    {20423, "ibm423"},
    {20424, "ibm424"},
    {20833, "x-ebcdic-koreanextended"},
    {20838, "ibm-thai"},
    {20866, "koi8-r"},
    {20871, "ibm871"},
    {20880, "ibm880"},
    {20905, "ibm905"},
    {20924, "ibm00924"},
    {20932, "euc-jp"},
    {20936, "x-cp20936"},
    {20949, "x-cp20949"},
    {21025, "cp1025"},
    {21866, "koi8-u"},
    {28591, "iso-8859-1"},
    {28592, "iso-8859-2"},
    {28593, "iso-8859-3"},
    {28594, "iso-8859-4"},
    {28595, "iso-8859-5"},
    {28596, "iso-8859-6"},
    {28597, "iso-8859-7"},
    {28598, "iso-8859-8"},
    {28599, "iso-8859-9"},
    {28603, "iso-8859-13"},
    {28605, "iso-8859-15"},
    {29001, "x-europa"},
    {38598, "iso-8859-8-i"},
    {50220, "iso-2022-jp"},
    {50221, "csiso2022jp"},
    {50222, "iso-2022-jp"},
    {50225, "iso-2022-kr"},
    {50227, "x-cp50227"},
    {51932, "euc-jp"},
    {51936, "euc-cn"},
    {51949, "euc-kr"},
    {52936, "hz-gb-2312"},
    {54936, "gb18030"},
    {57002, "x-iscii-de"},
    {57003, "x-iscii-be"},
    {57004, "x-iscii-ta"},
    {57005, "x-iscii-te"},
    {57006, "x-iscii-as"},
    {57007, "x-iscii-or"},
    {57008, "x-iscii-ka"},
    {57009, "x-iscii-ma"},
    {57010, "x-iscii-gu"},
    {57011, "x-iscii-pa"},
    {65000, "utf-7"},
    {65001, "utf-8"},
    {65005, "utf-32"},
    {65006, "utf-32be"},
};
static_assert(std::is_sorted(std::begin(kRows), std::end(kRows),
                             [](const Row& a, const Row& b) { return a.codePage < b.codePage; }));

struct Alias {
  std::string_view name;
  std::uint32_t codePage;
};

// What other programs write, as normalised by plainName(), and names of the table that stand for
// another code page when they are read.
constexpr Alias kAliases[] = {
    {"iso-2022-jp", 50220},
    {"euc-jp", 51932},
    {"euc-kr", 949},  // with its extension, which many programs write under this name
    {"ascii", 20127},
    {"ansi-x3.4-1968", 20127},
    {"iso646-us", 20127},
    {"us", 20127},
    {"utf8", 65001},
    {"unicode-1-1-utf-8", 65001},
    {"utf7", 65000},
    {"utf-16", 1201},
    {"utf-16le", 1200},
    {"utf-16be", 1201},
    {"utf-32le", 65005},
    {"latin1", 28591},
    {"l1", 28591},
    {"latin2", 28592},
    {"latin3", 28593},
    {"latin4", 28594},
    {"cyrillic", 28595},
    {"arabic", 28596},
    {"greek", 28597},
    {"hebrew", 28598},
    {"latin5", 28599},
    {"latin9", 28605},
    {"latin-9", 28605},
    {"iso-8859-8-e", 28598},
    {"iso-8859-10", kLatin6CodePage},
    {"latin6", kLatin6CodePage},
    {"iso-8859-14", kLatin8CodePage},
    {"latin8", kLatin8CodePage},
    {"iso-8859-16", kLatin10CodePage},
    {"latin10", kLatin10CodePage},
    {"koi8", 20866},
    {"koi8r", 20866},
    {"koi8-ru", 21866},
    {"koi8u", 21866},
    {"shift-jis", 932},
    {"sjis", 932},
    {"x-sjis", 932},
    {"ms-kanji", 932},
    {"windows-31j", 932},
    {"x-euc-jp", 51932},
    {"eucjp", 51932},
    {"gbk", 936},
    {"x-gbk", 936},
    {"gb-2312-80", 936},
    {"euckr", 949},
    {"gb-18030", 54936},
    {"big5-hkscs", 950},
    {"x-x-big5", 950},
    {"ks-c-5601", 949},
    {"ks-c-5601-1989", 949},
    {"korean", 949},
    {"uhc", 949},
    {"tis-620", 874},
    {"iso-8859-11", 874},
    {"dos-874", 874},
    {"mac", 10000},
    {"x-mac-roman", 10000},
    {"csmacintosh", 10000},
};

// Lower case, '-' for '_' and blanks, and "iso-8859-1" for "iso8859-1".
std::string plainName(std::string_view name) {
  std::string plain = base::lowered(base::trimmed(name));
  std::replace_if(
      plain.begin(), plain.end(), [](char c) { return c == '_' || c == ' '; }, '-');
  if (plain.starts_with("iso8859")) plain.insert(3, 1, '-');
  return plain;
}

const Row* findRow(std::uint32_t codePage) {
  const auto* found =
      std::lower_bound(std::begin(kRows), std::end(kRows), codePage,
                       [](const Row& row, std::uint32_t number) { return row.codePage < number; });
  return found != std::end(kRows) && found->codePage == codePage ? found : nullptr;
}

// "cp1252", "windows-1252", "x-cp1252", "ibm850": names that hold the number.
std::uint32_t codePageInName(std::string_view plain) {
  for (const std::string_view prefix : {"windows-", "x-cp", "cp-", "cp", "ibm-", "ibm", "x-ibm"}) {
    if (!plain.starts_with(prefix)) continue;
    const std::string_view digits = plain.substr(prefix.size());
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error == std::errc() && end == digits.data() + digits.size() &&
        findRow(number) != nullptr) {
      return number;
    }
  }
  return kNoCodePage;
}

}  // namespace

bool CharsetNaming::getName(std::uint32_t codePage, StringBuffer& name) {
  const Row* row = findRow(codePage);
  if (row == nullptr) return false;
  name.clear();
  name.append(row->name);
  return true;
}

std::uint32_t CharsetNaming::getCodePage(std::string_view name) {
  if (base::equalsNoCase(name, "utf-8")) return platform::kCodePageUtf8;  // nearly every time
  const std::string plain = plainName(name);
  for (const Alias& alias : kAliases) {
    if (alias.name == plain) return alias.codePage;
  }
  const auto same = [](char rowCharacter, char character) {
    return (rowCharacter == '_' ? '-' : rowCharacter) == character;
  };
  for (const Row& row : kRows) {
    if (std::equal(row.name.begin(), row.name.end(), plain.begin(), plain.end(), same)) {
      return row.codePage;
    }
  }
  return codePageInName(plain);
}

}  // namespace kelvado
