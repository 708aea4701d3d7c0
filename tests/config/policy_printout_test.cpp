// The printouts line by line: of a record in which every line of both forms shows, and of what
// leaves lines out.
#include "config/policy_printout.h"

#include <gtest/gtest.h>

#include "config/policy_store.h"
#include "platform/system/files.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace config {
namespace {

constexpr const char* kRule = "------------------------------------------------------------\n";

// Counts up from the number after `number`, a field after the other.
template <typename Number, typename... Fields>
void count(PolicyRecord& policy, Number number, Fields... fields) {
  ((policy.*fields = ++number), ...);
}

// Each number of the record differs from its neighbours', so that no line can show another's.
PolicyRecord everything() {
  using P = PolicyRecord;
  PolicyRecord policy;
  policy.policyName = "Everybody";
  count(policy, std::uint32_t{100}, &P::minPasswordAge, &P::maxPasswordAge, &P::emailWarnings,
        &P::minCharacters, &P::maxCharacters, &P::maxSimilar, &P::minDifferent, &P::minCharTypes,
        &P::minLowerChar, &P::maxLowerChar, &P::minUpperChar, &P::maxUpperChar, &P::minNumericChar,
        &P::maxNumericChar, &P::minNonAlphaNumericChar, &P::maxNonAlphaNumericChar, &P::minSpaces,
        &P::maxSpaces, &P::minAlphaChar, &P::maxAlphaChar, &P::minNonAlphaChar, &P::maxNonAlphaChar,
        &P::check3ConsecutiveCharTypes, &P::numericPosition, &P::specialPosition,
        &P::specialBefore);
  count(policy, std::uint8_t{0}, &P::checkSimilar, &P::checkLower, &P::checkUpper, &P::checkNumeric,
        &P::checkNonAlphaNumeric, &P::checkSpaces, &P::checkAlpha, &P::checkNonAlpha,
        &P::restrictSpecialChar, &P::checkVowels, &P::checkConsecutive, &P::check3Consecutive,
        &P::check3ConsecutiveAlpha, &P::checkAscii, &P::numericBetweenAlpha, &P::noBeginNumeric,
        &P::noEndNumeric, &P::noBeginSpecial, &P::noEndSpecial, &P::checkUsername,
        &P::checkFullname, &P::checkSAP, &P::checkNameFragments, &P::checkDictionary,
        &P::substringSearch, &P::checkDictionarySubstitution, &P::checkDictionaryWildcard,
        &P::applyNonExpiring, &P::excludeNonExpiring);
  policy.allowedSpecialChar = "!%s";
  policy.includeGroups = "domain users";
  policy.excludeGroups = "Service Accounts";
  policy.appliesToUser = 1;
  policy.passed = 0;
  policy.failureCode = 0xFFFFFFFF;
  return policy;
}

TEST(PolicyPrintout, PrintsEveryLineOfBothForms) {
  EXPECT_EQ(policyText(everything()),
            test_support::readText(CONFIG_TEST_DATA "/policy_printout_full.txt"));
  EXPECT_EQ(policyTextShort(everything()),
            test_support::readText(CONFIG_TEST_DATA "/policy_printout_short.txt"));
}

TEST(PolicyPrintout, LeavesOutWhatDoesNotApply) {
  const std::string settings =
      "minCharacters = 6\nmaxCharacters = 16\ncheckSpaces = 1\n  minSpaces = 0\n"
      "  maxSpaces = 0\ncheckUsername = 1\n\n";
  const std::string applies = settings + "This policy applies to the user.\n";
  PolicyRecord policy;
  initLivePolicy(policy);
  policy.emailWarnings = 1;
  policy.failureCode = 1;  // counts for an evaluated policy only
  EXPECT_EQ(policyTextShort(policy),
            settings + "THIS POLICY DOES NOT APPLY TO THE USER.\n" + kRule);
  policy.appliesToUser = 1;
  policy.failureCode = 0;
  EXPECT_EQ(policyTextShort(policy),
            applies + "The password meets the policy requirements.\n" + kRule);
  EXPECT_TRUE(policyText(policy).starts_with("POLICY NAME: \n\nminCharacters = 6\n"));
  EXPECT_EQ(policyText(policy).find("special character within"), std::string::npos);
}

TEST(PolicyPrintout, AppendsAndIgnoresAFileThatCannotBeOpened) {
  const test_support::TempDir directory;
  PolicyRecord policy;
  EXPECT_EQ(printPolicy(policy, "out.txt"), 1);
  EXPECT_FALSE(platform::fileExists("out.txt"));  // neither defined nor evaluated
  policy.appliesToUser = 1;                       // evaluated is enough
  policy.passed = 0;
  EXPECT_EQ(printPolicy(policy, "missing/out.txt"), 1);
  printPolicy(policy, "out.txt");
  printPolicyShort(policy, "out.txt");
  EXPECT_EQ(test_support::readText("out.txt"), policyText(policy) + policyTextShort(policy));
  EXPECT_TRUE(policyTextShort(policy).ends_with(
      "\n\nThis policy applies to the user.\nTHE PASSWORD DOES NOT MEET THE POLICY REQUIREMENTS.\n"
      "THE FAILURE CODE IS 0\n" +
      std::string(kRule)));
}

}  // namespace
}  // namespace config
