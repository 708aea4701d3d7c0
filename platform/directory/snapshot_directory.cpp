// Directory objects, searches and account records over a snapshot; see the header.
#include "platform/directory/snapshot_directory.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

#include "base/ascii.h"
#include "base/case_fold.h"
#include "base/unicode.h"
#include "platform/directory/entry_attributes.h"
#include "platform/directory/ldap_filter.h"
#include "platform/directory/name_index.h"

namespace platform {

struct SnapshotDirectory::Loaded {
  DirectorySnapshot snapshot;
  std::string foldedContext;
  NameIndex byLogonName{&DirectoryEntry::logonName};
  // Only the users who are to be mailed are opened by their path, so this one is built on demand.
  NameIndex byDn{&DirectoryEntry::dn};
};

namespace {

using Loaded = SnapshotDirectory::Loaded;

constexpr std::string_view kScheme = "LDAP://";
constexpr const char* kProvider = "Directory snapshot";
constexpr HResult kNoInterface = 0x80004002;  // E_NOINTERFACE

constexpr std::int64_t kFileTimePerSecond = 10'000'000;

HResult textProperty(const std::string& text, std::u16string& value) {
  if (text.empty()) return kAdsPropertyNotFound;
  value = base::utf8ToUtf16(text);
  return kOk;
}

std::string entryValue(const DirectoryEntry& entry, const EntryAttribute* attribute) {
  return attribute != nullptr && attribute->text != nullptr ? attribute->text(entry) : "";
}

// The rootDSE or the domain head: objects of which one attribute is asked for.
class SingleAttributeObject final : public DirectoryObject {
 public:
  SingleAttributeObject(std::string_view attribute, std::string value)
      : attribute_(attribute), value_(std::move(value)) {}

  HResult get(const std::u16string& attribute, std::u16string& value) override {
    if (!base::equalsNoCase(base::utf16ToUtf8(attribute), attribute_)) return kAdsPropertyNotFound;
    return textProperty(value_, value);
  }
  HResult queryUser(std::unique_ptr<DirectoryUser>&) override { return kNoInterface; }

 private:
  std::string_view attribute_;
  std::string value_;
};

class EntryUser final : public DirectoryUser {
 public:
  EntryUser(std::shared_ptr<const Loaded> loaded, const DirectoryEntry& entry)
      : loaded_(std::move(loaded)), entry_(entry) {}

  HResult emailAddress(std::u16string& value) override { return textProperty(entry_.mail, value); }
  HResult firstName(std::u16string& value) override {
    return textProperty(entry_.givenName, value);
  }
  HResult lastName(std::u16string& value) override { return textProperty(entry_.surname, value); }

 private:
  std::shared_ptr<const Loaded> loaded_;  // keeps entry_
  const DirectoryEntry& entry_;
};

class EntryObject final : public DirectoryObject {
 public:
  EntryObject(std::shared_ptr<const Loaded> loaded, const DirectoryEntry& entry)
      : loaded_(std::move(loaded)), entry_(entry) {}

  HResult get(const std::u16string& attribute, std::u16string& value) override {
    const EntryAttribute* known = entryAttribute(base::utf16ToUtf8(attribute));
    return textProperty(entryValue(entry_, known), value);
  }
  HResult queryUser(std::unique_ptr<DirectoryUser>& user) override {
    user = std::make_unique<EntryUser>(loaded_, entry_);
    return kOk;
  }

 private:
  std::shared_ptr<const Loaded> loaded_;  // keeps entry_
  const DirectoryEntry& entry_;
};

// Where a search looks: a base (folded) and how far below it.
struct SearchBase {
  std::string dn;
  SearchScope scope = SearchScope::Subtree;
  bool wholeDomain = false;

  bool holds(const DirectoryEntry& entry) const {
    if (wholeDomain && scope == SearchScope::Subtree) return true;
    const std::string folded = base::foldCase(entry.dn);
    if (folded == dn) return scope != SearchScope::OneLevel;
    if (scope == SearchScope::Base || !folded.ends_with("," + dn)) return false;
    const std::string_view below(folded.data(), folded.size() - dn.size() - 1);
    return scope == SearchScope::Subtree || !hasSeparator(below);
  }

 private:
  static bool hasSeparator(std::string_view names) {
    for (std::size_t i = 0; i < names.size(); ++i) {
      if (names[i] == '\\') {
        ++i;
      } else if (names[i] == ',') {
        return true;
      }
    }
    return false;
  }
};

class SnapshotRows final : public SearchRows {
 public:
  SnapshotRows(std::shared_ptr<const Loaded> loaded, LdapFilter filter, SearchBase base,
               std::vector<std::string> attributes)
      : loaded_(std::move(loaded)),
        filter_(std::move(filter)),
        logonName_(filter_.requiredLogonName()),
        base_(std::move(base)),
        attributes_(std::move(attributes)) {}

  HResult next() override {
    const NameIndex::Entries& entries = loaded_->snapshot.entries;
    while (!done_) {
      current_ = nextCandidate();
      done_ = current_ == NameIndex::kNone;
      if (done_) break;
      if (filter_.matches(entries[current_]) && base_.holds(entries[current_])) return kOk;
    }
    return kAdsNoMoreRows;
  }

  HResult column(const std::u16string& attribute, SearchColumn& column) override {
    const std::string name = base::utf16ToUtf8(attribute);
    if (current_ == NameIndex::kNone) return kFail;
    if (std::none_of(attributes_.begin(), attributes_.end(), [&name](const std::string& asked) {
          return base::equalsNoCase(name, asked);
        })) {
      return kAdsColumnNotSet;
    }
    const DirectoryEntry& entry = loaded_->snapshot.entries[current_];
    const EntryAttribute* known = entryAttribute(name);
    const bool path = base::equalsNoCase(name, "ADsPath");
    const std::string value = path ? std::string(kScheme) + entry.dn : entryValue(entry, known);
    if (value.empty()) return kAdsColumnNotSet;
    column.type = columnType(known);
    column.firstValue = base::utf8ToUtf16(value);
    return kOk;
  }

 private:
  static AdsType columnType(const EntryAttribute* known) {
    if (known == nullptr) return AdsType::CaseIgnoreString;
    if (known->syntax == AttributeSyntax::LargeInteger) return AdsType::LargeInteger;
    return known->syntax == AttributeSyntax::DistinguishedName ? AdsType::DnString
                                                               : AdsType::CaseIgnoreString;
  }

  std::uint32_t nextCandidate() const {
    const NameIndex::Entries& entries = loaded_->snapshot.entries;
    if (!logonName_) {
      const std::uint32_t next = current_ == NameIndex::kNone ? 0 : current_ + 1;
      return next < entries.size() ? next : NameIndex::kNone;
    }
    return current_ == NameIndex::kNone ? loaded_->byLogonName.first(entries, *logonName_)
                                        : loaded_->byLogonName.next(entries, *logonName_, current_);
  }

  std::shared_ptr<const Loaded> loaded_;
  LdapFilter filter_;
  std::optional<std::string> logonName_;
  SearchBase base_;
  std::vector<std::string> attributes_;
  std::uint32_t current_ = NameIndex::kNone;
  bool done_ = false;
};

class SnapshotSearch final : public DirectorySearch {
 public:
  SnapshotSearch(std::shared_ptr<const Loaded> loaded, SearchBase base)
      : loaded_(std::move(loaded)), base_(std::move(base)) {}

  HResult setScope(SearchScope scope) override {
    base_.scope = scope;
    return kOk;
  }
  // Everything is in memory: all rows are one page.
  HResult setPageSize(std::uint32_t) override { return kOk; }

  HResult execute(const std::u16string& filter, const std::vector<std::u16string>& attributes,
                  std::unique_ptr<SearchRows>& rows) override {
    std::optional<LdapFilter> parsed = LdapFilter::parse(base::utf16ToUtf8(filter));
    if (!parsed) return kFilterUnknown;
    std::vector<std::string> names;
    for (const std::u16string& attribute : attributes) {
      names.push_back(base::utf16ToUtf8(attribute));
    }
    rows = std::make_unique<SnapshotRows>(loaded_, std::move(*parsed), base_, std::move(names));
    return kOk;
  }

 private:
  std::shared_ptr<const Loaded> loaded_;
  SearchBase base_;
};

// The distinguished name of a path, where "/" is escaped; nothing when it is of another kind.
std::optional<std::string> nameInPath(const std::u16string& path) {
  const std::string text = base::utf16ToUtf8(path);
  if (!base::equalsNoCase(std::string_view(text).substr(0, kScheme.size()), kScheme)) {
    return std::nullopt;
  }
  if (text.size() == kScheme.size()) return std::nullopt;
  std::string name;
  for (std::size_t i = kScheme.size(); i < text.size(); ++i) {
    const bool isEscape = text[i] == '\\' && i + 1 < text.size();
    if (isEscape && text[i + 1] != '/') name += text[i];
    if (isEscape) ++i;
    name += text[i];
  }
  return name;
}

std::uint32_t secondsSince(std::int64_t fileTime, std::int64_t now) {
  if (fileTime <= 0 || fileTime >= now) return 0;
  const std::int64_t seconds = (now - fileTime) / kFileTimePerSecond;
  return static_cast<std::uint32_t>(
      std::min<std::int64_t>(seconds, std::numeric_limits<std::uint32_t>::max()));
}

}  // namespace

SnapshotDirectory::SnapshotDirectory(std::unique_ptr<DirectorySource> source, Clock& clock)
    : source_(std::move(source)), clock_(clock) {}

SnapshotDirectory::~SnapshotDirectory() = default;

HResult SnapshotDirectory::initialise() {
  ++initialised_;
  return kOk;
}

void SnapshotDirectory::uninitialise() {
  if (initialised_ > 0) --initialised_;
  if (initialised_ == 0 && !inPass_) drop();
}

void SnapshotDirectory::beginPass() {
  drop();
  inPass_ = true;
  ensureLoaded();
}

void SnapshotDirectory::restrictTo(const std::u16string& logonName) {
  source_->restrictTo(base::utf16ToUtf8(logonName));
}

void SnapshotDirectory::endPass() {
  inPass_ = false;
  drop();
}

HResult SnapshotDirectory::ensureLoaded() {
  if (loaded_ != nullptr) return kOk;
  if (failed(loadStatus_)) {
    lastError_ = loadError_;
    return loadStatus_;
  }
  auto loaded = std::make_shared<Loaded>();
  loadError_ = DirectoryError();
  loadStatus_ = source_->load(loaded->snapshot, loadError_);
  lastError_ = loadError_;
  warnings_ = std::move(loaded->snapshot.warnings);
  if (failed(loadStatus_)) return loadStatus_;
  loaded->byLogonName.build(loaded->snapshot.entries);
  loaded->foldedContext = base::foldCase(loaded->snapshot.namingContext);
  loaded_ = std::move(loaded);
  return kOk;
}

void SnapshotDirectory::drop() {
  loaded_.reset();
  lastFound_ = 0;
  loadStatus_ = kOk;
}

HResult SnapshotDirectory::fail(HResult status, std::string text) {
  lastError_ = {status & 0xFFFFU, std::move(text), kProvider};
  return status;
}

HResult SnapshotDirectory::badPath(const std::u16string& path) {
  return fail(kAdsBadPathName, "not a path of this directory: " + base::utf16ToUtf8(path));
}

HResult SnapshotDirectory::openObject(const std::u16string& path, std::uint32_t,
                                      std::unique_ptr<DirectoryObject>& object) {
  const std::optional<std::string> name = nameInPath(path);
  if (!name) return badPath(path);
  const HResult status = ensureLoaded();
  if (failed(status)) return status;
  const DirectorySnapshot& snapshot = loaded_->snapshot;
  if (base::equalsNoCase(*name, "rootDSE")) {
    object =
        std::make_unique<SingleAttributeObject>("defaultNamingContext", snapshot.namingContext);
    return kOk;
  }
  const std::string folded = base::foldCase(*name);
  if (folded == loaded_->foldedContext) {
    object = std::make_unique<SingleAttributeObject>("distinguishedName", snapshot.namingContext);
    return kOk;
  }
  if (!loaded_->byDn.built()) loaded_->byDn.build(snapshot.entries);
  const std::uint32_t found = loaded_->byDn.first(snapshot.entries, folded);
  if (found == NameIndex::kNone) return fail(kNoSuchObject, "no such object: " + *name);
  object = std::make_unique<EntryObject>(loaded_, snapshot.entries[found]);
  return kOk;
}

HResult SnapshotDirectory::openSearch(const std::u16string& path, std::uint32_t,
                                      std::unique_ptr<DirectorySearch>& search) {
  const std::optional<std::string> name = nameInPath(path);
  if (!name) return badPath(path);
  const HResult status = ensureLoaded();
  if (failed(status)) return status;
  SearchBase base;
  base.dn = base::foldCase(*name);
  base.wholeDomain = base.dn == loaded_->foldedContext;
  // Of what is not a user only the name is known, so any name below the domain is taken for an
  // object.
  if (!base.wholeDomain && !base.dn.ends_with("," + loaded_->foldedContext)) {
    return fail(kNoSuchObject, "no such object: " + *name);
  }
  search = std::make_unique<SnapshotSearch>(loaded_, std::move(base));
  return kOk;
}

HResult SnapshotDirectory::getObject(const std::u16string& path,
                                     std::unique_ptr<DirectoryObject>& object) {
  return openObject(path, kAdsSecureAuthentication, object);
}

HResult SnapshotDirectory::getSearch(const std::u16string& path,
                                     std::unique_ptr<DirectorySearch>& search) {
  return openSearch(path, kAdsSecureAuthentication, search);
}

std::unique_ptr<DirectoryObject> SnapshotDirectory::userInMemory(const std::u16string& logonName) {
  DirectoryEntry* entry = nullptr;
  if (!findEntry(logonName, entry).ok() || !entry->isPerson || !loaded_->byLogonName.unique()) {
    return nullptr;
  }
  return std::make_unique<EntryObject>(loaded_, *entry);
}

DirectoryError SnapshotDirectory::lastError() {
  return lastError_;
}

std::optional<std::int64_t> SnapshotDirectory::clockOffset() {
  if (failed(ensureLoaded())) return std::nullopt;
  return loaded_->snapshot.clockOffset;
}

std::optional<bool> SnapshotDirectory::mayWrite(const std::u16string& logonName,
                                                const char* attribute) {
  DirectoryEntry* entry = nullptr;
  if (!findEntry(logonName, entry).ok()) return std::nullopt;
  return source_->mayWrite(*entry, attribute);
}

AccountResult SnapshotDirectory::findEntry(const std::u16string& name, DirectoryEntry*& entry) {
  if (failed(ensureLoaded())) return {kNetNoDomainController, loadError_.text};
  NameIndex::Entries& entries = loaded_->snapshot.entries;
  const std::string text = base::utf16ToUtf8(name);
  // A pass over all users asks in the order of the entries, for each twice: mostly the answer is
  // the entry of the last time or the one behind it, and the index need not be looked into.
  const bool mayBeNear = loaded_->byLogonName.unique();
  for (const std::size_t near : {lastFound_, lastFound_ + 1}) {
    if (!mayBeNear || near >= entries.size() || entries[near].logonName != text) continue;
    lastFound_ = near;
    entry = &entries[near];
    return {};
  }
  const std::uint32_t found = loaded_->byLogonName.first(entries, base::foldCase(text));
  if (found == NameIndex::kNone) return {kNetUserNotFound, "no such account"};
  lastFound_ = found;
  entry = &entries[found];
  return {};
}

void SnapshotDirectory::describe(const DirectoryEntry& entry, UserInfo& info) {
  info = UserInfo();
  info.flags = entry.accountControl & (kAccountDisabled | kPasswordDontExpire | kSmartcardRequired);
  if (entry.cantChangePassword) info.flags |= kPasswordCantChange;
  info.passwordAge = secondsSince(entry.pwdLastSet, clock_.fileTime());
  info.passwordExpired = entry.pwdLastSet == 0 ? 1 : 0;
  if (wanted_.expiryTimes && entry.pwdLastSet != 0) info.passwordExpires = entry.passwordExpires;
}

bool SnapshotDirectory::readExpiryTimes(bool wanted) {
  wanted_.expiryTimes = wanted;
  source_->want(wanted_);
  return true;
}

void SnapshotDirectory::readPersonalDetails(bool wanted) {
  wanted_.personalDetails = wanted;
  source_->want(wanted_);
}

AccountResult SnapshotDirectory::userInfo(const std::u16string& name, UserInfo& info) {
  DirectoryEntry* entry = nullptr;
  AccountResult result = findEntry(name, entry);
  if (result.ok()) describe(*entry, info);
  return result;
}

AccountResult SnapshotDirectory::currentUserInfo(const std::u16string& name, UserInfo& info) {
  DirectoryEntry* entry = nullptr;
  AccountResult result = findEntry(name, entry);
  if (result.ok()) result = source_->refresh(*entry);
  if (result.ok()) describe(*entry, info);
  return result;
}

AccountResult SnapshotDirectory::setUserInfo(const std::u16string& name, const UserInfo& info) {
  DirectoryEntry* entry = nullptr;
  AccountResult result = findEntry(name, entry);
  if (!result.ok() || info.passwordExpired == 0) return result;
  result = source_->expirePassword(*entry);
  if (result.ok()) entry->pwdLastSet = 0;
  return result;
}

NetStatus SnapshotDirectory::domainModals(DomainModals& modals) {
  if (failed(ensureLoaded())) return kNetNoDomainController;
  modals.maxPasswordAge = maxAgeSeconds(loaded_->snapshot.maxPwdAge);
  return kNetSuccess;
}

}  // namespace platform
