// The address parser, on what people and programs write and on what attackers do.
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "mail/mime/email_address.h"
#include "tests/support/rows.h"

namespace kelvado {

void PrintTo(const EmailAddress& entry, std::ostream* out) {
  *out << "[" << entry.name << "] [" << entry.address << "]";
}

namespace {

TEST(ParseAddress, ReadsOneAddress) {
  const auto rows = test_support::rows<3>(ROWS "/address.txt", "one address");
  for (const auto& [text, name, address] : rows) {
    EXPECT_EQ(parseAddress(text), (EmailAddress{name, address})) << text;
  }
  EXPECT_EQ(formatAddress({"", "\"j d\"@x.org"}), "<\"j d\"@x.org>");
}

TEST(ParseAddressList, ReadsListsAndGroups) {
  const auto rows = test_support::rows<7>(ROWS "/address.txt", "lists and groups");
  for (const auto& row : rows) {
    std::vector<EmailAddress> list;  // names and addresses in turn
    for (std::size_t i = 1; i < row.size() && !row[i + 1].empty(); i += 2) {
      list.push_back({row[i], row[i + 1]});
    }
    EXPECT_EQ(parseAddressList(row[0]), list) << row[0];
  }
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
