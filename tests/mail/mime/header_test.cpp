// Header fields on the wire, and the values that a message is given: dates, identifiers, types.
#include <algorithm>
#include <array>
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
  const std::array<std::string, 3> rows[] = {
      // name, value, line
      {"Subject", "", "Subject: \r\n"},
      {"Subject", "\xC3\xBC", "Subject: =?utf-8?Q?=C3=BC?=\r\n"},
      {"Subject", "a " + x70 + " b", "Subject: a\r\n " + x70 + " b\r\n"},
      // No line of blanks only, which some take for the end of the header.
      {"Subject", "a  " + x70 + "  ", "Subject: a\r\n  " + x70 + "  \r\n"},
      // A long word: free text in encoded words, anything else whole.
      {"X-Note", x70,
       "X-Note: =?utf-8?Q?" + std::string(56, 'x') + "?=\r\n =?utf-8?Q?" + std::string(14, 'x') +
           "?=\r\n"},
      // Words that are there already are not encoded again, and other text is, once.
      {"Subject", "=?utf-8?B?" + x70 + "?=", "Subject: =?utf-8?B?" + x70 + "?=\r\n"},
      {"Subject", "=?utf-8?B?w7w=?= \xC3\xBC", "Subject: =?utf-8?Q?=C3=BC_=C3=BC?=\r\n"},
      // No fold in quotes.
      {"Cc", "\"a \\\" " + x70 + " b\" <a@x>", "Cc: \"a \\\" " + x70 + " b\"\r\n <a@x>\r\n"},
      {"Content-Disposition", "inline; filename=\"a " + x70 + "\"",
       "Content-Disposition: inline;\r\n filename=\"a " + x70 + "\"\r\n"},
      {"References", "<" + x70 + "@x>", "References: <" + x70 + "@x>\r\n"},
      // Folds that are in the value stay.
      {"To", "a@x,\r\n b@x", "To: a@x,\r\n b@x\r\n"},
      {"To", "\"J\xC3\xB6rg\" <a@x>,\r\n \"B, C\" <b@x>",
       "To: =?utf-8?Q?J=C3=B6rg?= <a@x>,\r\n \"B, C\" <b@x>\r\n"},
      // Addresses take ASCII only; and a name that says it is in words can't add one.
      {"Reply-To", "foo \xC3\xA9", "Reply-To: =?utf-8?Q?=3Cfoo_=C3=A9=3E?=\r\n"},
      {"To", "\"?q?\xC3\xA9, <a@x>\" <b@x>", "To: \"?q?\xC3\xA9, <a@x>\" <b@x>\r\n"},
      {"Cc", "\"" + x70 + "\" <a@x>", "Cc: \"" + x70 + "\"\r\n <a@x>\r\n"},
      {"From", "\"" + std::string(45, 'n') + "\xC3\xBC\" <address@example.org>",
       "From: =?utf-8?Q?" + std::string(45, 'n') + "=C3=BC?=\r\n <address@example.org>\r\n"},
  };
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
  const std::pair<std::string_view, std::string_view> rows[] = {
      {"", "text/plain"},
      {"TEXT/PLAIN; Charset=\"UTF-8\" (x;y); FORMAT=flowed;;",
       "text/plain; charset=\"utf-8\";\r\n\tformat=flowed"},
      {"a/b; smime-type=s; micalg=sha1; protocol=p; name=n; boundary=b; type=t",
       "a/b; type=\"t\";\r\n\tboundary=\"b\";\r\n\tname=\"n\";\r\n\tprotocol=\"p\";\r\n\t"
       "micalg=sha1;\r\n\tsmime-type=s"},
      {"image/gif; charset=utf-8", "image/gif"},  // only text carries a charset
      {"multipart/signed; charset=utf-8", "multipart/signed; charset=\"utf-8\""},
      {"message/rfc822; charset=utf-8", "message/rfc822; charset=\"utf-8\""},
      {"a/b; name*=utf-8''%C3%BC%20%22.txt", "a/b;\r\n\tname*=utf-8''%C3%BC%20%22.txt"},
  };
  for (const auto& [given, value] : rows) EXPECT_EQ(parseContentType(given).format(), value);
  // Nothing breaks out of a parameter or of the line.
  ContentType evil = ContentType::ofType("a/b\r\nBcc: x; y");
  evil.name = "x\"; y=\"\r\nBcc: z\\";
  EXPECT_EQ(evil.format(), "a/bBccxy;\r\n\tname=\"x\\\"; y=\\\"Bcc: z\\\\\"");
}

TEST(ContentType, ReadsTheNamesThatOthersWrite) {
  const std::pair<std::string_view, std::string_view> rows[] = {
      {"a/b; name=plain.txt", "plain.txt"},
      {"a/b; name=\"q\\\"uo;ted\"", "q\"uo;ted"},
      {"a/b; name*=iso-8859-1'de'%FC.txt", "\xC3\xBC.txt"},
      {"a/b; name*1*=%BC.txt; name*0*=utf-8''%C3", "\xC3\xBC.txt"},
      {"a/b; name*0=\"one \"; name*1=two", "one two"},
      {"a/b; name=  \" lead.txt \" ;x=y", " lead.txt "},
      {"a/b; name=fallback; name*=utf-8''%C3%BC", "\xC3\xBC"},
      {"a/b; name*0=no; name*=utf-8''%C3%BC; name*1=ne", "\xC3\xBC"},
      {"a/b; name=x; name*0=\"val\"; name*1=\"ue2\"; name*x=y", "value2"},
      {"a/b; name=x; name*1=lost", "x"},
      {"a/b; name=\"=?utf-8?B?w7w=?=\"", "\xC3\xBC"},
      {"a/b; name*=utf-8''a%0D%0ABcc: x", "aBcc: x"},
      {"a/b; name", ""},
      {"a/b; name=\"open", "open"},
  };
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
  const std::pair<std::string_view, std::string_view> rows[] = {
      {"Norvyn-Report-Logo.gif", "image/gif"},     {"A.B.HTML", "text/html"},
      {"noextension", "application/octet-stream"}, {"x.", "application/octet-stream"},
      {"gif", "application/octet-stream"},         {"a.unknown", "application/octet-stream"}};
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
