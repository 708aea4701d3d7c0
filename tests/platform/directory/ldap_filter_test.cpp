// Search filters: what they match, what is no filter, and which of them name an account.
#include "platform/file/ldap_filter.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using platform::DirectoryEntry;
using platform::LdapFilter;

DirectoryEntry anna() {
  DirectoryEntry entry;
  entry.dn = "CN=Anna (Ops),OU=Staff,DC=site,DC=example";
  entry.logonName = "Anna*B";
  entry.givenName = "Änna";
  entry.surname = "B\\C";
  entry.accountControl = 0x10202;
  return entry;
}

TEST(LdapFilter, Matches) {
  struct Case {
    const char* filter;
    bool matches;
  };
  const Case cases[] = {
      {"(samAccountName=anna\\2ab)", true},
      {"(SAMACCOUNTNAME=ANNA\\2AB)", true},
      {"(samAccountName=annaxb)", false},
      {"(samAccountName=anna*)", true},
      {"(samAccountName=*\\2a*)", true},
      {"(samAccountName=a*n*b)", true},
      {"(samAccountName=an*nab)", false},
      {"(samAccountName=anna\\2ab*b)", false},
      {"(givenName=\xC3\xA4NNA)", true},
      {"(givenName=\\c3\\a4nna)", true},
      {"(sn=b\\5cc)", true},
      {"(distinguishedName=CN=Anna \\28Ops\\29,OU=Staff,DC=site,DC=example)", true},
      {"(mail=*)", false},
      {"(!(mail=*))", true},
      {"(!mail=*)", true},
      {"(sn=*)", true},
      {"(sn>=a)", true},
      {"(sn<=a)", false},
      {"(sn~=B\\5cC)", true},
      {"(userAccountControl=66050)", true},
      {"(userAccountControl>=66051)", false},
      {"(userAccountControl<=66050)", true},
      {"(userAccountControl:1.2.840.113556.1.4.803:=2)", true},
      {"(userAccountControl:1.2.840.113556.1.4.803:=3)", false},
      {"(userAccountControl:1.2.840.113556.1.4.804:=3)", true},
      {"(!userAccountControl:1.2.840.113556.1.4.803:=2)", false},
      {"(objectCategory=person)", true},
      {"(objectCategory=user)", true},
      {"(objectCategory=CN=Person,CN=Schema,CN=Configuration,DC=site,DC=example)", true},
      {"(objectCategory=computer)", false},
      {"(objectClass=user)", true},
      {"(objectClass=group)", false},
      {"(&(objectClass=user)(|(sn=x)(givenName=*nna)))", true},
      {"(&(objectClass=user)(sn=x))", false},
      {"(&)", true},
      {"(|)", false},
      // What the directory does not know is not true, and neither is its opposite.
      {"(shoeSize=42)", false},
      {"(!(shoeSize=42))", false},
      {"(|(shoeSize=42)(sn=*))", true},
      {"(!userAccountControl:1.2.3:=2)", false},
      {"(!userAccountControl=abc)", false},
  };
  for (const Case& c : cases) {
    const auto filter = LdapFilter::parse(c.filter);
    ASSERT_TRUE(filter.has_value()) << c.filter;
    EXPECT_EQ(filter->matches(anna()), c.matches) << c.filter;
  }
}

TEST(LdapFilter, AComputerIsAUserByClassOnly) {
  DirectoryEntry computer;
  computer.isPerson = false;
  EXPECT_TRUE(LdapFilter::parse("(objectClass=user)")->matches(computer));
  EXPECT_TRUE(LdapFilter::parse("(objectClass=computer)")->matches(computer));
  EXPECT_FALSE(LdapFilter::parse("(objectCategory=user)")->matches(computer));
}

TEST(LdapFilter, RefusesWhatIsNoFilter) {
  auto nested = [](std::size_t depth) {
    std::string filter = "(sn=x)";
    for (; depth > 1; --depth) filter = "(!" + filter + ")";
    return filter;
  };
  const std::string cases[] = {
      "",
      "sn=x",
      "(sn=x",
      "(sn=x))",
      "(sn=x)(sn=y)",
      "(=x)",
      "(sn)",
      "(sn x=y)",
      "(sn=x(y)",
      "(&(sn=x)sn=y)",
      "(sn=\\2)",
      "(sn=\\zz)",
      "(sn>=a*)",
      "()",
      "(!)",
      nested(33),
      "(sn=" + std::string(8192, 'x') + ")",
      nested(2000),
  };
  for (const std::string& text : cases) {
    EXPECT_FALSE(LdapFilter::parse(text).has_value()) << text.substr(0, 40);
  }
  EXPECT_TRUE(LdapFilter::parse(nested(32)).has_value());
}

TEST(LdapFilter, TellsTheLogonNameThatEveryMatchHas) {
  auto required = [](const char* text) {
    return LdapFilter::parse(text)->requiredLogonName().value_or("-");
  };
  EXPECT_EQ(required("(&(objectCategory=user)(&(sn=*)(samAccountName=AB\\29)))"), "ab)");
  EXPECT_EQ(required("(|(sn=*)(samAccountName=ab))"), "-");
  EXPECT_EQ(required("(!(samAccountName=ab))"), "-");
  EXPECT_EQ(required("(samAccountName=ab*)"), "-");
}

}  // namespace
