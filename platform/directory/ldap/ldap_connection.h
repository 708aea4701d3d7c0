// A connection to a directory server, bound and ready to ask (RFC 4511, by libldap). Knows how to
// get there: which servers, TLS, the two kinds of bind. Used by the LDAP source.
//
// Used by one thread. Every call blocks, bounded by the times of the settings: for connecting once
// a server, for asking once an answer. The first connection makes the process ignore SIGPIPE.
#pragma once

#include <atomic>
#include <chrono>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <ldap.h>

#include "platform/directory/directory_access.h"
#include "platform/directory/directory_settings.h"
#include "platform/directory/ldap/ldap_path.h"

namespace platform {

struct LdapMessageFree {
  void operator()(LDAPMessage* message) const { ldap_msgfree(message); }
};
using LdapMessage = std::unique_ptr<LDAPMessage, LdapMessageFree>;

class LdapConnection {
 public:
  // Null with `status` and `error` when no server can be reached or the bind is refused. A password
  // is sent only through TLS or through a socket of this machine; certificates are always verified.
  static std::unique_ptr<LdapConnection> open(const LdapSettings& settings, HResult& status,
                                              DirectoryError& error);
  ~LdapConnection();
  LdapConnection(const LdapConnection&) = delete;
  LdapConnection& operator=(const LdapConnection&) = delete;

  LDAP* handle() const { return ldap_; }

  // "HOST:PORT", or the URI of a socket of this machine.
  std::string place() const { return server_.host.empty() ? uri_ : server_.text(); }
  const LdapAddress& server() const { return server_; }
  // The way to the server, gone again beside this connection; see ldap_path.h.
  LdapPath walkAgain() const;
  // Whom the server takes this program for ("u:EXAMPLE\svc"); empty when it does not say.
  std::string identity();

  // The first value of one attribute of one object; empty when it has none. An LDAP result code.
  int readValue(const std::string& dn, const char* attribute, std::string& value);
  // All of them.
  int readValues(const std::string& dn, const char* attribute, std::vector<std::string>& values);
  // Of an object in an answer.
  std::vector<std::string> valuesOf(LDAPMessage* entry, const char* attribute) const;

  // One object, its security descriptor without the audit part. `attributes` ends in a null
  // pointer. An LDAP result code.
  int readObject(const std::string& dn, const char* const* attributes, LdapMessage& object);

  // Replaces the values of one attribute by this one. An LDAP result code.
  int replaceValue(const std::string& dn, const char* attribute, const std::string& value);
  // Deletes the one value and adds the other, in one step. LDAP_NO_SUCH_ATTRIBUTE, and nothing is
  // changed, when the attribute has not that value.
  int exchangeValue(const std::string& dn, const char* attribute, const std::string& from,
                    const std::string& to);

  // What has come so far of the answer to a request, at least one message. Null when the deadline
  // has passed or the connection is lost: `code` is then the LDAP result code.
  LdapMessage receive(int request, std::chrono::steady_clock::time_point deadline, int& code);
  // The time for one answer from now on, in place of that of the settings.
  void setAnswerSeconds(int seconds);
  // From now, for one answer.
  std::chrono::steady_clock::time_point answerDeadline() const;

  // Sets `error` to one line: the server, what was done, what the code means and what the server
  // adds. Returns the HRESULT.
  HResult fail(int code, const std::string& action, DirectoryError& error) const;

 private:
  explicit LdapConnection(std::string uri) : uri_(std::move(uri)), server_(ldapAddress(uri_)) {}

  HResult connect(const LdapSettings& settings, DirectoryError& error);
  bool setOptions(const LdapSettings& settings);
  bool setTlsOptions(const LdapSettings& settings, std::string& problem);
  std::string trustedAuthorities() const;
  HResult failToReach(int code, const char* consequence, DirectoryStep step,
                      DirectoryError& error) const;
  HResult failToBind(int code, const std::string& action, DirectoryError& error) const;
  bool setAll(std::initializer_list<std::pair<int, const void*>> options);
  int withinConnectTime(int (*beginTls)(LDAP*));
  HResult startTls(DirectoryError& error);
  HResult bindSimple(const LdapSettings& settings, DirectoryError& error);
  HResult bindGssapi(DirectoryError& error);
  bool hasScheme(const char* scheme) const;

  std::string uri_;
  LdapAddress server_;
  std::string caFile_;  // empty: the connection has no TLS
  LDAP* ldap_ = nullptr;
  std::atomic<int> socket_ = -1;  // -1: not connected
  ldap_conncb callbacks_{};       // which keep socket_ true
  int connectSeconds_ = 0;
  int answerSeconds_ = 0;
};

// LDAP_SERVER_SD_FLAGS, asking for the DACL only: without it a security descriptor is given to
// those only who may also read its audit part.
LDAPControl daclOnly();

// True when the connection is of no more use, and another may be.
bool isConnectionLost(int ldapCode);

}  // namespace platform
