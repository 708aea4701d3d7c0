// One password policy: name, ages, e-mail switch, rule values, groups, and the verdict of checking
// a password against it. Filled by the policy store, read by the pass and the printouts.
#pragma once

#include <cstdint>
#include <string>

namespace config {

// Every maximum that is not configured.
inline constexpr std::uint32_t kNoMaximum = 127;

// The defaults are those of initPolicy. Flags are bytes that hold 0 or 1, as in the store.
struct PolicyRecord {
  std::string policyName;
  std::uint32_t minPasswordAge = 0;  // days
  std::uint32_t maxPasswordAge = 0;  // days; 0: the policy has no password age
  std::uint32_t emailWarnings = 0;   // 1: warning e-mails go to this policy's users
  // 1: each user's maximum age is the directory's; maxPasswordAge only orders the policy.
  std::uint8_t useDirectoryPolicy = 0;
  std::uint32_t maxCharacters = kNoMaximum;
  std::uint32_t minCharacters = 0;
  std::uint32_t minCharTypes = 0;
  std::uint32_t check3ConsecutiveCharTypes = 0;
  std::uint32_t minNumericChar = 0, maxNumericChar = kNoMaximum;
  std::uint32_t minLowerChar = 0, maxLowerChar = kNoMaximum;
  std::uint32_t minUpperChar = 0, maxUpperChar = kNoMaximum;
  std::uint32_t minAlphaChar = 0, maxAlphaChar = kNoMaximum;
  std::uint32_t minNonAlphaChar = 0, maxNonAlphaChar = kNoMaximum;
  std::uint32_t minNonAlphaNumericChar = 0, maxNonAlphaNumericChar = kNoMaximum;
  std::string allowedSpecialChar;
  std::uint32_t numericPosition = 0;
  std::uint32_t specialPosition = 0;
  std::uint8_t checkNumeric = 0, checkUpper = 0, checkLower = 0, checkAlpha = 0;
  std::uint8_t checkNonAlphaNumeric = 0, checkNonAlpha = 0, checkSimilar = 0;
  std::uint32_t maxSimilar = 0;
  std::uint32_t minDifferent = 0;
  std::uint8_t checkSpaces = 0;
  std::uint32_t minSpaces = 0, maxSpaces = kNoMaximum;
  std::uint8_t restrictSpecialChar = 0, checkVowels = 0, checkConsecutive = 0;
  std::uint8_t check3Consecutive = 0, check3ConsecutiveAlpha = 0;
  std::uint8_t noBeginNumeric = 0, noEndNumeric = 0, noBeginSpecial = 0, noEndSpecial = 0;
  std::uint8_t checkAscii = 0, numericBetweenAlpha = 0;
  std::uint8_t checkDictionary = 0, substringSearch = 0, checkUsername = 0, checkFullname = 0;
  std::uint32_t specialBefore = 0;
  std::uint8_t applyNonExpiring = 0, excludeNonExpiring = 0;
  std::string includeGroups;  // lower-cased
  std::string excludeGroups;  // as read
  std::uint8_t appliesToDomainUsers = 0;
  std::uint8_t defined = 0;
  std::uint8_t checkDictionarySubstitution = 0, checkDictionaryWildcard = 0, checkSAP = 0;
  std::uint8_t checkNameFragments = 0;

  // The verdict of a rule check. In this service they keep these values unless a caller sets them.
  std::uint8_t appliesToUser = 0;
  std::uint8_t passed = 1;
  std::uint32_t failureCode = 0;
};

}  // namespace config
