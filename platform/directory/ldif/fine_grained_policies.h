// The password settings objects of an LDIF file (fine-grained password policies), and whose
// password expires when by them: the object applied to the user himself, else that of his groups
// with the lowest precedence; of several with the same one, that with the lowest objectGUID. Used
// by the LDIF source, for one reading of a file.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "platform/directory/directory_snapshot.h"
#include "platform/directory/ldif/ldif_reader.h"

namespace platform {

class FineGrainedPolicies {
 public:
  // Whether an attribute of this name counts here, in any letter case.
  static bool reads(std::string_view attribute);

  // Takes what a record says of objects, groups and memberships. `entries`: how many users were
  // read before it, when it is itself a user that counts; else kNoUser. Null, or what is wrong with
  // it; it is left out then.
  static constexpr std::size_t kNoUser = static_cast<std::size_t>(-1);
  const char* add(const LdifRecord& record, std::size_t entries);

  // When all records are read: sets passwordExpires of the users that have none yet, by the objects
  // of the file or the domain's maximum age. A file without any object says nothing about users: an
  // account that may not read them exports none.
  void resolve(DirectorySnapshot& snapshot);

 private:
  using Id = std::uint32_t;  // of a distinguished name
  static constexpr Id kNone = UINT32_MAX;

  struct Settings {
    Id object = kNone;
    std::int64_t precedence = 0;
    std::int64_t maxAge = 0;  // negative 100 ns units
    std::string guid;
    std::vector<Id> appliesTo;
  };
  struct User {
    std::uint32_t primaryGroup = 0;  // the last part of its security identifier
    Id resultant = kNone;            // msDS-ResultantPSO
  };

  Id idOf(std::string_view dn);
  void addGroup(Id group, const LdifRecord& record);
  void spreadOverGroups();
  const Settings* settingsOf(const DirectoryEntry& entry, const User& user) const;

  std::unordered_map<std::string, Id> ids_;  // by the folded name
  std::vector<Settings> objects_;
  std::vector<User> users_;                         // beside the entries of the snapshot
  std::vector<std::pair<Id, Id>> memberships_;      // group, member
  std::unordered_set<Id> otherGroups_;              // no global security groups: without effect
  std::unordered_map<std::uint32_t, Id> groupIds_;  // by the last part of their identifiers
  std::vector<std::uint32_t> direct_, inherited_;   // by Id: index in objects_, or kNone
};

}  // namespace platform
