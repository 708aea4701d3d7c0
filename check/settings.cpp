// The settings: what is not as the table of settings has it, what is there twice, and values that
// make no sense, each by itself or with the others.
#include <algorithm>
#include <cstdint>

#include "base/ascii.h"
#include "base/nearest_name.h"
#include "check/checks.h"
#include "config/editions.h"
#include "config/registry_readers.h"
#include "config/settings_check.h"
#include "config/settings_table.h"
#include "mail/mime/email_address.h"
#include "notify/access_token.h"
#include "notify/admin_report_mail.h"
#include "platform/text/text_lines.h"

namespace check {
namespace {

using config::ExpirationSettings;
using config::SettingMistake;

// Ten years. A longer age is a typing error, or stands for "never".
constexpr std::uint32_t kOldestSensibleAge = 3650;
constexpr std::uint32_t kSmtpsPort = 465;
constexpr const char* kNoHost = "localhost.localdomain";
const std::vector<std::string> kAuthMethods = {"LOGIN", "PLAIN", "CRAM-MD5", "NTLM", "MSN", "NONE"};

std::string quoted(const std::string& text) {
  return '"' + platform::loggableAnsiLine(text) + '"';
}

std::string days(std::int64_t count) {
  return std::to_string(count) + (count == 1 ? " day" : " days");
}

class SettingsCheck {
 public:
  SettingsCheck(const Site& site, Report& report)
      : site_(site), settings_(site.settings), report_(report) {}

  void run() {
    names();
    repeats();
    texts();
    mode();
    mailServer();
    sender();
    administrator();
    policies();
    warningDays();
    lengthPolicies();
  }

 private:
  std::string at(const std::string& value) const {
    return valueName(site_, site_.settingsKey, value);
  }
  bool has(const char* value) const {
    return config::storedType(site_.host.registry, site_.settingsKey, value).has_value();
  }

  void names();
  void repeats();
  void texts();
  void checkText(const config::Setting& setting, const std::string& key);
  void mode();
  void mailServer();
  void login();
  void encryption();
  void sender();
  void administrator();
  void policies();
  void policy(int slot);
  void age(const std::string& where, std::uint32_t maxAge);
  void warningDays();
  void lengthPolicies();

  const Site& site_;
  const ExpirationSettings& settings_;
  Report& report_;
};

void SettingsCheck::names() {
  platform::Registry& registry = site_.host.registry;
  std::vector<SettingMistake> mistakes = config::findWrongTypes(registry);
  for (const SettingMistake& note : config::findSettingNotes(registry)) mistakes.push_back(note);
  for (const SettingMistake& bad : config::findUnusableValues(registry)) mistakes.push_back(bad);
  for (const SettingMistake& mistake : mistakes) {
    const std::string where =
        mistake.name.empty() ? mistake.key : valueName(site_, mistake.key, mistake.name);
    switch (mistake.kind) {
      case SettingMistake::Kind::Unknown:
        if (mistake.nearest.empty()) {
          report_.note(where, mistake.fault, "remove it, or see docs/settings.md for its name");
        } else {
          report_.fault(where, mistake.fault + ": \"" + mistake.nearest + "\" may be meant",
                        "rename it to " + mistake.nearest + ", or remove it");
        }
        break;
      case SettingMistake::Kind::WrongType:
        report_.fault(where, mistake.fault + ": a pass would only report",
                      "write a number as dword:0000001e, a text in quotation marks");
        break;
      case SettingMistake::Kind::Unusable:
        report_.fault(where, mistake.fault + ": it is not used",
                      mistake.nearest.empty() ? "write one that is, or remove the value"
                                              : "write " + mistake.nearest);
        break;
      case SettingMistake::Kind::TooLarge:
        report_.fault(where, mistake.fault, "give a number up to the limit; dword: is hexadecimal");
        break;
    }
  }
}

void SettingsCheck::repeats() {
  for (const platform::RegistryRepeat& repeat : site_.host.registry.repeats()) {
    const std::string file = repeat.place.substr(repeat.place.find_last_of("/\\") + 1);
    if (repeat.firstPlace.empty()) {
      report_.note(file, "key " + repeat.name + " has a section above already",
                   "put its values into one section");
    } else {
      const std::string line = repeat.firstPlace.substr(repeat.firstPlace.rfind(':') + 1);
      report_.fault(file,
                    quoted(repeat.name) + " is set in line " + line + " already: this one counts",
                    "remove one of the two lines");
    }
  }
}

// Texts that are cut, and those with blanks around them that nobody sees.
void SettingsCheck::texts() {
  for (const config::Setting& setting : config::settingsTable()) {
    if (!config::isText(setting.type)) continue;
    for (const std::string& key : config::settingKeys(setting.group)) checkText(setting, key);
  }
}

void SettingsCheck::checkText(const config::Setting& setting, const std::string& key) {
  std::string text;
  if (!config::readText(site_.host.registry, key, setting.name, text)) return;
  if (setting.limit != 0 && text.size() > setting.limit) {
    report_.fault(valueName(site_, key, setting.name),
                  "has " + std::to_string(text.size()) + " bytes and is cut to " +
                      std::to_string(setting.limit),
                  "make it shorter");
  }
  const bool isBody = setting.name == std::string("emailCustomMsg");
  if (!isBody && base::trimmed(text).size() != text.size()) {
    report_.fault(valueName(site_, key, setting.name), "has blanks at its beginning or end",
                  "remove the blanks");
  }
}

void SettingsCheck::mode() {
  const platform::KeyNames names = site_.host.registry.list(site_.settingsKey);
  if (names.values.empty()) {
    report_.fault("HKEY_LOCAL_MACHINE\\" + site_.settingsKey,
                  "there is no such key, or it has no values: a pass would only report",
                  "write the settings there; pwlapse init makes a file of them");
    return;
  }
  report_.ok("HKEY_LOCAL_MACHINE\\" + site_.settingsKey,
             std::to_string(names.values.size()) + " values are set");
  const bool otherIsSet =
      !site_.memberServer && !site_.host.registry.list(config::kExpirationKeyMpems).values.empty();
  if (otherIsSet) {
    report_.note(config::kExpirationKeyMpems,
                 "is not read: this machine is not set up as a member server (productType)");
  }
  if (settings_.reportOnly) {
    report_.note(at("reportOnly"), "is set: no user is mailed, no password is expired",
                 "set it to 0 when all is right");
  }
  if (settings_.testEmailOnly) {
    report_.note(at("testEmailOnly"), "is set: a pass only sends a sample mail",
                 "set it to 0 when all is right");
    if (!looksLikeAddress(settings_.testEmailAddress)) {
      report_.fault(at("testEmailAddress"), quoted(settings_.testEmailAddress) + " is no address",
                    "name the address that the sample is to go to");
    }
  }
  if (settings_.limitEmails && settings_.rememberWarnings) {
    report_.note(at("limitEmails"), "is not needed with rememberWarnings, and still holds");
  }
}

void SettingsCheck::mailServer() {
  const std::string& server = settings_.smtpServer;
  if (!has("smtpServer")) {
    report_.fault(at("smtpServer"), "is missing: a pass only reports", "name the mail server");
  } else if (server.empty()) {
    report_.fault(at("smtpServer"), "is empty: no mail can be sent", "name the mail server");
  } else if (!looksLikeHost(server)) {
    report_.fault(at("smtpServer"), quoted(server) + " is not a host's name or address",
                  "give the name alone; the port stands in smtpPort");
  }
  login();
  encryption();
}

void SettingsCheck::login() {
  for (const std::string& problem : notify::findLoginProblems(settings_)) {
    report_.fault(notify::wantsAccessToken(settings_) ? "access token" : "login", problem,
                  "docs/settings.md says what these settings need");
  }
  if (!settings_.smtpPassword.empty() && site_.host.registry.isReadByEverybody(site_.settingsKey)) {
    report_.fault(at("smtpPassword"), "can be read by every user of this machine",
                  "take that right away, or keep the password in a file (pwlapse protect-secret, "
                  "smtpPasswordFile)");
  }
  if (!settings_.smtpPassword.empty() && !settings_.smtpPasswordFile.empty()) {
    report_.note(at("smtpPassword"), "is not used: smtpPasswordFile counts", "remove it");
  }
  const bool user = !settings_.smtpUsername.empty();
  const bool password = notify::hasPassword(settings_);
  if (user != password && !notify::wantsAccessToken(settings_)) {
    report_.fault(at(user ? "smtpPassword" : "smtpUsername"),
                  "is missing, so there is no login at the mail server",
                  "set both smtpUsername and smtpPassword, or neither");
  }
  const std::string& method = settings_.smtpAuthMethod;
  const bool known =
      std::any_of(kAuthMethods.begin(), kAuthMethods.end(),
                  [&](const std::string& name) { return base::equalsNoCase(name, method); });
  if (!method.empty() && !known) {
    const std::string nearest = base::nearestName(method, kAuthMethods);
    report_.fault(at("smtpAuthMethod"),
                  quoted(method) + " is not known" +
                      (nearest.empty() ? "" : ": \"" + nearest + "\" may be meant"),
                  "write one of those that docs/settings.md lists, or nothing");
  }
  const bool noLogin = !(user && password) && !notify::wantsAccessToken(settings_);
  if (!method.empty() && noLogin && !base::equalsNoCase(method, "NONE")) {
    report_.note(at("smtpAuthMethod"), "has no effect without smtpUsername and smtpPassword");
  }
}

void SettingsCheck::encryption() {
  const bool tls = settings_.smtpSsl || settings_.smtpStartTls;
  const bool login = !settings_.smtpUsername.empty() && notify::hasPassword(settings_);
  const bool onThisMachine =
      settings_.smtpServer == "localhost" || settings_.smtpServer.starts_with("127.");
  const bool showsPassword = !(base::equalsNoCase(settings_.smtpAuthMethod, "CRAM-MD5") ||
                               base::equalsNoCase(settings_.smtpAuthMethod, "NTLM") ||
                               base::equalsNoCase(settings_.smtpAuthMethod, "MSN"));
  if (login && !tls && !onThisMachine && showsPassword) {
    report_.fault(at(settings_.smtpPasswordFile.empty() ? "smtpPassword" : "smtpPasswordFile"),
                  "goes over the network in the clear: the login has no TLS",
                  "set smtpStartTls, or smtpSsl with smtpPort 465");
  }
  if (settings_.smtpRequireVerifiedCertificate && !tls) {
    report_.fault(at("smtpRequireVerifiedCertificate"),
                  "has no effect: neither smtpSsl nor smtpStartTls is set",
                  "set smtpStartTls, or smtpSsl with smtpPort 465");
  }
  if (settings_.smtpSsl && settings_.smtpStartTls) {
    report_.note(at("smtpSsl"), "and smtpStartTls are both set: the port decides which counts",
                 "set one of them");
  } else if (settings_.smtpSsl && (settings_.smtpPort == 0 || settings_.smtpPort == 25)) {
    report_.note(at("smtpSsl"), "at port 25, where servers begin without TLS",
                 "set smtpPort to 465, or smtpStartTls instead");
  } else if (settings_.smtpStartTls && settings_.smtpPort == kSmtpsPort) {
    report_.note(at("smtpStartTls"), "at port 465, where servers begin with TLS",
                 "set smtpSsl instead");
  }
}

void SettingsCheck::sender() {
  const std::string address =
      kelvado::parseAddress(platform::ansiToUtf8(settings_.emailFromAddress)).address;
  if (address.find('@') == std::string::npos) {
    report_.fault(at("emailFromAddress"),
                  quoted(settings_.emailFromAddress) + " has no \"@\": no mail can be sent",
                  "write an address, such as Help Desk <helpdesk@example.com>");
  } else if (base::lowered(address).ends_with(std::string("@") + kNoHost)) {
    report_.fault(at("emailFromAddress"),
                  (has("emailFromAddress") ? "is at " : "is missing, which stands for one at ") +
                      std::string(kNoHost) + ": servers refuse it",
                  "write an address of your own domain");
  } else if (!looksLikeAddress(address)) {
    report_.fault(at("emailFromAddress"), quoted(settings_.emailFromAddress) + " is no address",
                  "write an address, such as Help Desk <helpdesk@example.com>");
  }
  const std::string& subject = settings_.emailSubject;
  const bool capitals =
      base::lowered(subject) != subject &&
      std::none_of(subject.begin(), subject.end(), [](char c) { return c >= 'a' && c <= 'z'; });
  if (capitals) {
    report_.note(at("emailSubject"),
                 has("emailSubject") ? "is in capitals, as spam often is"
                                     : "is missing; its default is in capitals, as spam often is",
                 "write a subject such as \"Your Windows password expires soon\"");
  }
}

void SettingsCheck::administrator() {
  const std::string& text = settings_.adminEmailAddress;
  const std::vector<std::string> addresses = notify::adminAddresses(text);
  const auto bad = std::find_if_not(addresses.begin(), addresses.end(), looksLikeAddress);
  if (!text.empty() && (addresses.empty() || bad != addresses.end())) {
    report_.fault(at("adminEmailAddress"),
                  quoted(addresses.empty() ? text : platform::utf8ToAnsi(*bad)) + " is no address",
                  "write one, such as administrator@example.com; a comma or semicolon between two");
  } else if (text.empty() && settings_.emailAdminReports) {
    report_.fault(at("adminEmailAddress"), "is missing, and emailAdminReports is set",
                  "name who is to get the report");
  } else if (!text.empty() && !settings_.emailAdminReports) {
    report_.note(at("emailAdminReports"), "is not set: nobody is mailed the report", "set it to 1");
  }
  if (!settings_.emailAdminReports && !settings_.htmllog) {
    report_.note(at("htmllog"), "is not set, nor is emailAdminReports: no report is kept",
                 "set one of them to 1");
  }
}

void SettingsCheck::age(const std::string& where, std::uint32_t maxAge) {
  if (maxAge > kOldestSensibleAge) {
    report_.fault(where, days(maxAge) + " are more than 3,650: a typing error?",
                  "write the number in hexadecimal (dword:0000005a is 90)");
  } else if (settings_.warningThreshold >= maxAge) {
    report_.fault(at("warningThreshold"),
                  days(settings_.warningThreshold) + " is not below the maximum age of " + where +
                      " (" + days(maxAge) + "): a new password is warned about at once",
                  "lower the threshold, or raise the age");
  }
}

void SettingsCheck::policy(int slot) {
  const config::PolicyRecord& policy = site_.slots[static_cast<std::size_t>(slot)];
  const std::string key = policyKey(site_, slot);
  const std::string where = valueName(site_, key, "maxPasswordAge");
  if (policy.maxPasswordAge != 0 && policy.defined == 0) {
    report_.fault(valueName(site_, key, "policyName"),
                  "is missing or shorter than 2 characters: the policy is left out",
                  "give the policy a name");
  } else if (policy.useDirectoryPolicy != 0 && policy.maxPasswordAge == 0) {
    report_.fault(where, "is missing or 0, and leaves the policy out with useDirectoryPolicy, too",
                  "set it to any number of days: it orders the policies");
  } else if (policy.defined != 0 && policy.maxPasswordAge == 0) {
    report_.note(where, "is missing or 0: the policy is left out",
                 "set the age in days, if the policy is to count");
  } else if (policy.defined != 0) {
    const bool ownAge = policy.useDirectoryPolicy == 0;
    if (ownAge) age(where, policy.maxPasswordAge);
    const bool warns = policy.emailWarnings == 1;
    report_.ok(key.substr(key.rfind('\\') + 1),
               quoted(policy.policyName) + ", maximum age " +
                   (ownAge ? days(policy.maxPasswordAge) : "of the directory's own policies") +
                   (warns ? ", users are warned" : ", users are not warned"));
    if (!warns) {
      report_.note(valueName(site_, key, "emailWarnings"),
                   "is not 1: passwords expire without a warning", "set it to 1");
    }
  }
}

void SettingsCheck::policies() {
  for (int slot = 0; slot < config::kNamedPolicies; ++slot) policy(slot);
  for (int slot = 0; slot < service::kPolicySlots; ++slot) {
    if (service::effectiveMaxAge(site_.slots, slot) != 0) return;
  }
  report_.fault("policies", "none has a name and a maximum age: a pass would look at nobody",
                "set policyName and maxPasswordAge below DefaultPolicy");
}

void SettingsCheck::warningDays() {
  const auto& warnings = settings_.warnings;
  const bool used = std::any_of(warnings.begin(), warnings.end(), [](auto day) { return day > 0; });
  if (settings_.managerDays > settings_.warningThreshold) {
    report_.note(at("managerDays"),
                 days(settings_.managerDays) + " are more than warningThreshold (" +
                     days(settings_.warningThreshold) + "): managers hear no earlier than users",
                 "raise warningThreshold, or lower this value");
  }
  for (std::size_t i = 0; i < warnings.size() && used; ++i) {
    const std::string name = "warning" + std::to_string(i + 1);
    const std::int64_t day = warnings[i];
    if (day > static_cast<std::int64_t>(settings_.warningThreshold)) {
      report_.fault(at(name),
                    days(day) + " is beyond warningThreshold (" + days(settings_.warningThreshold) +
                        "): nobody is ever mailed then",
                    "raise warningThreshold, or lower this day");
    } else if (day < 0 && has(name.c_str())) {
      report_.fault(at(name), "is negative: no day matches it", "write the days that are left");
    } else if (day == 0 && has(name.c_str())) {
      report_.note(at(name), "is 0: users are mailed on the day of expiration, too");
    } else if (std::count(warnings.begin(), warnings.begin() + static_cast<std::ptrdiff_t>(i),
                          day) > 0 &&
               day > 0) {
      report_.note(at(name), days(day) + " is one of the other warning days, too",
                   "write another day, or remove it");
    }
  }
}

void SettingsCheck::lengthPolicies() {
  bool any = false;
  for (int n = 0; n < config::kLengthPolicies; ++n) {
    const config::LengthPolicy& policy = settings_.lengthPolicies[static_cast<std::size_t>(n)];
    const std::string number = std::to_string(n + 1);
    const std::string where = at("maxAge" + number);
    any = any || policy.minLength != 0;
    if (policy.minLength != 0 && policy.maxAge == 0) {
      report_.fault(where, "is missing, and minLength" + number + " is set: the policy is left out",
                    "set both or neither");
    } else if (policy.minLength == 0 && policy.maxAge != 0) {
      report_.fault(at("minLength" + number),
                    "is missing, and maxAge" + number + " is set: the policy is not in use",
                    "set both or neither");
    } else if (policy.minLength != 0) {
      age(where, policy.maxAge);
    }
  }
  if (settings_.emailAgingUsers && !any) {
    report_.note(at("emailAgingUsers"), "has no effect: no length-based policy is set");
  }
}

}  // namespace

void checkSettings(const Site& site, Report& report) {
  report.begin(Part::Settings);
  SettingsCheck(site, report).run();
}

}  // namespace check
