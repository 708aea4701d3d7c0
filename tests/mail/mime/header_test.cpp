// Header fields on the wire, and the values that a message is given: dates, identifiers, types.
#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "base/text.h"
#include "base/timestamp.h"
#include "mail/mime/content_type.h"
#include "mail/mime/content_types_by_extension.h"
#include "mail/mime/header_writer.h"
#include "mail/mime/identifiers.h"
#include "mail/mime/mail_date.h"
#include "mail/mime/mime_parameter.h"
#include "tests/support/rows.h"

namespace kelvado {
namespace {

std::size_t longestLine(std::string_view text) {
  std::size_t longest = 0;
  while (!text.empty()) longest = std::max(longest, base::takeLine(text).size());
  return longest;
}

std::string onTheWire(std::string_view name, std::string_view value,
                      std::string_view charset = "utf-8") {
  std::string out;
  appendHeaderField({std::string(name), std::string(value)}, charset, out);
  return out;
}

TEST(HeaderWriter, FoldsAndEncodes) {
  const std::string x70(70, 'x');
  const auto rows = test_support::rows<3>(ROWS "/header.txt", "fields on the wire");
  for (const auto& [name, value, line] : rows) EXPECT_EQ(onTheWire(name, value), line);
  // Names of a "us-ascii" message are not encoded; its subject is.
  EXPECT_EQ(onTheWire("To", "\"\xC3\xBC\" <a@x>", "us-ascii"), "To: \"\xC3\xBC\" <a@x>\r\n");
  EXPECT_EQ(onTheWire("Subject", "\xC3\xBC", "us-ascii"), "Subject: =?utf-8?Q?=C3=BC?=\r\n");
}

TEST(HeaderWriter, NoLineIsTooLong) {
  const std::string unbroken(1500, 'x'), blanks = "a" + std::string(1500, ' ') + "b";
  for (const std::string& value : {unbroken, blanks, "\xC3\xBC" + unbroken}) {
    EXPECT_LE(longestLine(onTheWire("Subject", value)), 76U);
    EXPECT_EQ(onTheWire("Subject", value).find("\r\n \r\n"), std::string::npos);
  }
  EXPECT_TRUE(onTheWire("Content-Disposition", "\"a;\"; \xC3\xBC=w; y=z; f=\"" + unbroken + "\"")
                  .starts_with("Content-Disposition: a;\r\n\ty=\"z\";\r\n\tf*0*=utf-8''xxx"));
  // A fold never stands within a character.
  std::string wide;
  for (int i = 0; i < 600; ++i) wide += "\xE6\x97\xA5";
  std::string folded = onTheWire("Subject", "?q?" + wide);
  base::replaceAll(folded, "\r\n ", "");
  EXPECT_NE(folded.find(wide), std::string::npos);
  // Where nothing else is left, the limit of the protocol holds all the same.
  EXPECT_LE(longestLine(onTheWire("To", "?Q?" + unbroken)), kMaxLineOctets);
}

TEST(ContentType, IsWrittenInOneWay) {
  const auto rows = test_support::rows<2>(ROWS "/header.txt", "content types");
  for (const auto& [given, value] : rows) EXPECT_EQ(parseContentType(given).format(), value);
  // Nothing breaks out of a parameter or of the line.
  ContentType evil = ContentType::ofType("a/b\r\nBcc: x; y");
  evil.name = "x\"; y=\"\r\nBcc: z\\";
  EXPECT_EQ(evil.format(), "a/bBccxy;\r\n\tname=\"x\\\"; y=\\\"Bcc: z\\\\\"");
}

TEST(ContentType, ReadsTheNamesThatOthersWrite) {
  const auto rows = test_support::rows<2>(ROWS "/header.txt", "names in content types");
  for (const auto& [value, name] : rows) EXPECT_EQ(parseContentType(value).name, name) << value;
}

TEST(MimeParameter, NamesComeBack) {
  std::string words;
  for (int i = 0; i < 60; ++i) words += "\xC3\xBC xy";
  for (const std::string& name : {words, std::string(" =?utf-8?B?Zm9v?=.txt ")}) {
    std::string text = "attachment;\r\n\t";
    appendParameter("filename", name, text);
    EXPECT_LE(longestLine(text), 76U);
    EXPECT_EQ(text.find("*=%BC"), std::string::npos);  // each piece holds whole characters
    std::vector<MimeParameter> parameters;
    EXPECT_EQ(parseParameterised(text, parameters), "attachment");
    EXPECT_EQ(parameterNamed(parameters, "filename"), name);
  }
}

TEST(ContentTypeForFile, LooksAtTheLastExtension) {
  const auto rows = test_support::rows<2>(ROWS "/header.txt", "content types of files");
  for (const auto& [name, type] : rows) EXPECT_EQ(contentTypeForFile(name), type) << name;
}

TEST(Identifiers, BoundariesAreMadeOfThem) {
  EXPECT_EQ(boundaryFrom("3f2a91c7-0b1d-44e2-8899-abcd9c0f1a2b", kAlternativeMarker),
            "-----_kelvado_3f2_a91c_0b1d44e2.abcd9c0f_.ALT");
}

TEST(MailDate, FormatsLocalTimeAndZone) {
  const base::LocalTime noon{2026, 7, 2, 21, 12, 0, 0};
  const std::tuple<base::LocalTime, platform::TimeZone, std::string_view> rows[] = {
      {{2008, 1, 6, 5, 9, 3, 7}, {300, 0, false}, "Sat, 05 Jan 2008 09:03:07 -0500"},
      {noon, {-330, 0, false}, "Tue, 21 Jul 2026 12:00:00 +0530"},
      {noon, {-60, -60, true}, "Tue, 21 Jul 2026 12:00:00 +0200"},
      {noon, {-60, -60, false}, "Tue, 21 Jul 2026 12:00:00 +0100"},
      {noon, {0, 0, false}, "Tue, 21 Jul 2026 12:00:00 +0000"},
      {noon, {30, 0, false}, "Tue, 21 Jul 2026 12:00:00 +0030"},  // kept as it is
      {noon, {210, -60, true}, "Tue, 21 Jul 2026 12:00:00 -0230"},
      {{2026, 0, 7, 1, 0, 0, 0}, {}, "Sun, 01 Jan 2026 00:00:00 +0000"},
      {{2026, 13, -1, 1, 0, 0, 0}, {}, "Sun, 01 Jan 2026 00:00:00 +0000"},
  };
  for (const auto& [time, zone, date] : rows) EXPECT_EQ(formatMailDate(time, zone), date);
}

}  // namespace
}  // namespace kelvado
