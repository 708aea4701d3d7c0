#include "config/policy_store.h"

#include <tuple>

#include "config/policy_printout.h"
#include "tests/config/registry_fixture.h"
#include "tests/support/text_file.h"

namespace config {
namespace {

const std::string kMpe = "Software\\Policies\\Kadro\\PwsentryProMPE\\";

class PolicyStoreTest : public RegistryFixture {
 protected:
  PolicyRecord read(const std::string& key, const std::string& lines, const std::string& name) {
    PolicyRecord policy;
    EXPECT_EQ(readPolicy(registryWith(key, lines), policy, name, PolicyStore::Registry), 1);
    return policy;
  }
};

TEST_F(PolicyStoreTest, AbsentValuesKeepMaximaAndClearTheRest) {
  const PolicyRecord policy = read(kMpe + "Policy1",
                                   "\"policyName\"=\"Staff\"\n\"maxPasswordAge\"=dword:0000005a\n"
                                   "\"maxSpaces\"=dword:00000000\n\"checkSAP\"=dword:00000100\n"
                                   "\"checkNameFragments\"=dword:00000001\n"
                                   "\"includeGroups\"=\"Sales, DOMAIN Users\"\n",
                                   "policy1");
  EXPECT_EQ(policyText(policy), test_support::readText(TEST_DATA "policy_from_registry.txt"));
  EXPECT_EQ(policy.appliesToDomainUsers, 1);
}

TEST_F(PolicyStoreTest, DefinedTakesANameOfTwoCharactersAndDefaultPolicyAppliesToAll) {
  const std::tuple<const char*, const char*, int, int> cases[] = {
      {"Policy2", "\"policyName\"=\"AB\"", 1, 0},
      {"Policy2", "\"policyName\"=\"A\"", 0, 0},
      {"Policy2", "\"includeGroups\"=\"domain user\"", 0, 0},
      {"DEFAULTPolicy", "", 0, 1}};
  for (const auto& [name, line, defined, applies] : cases) {
    const PolicyRecord policy = read(kMpe + name, line, name);
    EXPECT_EQ(policy.defined, defined) << line;
    EXPECT_EQ(policy.appliesToDomainUsers, applies) << line;
  }
}

TEST_F(PolicyStoreTest, EditionCodesStandForTheirOwnKeys) {
  for (const auto& [name, key] : test_support::readRows(TEST_DATA "edition_keys.txt")) {
    EXPECT_EQ(read(key, "\"policyName\"=\"found\"", name).policyName, "found") << name;
  }
}

// Of a policy that another key defined nothing is left, be the member server's key there or not.
TEST_F(PolicyStoreTest, TheMemberServerStoreReplacesWhatWasLoadedAndNeverAppliesToDomainUsers) {
  const std::string mpems = "Software\\Policies\\Kadro\\PwsentryProMPEMS\\DefaultPolicy";
  const std::tuple<std::string, const char*, int> cases[] = {
      {mpems, "\"policyName\"=\"A1\"\n\"includeGroups\"=\"Domain Users\"\n", 1},
      {mpems, "\"maxPasswordAge\"=dword:0000001e\n", 0},
      {"Software", "", 0}};
  for (const auto& [key, lines, defined] : cases) {
    PolicyRecord policy =
        read(kMpe + "DefaultPolicy", "\"policyName\"=\"Old\"\n\"maxCharacters\"=dword:00000009\n",
             "DefaultPolicy");
    readPolicyMpems(registryWith(key, lines), policy, "DefaultPolicy");
    EXPECT_EQ(policy.defined, defined) << lines;
    EXPECT_EQ(policy.appliesToDomainUsers, 0) << lines;
    EXPECT_EQ(policy.maxCharacters, 127U) << lines;
  }
}

TEST_F(PolicyStoreTest, TheIniFileHoldsRulesOnly) {
  platform::writeWholeFile("pwsentrypro.ini", test_support::readBytes(TEST_DATA "policy.ini"));
  PolicyRecord policy;
  readPolicy(registryWith("Software", ""), policy, "DefaultPolicy", PolicyStore::IniFile);
  EXPECT_EQ(policy.defined, 1);
  EXPECT_EQ(policy.appliesToDomainUsers, 0);
  EXPECT_EQ(policyText(policy), test_support::readText(TEST_DATA "policy_from_ini.txt"));
}

}  // namespace
}  // namespace config
