// Reads the domain head and the users, and writes pwdLastSet; see the header.
#include "platform/directory/ldap/ldap_source.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <vector>

#include "base/ascii.h"
#include "base/case_fold.h"
#include "base/unicode.h"
#include "platform/directory/entry_attributes.h"
#include "platform/directory/ldap/ldap_paged_search.h"
#include "platform/directory/ldap_filter.h"

namespace platform {
namespace {

constexpr const char* kUsers = "(objectClass=user)";
constexpr const char* kPwdLastSetName = "pwdLastSet";

std::string filterOfUser(const std::string& logonName) {
  const std::u16string escaped = escapeFilterValue(base::utf8ToUtf16(logonName));
  return "(&" + std::string(kUsers) + "(sAMAccountName=" + base::utf16ToUtf8(escaped) + "))";
}

// The names of the attributes that each user is asked for, behind them a null pointer.
std::vector<const char*> userAttributes(const OptionalAttributes& wanted) {
  std::vector<const char*> names;
  for (const EntryAttribute& known : entryAttributes()) {
    if (known.ofUsers != AskedFor::Never && isWanted(known, wanted)) {
      names.push_back(known.name.data());
    }
  }
  names.push_back(nullptr);
  return names;
}

// Past this many, only their number is given.
constexpr std::size_t kMaxWarnings = 1000;
// Ten times the largest domain this is measured with. A server that never ends is stopped here.
constexpr std::size_t kMaxEntries = 10'000'000;

// How many calls in a row may lose the server before no more is tried in a pass.
constexpr int kMostLost = 2;
constexpr std::int64_t kFileTimePerSecond = 10'000'000;
constexpr int kSecondsToLook = 5;  // for a step of the way to a server that could not be used

struct BerFree {
  void operator()(BerElement* element) const { ber_free(element, 0); }
};

std::string_view viewOf(const berval& value) {
  return {value.bv_val, value.bv_len};
}

// The attributes without which a user looks as if nothing were ever due. Every account has them, so
// their absence is a lack of rights.
constexpr unsigned kVital = kAccountControl | kPwdLastSet | kSecurityDescriptor;

// Name and attributes of one object of an answer; what is wrong with it is in `object`. Names and
// values stay in the message's own memory; only what an entry keeps is copied.
void readObject(LDAP* ldap, LDAPMessage* message, ReadObject& object) {
  berval dn = {};
  BerElement* found = nullptr;
  int code = ldap_get_dn_ber(ldap, message, &found, &dn);
  const std::unique_ptr<BerElement, BerFree> position(found);
  if (code == LDAP_SUCCESS) object.entry.dn = textValue(viewOf(dn));
  while (code == LDAP_SUCCESS) {
    berval name = {};
    BerVarray values = nullptr;
    code = ldap_get_attribute_ber(ldap, message, found, &name, &values);
    if (code != LDAP_SUCCESS) break;
    if (name.bv_val == nullptr) return;
    const EntryAttribute* known = entryAttribute(viewOf(name));
    for (BerVarray value = values; value != nullptr && value->bv_val != nullptr; ++value) {
      if (known != nullptr) takeValue(object, *known, viewOf(*value));
    }
    ldap_memfree(values);
  }
  object.fault = "not understood";
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
  void add(LDAPMessage* message) {
    ReadObject object;
    readObject(ldap_, message, object);
    DirectoryEntry& entry = object.entry;
    if (object.fault == nullptr && entry.logonName.empty()) {
      object.fault = "a user without sAMAccountName";
    }
    const char* const wrong = object.fault != nullptr ? object.fault : object.note;
    if (wrong != nullptr) warn(entry.dn.empty() ? "an entry" : entry.dn, wrong);
    if (object.fault != nullptr) return;
    if ((object.seen & kVital) != kVital) ++unreadable_;
    snapshot_.entries.push_back(std::move(entry));
  }

  void warn(const std::string& name, const char* what) {
    if (++warnings_ <= kMaxWarnings) snapshot_.warnings.push_back(name + ": " + what);
  }

  LDAP* ldap_;
  DirectorySnapshot& snapshot_;
  std::size_t warnings_ = 0;
  std::size_t unreadable_ = 0;
};

// Those of the users in a snapshot that is to hold nobody else. One who cannot be read is missing.
void addManagers(LdapConnection& connection, const std::vector<const char*>& attributes,
                 EntryCollector& collector, const DirectorySnapshot& snapshot) {
  std::vector<LdapMessage> found(1);
  const std::size_t users = snapshot.entries.size();
  for (std::size_t i = 0; i < users; ++i) {
    const std::shared_ptr<PersonalDetails> details = snapshot.entries[i].details;
    if (details == nullptr || details->manager.empty()) continue;
    const int code = connection.readObject(details->manager, attributes.data(), found.front());
    if (code == LDAP_SUCCESS) collector.addPage(found);
  }
}

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
  connection_ = LdapConnection::open(forOneEntry(), status, error);
  if (connection_ == nullptr) return status;
  onlyReplaces_ = false;
  lostInARow_ = 0;
  std::string base;
  status = readDomain(snapshot, base, error);
  connection_->setAnswerSeconds(settings_.answerSeconds);
  if (status == kOk) status = readUsers(base, snapshot, error);
  connection_->setAnswerSeconds(forOneEntry().answerSeconds);
  if (failed(status)) {
    snapshot = DirectorySnapshot();
    connection_.reset();
  }
  return status;
}

// A page of users may take long. A bind, one entry, or a write does not: a pass that meets a silent
// server waits for few of them, and so ends in minutes.
LdapSettings LdapSource::forOneEntry() const {
  constexpr int kSeconds = 30;
  LdapSettings settings = settings_;
  settings.answerSeconds = std::min(settings.answerSeconds, kSeconds);
  return settings;
}

// The base to search from, the domain it lies in with its maximum password age, and the clock.
HResult LdapSource::readDomain(DirectorySnapshot& snapshot, std::string& base,
                               DirectoryError& error) {
  std::string time;
  int code = connection_->readValue("", "currentTime", time);
  if (code != LDAP_SUCCESS) return connection_->fail(code, "rootDSE", error);
  if (const std::optional<std::int64_t> now = timeValue(time)) {
    snapshot.clockOffset = (*now - clock_.fileTime()) / kFileTimePerSecond;
  }
  base = settings_.base;
  if (base.empty()) {
    code = connection_->readValue("", "defaultNamingContext", base);
    if (code != LDAP_SUCCESS) return connection_->fail(code, "rootDSE", error);
    if (base.empty()) {
      return connection_->fail(LDAP_NO_SUCH_OBJECT, "rootDSE has no defaultNamingContext", error);
    }
  }
  const std::string_view domain = domainPart(base);
  snapshot.namingContext = domain.empty() ? base : std::string(domain);
  namingContext_ = snapshot.namingContext;
  std::string age;
  code = connection_->readValue(snapshot.namingContext, "maxPwdAge", age);
  if (code != LDAP_SUCCESS) return connection_->fail(code, snapshot.namingContext, error);
  const std::optional<std::int64_t> value = decimalValue(age);
  if (!value) snapshot.warnings.push_back(snapshot.namingContext + ": maxPwdAge is not a number");
  snapshot.maxPwdAge = value.value_or(0);
  return kOk;
}

HResult LdapSource::readUsers(const std::string& base, DirectorySnapshot& snapshot,
                              DirectoryError& error) {
  const std::vector<const char*> attributes = userAttributes(wanted_);
  const std::string filter = onlyUser_.empty() ? kUsers : filterOfUser(onlyUser_);
  LdapPagedSearch search(*connection_, base, filter.c_str(), attributes.data());
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
  if (!onlyUser_.empty() && wanted_.personalDetails) {
    addManagers(*connection_, attributes, collector, snapshot);
  }
  collector.finish();
  return kOk;
}

// Runs one exchange, unless the server was lost too often: a pass must not wait for it once a user.
AccountResult LdapSource::reach(const DirectoryEntry& entry, const std::function<int()>& exchange) {
  if (lostInARow_ == kMostLost) return {kNetNoDomainController, lostText_};
  AccountResult result = overConnection(entry, exchange);
  const bool lost = result.status == kNetNoDomainController;
  lostInARow_ = lost ? lostInARow_ + 1 : 0;
  if (lost) lostText_ = result.text;
  return result;
}

// Runs one exchange, over the connection that loading made or, when the server has dropped that,
// once over a new one. `exchange` gives an LDAP result code.
AccountResult LdapSource::overConnection(const DirectoryEntry& entry,
                                         const std::function<int()>& exchange) {
  DirectoryError error;
  const bool wasOpen = connection_ != nullptr;
  HResult status = kOk;
  if (!wasOpen) connection_ = LdapConnection::open(forOneEntry(), status, error);
  if (connection_ == nullptr) return {kNetNoDomainController, error.text};
  const int code = exchange();
  if (code == LDAP_SUCCESS) return {};
  connection_->fail(code, entry.dn, error);
  if (isConnectionLost(code)) connection_.reset();
  const bool dropped = isConnectionLost(code) && code != LDAP_TIMEOUT;
  if (dropped && wasOpen) return overConnection(entry, exchange);
  return {netStatusOf(code), error.text};
}

AccountResult LdapSource::refresh(DirectoryEntry& entry) {
  ReadObject object;
  const std::vector<const char*> attributes = userAttributes(wanted_);
  AccountResult result = reach(entry, [&] {
    LdapMessage message;
    const int code = connection_->readObject(entry.dn, attributes.data(), message);
    LDAPMessage* found = nullptr;
    if (code == LDAP_SUCCESS) found = ldap_first_entry(connection_->handle(), message.get());
    if (found != nullptr) readObject(connection_->handle(), found, object);
    return code;
  });
  if (!result.ok()) return result;
  DirectoryEntry& now = object.entry;
  if (base::foldCase(now.logonName) != base::foldCase(entry.logonName)) {
    return {kNetUserNotFound, entry.dn + ": not the account " + entry.logonName + " any more"};
  }
  if (object.fault != nullptr) return {kNetReadFault, entry.dn + ": " + object.fault};
  now.dn = std::move(entry.dn);
  now.logonName = std::move(entry.logonName);
  entry = std::move(now);
  return result;
}

AccountResult LdapSource::expirePassword(const DirectoryEntry& entry) {
  bool changed = false;
  AccountResult result = reach(entry, [&] {
    changed = false;
    return expireUnlessChanged(entry, changed);
  });
  if (changed) return {kNetPasswordChanged, entry.dn + ": the password was changed"};
  return result;
}

DirectoryFacts LdapSource::facts() {
  DirectoryFacts facts;
  const LdapAddress server =
      connection_ != nullptr ? connection_->server() : ldapAddress(settings_.uri);
  facts.server = server.host.empty() ? settings_.uri : server.text();
  if (connection_ == nullptr) {
    if (server.host.empty()) return facts;
    // Certificates that are not trusted are shown, too.
    const bool tls = server.tlsFirst || settings_.bind == LdapSettings::Bind::Simple;
    LdapPath path = walkLdapPath(server, {tls, settings_.caFile, kSecondsToLook});
    facts.addresses = std::move(path.addresses);
    facts.certificates = std::move(path.certificates);
    facts.certificatesTrusted = false;
    return facts;
  }
  LdapPath path = connection_->walkAgain();
  facts.addresses = std::move(path.addresses);
  facts.certificates = std::move(path.certificates);
  facts.identity = connection_->identity();
  facts.passwordSettings = readPasswordSettings();
  return facts;
}

// Ordinary accounts may not read them: then there are none.
std::vector<PasswordSettings> LdapSource::readPasswordSettings() {
  constexpr const char* kAge = "msDS-MaximumPasswordAge";
  constexpr const char* kPrecedence = "msDS-PasswordSettingsPrecedence";
  const std::string container = "CN=Password Settings Container,CN=System," + namingContext_;
  const char* const attributes[] = {"cn", kAge, kPrecedence, nullptr};
  LDAP* const ldap = connection_->handle();
  LDAPMessage* received = nullptr;
  ldap_search_ext_s(ldap, container.c_str(), LDAP_SCOPE_ONELEVEL,
                    "(objectClass=msDS-PasswordSettings)", const_cast<char**>(attributes), 0,
                    nullptr, nullptr, nullptr, LDAP_NO_LIMIT, &received);
  const LdapMessage message(received);
  std::vector<PasswordSettings> found;
  LDAPMessage* entry = received != nullptr ? ldap_first_entry(ldap, received) : nullptr;
  for (; entry != nullptr; entry = ldap_next_entry(ldap, entry)) {
    const auto first = [&](const char* attribute) {
      const std::vector<std::string> values = connection_->valuesOf(entry, attribute);
      return values.empty() ? std::string() : values.front();
    };
    found.push_back({first("cn"), maxAgeSeconds(decimalValue(first(kAge)).value_or(0)),
                     decimalValue(first(kPrecedence)).value_or(0)});
  }
  return found;
}

std::optional<bool> LdapSource::mayWrite(const DirectoryEntry& entry, const char* attribute) {
  std::vector<std::string> writable;
  if (connection_ == nullptr ||
      connection_->readValues(entry.dn, "allowedAttributesEffective", writable) != LDAP_SUCCESS) {
    return std::nullopt;
  }
  return std::any_of(writable.begin(), writable.end(), [attribute](const std::string& name) {
    return base::equalsNoCase(name, attribute);
  });
}

// An LDAP result code.
int LdapSource::expireUnlessChanged(const DirectoryEntry& entry, bool& changed) {
  const std::string before = std::to_string(entry.pwdLastSet);
  int code = LDAP_NO_SUCH_ATTRIBUTE;
  if (!onlyReplaces_) {
    code = connection_->exchangeValue(entry.dn, kPwdLastSetName, before, "0");
    if (code == LDAP_SUCCESS || code == LDAP_INSUFFICIENT_ACCESS || isConnectionLost(code)) {
      return code;
    }
  }
  // It was changed, or the server refuses that form.
  std::string now;
  code = connection_->readValue(entry.dn, kPwdLastSetName, now);
  const std::optional<std::int64_t> time = decimalValue(now);
  if (code != LDAP_SUCCESS || time == 0) return code;
  changed = time.value_or(0) != entry.pwdLastSet;
  if (changed) return LDAP_SUCCESS;
  code = connection_->replaceValue(entry.dn, kPwdLastSetName, "0");
  if (code == LDAP_SUCCESS) onlyReplaces_ = true;
  return code;
}

}  // namespace platform
