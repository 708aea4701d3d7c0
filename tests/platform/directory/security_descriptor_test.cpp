// Which entries of a DACL keep an account from changing its password, and that damaged descriptors
// do no harm.
#include "platform/file/security_descriptor.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

const std::string kSelf = "\x01\x01\0\0\0\0\0\x05\x0a\0\0\0"s;
const std::string kEveryone = "\x01\x01\0\0\0\0\0\x01\0\0\0\0"s;
const std::string kAuthenticated = "\x01\x01\0\0\0\0\0\x05\x0b\0\0\0"s;
const std::string kChangePassword =
    "\x53\x1a\x72\xab\x2f\x1e\xd0\x11\x98\x19\x00\xaa\x00\x40\x52\x9b"s;
const std::string kResetPassword =
    "\x70\x95\x29\x00\x6d\x24\xd0\x11\xa7\x68\x00\xaa\x00\x6e\x05\x29"s;
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

const std::string kDenial = kControlAccess + kObjectType + kChangePassword + kSelf;

TEST(SecurityDescriptor, DeniesOnlyByAnObjectEntryForTheRightAndThePrincipal) {
  struct Case {
    const char* what;
    std::string ace;
    bool denies;
  };
  const Case cases[] = {
      {"self", ace(kDenyObject, 0, kDenial), true},
      {"everyone", ace(kDenyObject, 0, kControlAccess + kObjectType + kChangePassword + kEveryone),
       true},
      {"with an inherited type",
       ace(kDenyObject, 0, kControlAccess + kBothTypes + kChangePassword + kResetPassword + kSelf),
       true},
      {"inherit only", ace(kDenyObject, kInheritOnly, kDenial), false},
      {"allowed", ace(kAllowObject, 0, kDenial), false},
      {"another right", ace(kDenyObject, 0, kControlAccess + kObjectType + kResetPassword + kSelf),
       false},
      {"another access", ace(kDenyObject, 0, kReadProperty + kObjectType + kChangePassword + kSelf),
       false},
      {"another principal",
       ace(kDenyObject, 0, kControlAccess + kObjectType + kChangePassword + kAuthenticated), false},
      {"no type", ace(kDenyObject, 0, kControlAccess + "\0\0\0\0"s + kChangePassword + kSelf),
       false},
  };
  const std::string other = ace(0, 0, kReadProperty + kAuthenticated);
  for (const Case& c : cases) {
    EXPECT_EQ(platform::deniesPasswordChange(descriptor(other + c.ace, 2)), c.denies) << c.what;
  }
}

TEST(SecurityDescriptor, DamagedBytesAreNeverReadPast) {
  const std::string whole = descriptor(ace(0, 0, kReadProperty + kSelf) + ace(6, 0, kDenial), 2);
  ASSERT_TRUE(platform::deniesPasswordChange(whole));
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const std::string cut = whole.substr(0, size);  // of its own, for the address checker
    EXPECT_FALSE(platform::deniesPasswordChange(cut)) << size;
  }
  for (std::size_t i = 0; i < whole.size(); ++i) {
    std::string damaged = whole;
    damaged[i] = '\xFF';
    platform::deniesPasswordChange(damaged);
  }
  std::string noDacl = whole;
  noDacl[2] = '\0';
  EXPECT_FALSE(platform::deniesPasswordChange(noDacl));
}

}  // namespace
