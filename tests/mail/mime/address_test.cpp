// The address parser, on what people and programs write and on what attackers do.
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "mail/mime/email_address.h"

namespace kelvado {

void PrintTo(const EmailAddress& entry, std::ostream* out) {
  *out << "[" << entry.name << "] [" << entry.address << "]";
}

namespace {

TEST(ParseAddress, ReadsOneAddress) {
  const std::pair<std::string_view, EmailAddress> rows[] = {
      {"joe@x.org", {"", "joe@x.org"}},
      {"  Help Desk <help@x.org> ", {"Help Desk", "help@x.org"}},
      {"\"Doe, John \\\"J\\\"\" <j@x.org>", {"Doe, John \"J\"", "j@x.org"}},
      {"<j@x.org>", {"", "j@x.org"}},
      {"j@x.org (John (the) Doe)", {"John (the) Doe", "j@x.org"}},
      {"John (work) Doe <j@x.org>", {"John Doe", "j@x.org"}},
      {"\"john doe\"@x.org", {"", "\"john doe\"@x.org"}},
      {"J <\"a>b\"@x.org>", {"J", "\"a>b\"@x.org"}},
      {"J <@relay,@other:j@x.org>", {"J", "j@x.org"}},
      {"John Doe j@x.org", {"John Doe", "j@x.org"}},
      {"=?utf-8?Q?J=C3=B6rg?= <j@x.org>", {"J\xC3\xB6rg", "j@x.org"}},
      {"\"=?utf-8?Q?J=C3=B6rg=2C?=\" <j@x.org>", {"J\xC3\xB6rg,", "j@x.org"}},
      {"j@[IPv6:::1]", {"", "j@[IPv6:::1]"}},
      {", , j@x.org, k@x.org", {"", "j@x.org"}},
      {"Undisclosed recipients", {"undisclosed-recipients", ""}},
      {"undisclosed-recipients:;", {"undisclosed-recipients", ""}},
      {"Undisclosed Recipients List <list@x.org>", {"Undisclosed Recipients List", "list@x.org"}},
      {"undisclosed-recipients@x.org", {"", "undisclosed-recipients@x.org"}},
      {"C=US;A= ;P=Org;O=Unit;CN=Joe Doe", {"", "C=US;A= ;P=Org;O=Unit;CN=Joe Doe"}},
      {"Joe <C=US;O=Unit;S=Doe>", {"Joe", "C=US;O=Unit;S=Doe"}},
      // A name can't bring a line break with it, encoded or not.
      {"=?utf-8?Q?a=0D=0AX=3A_y?= <j@x.org>", {"aX: y", "j@x.org"}},
      // An address keeps it, so that no mail goes to another.
      {"J <j@x.org\r\nRCPT TO:<k@x.org>", {"J", "j@x.org\r\nRCPT TO:<k@x.org"}},
      {"nothing", {"", "nothing"}},
      {"\"unfinished <j@x.org>", {"unfinished", "j@x.org"}},
      {"\"a\" \"b <j@x.org>", {"a b", "j@x.org"}},
      {"", {}},
  };
  for (const auto& [text, entry] : rows) EXPECT_EQ(parseAddress(text), entry) << text;
  EXPECT_EQ(formatAddress({"", "\"j d\"@x.org"}), "<\"j d\"@x.org>");
}

TEST(ParseAddressList, ReadsListsAndGroups) {
  const std::pair<std::string_view, std::vector<EmailAddress>> rows[] = {
      {"a@x, \"B, C\" <b@x>,\r\n d@x", {{"", "a@x"}, {"B, C", "b@x"}, {"", "d@x"}}},
      {"Team: a@x, B <b@x>; , c@x", {{"", "a@x"}, {"B", "b@x"}, {"", "c@x"}}},
      {"a@x; b@x", {{"", "a@x"}, {"", "b@x"}}},
      {"undisclosed-recipients:;", {}},
      {"(only, a comment)", {}},
      {",,;", {}},
      {"a@x (c, d), b@x", {{"c, d", "a@x"}, {"", "b@x"}}},
      {"<a@x", {{"", "a@x"}}},
  };
  for (const auto& [text, list] : rows) EXPECT_EQ(parseAddressList(text), list) << text;
}

TEST(SendableAddress, RefusesWhatCouldBreakOut) {
  for (const std::string_view address :
       {"joe@x.org", "o'brien+tag@x-y.org", "\"john doe\"@x.org", "\"a@b\"@x.org", "j@[192.0.2.1]",
        "\xC3\xB6@\xC3\xB6.org", "C=US;O=Unit;CN=Joe Doe", "/C=US/O=Unit/"}) {
    EXPECT_TRUE(isSendableAddress(address)) << address;
  }
  using namespace std::string_literals;
  for (const std::string& address :
       {""s, "none"s, "@x.org"s, "joe@"s, "a@b@x.org"s, "a b@x.org"s, "a@x.org b"s, "a@x,b@x"s,
        "a;b@x"s, "<joe@x.org>"s, "u@x>\r\nRCPT TO:<evil@x"s, "joe@x.org\n"s, "joe@x.org\0"s,
        "\xF6@x.org"s, "\"a\"b\"@x.org"s, "\"a\\\"@x.org"s, "joe@[x"s,
        "SPC=1"s /* no element of X.400 */, std::string(1000, 'a') + "@x.org"}) {
    EXPECT_FALSE(isSendableAddress(address)) << address;
  }
}

}  // namespace
}  // namespace kelvado
