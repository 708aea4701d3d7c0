// Search filters: what they match, and what is no filter; filters.txt has the table.
#include "platform/directory/ldap_filter.h"

#include <string>

#include <gtest/gtest.h>

#include "tests/support/text_file.h"

namespace {

using platform::DirectoryEntry;
using platform::LdapFilter;

DirectoryEntry anna() {
  DirectoryEntry entry;
  entry.dn = "CN=Anna(Ops),OU=Staff,DC=site,DC=example";
  entry.logonName = "Anna*B";
  entry.givenName = "Änna";
  entry.surname = "B\\C";
  entry.accountControl = 0x10202;
  return entry;
}

std::string nested(int depth) {
  return depth == 1 ? "(sn=x)" : "(!" + nested(depth - 1) + ")";
}

TEST(LdapFilter, MatchesWhatItSays) {
  for (const auto& [text, expected] : test_support::readRows(TEST_DATA "filters.txt")) {
    const auto filter = LdapFilter::parse(text);
    EXPECT_EQ(!filter                   ? "no filter"
              : filter->matches(anna()) ? "matches"
                                        : "differs",
              expected)
        << text;
  }
  DirectoryEntry computer;  // a user by its class only
  computer.isPerson = false;
  EXPECT_TRUE(LdapFilter::parse("(&(objectClass=user)(objectClass=computer))")->matches(computer));
  EXPECT_FALSE(LdapFilter::parse("(objectCategory=user)")->matches(computer));
}

TEST(LdapFilter, HasALimitOfDepthAndLength) {
  EXPECT_FALSE(LdapFilter::parse(""));
  EXPECT_TRUE(LdapFilter::parse(nested(32)));
  EXPECT_FALSE(LdapFilter::parse(nested(33)));
  EXPECT_FALSE(LdapFilter::parse("(sn=" + std::string(8192, 'x') + ")"));
}

}  // namespace
