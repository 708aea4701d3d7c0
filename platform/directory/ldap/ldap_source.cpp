// Reads the domain head and the users, and writes pwdLastSet; see the header.
#include "platform/directory/ldap/ldap_source.h"

#include <optional>
#include <string_view>
#include <vector>

#include "base/ascii.h"
#include "platform/directory/entry_attributes.h"
#include "platform/directory/ldap/ldap_paged_search.h"

namespace platform {
namespace {

constexpr const char* kUsers = "(objectClass=user)";
constexpr const char* const kAttributes[] = {
    "sAMAccountName", "userAccountControl", "pwdLastSet", "nTSecurityDescriptor",
    "mail",           "givenName",          "sn",         "objectCategory",
    nullptr};

// Past this many, only their number is told.
constexpr std::size_t kMaxWarnings = 1000;
// Ten times the largest domain this is measured with. A server that never ends is stopped here.
constexpr std::size_t kMaxEntries = 10'000'000;

struct BerFree {
  void operator()(BerElement* element) const { ber_free(element, 0); }
};

std::string_view viewOf(const berval& value) {
  return {value.bv_val, value.bv_len};
}

// The attributes without which a user looks as if nothing were ever due. Every account has them, so
// their absence is a lack of rights.
enum Vital : unsigned {
  kNotVital = 0,
  kControl = 1,
  kPasswordTime = 2,
  kDescriptor = 4,
  kAllVital = 7
};

Vital vitalOf(std::string_view attribute) {
  if (base::equalsNoCase(attribute, "userAccountControl")) return kControl;
  if (base::equalsNoCase(attribute, "pwdLastSet")) return kPasswordTime;
  return base::equalsNoCase(attribute, "nTSecurityDescriptor") ? kDescriptor : kNotVital;
}

// Collects the entries of one search into a snapshot.
class EntryCollector {
 public:
  EntryCollector(LDAP* ldap, DirectorySnapshot& snapshot) : ldap_(ldap), snapshot_(snapshot) {}

  void addPage(const std::vector<LdapMessage>& page) {
    for (const LdapMessage& chain : page) {
      LDAPMessage* message = ldap_first_entry(ldap_, chain.get());
      for (; message != nullptr; message = ldap_next_entry(ldap_, message)) add(message);
    }
  }

  void finish() {
    if (warnings_ > kMaxWarnings) {
      snapshot_.warnings.push_back(std::to_string(warnings_ - kMaxWarnings) + " further faults");
    }
    if (unreadable_ > 0) {
      snapshot_.warnings.push_back(
          std::to_string(unreadable_) +
          " users without userAccountControl, pwdLastSet or nTSecurityDescriptor: the account that "
          "reads the directory may lack the right to read them");
    }
  }

 private:
  // Names and values stay in the message's own memory; only what an entry keeps is copied.
  void add(LDAPMessage* message) {
    berval dn = {};
    BerElement* found = nullptr;
    const int code = ldap_get_dn_ber(ldap_, message, &found, &dn);
    const std::unique_ptr<BerElement, BerFree> position(found);
    if (code != LDAP_SUCCESS) return warn("an entry", "not understood");
    DirectoryEntry entry;
    entry.dn = textValue(viewOf(dn));
    unsigned vital = 0;
    const char* fault = readAttributes(message, found, entry, vital);
    if (fault == nullptr && entry.logonName.empty()) fault = "a user without sAMAccountName";
    if (fault != nullptr) return warn(entry.dn, fault);
    if (vital != kAllVital) ++unreadable_;
    snapshot_.entries.push_back(std::move(entry));
  }

  const char* readAttributes(LDAPMessage* message, BerElement* position, DirectoryEntry& entry,
                             unsigned& vital) {
    const char* fault = nullptr;
    for (;;) {
      berval name = {};
      BerVarray values = nullptr;
      if (ldap_get_attribute_ber(ldap_, message, position, &name, &values) != LDAP_SUCCESS) {
        return "not understood";
      }
      if (name.bv_val == nullptr) return fault;
      const EntrySetter set = entrySetter(viewOf(name));
      for (BerVarray value = values; value != nullptr && value->bv_val != nullptr; ++value) {
        vital |= vitalOf(viewOf(name));
        const char* wrong = set != nullptr ? set(entry, viewOf(*value)) : nullptr;
        if (fault == nullptr) fault = wrong;
      }
      ldap_memfree(values);
    }
  }

  void warn(const std::string& name, const char* what) {
    if (++warnings_ <= kMaxWarnings) snapshot_.warnings.push_back(name + ": " + what);
  }

  LDAP* ldap_;
  DirectorySnapshot& snapshot_;
  std::size_t warnings_ = 0;
  std::size_t unreadable_ = 0;
};

NetStatus netStatusOf(int code) {
  switch (code) {
    case LDAP_SUCCESS:
      return kNetSuccess;
    case LDAP_NO_SUCH_OBJECT:
      return kNetUserNotFound;
    case LDAP_INSUFFICIENT_ACCESS:
    case LDAP_STRONG_AUTH_REQUIRED:
      return kNetAccessDenied;
    default:
      return isConnectionLost(code) ? kNetNoDomainController : kNetWriteFault;
  }
}

}  // namespace

HResult LdapSource::load(DirectorySnapshot& snapshot, DirectoryError& error) {
  HResult status = kOk;
  connection_ = LdapConnection::open(settings_, status, error);
  if (connection_ == nullptr) return status;
  std::string base;
  status = readDomain(snapshot, base, error);
  if (status == kOk) status = readUsers(base, snapshot, error);
  if (failed(status)) {
    snapshot = DirectorySnapshot();
    connection_.reset();
  }
  return status;
}

// The base to search from, and the domain it lies in with its maximum password age.
HResult LdapSource::readDomain(DirectorySnapshot& snapshot, std::string& base,
                               DirectoryError& error) {
  base = settings_.base;
  if (base.empty()) {
    const int code = connection_->readValue("", "defaultNamingContext", base);
    if (code != LDAP_SUCCESS) return connection_->fail(code, "rootDSE", error);
    if (base.empty()) {
      return connection_->fail(LDAP_NO_SUCH_OBJECT, "rootDSE has no defaultNamingContext", error);
    }
  }
  const std::string_view domain = domainPart(base);
  snapshot.namingContext = domain.empty() ? base : std::string(domain);
  std::string age;
  const int code = connection_->readValue(snapshot.namingContext, "maxPwdAge", age);
  if (code != LDAP_SUCCESS) return connection_->fail(code, snapshot.namingContext, error);
  const std::optional<std::int64_t> value = decimalValue(age);
  if (!value) snapshot.warnings.push_back(snapshot.namingContext + ": maxPwdAge is not a number");
  snapshot.maxPwdAge = value.value_or(0);
  return kOk;
}

HResult LdapSource::readUsers(const std::string& base, DirectorySnapshot& snapshot,
                              DirectoryError& error) {
  LdapPagedSearch search(*connection_, base, kUsers, kAttributes);
  EntryCollector collector(connection_->handle(), snapshot);
  std::vector<LdapMessage> page;
  int code = search.start();
  while (code == LDAP_SUCCESS && !search.atEnd()) {
    code = search.next(page);
    if (code == LDAP_SUCCESS) collector.addPage(page);
    if (snapshot.entries.size() > kMaxEntries) code = LDAP_SIZELIMIT_EXCEEDED;
  }
  const char* const fault = search.fault();
  const std::string action = "users below " + base + (fault != nullptr ? ", " : "");
  if (code != LDAP_SUCCESS) {
    return connection_->fail(code, action + (fault != nullptr ? fault : ""), error);
  }
  collector.finish();
  return kOk;
}

NetStatus LdapSource::expirePassword(const DirectoryEntry& entry, DirectoryError& error) {
  const bool wasOpen = connection_ != nullptr;
  HResult status = kOk;
  if (!wasOpen) connection_ = LdapConnection::open(settings_, status, error);
  if (connection_ == nullptr) return kNetNoDomainController;
  int code = connection_->replaceValue(entry.dn, "pwdLastSet", "0");
  if (isConnectionLost(code) && wasOpen) {
    connection_.reset();
    return expirePassword(entry, error);
  }
  connection_->fail(code, entry.dn, error);
  if (isConnectionLost(code)) connection_.reset();
  const NetStatus result = netStatusOf(code);
  if (result != kNetSuccess) error.code = result;
  return result;
}

}  // namespace platform
