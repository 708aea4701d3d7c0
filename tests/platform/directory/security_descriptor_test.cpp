// Which entries of a DACL keep an account from changing its password, and that damaged descriptors
// do no harm.
#include "platform/directory/security_descriptor.h"

#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

const std::string kSelf = "\x01\x01\0\0\0\0\0\x05\x0a\0\0\0"s;
const std::string kEveryone = "\x01\x01\0\0\0\0\0\x01\0\0\0\0"s;
const std::string kChangePassword =
    "\x53\x1a\x72\xab\x2f\x1e\xd0\x11\x98\x19\x00\xaa\x00\x40\x52\x9b"s;
const std::string kOtherRight(16, 'x');
const std::string kControlAccess = "\0\x01\0\0"s;
const std::string kReadProperty = "\x10\0\0\0"s;
const std::string kObjectType = "\x01\0\0\0"s;
const std::string kBothTypes = "\x03\0\0\0"s;
constexpr char kDenyObject = 6;
constexpr char kAllowObject = 5;
constexpr char kInheritOnly = 8;

std::string le16(std::size_t value) {
  return {static_cast<char>(value & 0xFF), static_cast<char>(value >> 8)};
}

std::string ace(char type, char flags, const std::string& body) {
  return std::string{type, flags} + le16(4 + body.size()) + body;
}

// The DACL after an owner SID, as a server lays it out.
std::string descriptor(const std::string& aces, std::size_t count) {
  const std::string header = "\x01\0\x04\x80\x14\0\0\0\0\0\0\0\0\0\0\0\x20\0\0\0"s;
  return header + kSelf + "\x04\0"s + le16(8 + aces.size()) + le16(count) + "\0\0"s + aces;
}

TEST(SecurityDescriptor, DeniesOnlyByAnObjectEntryForTheRightAndThePrincipal) {
  const std::string right = kControlAccess + kObjectType + kChangePassword;
  const std::pair<std::string, bool> cases[] = {
      {ace(kDenyObject, 0, right + kSelf), true},
      {ace(kDenyObject, 0, right + kEveryone), true},
      {ace(kDenyObject, 0, kControlAccess + kBothTypes + kChangePassword + kOtherRight + kSelf),
       true},
      {ace(kDenyObject, kInheritOnly, right + kSelf), false},
      {ace(kAllowObject, 0, right + kSelf), false},
      {ace(kDenyObject, 0, right + "\x01\x01\0\0\0\0\0\x05\x0b\0\0\0"s), false},
      {ace(kDenyObject, 0, kControlAccess + kObjectType + kOtherRight + kSelf), false},
      {ace(kDenyObject, 0, kReadProperty + kObjectType + kChangePassword + kSelf), false},
      {ace(kDenyObject, 0, kControlAccess + "\0\0\0\0"s + kChangePassword + kSelf), false},
  };
  const std::string before = ace(0, 0, kReadProperty + kEveryone);
  for (const auto& [entry, denies] : cases) {
    EXPECT_EQ(platform::deniesPasswordChange(descriptor(before + entry, 2)), denies);
  }
}

TEST(SecurityDescriptor, DamagedBytesAreNeverReadPast) {
  const std::string denial = kControlAccess + kObjectType + kChangePassword + kSelf;
  const std::string whole = descriptor(ace(0, 0, kReadProperty + kSelf) + ace(6, 0, denial), 2);
  ASSERT_TRUE(platform::deniesPasswordChange(whole));
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const std::string cut = whole.substr(0, size);  // of its own, for the address checker
    EXPECT_EQ(platform::deniesPasswordChange(cut), std::nullopt) << size;
  }
  for (std::size_t i = 0; i < whole.size(); ++i) {
    std::string damaged = whole;
    damaged[i] = '\xFF';
    platform::deniesPasswordChange(damaged);
  }
  // Without a DACL, or with one that is null, nobody is denied anything.
  std::string noDacl = whole, nullDacl = whole;
  noDacl[2] = nullDacl[16] = '\0';
  EXPECT_EQ(platform::deniesPasswordChange(noDacl), false);
  EXPECT_EQ(platform::deniesPasswordChange(nullDacl), false);
}

}  // namespace
