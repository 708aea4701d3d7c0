#include "platform/directory/ldif/fine_grained_policies.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <tuple>

#include "base/ascii.h"
#include "base/case_fold.h"
#include "base/hex_digit.h"
#include "platform/directory/entry_attributes.h"

namespace platform {
namespace {

constexpr std::string_view kPrecedence = "msDS-PasswordSettingsPrecedence";
constexpr std::string_view kMaximumAge = "msDS-MaximumPasswordAge";
constexpr std::string_view kAppliesTo = "msDS-PSOAppliesTo";
constexpr std::string_view kResultant = "msDS-ResultantPSO";
constexpr std::string_view kMember = "member";
constexpr std::string_view kMemberOf = "memberOf";
constexpr std::string_view kPrimaryGroup = "primaryGroupID";
constexpr std::string_view kGroupType = "groupType";
constexpr std::string_view kSid = "objectSid";
constexpr std::string_view kGuid = "objectGUID";
constexpr std::array kNames{kPrecedence, kMaximumAge,   kAppliesTo, kResultant, kMember,
                            kMemberOf,   kPrimaryGroup, kGroupType, kSid,       kGuid};

// Bits of groupType: a global group, a security group.
constexpr std::uint32_t kGlobalSecurityGroup = 0x80000002;
// Of an account of a domain: S-1-5-21 and four parts, in bytes or as some tools write it.
constexpr std::size_t kDomainSidBytes = 28;
constexpr std::string_view kDomainSidStart = "S-1-5-21-";

// Bits of userAccountControl whose accounts' passwords never expire: do not expire, smart card
// required, and the accounts of trusts, workstations and servers.
constexpr std::uint32_t kNeverExpire = kPasswordDontExpire | kSmartcardRequired | 0x3800;

std::optional<std::string_view> valueOf(const LdifRecord& record, std::string_view name) {
  for (const LdifAttribute& attribute : record.attributes) {
    if (base::equalsNoCase(attribute.name, name)) return attribute.value;
  }
  return std::nullopt;
}

std::optional<std::int64_t> numberOf(const LdifRecord& record, std::string_view name) {
  const std::optional<std::string_view> value = valueOf(record, name);
  return value ? decimalValue(*value) : std::nullopt;
}

// The last part of a domain account's security identifier.
std::optional<std::uint32_t> lastPart(std::string_view sid) {
  if (sid.starts_with(kDomainSidStart)) {
    const std::optional<std::int64_t> part = decimalValue(sid.substr(sid.rfind('-') + 1));
    return part ? std::optional(static_cast<std::uint32_t>(*part)) : std::nullopt;
  }
  if (sid.size() != kDomainSidBytes) return std::nullopt;
  std::uint32_t part = 0;
  for (std::size_t i = 1; i <= 4; ++i) {
    part = part << 8U | static_cast<unsigned char>(sid[sid.size() - i]);
  }
  return part;
}

// The 16 bytes in which domain controllers compare identifiers, also of one that is written as some
// tools do: "f81d4fae-7dec-11d0-a765-00a0c91e6bf6", of which the first three groups are numbers and
// have their lowest byte first.
std::string guidBytes(std::string_view guid) {
  constexpr std::size_t kWritten = 36, kBytes = 16;
  if (guid.size() != kWritten) return std::string(guid);
  std::string bytes;
  int high = -1;
  for (const char c : guid) {
    const int digit = base::hexValue(c);
    if (digit < 0) continue;
    if (high >= 0) bytes += static_cast<char>(high * 16 + digit);
    high = high < 0 ? digit : -1;
  }
  if (bytes.size() != kBytes) return std::string(guid);
  std::reverse(bytes.begin(), bytes.begin() + 4);
  std::reverse(bytes.begin() + 4, bytes.begin() + 6);
  std::reverse(bytes.begin() + 6, bytes.begin() + 8);
  return bytes;
}

// FILETIME. 0 and the lowest number mean that passwords do not expire.
std::int64_t expiryOf(const DirectoryEntry& entry, std::int64_t maxAge) {
  const bool never = (entry.accountControl & kNeverExpire) != 0 || maxAge >= 0 ||
                     maxAge == std::numeric_limits<std::int64_t>::min();
  if (never || entry.pwdLastSet >= kNoExpiryTime + maxAge) return kNoExpiryTime;
  return entry.pwdLastSet - maxAge;
}

}  // namespace

bool FineGrainedPolicies::reads(std::string_view attribute) {
  return std::any_of(kNames.begin(), kNames.end(), [attribute](std::string_view name) {
    return base::equalsNoCase(attribute, name);
  });
}

FineGrainedPolicies::Id FineGrainedPolicies::idOf(std::string_view dn) {
  return ids_.try_emplace(base::foldCase(textValue(dn)), static_cast<Id>(ids_.size()))
      .first->second;
}

const char* FineGrainedPolicies::add(const LdifRecord& record, std::size_t entries) {
  if (entries != kNoUser) {
    const std::optional<std::string_view> resultant = valueOf(record, kResultant);
    users_.resize(entries + 1);
    users_.back().primaryGroup =
        static_cast<std::uint32_t>(numberOf(record, kPrimaryGroup).value_or(0));
    if (resultant) users_.back().resultant = idOf(*resultant);
  }
  Id self = kNone;
  const auto own = [&] { return self == kNone ? self = idOf(record.dn) : self; };
  for (const LdifAttribute& attribute : record.attributes) {
    if (base::equalsNoCase(attribute.name, kMember)) {
      memberships_.emplace_back(own(), idOf(attribute.value));
    } else if (base::equalsNoCase(attribute.name, kMemberOf)) {
      memberships_.emplace_back(idOf(attribute.value), own());
    }
  }
  const std::optional<std::string_view> sid = valueOf(record, kSid);
  if (entries == kNoUser && (sid || valueOf(record, kGroupType))) addGroup(own(), record);
  if (!valueOf(record, kPrecedence) && !valueOf(record, kAppliesTo)) return nullptr;

  const std::optional<std::int64_t> precedence = numberOf(record, kPrecedence);
  const std::optional<std::int64_t> maxAge = numberOf(record, kMaximumAge);
  if (!precedence || !maxAge) {
    return "password settings without a number as precedence and maximum age: left out";
  }
  Settings settings{
      own(), *precedence, *maxAge, guidBytes(valueOf(record, kGuid).value_or("")), {}};
  for (const LdifAttribute& attribute : record.attributes) {
    if (base::equalsNoCase(attribute.name, kAppliesTo)) {
      settings.appliesTo.push_back(idOf(attribute.value));
    }
  }
  objects_.push_back(std::move(settings));
  return nullptr;
}

void FineGrainedPolicies::addGroup(Id group, const LdifRecord& record) {
  const auto type =
      static_cast<std::uint32_t>(numberOf(record, kGroupType).value_or(kGlobalSecurityGroup));
  if ((type & kGlobalSecurityGroup) != kGlobalSecurityGroup) otherGroups_.insert(group);
  const std::optional<std::uint32_t> part = lastPart(valueOf(record, kSid).value_or(""));
  if (part) groupIds_.try_emplace(*part, group);
}

// From each object, the strongest first, down to the members of its groups and their members. Who
// was reached already was reached by a stronger one, and so was everybody below.
void FineGrainedPolicies::spreadOverGroups() {
  std::sort(memberships_.begin(), memberships_.end());
  direct_.assign(ids_.size(), kNone);
  inherited_.assign(ids_.size(), kNone);
  for (std::uint32_t object = 0; object < objects_.size(); ++object) {
    std::vector<Id> reached;
    for (const Id target : objects_[object].appliesTo) {
      if (direct_[target] == kNone) direct_[target] = object;
      if (otherGroups_.count(target) == 0) reached.push_back(target);
    }
    while (!reached.empty()) {
      const Id at = reached.back();
      reached.pop_back();
      if (inherited_[at] != kNone) continue;
      inherited_[at] = object;
      auto member =
          std::lower_bound(memberships_.begin(), memberships_.end(), std::pair(at, Id{0}));
      for (; member != memberships_.end() && member->first == at; ++member) {
        reached.push_back(member->second);
      }
    }
  }
}

// Null: none applies.
const FineGrainedPolicies::Settings* FineGrainedPolicies::settingsOf(const DirectoryEntry& entry,
                                                                     const User& user) const {
  std::uint32_t best = kNone;
  if (const auto own = ids_.find(base::foldCase(entry.dn)); own != ids_.end()) {
    if (direct_[own->second] != kNone) return &objects_[direct_[own->second]];
    best = inherited_[own->second];
  }
  if (const auto group = groupIds_.find(user.primaryGroup); group != groupIds_.end()) {
    best = std::min(best, inherited_[group->second]);
  }
  return best == kNone ? nullptr : &objects_[best];
}

void FineGrainedPolicies::resolve(DirectorySnapshot& snapshot) {
  if (objects_.empty()) return;
  std::sort(objects_.begin(), objects_.end(), [](const Settings& a, const Settings& b) {
    return std::tie(a.precedence, a.guid) < std::tie(b.precedence, b.guid);
  });
  spreadOverGroups();
  users_.resize(snapshot.entries.size());
  for (std::size_t i = 0; i < snapshot.entries.size(); ++i) {
    DirectoryEntry& entry = snapshot.entries[i];
    if (entry.passwordExpires != 0 || entry.pwdLastSet == 0) continue;
    const Settings* settings = nullptr;
    if (users_[i].resultant == kNone) {
      settings = settingsOf(entry, users_[i]);
    } else {
      const auto named = std::find_if(
          objects_.begin(), objects_.end(),
          [&](const Settings& object) { return object.object == users_[i].resultant; });
      if (named == objects_.end()) continue;  // not in the file: its age is not known
      settings = &*named;
    }
    entry.passwordExpires =
        expiryOf(entry, settings != nullptr ? settings->maxAge : snapshot.maxPwdAge);
  }
}

}  // namespace platform
