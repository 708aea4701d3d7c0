// `pSettings`: which edition of the product is installed, where its registry key lies, and which of
// the password filter's switches are on. Shared with the filter; the expiration run does not load
// it, and the switches are the filter's. Filled by the loaders, owned by the caller.
#pragma once

#include <cstdint>
#include <string>

namespace config {

inline constexpr std::uint32_t kDictionarySkipDefault = 127;

struct ProductSettings {
  std::string regcode;  // licence fields: these three and `version`
  std::string maintCode;
  std::string version;          // edition code: "NRV-MPE"; "PW-MPE" of older installations
  std::string osType;           // "de" workstation, "ms" member server, "dc" domain controller
  std::string keyPath;          // of the edition in use, below HKEY_LOCAL_MACHINE
  std::string testOS = "none";  // a forced osType, for testing
  bool evaluation = false;
  bool debug = false;
  bool vendorDebug = false;  // the mail library's own debug log
  bool dictionaryDebug = false;
  std::uint32_t dictionarySkipLength =
      kDictionarySkipDefault;   // longer passwords skip the dictionary check
  std::uint32_t policyMax = 0;  // numbered policies that the edition supports
  bool netlogonDictionary = false;
  bool resetBypass = false;
  bool bypassFilter = false;
  bool noLogRejects = false;
  bool logRejects = false;
  bool showFailedPasswords = false;
  bool logResets = false;
  bool callResetScript = false;
  bool noReportStatus = false;
  bool reportStatistics = false;
  std::uint32_t skipLength = 0;
  bool logSkips = false;
};

}  // namespace config
