// A domain held in memory: directory and account look-ups answered from one reading of a source (an
// LDIF file, an LDAP server), so that no look-up of a pass costs a round trip.
// Used by the thread of the pass only. Loading blocks for as long as the source takes; everything
// else answers at once, in a time that does not grow with the domain, except a search whose filter
// names no logon name: that one looks at every entry.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "platform/directory/account_database.h"
#include "platform/directory/directory_access.h"
#include "platform/directory/directory_snapshot.h"
#include "platform/system/clock.h"

namespace platform {

// beginPass() reads the source, endPass() drops what was read. Outside of a pass the first look-up
// reads it, and it is kept until the next beginPass(), endPass() or outermost uninitialise().
// A failed reading is remembered for just as long: the source is asked once, every call answers
// with its HRESULT (accounts: kNetNoDomainController), and lastError() has its text.
//
// Paths are "LDAP://rootDSE" and "LDAP://" with a distinguished name, in any letter case. Names
// are compared without regard to case as base/case_fold.h says.
class SnapshotDirectory final : public DirectoryAccess, public AccountDatabase {
 public:
  SnapshotDirectory(std::unique_ptr<DirectorySource> source, Clock& clock);
  ~SnapshotDirectory() override;

  HResult initialise() override;
  void uninitialise() override;
  HResult openObject(const std::u16string& path, std::uint32_t flags,
                     std::unique_ptr<DirectoryObject>& object) override;
  HResult openSearch(const std::u16string& path, std::uint32_t flags,
                     std::unique_ptr<DirectorySearch>& search) override;
  HResult getObject(const std::u16string& path, std::unique_ptr<DirectoryObject>& object) override;
  HResult getSearch(const std::u16string& path, std::unique_ptr<DirectorySearch>& search) override;
  std::unique_ptr<DirectoryObject> userInMemory(const std::u16string& logonName) override;
  DirectoryError lastError() override;
  void beginPass() override;
  void endPass() override;
  void restrictTo(const std::u16string& logonName) override;

  std::optional<std::int64_t> clockOffset() override;
  DirectoryFacts facts() override { return source_->facts(); }
  std::optional<bool> mayWrite(const std::u16string& logonName, const char* attribute) override;

  bool readExpiryTimes(bool wanted) override;
  void readPersonalDetails(bool wanted) override;
  // The age of a password whose last change is absent, 0 or in the future is 0.
  AccountResult userInfo(const std::u16string& name, UserInfo& info) override;
  // Reads the entry from the source again first; what that gave is kept in memory.
  AccountResult currentUserInfo(const std::u16string& name, UserInfo& info) override;
  // A non-zero passwordExpired goes to the source first, and into memory only when that took it.
  // The source takes it only while the password is still the one in memory.
  AccountResult setUserInfo(const std::u16string& name, const UserInfo& info) override;
  NetStatus domainModals(DomainModals& modals) override;

  // What the last reading could not use: one line each, "FILE:LINE: what is wrong" or the like.
  // Kept after the reading itself is dropped, until the next one.
  std::vector<std::string> warnings() const override { return warnings_; }

  // The reading with its indexes; objects and rows that were handed out share it, so they outlive
  // the pass. For the implementation only.
  struct Loaded;

 private:
  // Reads the source unless it was read, or failed to be, already.
  HResult ensureLoaded();
  void drop();
  HResult fail(HResult status, std::string text);
  HResult badPath(const std::u16string& path);
  // On success `entry` is the account's; valid until drop().
  AccountResult findEntry(const std::u16string& name, DirectoryEntry*& entry);
  void describe(const DirectoryEntry& entry, UserInfo& info);

  std::unique_ptr<DirectorySource> source_;
  Clock& clock_;
  std::shared_ptr<Loaded> loaded_;
  std::size_t lastFound_ = 0;  // entry of the last account look-up
  HResult loadStatus_ = kOk;   // a failure: not tried again until drop()
  DirectoryError loadError_;
  DirectoryError lastError_;
  std::vector<std::string> warnings_;
  int initialised_ = 0;
  bool inPass_ = false;
  OptionalAttributes wanted_;
};

}  // namespace platform
