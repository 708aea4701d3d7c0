// The address parser, on what people and programs write and on what attackers do.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "mail/mime/email_address.h"

namespace kelvado {

void PrintTo(const EmailAddress& entry, std::ostream* out) {
  *out << "[" << entry.name << "] [" << entry.address << "]";
}

namespace {

TEST(ParseAddress, ReadsOneAddress) {
  struct Row {
    std::string_view text;
    EmailAddress entry;
  };
  const Row rows[] = {
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
      {"C=US;A= ;P=Org;O=Unit;CN=Joe Doe", {"", "C=US;A= ;P=Org;O=Unit;CN=Joe Doe"}},
      {"Joe <C=US;O=Unit;S=Doe>", {"Joe", "C=US;O=Unit;S=Doe"}},
      // A name can't bring a line break with it, encoded or not.
      {"=?utf-8?Q?a=0D=0AX=3A_y?= <j@x.org>", {"aX: y", "j@x.org"}},
      {"J <j@x.org\r\nRCPT TO:<k@x.org>", {"J", "j@x.orgRCPT TO:<k@x.org"}},
      {"nothing", {"", "nothing"}},
      {"\"unfinished <j@x.org>", {"unfinished", "j@x.org"}},
      {"\"a\" \"b <j@x.org>", {"a b", "j@x.org"}},
      {"", {}},
  };
  for (const Row& row : rows) EXPECT_EQ(parseAddress(row.text), row.entry) << row.text;
}

TEST(ParseAddressList, ReadsListsAndGroups) {
  struct Row {
    std::string_view text;
    std::vector<EmailAddress> list;
  };
  const Row rows[] = {
      {"a@x, \"B, C\" <b@x>,\r\n d@x", {{"", "a@x"}, {"B, C", "b@x"}, {"", "d@x"}}},
      {"Team: a@x, B <b@x>; , c@x", {{"", "a@x"}, {"B", "b@x"}, {"", "c@x"}}},
      {"a@x; b@x", {{"", "a@x"}, {"", "b@x"}}},
      {"undisclosed-recipients:;", {}},
      {"(only, a comment)", {}},
      {",,;", {}},
      {"a@x (c, d), b@x", {{"c, d", "a@x"}, {"", "b@x"}}},
      {"<a@x", {{"", "a@x"}}},
  };
  for (const Row& row : rows) EXPECT_EQ(parseAddressList(row.text), row.list) << row.text;
}

TEST(SendableAddress, RefusesWhatCouldBreakOut) {
  const std::pair<std::string_view, bool> rows[] = {
      {"joe@x.org", true},
      {"o'brien+tag@x-y.org", true},
      {"\"john doe\"@x.org", true},
      {"\"a@b\"@x.org", true},
      {"j@[192.0.2.1]", true},
      {"C=US;O=Unit;CN=Joe Doe", true},
      {"/C=US/O=Unit/", true},
      {"", false},
      {"none", false},
      {"@x.org", false},
      {"joe@", false},
      {"a@b@x.org", false},
      {"a b@x.org", false},
      {"a@x.org b", false},
      {"a@x,b@x", false},
      {"a;b@x", false},
      {"<joe@x.org>", false},
      {"u@x>\r\nRCPT TO:<evil@x", false},
      {"joe@x.org\n", false},
      {std::string_view("joe@x.org\0", 10), false},
      {"j\xC3\xB6"
       "e@x.org",
       false},  // the wire takes ASCII
      {"\"a\"b\"@x.org", false},
      {"\"a\\\"@x.org", false},
      {"joe@[x", false},
      {"SPC=1", false},  // no element of X.400
  };
  for (const auto& [address, sendable] : rows) {
    EXPECT_EQ(isSendableAddress(address), sendable) << address;
  }
  EXPECT_FALSE(isSendableAddress(std::string(1000, 'a') + "@x.org"));
}

TEST(FormatAddress, ReadsBackAsTheSame) {
  const EmailAddress entries[] = {
      {"", "j@x.org"},
      {"Joe", "j@x.org"},
      {"a\\\"b\\", "j@x.org"},
      {"J\xC3\xB6rg, (x) <y@z>", "j@x.org"},
      {"", "C=US;O=Unit;CN=Joe Doe"},
      {"", "\"john doe\"@x.org"},
  };
  for (const EmailAddress& entry : entries) {
    const std::string text = formatAddress(entry);
    EXPECT_EQ(parseAddressList(text), std::vector<EmailAddress>{entry}) << text;
  }
  EXPECT_EQ(formatAddress({"Help Desk", "h@x.org"}), "\"Help Desk\" <h@x.org>");
}

}  // namespace
}  // namespace kelvado
