// The expiration settings: one record, reloaded from the registry at the start of every pass. The
// warning e-mail and the report read it; nothing else writes it.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/registry/registry.h"

namespace config {

inline constexpr const char* kPolicyRootMpe = "Software\\Policies\\Kadro\\PwsentryProMPE";
inline constexpr const char* kPolicyRootMpems = "Software\\Policies\\Kadro\\PwsentryProMPEMS";
inline constexpr const char* kExpirationKeyMpe =
    "Software\\Policies\\Kadro\\PwsentryProMPE\\PWExpiration";
inline constexpr const char* kExpirationKeyMpems =
    "Software\\Policies\\Kadro\\PwsentryProMPEMS\\PWExpiration";
inline constexpr const char* kProductKey = "Software\\Kadro\\PwsentryPro";

inline constexpr int kLengthPolicies = 4;

struct LengthPolicy {
  std::uint32_t minLength = 0;  // characters; 0: not in use
  std::uint32_t maxAge = 0;     // days
};

struct ExpirationSettings {
  std::string smtpServer;
  std::string smtpUsername;
  std::string smtpPassword;  // secret: never logged
  std::string emailFromAddress;
  std::string emailCustomMsg;
  std::string emailSubject;
  std::string adminEmailAddress;
  std::string testEmailAddress;
  bool testEmailOnly = false;
  std::uint32_t expirationLastRunDay = 0;  // day of month of the last warning mail; 0: none yet
  bool emailCustomMsgOnly = false;         // read, not consulted
  bool emailAdminReports = false;
  bool reportOnly = false;
  bool htmllog = false;
  bool limitEmails = false;
  std::uint32_t warningThreshold = 14;     // days; a negative DWORD stays a huge unsigned number
  bool runningLogs = false;                // read, not consulted
  std::array<std::int32_t, 3> warnings{};  // "warning1".."warning3": days before expiration
  bool emailAgingUsers = false;
  std::array<LengthPolicy, kLengthPolicies> lengthPolicies{};

  // The mail path's own values; absent, a plain connection to port 25 with the method chosen from
  // the server's list.
  std::uint32_t smtpPort = 0;  // 0: the mail library's default
  bool smtpSsl = false;
  bool smtpStartTls = false;
  std::string smtpAuthMethod;
  bool smtpRequireVerifiedCertificate = false;

  bool hasCustomMessage() const { return !emailCustomMsg.empty(); }
};

// Fills a record from `settingsKey` (kExpirationKeyMpe or kExpirationKeyMpems). Never fails: a
// missing value yields its default.
ExpirationSettings loadExpirationSettings(platform::Registry& registry,
                                          const std::string& settingsKey);

// The names of its numbers and flags, with those that the service reads from the same key.
std::vector<std::string> expirationNumbers();

}  // namespace config
