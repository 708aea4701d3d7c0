// The users of a real domain, read from a directory server over LDAP.
// Used by SnapshotDirectory, by one thread. Loading blocks for as long as the server takes, but a
// server that stops answering, or answers without end, is given up.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "platform/directory/directory_settings.h"
#include "platform/directory/directory_snapshot.h"
#include "platform/directory/ldap/ldap_connection.h"

namespace platform {

class LdapSource final : public DirectorySource {
 public:
  explicit LdapSource(LdapSettings settings) : settings_(std::move(settings)) {}

  // Connects anew and reads every object of class "user" below the base in one paged search. An
  // entry with a value that cannot be becomes a warning "NAME: what is wrong".
  HResult load(DirectorySnapshot& snapshot, DirectoryError& error) override;

  // Goes over the connection that loading made, or once over a new one when the server has dropped
  // that.
  NetStatus expirePassword(const DirectoryEntry& entry, DirectoryError& error) override;

 private:
  HResult readDomain(DirectorySnapshot& snapshot, std::string& base, DirectoryError& error);
  HResult readUsers(const std::string& base, DirectorySnapshot& snapshot, DirectoryError& error);

  LdapSettings settings_;
  std::unique_ptr<LdapConnection> connection_;
};

}  // namespace platform
