// The pure parts of the mail session: replies, extension lists, wire forms.
#include <array>

#include <gtest/gtest.h>

#include "base/text.h"
#include "mail/smtp/cls_mail_man.h"
#include "mail/smtp/smtp_auth.h"
#include "mail/smtp/smtp_reply.h"
#include "mail/smtp/smtp_transaction.h"
#include "mail/smtp/smtp_wire.h"
#include "mail/smtp/wire_text.h"

namespace kelvado {
namespace {

using Progress = SmtpReply::Progress;
using Ending = SmtpReply::Ending;
using std::string_literals::operator""s;

TEST(SmtpReply, EndsAndCodes) {
  const auto check = [](const std::string& text, Ending ending, Progress last, int code) {
    SCOPED_TRACE(text);
    SmtpReply reply(ending);
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t next = text.find("\r\n", at) + 2;
      EXPECT_EQ(reply.addLine(text.substr(at, next - at)),
                next == text.size() ? last : Progress::More);
      at = next;
    }
    EXPECT_EQ(reply.code(), code);
    EXPECT_EQ(reply.text(), text);
  };
  check("220 ready\r\n", Ending::NoHyphen, Progress::Complete, 220);
  check("220-a\r\n220-b\r\n220 c\r\n", Ending::NoHyphen, Progress::Complete, 220);
  check("250-a\r\n550 the last code counts\r\n", Ending::NoHyphen, Progress::Complete, 550);
  check("250\tany but '-' ends it\r\n", Ending::NoHyphen, Progress::Complete, 250);
  check("250\tbut not EHLO's\r\n", Ending::Blank, Progress::More, -1);
  check("nonsense ends that, too\r\n", Ending::Blank, Progress::Complete, -2);
  check("220\r\n", Ending::NoHyphen, Progress::Unrecognized, -1);
  check("\r\n", Ending::NoHyphen, Progress::Unrecognized, -1);
  check("2x0 no number\r\n", Ending::NoHyphen, Progress::Complete, -2);
  check("250 a\0b\r\n"s, Ending::NoHyphen, Progress::Complete, 250);
}

TEST(EhloReply, ListsExtensions) {
  const auto check = [](const char* text, bool dsn, bool utf8, std::uint64_t size,
                        const char* methods) {
    SCOPED_TRACE(text);
    const std::optional<SmtpExtensions> extensions = parseEhloReply(text);
    ASSERT_TRUE(extensions.has_value());
    EXPECT_EQ(extensions->dsn, dsn);
    EXPECT_EQ(extensions->smtpUtf8, utf8);
    EXPECT_EQ(extensions->maxSize, size);
    EXPECT_EQ(extensions->authMethods, methods);
  };
  check("250-host\r\n250-AUTH LOGIN PLAIN\r\n250 DSN\r\n", true, false, 0, " LOGIN PLAIN");
  check("250-size 35\r\n250-smtputf8\r\n250-auth a\r\n250 AUTH b\r\n", false, true, 35, " a b");
  check("250-SIZE\r\n250 AUTH=LOGIN\r\n", false, false, 0, "");
  check("250 SIZE 99999999999999999999\r\n", false, false, 0, "");
  EXPECT_FALSE(parseEhloReply("250-host\r\n251 DSN\r\n").has_value());
  EXPECT_FALSE(parseEhloReply("502 what\r\n").has_value());
}

// The pieces differ in size, the bytes must not.
TEST(DataEncoder, NormalisesLineEndsAndDoublesDots) {
  const std::tuple<std::string, std::string, unsigned> cases[] = {
      {"", "", 0},
      {"a\r\n.\r\nb", "a\r\n..\r\nb", 1},
      {".first\r\n..two", ".first\r\n...two", 1},
      {"bare\n.lf\r.cr\r\r\n.both\n\n.", "bare\r\n..lf\r\n..cr\r\n\r\n..both\r\n\r\n..", 4},
      {"no end. of line", "no end. of line", 0},
      {std::string(5000, 'x') + "\n.", std::string(5000, 'x') + "\r\n..", 1},
  };
  for (const auto& [text, expected, dots] : cases) {
    for (const std::size_t size : {1U, 2U, 7U, 65536U}) {
      DataEncoder encoder;
      std::string wire;
      for (std::size_t at = 0; at < text.size(); at += size) {
        encoder.append(std::string_view(text).substr(at, size), wire);
      }
      EXPECT_EQ(wire, expected) << "in pieces of " << size;
      EXPECT_EQ(encoder.doubledDots(), dots);
    }
  }
}

TEST(CramMd5, AnswersAndCutsTheKey) {
  // The example of RFC 2195.
  EXPECT_EQ(cramMd5Answer("tim", "tanstaaftanstaaf", "<1896.697170952@postoffice.reston.mci.net>"),
            "tim b913a602c7eda7a495b4e6e7334d3890");
  const std::string key(70, 'k');
  EXPECT_EQ(cramMd5Answer("u", key, "c"), cramMd5Answer("u", key.substr(0, 64), "c"));
  EXPECT_NE(cramMd5Answer("u", key, "c"), cramMd5Answer("u", key.substr(0, 63), "c"));
}

TEST(ReadTimeout, DiffersUnderTls) {
  using Row = std::array<std::uint64_t, 3>;  // configured; plain, under TLS
  for (const auto& [configured, plain, tls] :
       {Row{0, 5000000, 1000}, Row{2500, 2500, 2000}, Row{999, 999, 1000},
        Row{5000001, 5000000, 5000000}, Row{1ULL << 40, 5000000, 5000000}}) {
    EXPECT_EQ(effectiveReadTimeoutMs(configured, false), plain);
    EXPECT_EQ(effectiveReadTimeoutMs(configured, true), tls);
  }
}

TEST(WireText, KnowsWhatMayGoIntoACommand) {
  for (const char* good :
       {"u@x.example", "o'neil+tag@x.example", "\"a b\"@x.example", "g\xC3\xBCnter@x.example"}) {
    EXPECT_TRUE(isSafeAddress(good)) << good;
  }
  for (const std::string& bad :
       {"u@x>\r\nRCPT TO:<evil@x"s, "u@x\nQUIT"s, "u@x\r"s, "u\0@x"s, "u@x> NOTIFY=NEVER <"s,
        "<u@x>"s, "u@x y@x"s, "g\xFC@x"s, std::string(2000, 'u') + "@x", ""s}) {
    EXPECT_FALSE(isSafeAddress(bad)) << bad.substr(0, 30);
  }
}

TEST(WireText, ShowsForeignBytesInTheLog) {
  EXPECT_EQ(base::loggableLine("a\r\nb\x1B"), "a  b\\x1B");
  EXPECT_EQ(base::loggable("250 ok\r\n"), "250 ok\r\n");
  EXPECT_EQ(base::loggable("a\0b\x1B\x7F"s), "a\\x00b\\x1B\\x7F");
  EXPECT_EQ(base::loggable("Gr\xC3\xBC\xC3\x9F"), "Gr\xC3\xBC\xC3\x9F");
  EXPECT_EQ(base::loggable("Gr\xFC"), "Gr\\xFC");
  EXPECT_EQ(base::loggable("<![CDATA[ ]]>"), "<![CDATA[ ]] >");
  EXPECT_EQ(base::loggable(std::string(10000, 'x')).size(), 4099U);
}

TEST(MxLookup, OrdersTheHostsOfADomain) {
  class FakeDns : public platform::Dns {
   public:
    bool queryMx(const std::string& domain, std::vector<platform::MxRecord>& records) override {
      if (domain == "nomail.example") records = {{0, "."}};
      if (domain == "site.example") records = {{20, "c"}, {5, "a"}, {20, "d"}, {10, "b"}};
      return !records.empty();
    }
  } dns;
  ClsMailMan mailMan(platform::systemSockets(), dns);
  using Hosts = std::vector<std::string>;
  EXPECT_EQ(mailMan.mxLookupAll("Me <me@site.example>"), (Hosts{"a", "b", "c", "d"}));
  EXPECT_EQ(mailMan.mxLookup("site.example"), "a");
  EXPECT_EQ(mailMan.mxLookupAll("nomail.example"), Hosts());
  EXPECT_EQ(mailMan.mxLookup("gone.example"), std::nullopt);
  EXPECT_NE(mailMan.log().text().find(
                "<error>Failed to lookup MX record</error>\r\n<domain>gone.example</domain>\r\n"
                "<emailOrDomain>gone.example</emailOrDomain>"),
            std::string::npos);
}

}  // namespace
}  // namespace kelvado
