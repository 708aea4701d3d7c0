#include "platform/network/linux/ntlm_challenge.h"

#include <cstddef>
#include <cstdint>
#include <optional>

#include "base/little_endian.h"

namespace platform {
namespace {

using namespace std::string_view_literals;

constexpr std::string_view kHead = "NTLMSSP\0\x02\0\0\0"sv;  // signature, message type
constexpr std::size_t kTargetNameAt = 12;
constexpr std::size_t kFlagsAt = 20;
constexpr std::size_t kTargetInfoAt = 40;
constexpr std::size_t kOldSize = 32;  // of servers that end it behind their random bytes
constexpr std::uint32_t kTargetIsDomain = 0x00010000;
constexpr std::uint32_t kTargetIsServer = 0x00020000;
constexpr std::uint32_t kHasTargetInfo = 0x00800000;

constexpr std::uint32_t kEndOfList = 0;
constexpr std::uint32_t kFlags = 6;
constexpr std::uint32_t kTimestamp = 7;
constexpr std::uint32_t kSingleHost = 8;
constexpr std::uint32_t kChannelBindings = 10;

// The bytes that the field at `at` (length, room, offset) points to; nothing when they lie outside.
std::optional<std::string_view> payload(std::string_view token, std::size_t at) {
  const auto length = base::littleEndian(token, at, 2);
  const auto offset = base::littleEndian(token, at + 4, 4);
  if (!length || !offset) return std::nullopt;
  if (*length == 0) return std::string_view();
  if (*offset > token.size() || token.size() - *offset < *length) return std::nullopt;
  return token.substr(*offset, *length);
}

bool isAttribute(std::uint32_t id, std::size_t size) {
  switch (id) {
    case kFlags:
      return size == 4;
    case kTimestamp:
      return size == 8;
    case kSingleHost:
    case kChannelBindings:
      return true;
    default:
      return size % 2 == 0;  // UTF-16
  }
}

bool isAttributeList(std::string_view list) {
  while (!list.empty()) {
    const auto id = base::littleEndian(list, 0, 2);
    const auto size = base::littleEndian(list, 2, 2);
    if (!id || !size || list.size() - 4 < *size) return false;
    if (*id == kEndOfList) return *size == 0;
    if (!isAttribute(*id, *size)) return false;
    list.remove_prefix(4 + *size);
  }
  return false;
}

}  // namespace

bool isNtlmChallenge(std::string_view token) {
  if (token.size() < kOldSize || !token.starts_with(kHead)) return false;
  const std::uint32_t flags = *base::littleEndian(token, kFlagsAt, 4);
  const auto targetName = payload(token, kTargetNameAt);
  if (!targetName) return false;
  if ((flags & (kTargetIsDomain | kTargetIsServer)) != 0 && targetName->empty()) return false;
  if ((flags & kHasTargetInfo) == 0) return true;
  const auto targetInfo = payload(token, kTargetInfoAt);
  return targetInfo && (targetInfo->empty() || isAttributeList(*targetInfo));
}

}  // namespace platform
