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

constexpr const char* kFull =
    "POLICY NAME: Everybody\n\nminPasswordAge = 101\nmaxPasswordAge = 102\n"
    "emailWarnings = 103\nminCharacters = 104\nmaxCharacters = 105\ncheckSimilar = 1\n"
    "  maxSimilar = 106\n  minDifferent = 107\nminCharTypes = 108\ncheckLower = 2\n"
    "  minLowerChar = 109\n  maxLowerChar = 110\ncheckUpper = 3\n  minUpperChar = 111\n"
    "  maxUpperChar = 112\ncheckNumeric = 4\n  minNumericChar = 113\n  maxNumericChar = 114\n"
    "checkSpecialChar = 5\n  minSpecialChar = 115\n  maxSpecialChar = 116\ncheckSpaces = 6\n"
    "  minSpaces = 117\n  maxSpaces = 118\ncheckAlpha = 7\n  minAlphaChar = 119\n"
    "  maxAlphaChar = 120\ncheckNonAlpha = 8\n  minNonAlphaChar = 121\n"
    "  maxNonAlphaChar = 122\nrestrictSpecialChar = 9\n   allowedSpecialChar = !%s\n"
    "checkVowels = 10\ncheckConsecutive = 11\ncheck3Consecutive = 12\n"
    "check3ConsecutiveCharTypes= 123\ncheck3ConsecutiveAlpha = 13\ncheckAscii = 14\n"
    "numericBetweenAlpha = 15\nnoBeginNumeric = 16\nnoEndNumeric = 17\nnoBeginSpecial = 18\n"
    "noEndSpecial = 19\nnumericPosition = 124\nspecialPosition = 125\n"
    "password must contain a special character within the first 126 characters.\n"
    "checkUsername = 20\ncheckFullname = 21\ncheckSAP = 22\n"
    "No more than 3 consecutive characters from username or full name = 23\n"
    "checkDictionary = 24\ndictionary substring search = 25\n  checkSubstitution = 26\n"
    "  checkWildcard = 27\napplyGroups = domain users\napplyNonExpiring = 28\n"
    "excludeGroups = Service Accounts\nexcludeNonExpiring = 29\n\n";

constexpr const char* kShort =
    "minCharacters = 104\nmaxCharacters = 105\ncheckSpaces = 6\n  minSpaces = 117\n"
    "  maxSpaces = 118\ncheckUsername = 20\n\n";

constexpr const char* kFailed =
    "This policy applies to the user.\nTHE PASSWORD DOES NOT MEET THE POLICY REQUIREMENTS.\n"
    "THE FAILURE CODE IS -1\nTHE PASSWORD FAILED THIS POLICY BECAUSE:\n";

constexpr const char* kFirstReasons =
    " - Password has less than the minimum number of required characters.\n"
    " - Password does not meet minimum password age requirements.\n"
    " - Password exceeded maximum number of characters.\n"
    " - Password has less than the minimum number of required character types.\n"
    " - Password has more than 3 characters from the same character set.\n";

constexpr const char* kSap = " - Password fails to meet SAP requirements.\n";

constexpr const char* kSharedReasons =
    " - Password does not meet requirement for numeric characters.\n"
    " - Password does not meet requirement for upper case characters.\n"
    " - Password does not meet requirement for lower case characters.\n"
    " - Password does not meet requirement for alpha characters.\n"
    " - Password does not meet requirement for non-alpha characters.\n"
    " - Password does not meet requirement for special characters.\n"
    " - Password contains special characters that are not allowed.\n"
    " - Password contains one or more vowels.\n"
    " - Password does not meet requirement for space characters.\n"
    " - Password contains 2 or more consecutive identical characters.\n"
    " - Password contains 3 or more consecutive identical characters.\n"
    " - Password contains non-ascii characters with code outside of 33 through 126.\n"
    " - Password begins with a number.\n"
    " - Password ends with a number.\n"
    " - Password begins with a special character.\n"
    " - Password ends with a special character.\n"
    " - Password does not contain a number in the correct position.\n";

constexpr const char* kLastReasons =
    " - Password does not contain a numeric character between two alpha characters.\n"
    " - Password does not contain a special character before character number 126.\n"
    " - Password contains the username.\n"
    " - Password contains a part of the user's full name.\n"
    " - Password matches a word in dictionary.txt.\n"
    " - Password contains a word from dictionary.txt.\n";

TEST(PolicyPrintout, PrintsEveryLineOfBothForms) {
  EXPECT_EQ(policyText(everything()),
            std::string(kFull) + kFailed + kFirstReasons + kSharedReasons +
                " - Password contains too many characters from the same class.\n" + kLastReasons +
                kSap +
                " - Password contains 3 or more consecutive characters from the username or the "
                "user's full name.\n" +
                kRule);
  EXPECT_EQ(policyTextShort(everything()),
            std::string(kShort) + kFailed + kFirstReasons + kSap + kSharedReasons +
                " - Password does not contain a special character in the correct position.\n" +
                kLastReasons + kRule);
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
