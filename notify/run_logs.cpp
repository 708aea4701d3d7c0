#include "notify/run_logs.h"

#include "base/format_text.h"
#include "base/text.h"
#include "base/timestamp.h"
#include "directory/password_expiry.h"

namespace notify {
namespace {

constexpr std::uint32_t kMsPerMinute = 60000;

const std::string& wideRule() {
  static const std::string rule = std::string(80, '-') + "\n";
  return rule;
}

void writeHeading(config::DebugLog& log, const std::string& heading) {
  const std::string rule(heading.size(), '-');
  log.print("%s\n%s\n%s\n", rule.c_str(), heading.c_str(), rule.c_str());
}

void writeSettings(config::DebugLog& log, const config::ExpirationSettings& settings) {
  log.print("reportOnly = %i\n", settings.reportOnly);
  log.print("testEmailOnly = %i\n", settings.testEmailOnly);
  log.print("testEmailAddress=%s\n", settings.testEmailAddress.c_str());
  log.print("htmllog = %i\n", settings.htmllog);
  log.print("emailAdminReports = %i\n", settings.emailAdminReports);
  log.print("warningThreshold = %i\n", static_cast<int>(settings.warningThreshold));
  for (std::size_t i = 0; i < settings.warnings.size(); ++i) {
    log.print("warning%i = %i\n", static_cast<int>(i + 1), settings.warnings[i]);
  }
  log.print("limitEmails = %i\n", settings.limitEmails);
  log.print("expirationLastRunDay = %i\n", static_cast<int>(settings.expirationLastRunDay));
  log.print("emailAgingUsers = %i\n", settings.emailAgingUsers);
  for (std::size_t i = 0; i < settings.lengthPolicies.size(); ++i) {
    const int number = static_cast<int>(i + 1);
    const config::LengthPolicy& policy = settings.lengthPolicies[i];
    log.print("minLength%i = %i\tmaxAge%i = %i\n", number, static_cast<int>(policy.minLength),
              number, static_cast<int>(policy.maxAge));
  }
}

}  // namespace

void writeDebugHeader(config::DebugLog& log, const config::ExpirationSettings& settings,
                      const RunFigures& figures, const base::LocalTime& now) {
  if (!log.enabled()) return;
  const char* rule = wideRule().c_str();
  log.print("%s| Norvyn-expiration-debug.log\n%s", rule, rule);
  log.print("Norvyn Password Filter -  Product Version %i.%i.%i\n", 6, 2, 1);
  log.print("Norvyn Password Expiration Service %i.%i.%i Build %i \n", 6, 2, 0, 2015091901);
  log.print("timestamp: %s\n", base::timestampText(now).c_str());
  log.print("uptime (in seconds): %i\n", static_cast<int>(figures.uptimeSeconds));
  log.print("%s", rule);
  writeHeading(log, "Domain Policy Settings");
  log.print("max pw age = %i\n", static_cast<int>(figures.domainMaxAgeDays));
  writeHeading(log, "Expiration Service Settings");
  writeSettings(log, settings);
  log.print("serviceInterval (in min) = %i\n", static_cast<int>(figures.intervalMs / kMsPerMinute));
  if (figures.emailedToday) {
    log.print("  ** Service has already sent emails today and will not email during this run.\n");
  }
}

std::string skippedUserLine(const UserRecord& user) {
  return "  user found in list: " + user.username + "\n";
}

std::string expiringSoonLine(const base::LocalTime& now, const UserRecord& user) {
  return base::formatText("\"%s\",%s,%s,\"%i\"\n", base::timestampText(now).c_str(),
                          base::quotedField(user.username).c_str(),
                          base::quotedField(user.data.email).c_str(), user.daysLeft());
}

}  // namespace notify
