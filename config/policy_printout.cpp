// Made from two tables: the settings lines of each form in their order, and the reasons with the
// position that each form gives them.
#include "config/policy_printout.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <span>
#include <variant>
#include <vector>

#include "platform/system/files.h"

namespace config {
namespace {

using P = PolicyRecord;
using Number = std::uint32_t P::*;
using Flag = std::uint8_t P::*;
using Text = std::string P::*;

// "LABEL VALUE", the spacing inside the labels as it always was.
struct SettingLine {
  const char* label;
  std::variant<Number, Flag, Text> field;
  const char* ending = "\n";
  Number shownWhenSet = nullptr;  // null: always
};

const SettingLine kFullSettings[] = {
    {"POLICY NAME: ", &P::policyName, "\n\n"},
    {"minPasswordAge = ", &P::minPasswordAge, "\n", &P::minPasswordAge},
    {"maxPasswordAge = ", &P::maxPasswordAge, "\n", &P::maxPasswordAge},
    {"emailWarnings = ", &P::emailWarnings, "\n", &P::maxPasswordAge},
    {"minCharacters = ", &P::minCharacters},
    {"maxCharacters = ", &P::maxCharacters},
    {"checkSimilar = ", &P::checkSimilar},
    {"  maxSimilar = ", &P::maxSimilar},
    {"  minDifferent = ", &P::minDifferent},
    {"minCharTypes = ", &P::minCharTypes},
    {"checkLower = ", &P::checkLower},
    {"  minLowerChar = ", &P::minLowerChar},
    {"  maxLowerChar = ", &P::maxLowerChar},
    {"checkUpper = ", &P::checkUpper},
    {"  minUpperChar = ", &P::minUpperChar},
    {"  maxUpperChar = ", &P::maxUpperChar},
    {"checkNumeric = ", &P::checkNumeric},
    {"  minNumericChar = ", &P::minNumericChar},
    {"  maxNumericChar = ", &P::maxNumericChar},
    {"checkSpecialChar = ", &P::checkNonAlphaNumeric},
    {"  minSpecialChar = ", &P::minNonAlphaNumericChar},
    {"  maxSpecialChar = ", &P::maxNonAlphaNumericChar},
    {"checkSpaces = ", &P::checkSpaces},
    {"  minSpaces = ", &P::minSpaces},
    {"  maxSpaces = ", &P::maxSpaces},
    {"checkAlpha = ", &P::checkAlpha},
    {"  minAlphaChar = ", &P::minAlphaChar},
    {"  maxAlphaChar = ", &P::maxAlphaChar},
    {"checkNonAlpha = ", &P::checkNonAlpha},
    {"  minNonAlphaChar = ", &P::minNonAlphaChar},
    {"  maxNonAlphaChar = ", &P::maxNonAlphaChar},
    {"restrictSpecialChar = ", &P::restrictSpecialChar},
    {"   allowedSpecialChar = ", &P::allowedSpecialChar},
    {"checkVowels = ", &P::checkVowels},
    {"checkConsecutive = ", &P::checkConsecutive},
    {"check3Consecutive = ", &P::check3Consecutive},
    {"check3ConsecutiveCharTypes= ", &P::check3ConsecutiveCharTypes},
    {"check3ConsecutiveAlpha = ", &P::check3ConsecutiveAlpha},
    {"checkAscii = ", &P::checkAscii},
    {"numericBetweenAlpha = ", &P::numericBetweenAlpha},
    {"noBeginNumeric = ", &P::noBeginNumeric},
    {"noEndNumeric = ", &P::noEndNumeric},
    {"noBeginSpecial = ", &P::noBeginSpecial},
    {"noEndSpecial = ", &P::noEndSpecial},
    {"numericPosition = ", &P::numericPosition},
    {"specialPosition = ", &P::specialPosition},
    {"password must contain a special character within the first ", &P::specialBefore,
     " characters.\n", &P::specialBefore},
    {"checkUsername = ", &P::checkUsername},
    {"checkFullname = ", &P::checkFullname},
    {"checkSAP = ", &P::checkSAP},
    {"No more than 3 consecutive characters from username or full name = ", &P::checkNameFragments},
    {"checkDictionary = ", &P::checkDictionary},
    {"dictionary substring search = ", &P::substringSearch},
    {"  checkSubstitution = ", &P::checkDictionarySubstitution},
    {"  checkWildcard = ", &P::checkDictionaryWildcard},
    {"applyGroups = ", &P::includeGroups},
    {"applyNonExpiring = ", &P::applyNonExpiring},
    {"excludeGroups = ", &P::excludeGroups},
    {"excludeNonExpiring = ", &P::excludeNonExpiring},
};

const SettingLine kShortSettings[] = {
    {"minCharacters = ", &P::minCharacters}, {"maxCharacters = ", &P::maxCharacters},
    {"checkSpaces = ", &P::checkSpaces},     {"  minSpaces = ", &P::minSpaces},
    {"  maxSpaces = ", &P::maxSpaces},       {"checkUsername = ", &P::checkUsername},
};

// Position 0: that form does not have the line.
struct Reason {
  std::uint32_t bit;
  int fullPosition;
  int shortPosition;
  const char* text;
  const char* afterSpecialBefore = nullptr;  // the line names that number, and goes on with this
};

// 0x10000000 has no line. 0x1000 means one thing in the full form and another in the short one.
constexpr Reason kReasons[] = {
    {0x00000001, 1, 1, "Password has less than the minimum number of required characters."},
    {0x04000000, 2, 2, "Password does not meet minimum password age requirements."},
    {0x00000002, 3, 3, "Password exceeded maximum number of characters."},
    {0x00000004, 4, 4, "Password has less than the minimum number of required character types."},
    {0x20000000, 5, 5, "Password has more than 3 characters from the same character set."},
    {0x40000000, 30, 6, "Password fails to meet SAP requirements."},
    {0x00000008, 6, 7, "Password does not meet requirement for numeric characters."},
    {0x00000010, 7, 8, "Password does not meet requirement for upper case characters."},
    {0x00000020, 8, 9, "Password does not meet requirement for lower case characters."},
    {0x00000040, 9, 10, "Password does not meet requirement for alpha characters."},
    {0x00100000, 10, 11, "Password does not meet requirement for non-alpha characters."},
    {0x00000080, 11, 12, "Password does not meet requirement for special characters."},
    {0x00040000, 12, 13, "Password contains special characters that are not allowed."},
    {0x00020000, 13, 14, "Password contains one or more vowels."},
    {0x00080000, 14, 15, "Password does not meet requirement for space characters."},
    {0x00000100, 15, 16, "Password contains 2 or more consecutive identical characters."},
    {0x00200000, 16, 17, "Password contains 3 or more consecutive identical characters."},
    {0x08000000, 17, 18,
     "Password contains non-ascii characters with code outside of 33 through 126."},
    {0x00000200, 18, 19, "Password begins with a number."},
    {0x00000400, 19, 20, "Password ends with a number."},
    {0x00400000, 20, 21, "Password begins with a special character."},
    {0x00800000, 21, 22, "Password ends with a special character."},
    {0x00000800, 22, 23, "Password does not contain a number in the correct position."},
    {0x00001000, 23, 0, "Password contains too many characters from the same class."},
    {0x00001000, 0, 24, "Password does not contain a special character in the correct position."},
    {0x02000000, 24, 25,
     "Password does not contain a numeric character between two alpha characters."},
    {0x01000000, 25, 26, "Password does not contain a special character before character number ",
     "."},
    {0x00002000, 26, 27, "Password contains the username."},
    {0x00004000, 27, 28, "Password contains a part of the user's full name."},
    {0x00008000, 28, 29, "Password matches a word in dictionary.txt."},
    {0x00010000, 29, 30, "Password contains a word from dictionary.txt."},
    {0x80000000, 31, 0,
     "Password contains 3 or more consecutive characters from the username or the user's full "
     "name."},
};

// Numbers are printed signed.
std::string decimal(std::uint32_t number) {
  return std::to_string(static_cast<std::int32_t>(number));
}

struct FieldText {
  const PolicyRecord& policy;

  std::string operator()(Number field) const { return decimal(policy.*field); }
  std::string operator()(Flag field) const { return decimal(policy.*field); }
  std::string operator()(Text field) const { return policy.*field; }
};

std::string settingsText(const PolicyRecord& policy, std::span<const SettingLine> lines) {
  std::string text;
  for (const SettingLine& line : lines) {
    if (line.shownWhenSet != nullptr && policy.*line.shownWhenSet == 0) continue;
    text += line.label + std::visit(FieldText{policy}, line.field) + line.ending;
  }
  return text;
}

std::string reasonsText(const PolicyRecord& policy, int Reason::*position) {
  std::vector<const Reason*> reasons;
  for (const Reason& reason : kReasons) {
    if ((policy.failureCode & reason.bit) != 0 && reason.*position != 0) reasons.push_back(&reason);
  }
  std::sort(reasons.begin(), reasons.end(),
            [position](const Reason* a, const Reason* b) { return a->*position < b->*position; });
  std::string text = "THE PASSWORD FAILED THIS POLICY BECAUSE:\n";
  for (const Reason* reason : reasons) {
    text += std::string(" - ") + reason->text;
    if (reason->afterSpecialBefore != nullptr) {
      text += decimal(policy.specialBefore) + reason->afterSpecialBefore;
    }
    text += '\n';
  }
  return text;
}

std::string verdictText(const PolicyRecord& policy) {
  if (policy.appliesToUser == 0) return "THIS POLICY DOES NOT APPLY TO THE USER.\n";
  std::string text = "This policy applies to the user.\n";
  if (policy.passed != 0) return text + "The password meets the policy requirements.\n";
  return text + "THE PASSWORD DOES NOT MEET THE POLICY REQUIREMENTS.\nTHE FAILURE CODE IS " +
         decimal(policy.failureCode) + '\n';
}

std::string printout(const PolicyRecord& policy, std::span<const SettingLine> settings,
                     int Reason::*position) {
  constexpr std::size_t kRuleWidth = 60;
  if (policy.defined != 1 && policy.appliesToUser != 1) return {};
  std::string text = settingsText(policy, settings) + '\n' + verdictText(policy);
  if (policy.appliesToUser == 1 && policy.failureCode != 0) text += reasonsText(policy, position);
  return text + std::string(kRuleWidth, '-') + '\n';
}

int append(const std::string& text, const std::string& file) {
  if (text.empty()) return 1;
  if (const platform::File out = platform::openFile(file, "a+")) {
    std::fputs(text.c_str(), out.get());
  }
  return 1;
}

}  // namespace

std::string policyText(const PolicyRecord& policy) {
  return printout(policy, kFullSettings, &Reason::fullPosition);
}

std::string policyTextShort(const PolicyRecord& policy) {
  return printout(policy, kShortSettings, &Reason::shortPosition);
}

int printPolicy(const PolicyRecord& policy, const std::string& file) {
  return append(policyText(policy), file);
}

int printPolicyShort(const PolicyRecord& policy, const std::string& file) {
  return append(policyTextShort(policy), file);
}

}  // namespace config
