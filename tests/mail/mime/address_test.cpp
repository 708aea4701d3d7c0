// The address parser, on what people and programs write and on what attackers do.
#include <string>
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
  for (const auto& [sendable, address] : test_support::rows<2>(ROWS "/address.txt", "sendable")) {
    EXPECT_EQ(isSendableAddress(address), sendable == "yes") << address;
  }
}

}  // namespace
}  // namespace kelvado
