// Search filters: what they match, and what is no filter.
#include "platform/directory/ldap_filter.h"

#include <sstream>
#include <string>

#include <gtest/gtest.h>

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

// Filters between blanks.
constexpr const char* kMatching = R"(
  (samAccountName=anna\2ab) (SAMACCOUNTNAME=ANNA\2AB) (samAccountName=anna*) (sn=*)
  (samAccountName=*\2a*) (samAccountName=a*n*b) (givenName=äNNA) (givenName=\c3\a4nna) (sn=b\5cc)
  (distinguishedName=CN=Anna\28Ops\29,OU=Staff,DC=site,DC=example) (!(mail=*)) (!mail=*)
  (sn>=a) (sn~=B\5cC) (userAccountControl=66050) (userAccountControl<=66050)
  (userAccountControl:1.2.840.113556.1.4.803:=2) (userAccountControl:1.2.840.113556.1.4.804:=3)
  (objectCategory=person) (objectCategory=user) (objectCategory=CN=Person,CN=Schema,DC=site)
  (objectClass=user) (&(objectClass=user)(|(sn=x)(givenName=*nna))) (&) (|(shoeSize=42)(sn=*)))";

// From shoeSize on: what the directory does not know is not true, and neither is its opposite.
constexpr const char* kOthers = R"(
  (samAccountName=annaxb) (samAccountName=an*nab) (samAccountName=anna\2ab*b) (mail=*) (sn<=a)
  (userAccountControl>=66051) (userAccountControl:1.2.840.113556.1.4.803:=3)
  (!userAccountControl:1.2.840.113556.1.4.803:=2) (objectCategory=computer) (objectClass=group)
  (&(objectClass=user)(sn=x)) (|)
  (shoeSize=42) (!(shoeSize=42)) (!userAccountControl:1.2.3:=2) (!userAccountControl=abc))";

constexpr const char* kMalformed = R"(
  sn=x (sn=x (sn=x)) (sn=x)(sn=y) (=x) (sn) (s_n=y) (sn=x(y) (&(sn=x)sn=y) (sn=\2) (sn=\zz)
  (sn>=a*) () (!))";

template <typename Check>
void forEach(const char* filters, Check check) {
  std::istringstream stream(filters);
  for (std::string text; stream >> text;) {
    SCOPED_TRACE(text);
    check(LdapFilter::parse(text));
  }
}

std::string nested(int depth) {
  return depth == 1 ? "(sn=x)" : "(!" + nested(depth - 1) + ")";
}

TEST(LdapFilter, Matches) {
  forEach(kMatching, [](const auto& filter) { EXPECT_TRUE(filter && filter->matches(anna())); });
  forEach(kOthers, [](const auto& filter) { EXPECT_TRUE(filter && !filter->matches(anna())); });
  DirectoryEntry computer;  // a user by its class only
  computer.isPerson = false;
  EXPECT_TRUE(LdapFilter::parse("(&(objectClass=user)(objectClass=computer))")->matches(computer));
  EXPECT_FALSE(LdapFilter::parse("(objectCategory=user)")->matches(computer));
}

TEST(LdapFilter, RefusesWhatIsNoFilter) {
  forEach(kMalformed, [](const auto& filter) { EXPECT_FALSE(filter); });
  EXPECT_FALSE(LdapFilter::parse(""));
  EXPECT_TRUE(LdapFilter::parse(nested(32)));
  EXPECT_FALSE(LdapFilter::parse(nested(33)));
  EXPECT_FALSE(LdapFilter::parse("(sn=" + std::string(8192, 'x') + ")"));
}

}  // namespace
