#include "platform/network/linux/ntlm_challenge.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "platform/network/security_package.h"
#include "platform/system/digest.h"

namespace platform {
namespace {

constexpr std::size_t kTargetNameLength = 12;
constexpr std::size_t kTargetNameOffset = 16;
constexpr std::size_t kFlags = 20;
constexpr std::size_t kTargetInfoLength = 40;
constexpr std::size_t kTargetName = 56;
constexpr std::size_t kTargetInfo = kTargetName + 2;

std::string challenge() {
  const std::string header("NTLMSSP\0\x02\0\0\0", 12);
  const std::string name("\x02\0\x02\0\x38\0\0\0", 8);  // 2 bytes at 56
  const std::string flags("\x05\x02\x89\x02", 4);       // Unicode, the target is a domain, info
  const std::string info("\x16\0\x16\0\x3A\0\0\0", 8);  // 22 bytes at 58
  const std::string payload(
      "D\0"
      "\x02\0\x02\0"
      "D\0"
      "\x07\0\x08\0"
      "12345678"
      "\0\0\0\0",
      24);
  return header + name + flags + "random-8" + std::string(8, '\0') + info + "version8" + payload;
}

std::string with(std::size_t at, std::string_view bytes) {
  std::string text = challenge();
  return text.replace(at, bytes.size(), bytes);
}

TEST(NtlmChallenge, HasItsLengthsAndOffsetsWithin) {
  EXPECT_TRUE(isNtlmChallenge(challenge()));
  const std::string old = with(kFlags, std::string("\x05\x02\0\0", 4)).substr(0, 32);
  EXPECT_FALSE(isNtlmChallenge(old));  // its target name lies behind its end
  EXPECT_TRUE(isNtlmChallenge(old.substr(0, 12) + std::string(8, '\0') + old.substr(20)));

  const std::pair<const char*, std::string> broken[] = {
      {"nothing", ""},
      {"too short", challenge().substr(0, 31)},
      {"cut off", challenge().substr(0, challenge().size() - 1)},
      {"another message", with(8, "\x03")},
      {"no target name, though announced", with(kTargetNameLength, std::string(2, '\0'))},
      {"target name past the end", with(kTargetNameOffset, "\x51")},
      {"target name at an offset that overflows", with(kTargetNameOffset, "\xFF\xFF\xFF\xFF")},
      {"attributes without an end", with(kTargetInfoLength, "\x12")},
      {"attribute past the end", with(kTargetInfo + 2, "\xFF")},
      {"half a character", with(kTargetInfo + 2, "\x01")},
      {"time stamp of 6 bytes", with(kTargetInfo + 8, "\x06")},
  };
  for (const auto& [name, token] : broken) EXPECT_FALSE(isNtlmChallenge(token)) << name;
}

// As a server reads it that knows its own certificate: MS-NLMP section 2.2.2.1.
TEST(NtlmClient, BindsTheLoginToConnectionAndService) {
#ifdef __SANITIZE_ADDRESS__
  const __lsan::ScopedDisabler leaksOfTheSystemsPackage;  // it never frees its digests
#endif
  const std::string binding = "tls-server-end-point:digest";
  const auto digest = md5(std::string(16, '\0') + std::string("\x1B\0\0\0", 4) + binding);
  const std::string attribute("\x0A\0\x10\0", 4);
  for (const bool secure : {true, false}) {
    SspiStatus status = kSecOk;
    const auto client = createNtlmClient({"user", "secret", "D", secure ? binding : ""},
                                         "mail.site.example", status);
    if (status == kSecPackageNotFound) GTEST_SKIP() << "this system has no NTLM";
    std::string token;
    ASSERT_EQ(client->step("", token), kSecContinueNeeded);
    ASSERT_EQ(client->step(challenge(), token), kSecOk);
    const std::string wanted = attribute + std::string(digest.begin(), digest.end());
    EXPECT_EQ(token.find(wanted) != token.npos, secure);
    EXPECT_EQ(token.find(attribute) != token.npos, secure);
    EXPECT_NE(token.find(std::string("s\0m\0t\0p\0/\0m\0a\0i\0l\0", 18)), token.npos);
  }
}

}  // namespace
}  // namespace platform
