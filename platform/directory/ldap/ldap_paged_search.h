// A subtree search that comes in pages (RFC 2696) and is always one page ahead of its reader: the
// next page is asked for before the last one is handed out, so server and reader work side by side.
// Used by the LDAP source, by one thread.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/directory/ldap/ldap_connection.h"

namespace platform {

class LdapPagedSearch {
 public:
  // Active Directory gives at most 1,000 entries a page.
  static constexpr int kPageSize = 1000;

  // `attributes` ends in a null pointer. All three have to live as long as the search.
  LdapPagedSearch(LdapConnection& connection, const std::string& base, const char* filter,
                  const char* const* attributes)
      : connection_(connection), base_(base), filter_(filter), attributes_(attributes) {}
  ~LdapPagedSearch();
  LdapPagedSearch(const LdapPagedSearch&) = delete;
  LdapPagedSearch& operator=(const LdapPagedSearch&) = delete;

  // Asks for the first page. An LDAP result code.
  int start();

  // Waits for the page that was asked for, at most the connection's time for an answer, and asks
  // for the one behind it. An LDAP result code. The chains hold entries, references and the result.
  int next(std::vector<LdapMessage>& page);
  bool atEnd() const { return request_ == kNoRequest; }

  // What is wrong with the server's answers, when next() failed for that and not by a code of the
  // server's own; else null.
  const char* fault() const { return fault_; }

 private:
  static constexpr int kNoRequest = -1;

  int askForPage();
  int receivePage(std::vector<LdapMessage>& page);
  int takeResult(LDAPMessage* result);
  int checkProgress(const std::vector<LdapMessage>& page);
  int refuse(const char* fault);

  LdapConnection& connection_;
  const std::string& base_;
  const char* filter_;
  const char* const* attributes_;
  std::string cookie_;  // where the next page begins, in the server's own terms
  int request_ = kNoRequest;
  std::size_t entriesInPage_ = 0;
  int emptyPages_ = 0;     // in a row
  std::string pageStart_;  // the first name of the last page
  const char* fault_ = nullptr;
};

}  // namespace platform
