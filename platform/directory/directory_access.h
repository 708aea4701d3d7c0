// Active Directory as ADSI shows it: objects and searches opened by their path, with HRESULT
// results. Steps, orders and messages are in directory/; this is one call each. Used by one thread
// between initialise() and uninitialise(), which may be nested. A call may block for as long as the
// directory takes.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace platform {

using HResult = std::uint32_t;
inline constexpr HResult kOk = 0;
inline constexpr HResult kAdsNoMoreRows = 0x5012;       // S_ADS_NOMORE_ROWS, a success
inline constexpr HResult kNotImplemented = 0x80004001;  // E_NOTIMPL
inline constexpr HResult kFail = 0x80004005;            // E_FAIL
inline constexpr HResult kInvalidArgument = 0x80070057;
inline constexpr HResult kAdsPropertyNotFound = 0x8000500D;
inline constexpr HResult kAdsColumnNotSet = 0x80005008;
inline constexpr HResult kAdsBadPathName = 0x80005000;
inline constexpr HResult kNoSuchObject = 0x80072030;
inline constexpr HResult kServerDown = 0x8007203A;
inline constexpr HResult kLogonFailure = 0x8007052E;
inline constexpr HResult kFilterUnknown = 0x8007203E;
inline bool failed(HResult status) {
  return (status & 0x80000000U) != 0;
}

inline constexpr std::uint32_t kErrorMoreDirectoryData = 234;  // DirectoryError::code

enum class AdsType : std::uint32_t {
  DnString = 1,
  CaseExactString = 2,
  CaseIgnoreString = 3,
  Integer = 7,
  LargeInteger = 10,
  SecurityDescriptor = 25,
};
enum class SearchScope : std::uint32_t { Base = 0, OneLevel = 1, Subtree = 2 };

// A flag of ADsOpenObject.
inline constexpr std::uint32_t kAdsSecureAuthentication = 1;

// The steps of the way into a directory, in their order.
enum class DirectoryStep { Settings, Name, Connect, Tls, Login, Read };

// What went wrong last, in the words of the directory (ADsGetLastError).
struct DirectoryError {
  std::uint32_t code = 0;
  std::string text;                          // in the ANSI code page, one line, no secret
  std::string provider;                      // likewise
  DirectoryStep step = DirectoryStep::Read;  // at which it went wrong, as far as that is known
};

// A password settings object: the policy of a group or of single accounts.
struct PasswordSettings {
  std::string name;          // ANSI
  std::uint32_t maxAge = 0;  // seconds; kPasswordNeverExpires: never
  std::int64_t precedence = 0;
};

// What a check shows of the way into the directory, beyond what a pass needs. Texts are ANSI.
struct DirectoryFacts {
  std::string server;                     // "HOST:PORT", or the name of a file; empty: not known
  std::vector<std::string> addresses;     // of its name
  std::vector<std::string> certificates;  // PEM, the server's own first; none without TLS
  bool certificatesTrusted = true;
  std::string identity;                            // whom the directory takes the program for
  std::vector<PasswordSettings> passwordSettings;  // those that this account may read
};

// A user object's properties (IADsUser). Values are set on success only.
class DirectoryUser {
 public:
  virtual ~DirectoryUser() = default;
  virtual HResult emailAddress(std::u16string& value) = 0;
  virtual HResult firstName(std::u16string& value) = 0;
  virtual HResult lastName(std::u16string& value) = 0;
};

// One directory object (IADs).
class DirectoryObject {
 public:
  virtual ~DirectoryObject() = default;
  virtual HResult get(const std::u16string& attribute, std::u16string& value) = 0;
  // The same object seen as a user (QueryInterface for IADsUser).
  virtual HResult queryUser(std::unique_ptr<DirectoryUser>& user) = 0;
};

struct SearchColumn {
  AdsType type = AdsType::CaseIgnoreString;
  std::u16string firstValue;  // a number in decimal
  std::string bytes{};        // of a security descriptor, self-relative; firstValue is empty
};

// The result of a search. Destroying it closes the search handle.
class SearchRows {
 public:
  virtual ~SearchRows() = default;
  // Moves to the next row, the first time to the first. kAdsNoMoreRows at the end of a page.
  virtual HResult next() = 0;
  virtual HResult column(const std::u16string& attribute, SearchColumn& column) = 0;
};

// A search from one path downwards (IDirectorySearch).
class DirectorySearch {
 public:
  virtual ~DirectorySearch() = default;
  virtual HResult setScope(SearchScope scope) = 0;
  virtual HResult setPageSize(std::uint32_t rows) = 0;
  // For a search of many rows with security descriptors: no row is kept once the next one was moved
  // to, and of the descriptors only the DACL is read, for which the right to read is enough.
  virtual HResult setForManyDescriptors() { return kOk; }
  // `filter` is an RFC 4515 filter; a "!" without parentheses around its operand is taken too.
  // The rows have a column for each of the attributes that their object has.
  virtual HResult execute(const std::u16string& filter,
                          const std::vector<std::u16string>& attributes,
                          std::unique_ptr<SearchRows>& rows) = 0;
};

class DirectoryAccess {
 public:
  virtual ~DirectoryAccess() = default;

  // CoInitialize and CoUninitialize for the calling thread.
  virtual HResult initialise() = 0;
  virtual void uninitialise() = 0;

  // ADsOpenObject with null credentials: as the account of the process, or the configured bind.
  virtual HResult openObject(const std::u16string& path, std::uint32_t flags,
                             std::unique_ptr<DirectoryObject>& object) = 0;
  virtual HResult openSearch(const std::u16string& path, std::uint32_t flags,
                             std::unique_ptr<DirectorySearch>& search) = 0;
  // ADsGetObject.
  virtual HResult getObject(const std::u16string& path,
                            std::unique_ptr<DirectoryObject>& object) = 0;
  virtual HResult getSearch(const std::u16string& path,
                            std::unique_ptr<DirectorySearch>& search) = 0;

  // The user with this logon name, where the directory is in memory and one user has the name;
  // null elsewhere, and where a search has to find him.
  virtual std::unique_ptr<DirectoryObject> userInMemory(const std::u16string& logonName) {
    (void)logonName;
    return nullptr;
  }

  virtual DirectoryError lastError() = 0;
  // What of the directory could not be used in the last pass: one line each, ANSI.
  virtual std::vector<std::string> warnings() const { return {}; }
  // What the failed `status` of the last call means, in one line: the directory's own words, or the
  // number in hexadecimal and what the system has to say about it.
  virtual std::string errorText(HResult status);

  // What can be found out; costs some round trips, and is for a check only.
  virtual DirectoryFacts facts() { return {}; }
  // Whether the directory would let this program write the attribute of the user with this logon
  // name, as it says itself (allowedAttributesEffective); nothing when it does not say. One round
  // trip.
  virtual std::optional<bool> mayWrite(const std::u16string& logonName, const char* attribute) {
    (void)logonName;
    (void)attribute;
    return std::nullopt;
  }

  // Has the user with this logon name change the password at the next logon, by writing 0 to
  // pwdLastSet and nothing else. Two round trips.
  virtual HResult requireNewPassword(const std::u16string& logonName) {
    (void)logonName;
    return kNotImplemented;
  }

  // By how many seconds the directory's clock is ahead of this machine's, as of the last reading;
  // negative when it is behind. Nothing when the directory does not say.
  virtual std::optional<std::int64_t> clockOffset() { return std::nullopt; }

  // A pass begins or ends. In between, an implementation may read what a pass needs once and answer
  // from memory; outside of it nothing is kept.
  virtual void beginPass() {}
  // The passes that follow concern the account with this logon name alone, so that others need not
  // be read: they may be missing. Empty: all accounts.
  virtual void restrictTo(const std::u16string& /*logonName*/) {}
  // Whether the look-ups of the passes that follow ask users for displayName, preferredLanguage and
  // manager: an implementation that answers from memory reads them only then.
  virtual void readPersonalDetails(bool /*wanted*/) {}
  virtual void endPass() {}
};

}  // namespace platform
