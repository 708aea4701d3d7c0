// What one pass needs to know of a domain, read at once and held in memory: the users with the few
// attributes this system asks for. A source fills it (an LDIF file, an LDAP server);
// SnapshotDirectory answers look-ups from it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/directory/account_database.h"
#include "platform/directory/directory_access.h"

namespace platform {

// What a mail says of a user beyond name and address. Texts are UTF-8.
struct PersonalDetails {
  std::string displayName;
  std::string preferredLanguage;
  std::string manager;  // distinguished name
};

// A security principal with a logon name. Texts are UTF-8.
struct DirectoryEntry {
  std::string dn;
  std::string logonName;  // sAMAccountName
  std::string mail;
  std::string givenName;
  std::string surname;               // sn
  std::int64_t pwdLastSet = 0;       // FILETIME; 0: to be changed at next logon
  std::int64_t passwordExpires = 0;  // FILETIME, kNoExpiryTime; 0: not known, or to be changed
  std::uint32_t accountControl = 0;  // userAccountControl
  bool cantChangePassword = false;   // as the security descriptor says
  bool isPerson = true;              // objectCategory; false for computers
  std::uint64_t sourceOffset = 0;    // the source's own mark, for expirePassword
  std::uint32_t sourceLength = 0;
  std::shared_ptr<PersonalDetails> details;  // null: the entry has none, or they were not wanted
};

struct DirectorySnapshot {
  std::string namingContext;   // DN of the domain head
  std::int64_t maxPwdAge = 0;  // negative 100 ns units; 0 or the lowest number: never
  std::vector<DirectoryEntry> entries;
  std::optional<std::int64_t> clockOffset;  // s that the directory's clock is ahead of this one
  std::vector<std::string> warnings;        // what could not be used: one line each
};

// What load() and refresh() are to bring beyond what every pass needs, where the directory has it.
struct OptionalAttributes {
  bool expiryTimes = false;      // passwordExpires
  bool personalDetails = false;  // details, and with restrictTo() the user's manager
};

class DirectorySource {
 public:
  virtual ~DirectorySource() = default;
  // Until this is called, nothing is wanted.
  virtual void want(const OptionalAttributes& /*wanted*/) {}
  // Of the users load() is to bring this one, by the logon name in UTF-8, and may leave out the
  // others; empty, as until this is called: all.
  virtual void restrictTo(const std::string& /*logonName*/) {}
  // Fills an empty snapshot. On failure an HRESULT, `error` set and the snapshot empty.
  virtual HResult load(DirectorySnapshot& snapshot, DirectoryError& error) = 0;
  // Reads one entry of the snapshot again, as it is now. Name and logon name stay as they are; an
  // entry that has another by now counts as not found. On failure `entry` is as before.
  virtual AccountResult refresh(DirectoryEntry& entry) = 0;
  // Sets pwdLastSet to 0 in the directory itself, where it has to have the value that `entry` has:
  // else nothing is written and the result is kNetPasswordChanged. A success when it is 0 already.
  virtual AccountResult expirePassword(const DirectoryEntry& entry) = 0;
  // As DirectoryAccess has them, after load().
  virtual DirectoryFacts facts() = 0;
  virtual std::optional<bool> mayWrite(const DirectoryEntry& entry, const char* attribute) {
    (void)entry;
    (void)attribute;
    return std::nullopt;
  }
};

}  // namespace platform
