// The way to a directory server, gone step by step: its name, the connection, TLS. libldap says of
// one that cannot be gone little more than that. Used when a connection has failed, to say at which
// step and why, and by a check, which shows what is on the way of a good one.
#pragma once

#include <string>
#include <vector>

#include "platform/directory/directory_access.h"

namespace platform {

struct LdapAddress {
  std::string host;
  int port = 0;
  bool tlsFirst = false;  // TLS from the first byte; else after StartTLS, where it is wanted

  // "HOST:PORT", an IPv6 address in brackets.
  std::string text() const;
};

// Of "ldap://HOST[:PORT]" or "ldaps://..."; an empty host for anything else.
LdapAddress ldapAddress(const std::string& uri);

struct LdapPath {
  std::vector<std::string> addresses;
  bool connected = false;
  std::vector<std::string> certificates;  // PEM, as the server showed them
  DirectoryStep failedAt = DirectoryStep::Read;
  std::string problem;  // in words, without the server; empty: every step could be gone
};

struct LdapPathOptions {
  bool wantsTls = false;
  std::string caFile;  // authorities that are trusted, PEM
  int seconds = 5;     // for each step but the name, whose time is the resolver's
};

// Blocks. Nothing is sent to the server but what makes TLS.
LdapPath walkLdapPath(const LdapAddress& server, const LdapPathOptions& options);

}  // namespace platform
