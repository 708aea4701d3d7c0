// Pages, their controls and what a server may do wrong with them; see the header.
#include "platform/directory/ldap/ldap_paged_search.h"

#include <memory>
#include <utility>

namespace platform {
namespace {

// A server that runs out of time looking for the next match gives an empty page and goes on, so
// some are in order.
constexpr int kMaxEmptyPages = 100;

struct ControlsFree {
  void operator()(LDAPControl** controls) const { ldap_controls_free(controls); }
};
using Controls = std::unique_ptr<LDAPControl*, ControlsFree>;

}  // namespace

LdapPagedSearch::~LdapPagedSearch() {
  if (request_ != kNoRequest) ldap_abandon_ext(connection_.handle(), request_, nullptr, nullptr);
}

int LdapPagedSearch::start() {
  return askForPage();
}

int LdapPagedSearch::next(std::vector<LdapMessage>& page) {
  page.clear();
  int code = receivePage(page);
  if (code == LDAP_SUCCESS) code = checkProgress(page);
  if (code == LDAP_SUCCESS && !cookie_.empty()) code = askForPage();
  return code;
}

int LdapPagedSearch::askForPage() {
  LDAP* const ldap = connection_.handle();
  LDAPControl paging = {};
  berval cookie = {cookie_.size(), cookie_.data()};
  int code = ldap_create_page_control_value(ldap, kPageSize, cookie_.empty() ? nullptr : &cookie,
                                            &paging.ldctl_value);
  if (code != LDAP_SUCCESS) return code;
  paging.ldctl_oid = const_cast<char*>(LDAP_CONTROL_PAGEDRESULTS);
  paging.ldctl_iscritical = 1;
  LDAPControl descriptors = daclOnly();
  LDAPControl* controls[] = {&paging, &descriptors, nullptr};
  code = ldap_search_ext(ldap, base_.c_str(), LDAP_SCOPE_SUBTREE, filter_,
                         const_cast<char**>(attributes_), 0, controls, nullptr, nullptr,
                         LDAP_NO_LIMIT, &request_);
  ldap_memfree(paging.ldctl_value.bv_val);
  if (code != LDAP_SUCCESS) request_ = kNoRequest;
  return code;
}

int LdapPagedSearch::receivePage(std::vector<LdapMessage>& page) {
  LDAP* const ldap = connection_.handle();
  const auto deadline = connection_.answerDeadline();
  entriesInPage_ = 0;
  for (;;) {
    int code = LDAP_SUCCESS;
    page.push_back(connection_.receive(request_, deadline, code));
    if (code != LDAP_SUCCESS) return code;
    LDAPMessage* message = ldap_first_message(ldap, page.back().get());
    for (; message != nullptr; message = ldap_next_message(ldap, message)) {
      const int type = ldap_msgtype(message);
      if (type == LDAP_RES_SEARCH_RESULT) return takeResult(message);
      if (type == LDAP_RES_SEARCH_ENTRY) ++entriesInPage_;
    }
    if (entriesInPage_ > kPageSize) return refuse("more entries than a page holds");
  }
}

// The end of a page: the server's verdict and where the next one begins. No control is the last
// page.
int LdapPagedSearch::takeResult(LDAPMessage* result) {
  LDAP* const ldap = connection_.handle();
  request_ = kNoRequest;
  cookie_.clear();
  int verdict = LDAP_SUCCESS;
  LDAPControl** found = nullptr;
  int code = ldap_parse_result(ldap, result, &verdict, nullptr, nullptr, nullptr, &found, 0);
  const Controls controls(found);
  if (code == LDAP_SUCCESS) code = verdict;
  if (code != LDAP_SUCCESS) return code;
  LDAPControl* paging = ldap_control_find(LDAP_CONTROL_PAGEDRESULTS, found, nullptr);
  if (paging == nullptr) return LDAP_SUCCESS;
  ber_int_t estimate = 0;
  berval cookie = {};
  code = ldap_parse_pageresponse_control(ldap, paging, &estimate, &cookie);
  if (code == LDAP_SUCCESS && cookie.bv_val != nullptr) {
    cookie_.assign(cookie.bv_val, cookie.bv_len);
  }
  ldap_memfree(cookie.bv_val);
  return code;
}

// The cookie itself says nothing: servers use the same one for every page.
int LdapPagedSearch::checkProgress(const std::vector<LdapMessage>& page) {
  emptyPages_ = entriesInPage_ == 0 ? emptyPages_ + 1 : 0;
  if (emptyPages_ > kMaxEmptyPages) return refuse("page after page without an entry");
  if (entriesInPage_ == 0) return LDAP_SUCCESS;
  LDAP* const ldap = connection_.handle();
  LDAPMessage* entry = nullptr;
  for (const LdapMessage& chain : page) {
    if ((entry = ldap_first_entry(ldap, chain.get())) != nullptr) break;
  }
  char* name = ldap_get_dn(ldap, entry);
  std::string start = name != nullptr ? name : "";
  ldap_memfree(name);
  if (start == pageStart_) return refuse("the same page again");
  pageStart_ = std::move(start);
  return LDAP_SUCCESS;
}

int LdapPagedSearch::refuse(const char* fault) {
  fault_ = fault;
  return LDAP_PROTOCOL_ERROR;
}

}  // namespace platform
