#include "platform/directory/login_refusal.h"

#include "base/hex_digit.h"

namespace platform {
namespace {

// System error numbers, as the diagnostic writes them.
constexpr struct {
  std::string_view number;
  const char* words;
} kReasons[] = {
    {"525", "there is no such user"},
    {"52e", "wrong user name or password"},
    {"52f", "a restriction of the account, such as an empty password"},
    {"530", "the account may not log on at this time"},
    {"531", "the account may not log on from this machine"},
    {"532", "the account's password has expired"},
    {"533", "the account is disabled"},
    {"569", "the account has not been granted this kind of logon"},
    {"701", "the account has expired"},
    {"773", "the account's password must be changed first"},
    {"775", "the account is locked out"},
};

}  // namespace

std::string loginRefusal(std::string_view diagnostic) {
  constexpr std::string_view kBefore = " data ";
  const std::size_t at = diagnostic.find(kBefore);
  if (at == std::string_view::npos) return {};
  std::string_view number = diagnostic.substr(at + kBefore.size());
  std::size_t digits = 0;
  while (digits < number.size() && base::hexValue(number[digits]) >= 0) ++digits;
  number = number.substr(0, digits);
  for (const auto& reason : kReasons) {
    if (reason.number == number) return reason.words + (" (" + std::string(number) + ")");
  }
  return {};
}

}  // namespace platform
