#include "config/expiration_settings.h"

#include <cstddef>
#include <iterator>

#include "config/registry_readers.h"

namespace config {
namespace {

constexpr std::size_t kTextCapacity = 128;
constexpr std::size_t kMessageCapacity = 2048;
constexpr std::uint32_t kDefaultWarningThreshold = 14;
constexpr const char* kDefaultSubject = "YOUR WINDOWS PASSWORD WILL EXPIRE SOON";
// A name that cannot be anybody's: a site that set no sender sees so in the mails it gets.
constexpr const char* kDefaultSender = "password-expiration@localhost.localdomain";

struct TextSetting {
  const char* name;
  std::string ExpirationSettings::*field;
  std::size_t capacity;
  const char* fallback;
};

constexpr TextSetting kTexts[] = {
    {"smtpServer", &ExpirationSettings::smtpServer, kTextCapacity, ""},
    {"smtpUsername", &ExpirationSettings::smtpUsername, kTextCapacity, ""},
    {"smtpPassword", &ExpirationSettings::smtpPassword, kTextCapacity, ""},
    {"emailFromAddress", &ExpirationSettings::emailFromAddress, kTextCapacity, kDefaultSender},
    {"emailCustomMsg", &ExpirationSettings::emailCustomMsg, kMessageCapacity, ""},
    {"emailSubject", &ExpirationSettings::emailSubject, kTextCapacity, kDefaultSubject},
    {"adminEmailAddress", &ExpirationSettings::adminEmailAddress, kTextCapacity, ""},
    {"testEmailAddress", &ExpirationSettings::testEmailAddress, kTextCapacity, ""},
    {"smtpAuthMethod", &ExpirationSettings::smtpAuthMethod, kTextCapacity, ""},
};

struct FlagSetting {
  const char* name;
  bool ExpirationSettings::*field;
};

constexpr FlagSetting kFlags[] = {
    {"testEmailOnly", &ExpirationSettings::testEmailOnly},
    {"emailCustomMsgOnly", &ExpirationSettings::emailCustomMsgOnly},
    {"emailAdminReports", &ExpirationSettings::emailAdminReports},
    {"reportOnly", &ExpirationSettings::reportOnly},
    {"htmllog", &ExpirationSettings::htmllog},
    {"limitEmails", &ExpirationSettings::limitEmails},
    {"runningLogs", &ExpirationSettings::runningLogs},
    {"emailAgingUsers", &ExpirationSettings::emailAgingUsers},
    {"smtpSsl", &ExpirationSettings::smtpSsl},
    {"smtpStartTls", &ExpirationSettings::smtpStartTls},
    {"smtpRequireVerifiedCertificate", &ExpirationSettings::smtpRequireVerifiedCertificate},
};

constexpr const char* kNumbers[] = {
    "warningThreshold", "warning1",   "warning2",   "warning3",        "minLength1",
    "minLength2",       "minLength3", "minLength4", "maxAge1",         "maxAge2",
    "maxAge3",          "maxAge4",    "smtpPort",   "expirationDelay", "expirationServiceInterval",
};

}  // namespace

std::vector<std::string> expirationNumbers() {
  std::vector<std::string> names(std::begin(kNumbers), std::end(kNumbers));
  for (const FlagSetting& flag : kFlags) names.emplace_back(flag.name);
  return names;
}

ExpirationSettings loadExpirationSettings(platform::Registry& registry,
                                          const std::string& settingsKey) {
  ExpirationSettings settings;
  for (const TextSetting& text : kTexts) {
    std::string& field = settings.*text.field;
    field = readTextField(registry, settingsKey, text.name, text.capacity);
    if (field.empty()) field = text.fallback;
  }
  for (const FlagSetting& flag : kFlags) {
    settings.*flag.field = readFlag(registry, settingsKey, flag.name);
  }
  const auto number = [&](const std::string& name) {
    return readNumber(registry, settingsKey, name);
  };
  const auto numbered = [](const char* name, std::size_t index) {
    return name + std::to_string(index + 1);
  };
  settings.expirationLastRunDay = readNumber(registry, kProductKey, "expirationLastRunDay");
  settings.warningThreshold = number("warningThreshold");
  if (settings.warningThreshold == 0) settings.warningThreshold = kDefaultWarningThreshold;
  for (std::size_t i = 0; i < settings.warnings.size(); ++i) {
    settings.warnings[i] = static_cast<std::int32_t>(number(numbered("warning", i)));
  }
  for (std::size_t i = 0; i < settings.lengthPolicies.size(); ++i) {
    settings.lengthPolicies[i] = {number(numbered("minLength", i)), number(numbered("maxAge", i))};
  }
  settings.smtpPort = number("smtpPort");
  return settings;
}

}  // namespace config
