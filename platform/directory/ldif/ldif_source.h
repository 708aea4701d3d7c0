// A domain in an LDIF file (RFC 2849), as `ldapsearch`, `ldbsearch` and `ldifde` export one: the
// embedded directory of the demonstration and the console, and of tests.
// Used by one thread. The file is read in pieces: memory is that of the snapshot.
#pragma once

#include <string>
#include <utility>

#include "platform/directory/directory_snapshot.h"

namespace platform {

class LdifSource final : public DirectorySource {
 public:
  explicit LdifSource(std::string file) : file_(std::move(file)) {}

  // Users are the records of objectClass "user" (computers are, too); the domain head is the record
  // of objectClass "domainDNS". Without one the naming context is that of the first user's name.
  // Fails when the file cannot be read or holds no domain at all; a record that is malformed
  // becomes a warning "FILE:LINE: what is wrong", and its neighbours are read.
  HResult load(DirectorySnapshot& snapshot, DirectoryError& error) override;
  // Times of expiry are from msDS-UserPasswordExpiryTimeComputed of a user, else from the password
  // settings objects in the file, else the domain's maxPwdAge where there are such objects.
  void want(const OptionalAttributes& wanted) override { wanted_ = wanted; }

  // Reads the record's pwdLastSet where it stood. kNetWriteFault when the file does not hold the
  // record there any more.
  AccountResult refresh(DirectoryEntry& entry) override;
  // Overwrites the value of pwdLastSet where it stands, with as many bytes as it had: everything
  // else in the file stays as it is, and a crash cannot lose any of it. Refused with kNetWriteFault
  // when the file does not hold the record there any more.
  AccountResult expirePassword(const DirectoryEntry& entry) override;
  DirectoryFacts facts() override;

 private:
  AccountResult writeFault(const std::string& what) const;

  std::string file_;
  OptionalAttributes wanted_;
};

}  // namespace platform
