// The expiration settings: one record, reloaded from the registry at the start of every pass. The
// warning e-mail and the report read it; nothing else writes it.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "config/editions.h"
#include "platform/registry/registry.h"

namespace config {

inline constexpr int kWarningDays = 3;
inline constexpr int kLengthPolicies = 4;
inline constexpr std::uint32_t kDefaultWarningThreshold = 14;  // days
inline constexpr std::uint32_t kDefaultIntervalHours = 24;
inline constexpr std::uint32_t kDefaultGiveUpAfter = 5;  // silent servers end a pass in minutes
inline constexpr std::uint32_t kDefaultRetryDelay = 60;  // seconds

// Which passes mail the report.
inline constexpr const char* kReportAlways = "always";
inline constexpr const char* kReportProblems = "problems";
inline constexpr const char* kReportChanges = "changes";
// How a password is expired: by the account calls, or by one attribute of the directory.
inline constexpr const char* kExpireByAccount = "account";
inline constexpr const char* kExpireByDirectory = "ldap";

struct LengthPolicy {
  std::uint32_t minLength = 0;  // characters; 0: not in use
  std::uint32_t maxAge = 0;     // days
};

struct ExpirationSettings {
  std::string smtpServer;
  std::string smtpUsername;
  std::string smtpPassword;      // secret: never logged
  std::string smtpPasswordFile;  // where it is read from instead
  std::string emailFromAddress;
  std::string emailCustomMsg;
  std::string emailSubject;
  std::string adminEmailAddress;
  std::string testEmailAddress;
  bool testEmailOnly = false;
  std::uint32_t expirationLastRunDay = 0;  // day of month of the last warning mail; 0: none yet
  bool emailCustomMsgOnly = false;         // read, not consulted
  bool emailAdminReports = false;
  std::string adminReportWhen;  // one of the words below, in any letter case
  bool adminReportCsv = false;
  bool reportOnly = false;
  bool htmllog = false;
  bool limitEmails = false;
  // Days; a negative DWORD stays a huge unsigned number.
  std::uint32_t warningThreshold = kDefaultWarningThreshold;
  bool runningLogs = false;                           // read, not consulted
  std::array<std::int32_t, kWarningDays> warnings{};  // days before expiration
  bool emailAgingUsers = false;
  std::uint32_t managerDays = 0;  // from so many days left on managers get a copy; 0: never
  std::array<LengthPolicy, kLengthPolicies> lengthPolicies{};

  // The mail path's own values; absent, a plain connection to port 25 with the method chosen from
  // the server's list.
  std::uint32_t smtpPort = 0;  // 0: the mail library's default
  bool smtpSsl = false;
  bool smtpStartTls = false;
  std::string smtpAuthMethod;
  bool smtpRequireVerifiedCertificate = false;
  std::string smtpHeloHostname;

  // An OAuth 2.0 access token in the place of the password: from a file, or fetched.
  std::string smtpTokenFile;
  std::string oauthTokenUrl;
  std::string oauthClientId;
  std::string oauthClientSecretFile;
  std::string oauthScope;

  // What is beside the texts of a mail, and in them.
  std::uint32_t autoSubmitted = 1;    // 1: mails say that a program wrote them
  bool emailTextAlternative = false;  // an HTML mail has its text beside it
  std::string emailLanguage;          // of users who prefer none; tags, as in preferredLanguage
  bool subjectTokens = false;         // tokens in a subject are replaced

  // What a pass does when something outside goes wrong.
  std::uint32_t smtpGiveUpAfter = kDefaultGiveUpAfter;  // failures in a row; 0: never
  std::uint32_t smtpRetries = 0;                        // of a mail that was refused for now
  std::uint32_t smtpRetryDelay = kDefaultRetryDelay;    // seconds before the first of them
  std::uint32_t smtpMaxPerMinute = 0;                   // mails; 0: as many as the server takes
  bool rememberWarnings = false;                        // each warning day once for a password
  bool skipUnreadableAccounts = false;
  std::uint32_t maxExpirations = 0;  // forced expiries in one pass; 0: no limit
  bool expireOnlyNotified = false;   // forced only after the user's mail was accepted
  std::string expireBy;              // one of the two above

  // The service's own.
  std::uint32_t expirationServiceInterval = kDefaultIntervalHours;  // hours between two passes
  std::uint32_t expirationDelay = 0;  // seconds between two passes; 0: the interval counts
  std::string expirationServiceTime;  // "HH:MM" of the day's first pass; empty: any time

  std::string metricsFile;  // for a collector of Prometheus; empty: none

  bool hasCustomMessage() const { return !emailCustomMsg.empty(); }
};

// Fills a record from `settingsKey` (kExpirationKeyMpe or kExpirationKeyMpems). Never fails: a
// missing value yields its default.
ExpirationSettings loadExpirationSettings(platform::Registry& registry,
                                          const std::string& settingsKey);

}  // namespace config
