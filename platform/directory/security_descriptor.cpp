// Self-relative security descriptors as the directory stores them: little-endian records, every
// length and offset of which is untrusted.
#include "platform/directory/security_descriptor.h"

#include <cstddef>
#include <cstdint>

#include "base/little_endian.h"

namespace platform {
namespace {

using namespace std::string_view_literals;

constexpr std::size_t kDescriptorHeader = 20;
constexpr std::uint32_t kDaclPresent = 0x0004;
constexpr std::uint32_t kNoDacl = 0;  // the offset of one that is null: nobody is denied anything
constexpr std::size_t kAclHeader = 8;
constexpr std::size_t kAceHeader = 4;
constexpr std::uint8_t kAccessDeniedObject = 6;
constexpr std::uint8_t kInheritOnly = 0x08;
constexpr std::uint32_t kControlAccess = 0x100;
constexpr std::uint32_t kObjectTypePresent = 1;
constexpr std::uint32_t kInheritedObjectTypePresent = 2;
constexpr std::size_t kGuidSize = 16;

// ab721a53-1e2f-11d0-9819-00aa0040529b, the first three fields little-endian.
constexpr std::string_view kChangePasswordRight =
    "\x53\x1a\x72\xab\x2f\x1e\xd0\x11\x98\x19\x00\xaa\x00\x40\x52\x9b"sv;
constexpr std::string_view kSelfSid = "\x01\x01\x00\x00\x00\x00\x00\x05\x0a\x00\x00\x00"sv;
constexpr std::string_view kEveryoneSid = "\x01\x01\x00\x00\x00\x00\x00\x01\x00\x00\x00\x00"sv;

// `body` is an object entry after its header: mask, flags, the GUIDs that the flags announce, SID.
std::optional<bool> bodyDeniesPasswordChange(std::string_view body) {
  auto mask = base::littleEndian(body, 0, 4);
  auto flags = base::littleEndian(body, 4, 4);
  if (!mask || !flags) return std::nullopt;
  if ((*mask & kControlAccess) == 0 || (*flags & kObjectTypePresent) == 0) return false;
  body.remove_prefix(8);
  if (body.size() < kGuidSize) return std::nullopt;
  if (body.substr(0, kGuidSize) != kChangePasswordRight) return false;
  body.remove_prefix(kGuidSize);
  if ((*flags & kInheritedObjectTypePresent) != 0) {
    if (body.size() < kGuidSize) return std::nullopt;
    body.remove_prefix(kGuidSize);
  }
  return body.starts_with(kSelfSid) || body.starts_with(kEveryoneSid);
}

std::optional<bool> aclDeniesPasswordChange(std::string_view acl) {
  auto size = base::littleEndian(acl, 2, 2);
  auto count = base::littleEndian(acl, 4, 2);
  if (!size || !count || *size < kAclHeader || *size > acl.size()) return std::nullopt;
  acl = acl.substr(kAclHeader, *size - kAclHeader);
  for (std::uint32_t i = 0; i < *count; ++i) {
    auto type = base::littleEndian(acl, 0, 1);
    auto flags = base::littleEndian(acl, 1, 1);
    auto aceSize = base::littleEndian(acl, 2, 2);
    if (!type || !flags || !aceSize || *aceSize < kAceHeader || *aceSize > acl.size()) {
      return std::nullopt;
    }
    // An entry that is there only to be inherited says nothing about this object.
    if (*type == kAccessDeniedObject && (*flags & kInheritOnly) == 0) {
      const auto denies = bodyDeniesPasswordChange(acl.substr(kAceHeader, *aceSize - kAceHeader));
      if (denies != false) return denies;
    }
    acl.remove_prefix(*aceSize);
  }
  return false;
}

}  // namespace

std::optional<bool> deniesPasswordChange(std::string_view descriptor) {
  auto control = base::littleEndian(descriptor, 2, 2);
  auto dacl = base::littleEndian(descriptor, 16, 4);
  if (!control || !dacl) return std::nullopt;
  if ((*control & kDaclPresent) == 0 || *dacl == kNoDacl) return false;
  if (*dacl < kDescriptorHeader || *dacl >= descriptor.size()) return std::nullopt;
  return aclDeniesPasswordChange(descriptor.substr(*dacl));
}

}  // namespace platform
