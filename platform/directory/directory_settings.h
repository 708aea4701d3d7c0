// Where the directory is and how to bind to it, as the registry's key
// "Software\Kadro\PwsentryPro\Directory" and the command line say: one reader for every system,
// each of which only says which kinds of address it serves. Used by the system hosts.
#pragma once

#include <string>

#include "platform/registry/registry.h"

namespace platform {

struct LdapSettings {
  enum class Bind { Gssapi, Simple };

  std::string uri;   // scheme, host and port only; empty: servers of the default Kerberos realm
  std::string base;  // distinguished name; empty: the server's default naming context
  Bind bind = Bind::Gssapi;
  std::string bindUser;          // for a simple bind
  std::string bindPasswordFile;  // absolute; for a simple bind
  std::string caFile;            // absolute; empty: the authorities this system trusts
  // For connecting, and for each answer of the server. A page of users takes a busy domain
  // controller some seconds.
  int connectSeconds = 15;
  int answerSeconds = 120;
};

struct DirectorySettings {
  std::string ldifFile;  // absolute; empty: `ldap` counts, or the machine's own domain
  LdapSettings ldap;
};

// The kinds of address that a system serves beside its own domain.
enum class ServedDirectories { LdapAndLdif, OnlyLdif };

// `uri` stands for the value "uri" when it is not empty. False with `error` one line that names the
// setting when it cannot be used: it is no text, or names what this system does not serve. REG_SZ
// and REG_EXPAND_SZ are texts; nothing in them is expanded.
bool readDirectorySettings(Registry& registry, const std::string& uri, ServedDirectories served,
                           DirectorySettings& settings, std::string& error);

}  // namespace platform
