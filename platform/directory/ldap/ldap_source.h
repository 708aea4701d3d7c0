// The users of a real domain, read from a directory server over LDAP.
// Used by SnapshotDirectory, by one thread. Loading blocks for as long as the server takes, but a
// server that stops answering, or answers without end, is given up.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/directory/directory_settings.h"
#include "platform/directory/directory_snapshot.h"
#include "platform/directory/ldap/ldap_connection.h"
#include "platform/system/clock.h"

namespace platform {

class LdapSource final : public DirectorySource {
 public:
  LdapSource(LdapSettings settings, Clock& clock) : settings_(std::move(settings)), clock_(clock) {}

  // Connects anew and reads every object of class "user" below the base in one paged search. An
  // entry with a value that cannot be becomes a warning "NAME: what is wrong".
  HResult load(DirectorySnapshot& snapshot, DirectoryError& error) override;
  // The server is asked for more attributes, in the same searches.
  void want(const OptionalAttributes& wanted) override { wanted_ = wanted; }

  void restrictTo(const std::string& logonName) override { onlyUser_ = logonName; }

  // Both go over the connection that loading made, or once over a new one when the server has
  // dropped that, and wait 30 s for an answer at most. A refresh is one search. An expiry is one
  // modify that deletes the value judged and adds 0; a server that does not take that, which is
  // remembered until the next load(), gets a read right before a plain replace. After two calls in
  // a row to a server that does not answer the others fail at once, until the next load().
  AccountResult refresh(DirectoryEntry& entry) override;
  AccountResult expirePassword(const DirectoryEntry& entry) override;

  DirectoryFacts facts() override;
  std::optional<bool> mayWrite(const DirectoryEntry& entry, const char* attribute) override;

 private:
  AccountResult reach(const DirectoryEntry& entry, const std::function<int()>& exchange);
  AccountResult overConnection(const DirectoryEntry& entry, const std::function<int()>& exchange);
  int expireUnlessChanged(const DirectoryEntry& entry, bool& changed);
  HResult readDomain(DirectorySnapshot& snapshot, std::string& base, DirectoryError& error);
  std::vector<PasswordSettings> readPasswordSettings();
  HResult readUsers(const std::string& base, DirectorySnapshot& snapshot, DirectoryError& error);
  LdapSettings forOneEntry() const;

  LdapSettings settings_;
  Clock& clock_;
  std::string onlyUser_;       // logon name; empty: all users
  std::string namingContext_;  // of the last load()
  OptionalAttributes wanted_;
  bool onlyReplaces_ = false;  // the server refuses to exchange one value for another
  int lostInARow_ = 0;         // calls
  std::string lostText_;       // of the last of them
  std::unique_ptr<LdapConnection> connection_;
};

}  // namespace platform
