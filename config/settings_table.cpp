#include "config/settings_table.h"

#include "config/editions.h"
#include "config/registry_readers.h"

namespace config {
namespace {

using E = ExpirationSettings;
using P = PolicyRecord;
using S = ProductSettings;
using enum SettingGroup;

constexpr std::uint32_t kTextBytes = 127;
constexpr std::uint32_t kMessageBytes = 2047;
constexpr std::uint32_t kPolicyNameBytes = 255;
constexpr std::uint32_t kGroupsBytes = 1023;
constexpr std::uint32_t kLicenceBytes = 127;
constexpr std::uint32_t kMachineBytes = 99;
constexpr std::uint32_t kDirectoryBytes = 4095;
constexpr std::uint32_t kPathBytes = 1023;
constexpr std::uint32_t kMaxPort = 65535;
constexpr std::uint32_t kMaxAgeDays = 10000;  // the order of the policies is sought up to here
// The longest sleep takes 2^32 - 2 ms.
constexpr std::uint32_t kMaxSleepHours = 1193;
constexpr std::uint32_t kMaxSleepSeconds = 4294967;
constexpr std::uint32_t kMaxDayOfMonth = 31;
constexpr std::uint32_t kMaxRetries = 10;
constexpr std::uint32_t kMaxRetryDelay = 3600;  // seconds
constexpr std::uint32_t kMaxMailsPerMinute = 60000;

constexpr unsigned kRegistryOnly = kPolicyFromRegistry;
constexpr unsigned kStandardAndLive = kStandardSwitches | kLiveSwitches;

// A name that cannot be anybody's: a site that set no sender sees so in the mails it gets.
constexpr const char* kDefaultSender = "password-expiration@localhost.localdomain";

constexpr Setting text(SettingGroup group, const char* name, SettingField field,
                       std::uint32_t limit, const char* fallback, const char* help,
                       unsigned loaders = kAllLoaders) {
  return {group, name, SettingType::Text, field, fallback, 0, limit, "", help, 1, loaders};
}

constexpr Setting choice(const char* name, SettingField field, const char* words,
                         const char* fallback, const char* help) {
  return {Expiration, name, SettingType::Choice, field, fallback, 0, kTextBytes, "",
          help,       1,    kAllLoaders,         words};
}

constexpr Setting flag(SettingGroup group, const char* name, SettingField field, const char* help,
                       unsigned loaders = kAllLoaders) {
  return {group, name, SettingType::Flag, field, "", 0, 0, "", help, 1, loaders};
}

struct Range {
  std::uint32_t fallback = 0;
  std::uint32_t limit = 0;
};

constexpr Setting number(SettingGroup group, const char* name, SettingField field, Range range,
                         const char* unit, const char* help, unsigned loaders = kAllLoaders) {
  return {group, name,   SettingType::Number, field, "", range.fallback, range.limit, unit, help,
          1,     loaders};
}

constexpr Setting numbers(const char* name, int count, SettingType type, SettingField field,
                          Range range, const char* unit, const char* help) {
  return {Expiration, name, type, field, "", range.fallback, range.limit, unit, help, count};
}

// A rule of the filter: a number, a switch, or a greatest number.
constexpr Setting rule(const char* name, std::uint32_t P::*field, const char* help) {
  return number(PolicyRules, name, field, {}, "", help);
}
constexpr Setting rule(const char* name, std::uint8_t P::*field, const char* help,
                       unsigned loaders = kAllLoaders) {
  return flag(PolicyRules, name, field, help, loaders);
}
constexpr Setting most(const char* name, std::uint32_t P::*field, const char* help) {
  return {PolicyRules, name, SettingType::OptionalNumber, field, "", kNoMaximum, 0, "", help};
}

const Setting kSettings[] = {
    text(Expiration, "smtpServer", &E::smtpServer, kTextBytes, "",
         "mail server; **without this value a pass only reports**; an empty one is a value"),
    text(Expiration, "smtpUsername", &E::smtpUsername, kTextBytes, "",
         "login at the mail server; none when it or the password is empty"),
    text(Expiration, "smtpPassword", &E::smtpPassword, kTextBytes, "",
         "password at the mail server"),
    text(Expiration, "smtpPasswordFile", &E::smtpPasswordFile, kDirectoryBytes, "",
         "the password is this file's first line, instead of `smtpPassword`; `pwlapse "
         "protect-secret` writes it"),
    number(Expiration, "smtpPort", &E::smtpPort, {0, kMaxPort}, "",
           "port of the mail server; 0 means 25"),
    flag(Expiration, "smtpSsl", &E::smtpSsl, "TLS from the first byte"),
    flag(Expiration, "smtpStartTls", &E::smtpStartTls, "upgrade to TLS with STARTTLS"),
    text(Expiration, "smtpAuthMethod", &E::smtpAuthMethod, kTextBytes, "",
         "`LOGIN`, `PLAIN`, `CRAM-MD5`, `NTLM`, `MSN`, `XOAUTH2`, `OAUTHBEARER` or `NONE`; empty: "
         "the best that the server offers"),
    flag(Expiration, "smtpRequireVerifiedCertificate", &E::smtpRequireVerifiedCertificate,
         "refuse a mail server whose certificate does not verify"),
    text(Expiration, "smtpHeloHostname", &E::smtpHeloHostname, kTextBytes, "",
         "name of this machine in EHLO; empty: its own, or its address where the server refuses a "
         "short name"),
    text(Expiration, "smtpTokenFile", &E::smtpTokenFile, kDirectoryBytes, "",
         "OAuth access token in the place of the password: the first line of this file"),
    text(Expiration, "oauthTokenUrl", &E::oauthTokenUrl, kDirectoryBytes, "",
         "`https://` address where such a token is fetched by client credentials, when there is no "
         "`smtpTokenFile`"),
    text(Expiration, "oauthClientId", &E::oauthClientId, kDirectoryBytes, "",
         "name of the application there"),
    text(Expiration, "oauthClientSecretFile", &E::oauthClientSecretFile, kDirectoryBytes, "",
         "its secret is the file's first line"),
    text(Expiration, "oauthScope", &E::oauthScope, kDirectoryBytes, "",
         "what the token is asked for; the mail server's documentation names it"),
    text(Expiration, "emailFromAddress", &E::emailFromAddress, kTextBytes, kDefaultSender,
         "sender of every mail"),
    text(Expiration, "emailSubject", &E::emailSubject, kTextBytes,
         "YOUR WINDOWS PASSWORD WILL EXPIRE SOON", "subject of the warning"),
    flag(Expiration, "subjectTokens", &E::subjectTokens,
         "replace tokens in the subject, too: in `emailSubject` and in a template's own"),
    text(Expiration, "emailLanguage", &E::emailLanguage, kTextBytes, "",
         "language of the template for users whose `preferredLanguage` names none that is there: "
         "`de`, or several, the best first: `fr, en`"),
    flag(Expiration, "emailTextAlternative", &E::emailTextAlternative,
         "an HTML mail has a plain text beside it: of the template's `.txt` file, or made from the "
         "HTML"),
    {Expiration, "autoSubmitted", SettingType::OptionalNumber, &E::autoSubmitted, "", 1, 1, "",
     "1: mails say that a program sends them (`Auto-Submitted: auto-generated`), so that absence "
     "notes do not come back"},
    text(Expiration, "emailCustomMsg", &E::emailCustomMsg, kMessageBytes, "",
         "body of the warning when there is no template; a backslash is a line break"),
    flag(Expiration, "emailCustomMsgOnly", &E::emailCustomMsgOnly, "read, and not used"),
    text(Expiration, "adminEmailAddress", &E::adminEmailAddress, kTextBytes, "",
         "who gets the report: addresses, separated by commas or semicolons"),
    flag(Expiration, "emailAdminReports", &E::emailAdminReports, "mail the report"),
    choice("adminReportWhen", &E::adminReportWhen, "always problems changes", kReportAlways,
           "which passes mail it: `always`; only those with `problems`; or `changes`: those that "
           "mailed or expired somebody, too"),
    flag(Expiration, "adminReportCsv", &E::adminReportCsv, "attach its rows as a CSV file"),
    flag(Expiration, "htmllog", &E::htmllog,
         "write the report to `logfiles\\Norvyn-expiration-report.html`"),
    flag(Expiration, "runningLogs", &E::runningLogs, "read, and not used"),
    flag(Expiration, "reportOnly", &E::reportOnly, "mail no user, expire no password"),
    flag(Expiration, "testEmailOnly", &E::testEmailOnly,
         "mail a sample warning to `testEmailAddress`, and only report"),
    text(Expiration, "testEmailAddress", &E::testEmailAddress, kTextBytes, "",
         "who gets the sample warning"),
    number(Expiration, "warningThreshold", &E::warningThreshold, {kDefaultWarningThreshold, 0},
           "days", "days before expiration at which warnings begin"),
    numbers("warning", kWarningDays, SettingType::SignedNumber, &E::warnings, {}, "days",
            "when any is above 0: warn only when so many days are left"),
    number(Expiration, "managerDays", &E::managerDays, {0, kMaxAgeDays}, "days",
           "from so many days left on, a copy of each warning goes to the user's manager; 0: none"),
    flag(Expiration, "limitEmails", &E::limitEmails,
         "no warnings on a day of month that is that of the last ones, however few of those went "
         "out"),
    flag(Expiration, "emailAgingUsers", &E::emailAgingUsers,
         "warn the users of the length-based policies"),
    numbers("minLength", kLengthPolicies, SettingType::Number, &LengthPolicy::minLength, {},
            "characters", "above 0: this length-based policy is in use"),
    numbers("maxAge", kLengthPolicies, SettingType::Number, &LengthPolicy::maxAge, {0, kMaxAgeDays},
            "days", "its maximum password age"),
    {Expiration, "smtpGiveUpAfter", SettingType::OptionalNumber, &E::smtpGiveUpAfter, "",
     kDefaultGiveUpAfter, 0, "",
     "so many failures in a row to reach the mail server: no further warning is tried; 0: never"},
    number(Expiration, "smtpRetries", &E::smtpRetries, {0, kMaxRetries}, "",
           "how often a mail that was refused for now is tried again, at the end of the pass"),
    number(Expiration, "smtpRetryDelay", &E::smtpRetryDelay, {kDefaultRetryDelay, kMaxRetryDelay},
           "seconds", "wait before the first of these, doubled before each further one"),
    number(Expiration, "smtpMaxPerMinute", &E::smtpMaxPerMinute, {0, kMaxMailsPerMinute}, "",
           "most mails in a minute, evenly spread; 0: no limit"),
    flag(Expiration, "rememberWarnings", &E::rememberWarnings,
         "mail each warning day once for a password, and catch up on days that were missed"),
    flag(Expiration, "skipUnreadableAccounts", &E::skipUnreadableAccounts,
         "skip an account that cannot be read, instead of taking the age of the user before"),
    number(Expiration, "maxExpirations", &E::maxExpirations, {}, "passwords",
           "most passwords that one pass expires, the oldest first; 0: no limit"),
    flag(Expiration, "expireOnlyNotified", &E::expireOnlyNotified,
         "expire a password only when the mail that says so was accepted"),
    choice("expireBy", &E::expireBy, "account ldap", kExpireByAccount,
           "how a password is expired: `account`, by the account calls of Windows, which write the "
           "whole account; `ldap`, by writing `pwdLastSet` alone"),
    number(Expiration, "expirationServiceInterval", &E::expirationServiceInterval,
           {kDefaultIntervalHours, kMaxSleepHours}, "hours",
           "time between two passes of the service; read below `PwsentryProMPE` on every machine, "
           "when the service starts"),
    number(Expiration, "expirationDelay", &E::expirationDelay, {0, kMaxSleepSeconds}, "seconds",
           "time between two passes; above 0 it overrides the interval"),
    {Expiration, "expirationServiceTime", SettingType::TimeOfDay, &E::expirationServiceTime, "", 0,
     kTextBytes, "", "local time at which the service begins its first pass of a day; empty: any"},
    text(Expiration, "metricsFile", &E::metricsFile, kPathBytes, "",
         "replaced after each pass with its figures, as Prometheus text; empty: none"),

    flag(EditionRoot, kServiceDebugValue, {},
         "write the debug log; either edition's switches it on, when the service starts"),

    // Policies: in the order in which they are read.
    text(Policy, "policyName", &P::policyName, kPolicyNameBytes, "",
         "at least 2 characters, or the policy is left out", kRegistryOnly),
    number(Policy, "minPasswordAge", &P::minPasswordAge, {}, "days", "shown, and not used",
           kRegistryOnly),
    number(Policy, "maxPasswordAge", &P::maxPasswordAge, {0, kMaxAgeDays}, "days",
           "maximum password age; 0 leaves the policy out", kRegistryOnly),
    number(Policy, "emailWarnings", &P::emailWarnings, {0, 1}, "", "1: warn this policy's users",
           kRegistryOnly),
    flag(Policy, "useDirectoryPolicy", &P::useDirectoryPolicy,
         "each user has the maximum age that the directory's own policies give him; "
         "`maxPasswordAge` only orders the policy, and must not be 0",
         kRegistryOnly),
    most("maxCharacters", &P::maxCharacters, "longest password"),
    rule("minCharacters", &P::minCharacters, "shortest password"),
    rule("minCharTypes", &P::minCharTypes, "how many kinds of characters a password needs"),
    rule("check3ConsecutiveCharTypes", &P::check3ConsecutiveCharTypes,
         "no 3 consecutive characters of one kind"),
    rule("minNumericChar", &P::minNumericChar, "fewest digits"),
    most("maxNumericChar", &P::maxNumericChar, "most digits"),
    rule("minLowerChar", &P::minLowerChar, "fewest lower-case letters"),
    most("maxLowerChar", &P::maxLowerChar, "most lower-case letters"),
    rule("minUpperChar", &P::minUpperChar, "fewest upper-case letters"),
    most("maxUpperChar", &P::maxUpperChar, "most upper-case letters"),
    rule("minAlphaChar", &P::minAlphaChar, "fewest letters"),
    most("maxAlphaChar", &P::maxAlphaChar, "most letters"),
    rule("minNonAlphaChar", &P::minNonAlphaChar, "fewest characters that are no letters"),
    most("maxNonAlphaChar", &P::maxNonAlphaChar, "most characters that are no letters"),
    rule("minNonAlphaNumericChar", &P::minNonAlphaNumericChar, "fewest special characters"),
    most("maxNonAlphaNumericChar", &P::maxNonAlphaNumericChar, "most special characters"),
    text(PolicyRules, "allowedSpecialChar", &P::allowedSpecialChar, kTextBytes, "",
         "the special characters that are allowed"),
    rule("numericPosition", &P::numericPosition, "position that must hold a digit"),
    rule("specialPosition", &P::specialPosition, "position that must hold a special character"),
    rule("checkNumeric", &P::checkNumeric, "count the digits"),
    rule("checkUpper", &P::checkUpper, "count the upper-case letters"),
    rule("checkLower", &P::checkLower, "count the lower-case letters"),
    rule("checkAlpha", &P::checkAlpha, "count the letters"),
    rule("checkNonAlphaNumeric", &P::checkNonAlphaNumeric, "count the special characters"),
    rule("checkNonAlpha", &P::checkNonAlpha, "count the characters that are no letters"),
    rule("checkSimilar", &P::checkSimilar, "compare with the old password"),
    rule("maxSimilar", &P::maxSimilar, "most characters that may be the same"),
    rule("minDifferent", &P::minDifferent, "fewest characters that must differ"),
    rule("checkSpaces", &P::checkSpaces, "count the spaces"),
    rule("minSpaces", &P::minSpaces, "fewest spaces"),
    most("maxSpaces", &P::maxSpaces, "most spaces"),
    rule("restrictSpecialChar", &P::restrictSpecialChar, "only `allowedSpecialChar` is allowed"),
    rule("checkVowels", &P::checkVowels, "no vowels"),
    rule("checkConsecutive", &P::checkConsecutive, "no 2 identical characters in a row"),
    rule("check3Consecutive", &P::check3Consecutive, "no 3 identical characters in a row"),
    rule("check3ConsecutiveAlpha", &P::check3ConsecutiveAlpha, "no 3 letters in a row"),
    rule("noBeginNumeric", &P::noBeginNumeric, "no digit at the beginning"),
    rule("noEndNumeric", &P::noEndNumeric, "no digit at the end"),
    rule("noBeginSpecial", &P::noBeginSpecial, "no special character at the beginning"),
    rule("noEndSpecial", &P::noEndSpecial, "no special character at the end"),
    rule("checkAscii", &P::checkAscii, "only ASCII characters"),
    rule("numericBetweenAlpha", &P::numericBetweenAlpha, "a digit between two letters"),
    rule("checkDictionary", &P::checkDictionary, "no word of the dictionary"),
    rule("substringSearch", &P::substringSearch, "no word of the dictionary inside either"),
    rule("checkUsername", &P::checkUsername, "not the user name"),
    rule("checkFullname", &P::checkFullname, "no part of the full name"),
    rule("specialBefore", &P::specialBefore, "a special character before this position"),
    rule("applyNonExpiring", &P::applyNonExpiring,
         "the policy also covers accounts whose password never expires", kRegistryOnly),
    rule("excludeNonExpiring", &P::excludeNonExpiring, "such accounts are left out", kRegistryOnly),
    rule("checkDictionarySubstitution", &P::checkDictionarySubstitution,
         "dictionary check with substituted characters", kRegistryOnly),
    rule("checkDictionaryWildcard", &P::checkDictionaryWildcard, "dictionary check with wildcards",
         kRegistryOnly),
    rule("checkSAP", &P::checkSAP, "the rules of SAP systems", kRegistryOnly),
    rule("checkNameFragments", &P::checkNameFragments,
         "no 3 consecutive characters of user name or full name", kRegistryOnly),
    text(Policy, "includeGroups", &P::includeGroups, kGroupsBytes, "",
         "holds \"domain users\": the policy covers all users of the domain", kRegistryOnly),
    text(Policy, "excludeGroups", &P::excludeGroups, kGroupsBytes, "", "shown, and not used",
         kRegistryOnly),

    // What the edition's root holds beside, for the filter.
    text(EditionRoot, "regcode", {}, kLicenceBytes, "", "licence"),
    text(EditionRoot, "maintCode", {}, kLicenceBytes, "", "licence"),
    flag(EditionRoot, "evaluation", {}, "licence"),
    flag(EditionRoot, "netlogonDictionary", &S::netlogonDictionary,
         "the dictionary is in the NETLOGON share"),
    flag(EditionRoot, "debug", &S::debug, "the filter writes debug logs"),
    flag(EditionRoot, "vendorDebug", &S::vendorDebug, "the filter's mail library writes its own"),
    flag(EditionRoot, "dictionaryDebug", &S::dictionaryDebug, "debug the dictionary check",
         kStandardSwitches),
    {EditionRoot, "dictionarySkipLength", SettingType::OptionalNumber, &S::dictionarySkipLength, "",
     kDictionarySkipDefault, 0, "characters", "longer passwords skip the dictionary check"},
    flag(EditionRoot, "bypassFilter", &S::bypassFilter, "the filter is off"),
    flag(EditionRoot, "noLogRejects", &S::noLogRejects,
         "do not log rejected passwords; 1 when it is missing", kChosenKeySwitches),
    flag(EditionRoot, "resetBypass", &S::resetBypass, "resets by administrators bypass the filter"),
    flag(EditionRoot, "logRejects", &S::logRejects, "log rejected passwords", kStandardAndLive),
    flag(EditionRoot, "logResets", &S::logResets, "log password resets", kStandardAndLive),
    flag(EditionRoot, "showFailedPasswords", &S::showFailedPasswords,
         "show rejected passwords in logs", kStandardAndLive),
    flag(EditionRoot, "callResetScript", &S::callResetScript, "run a script on reset",
         kStandardAndLive),
    flag(EditionRoot, "noReportStatus", &S::noReportStatus, "report no status"),
    flag(EditionRoot, "reportStatistics", &S::reportStatistics, "report statistics"),
    number(EditionRoot, "skipLength", &S::skipLength, {}, "characters", "length that skips checks",
           kStandardSwitches),
    flag(EditionRoot, "logSkips", &S::logSkips, "log skipped checks", kStandardSwitches),

    number(Product, "expirationLastRunDay", &E::expirationLastRunDay, {0, kMaxDayOfMonth}, "",
           "day of month of the last warning; written by the program"),
    text(Product, "testOS", {}, kMachineBytes, "",
         "`de`, `ms` or `dc`: the kind of machine for `pwlapse settings`, for tests"),

    text(Directory, "uri", {}, kDirectoryBytes, "",
         "`ldap://`, `ldaps://`, `ldapi://`, with an optional `/BASE-DN`, or `ldif:PATH`; empty: "
         "the servers of the machine's Kerberos realm"),
    text(Directory, "bindMethod", {}, kDirectoryBytes, "gssapi",
         "`gssapi` (the Kerberos ticket of the user who runs it) or `simple`"),
    text(Directory, "bindUser", {}, kDirectoryBytes, "", "for `simple`"),
    text(Directory, "bindPasswordFile", {}, kDirectoryBytes, "",
         "for `simple`; the password is the file's first line"),
    text(Directory, "caFile", {}, kDirectoryBytes, "",
         "certificate authorities of the directory server; empty: the system's"),

    text(Service, kWorkFolderValue, {}, kPathBytes, "",
         "folder of templates, lists and logs, of the service and of `pwlapse` without "
         "`--work-dir`; empty: the system's folder, and the current one"),
};

}  // namespace

std::span<const Setting> settingsTable() {
  return kSettings;
}

std::string settingName(const Setting& setting, int index) {
  return setting.count == 1 ? setting.name : setting.name + std::to_string(index + 1);
}

std::vector<std::string> settingKeys(SettingGroup group) {
  std::vector<std::string> keys;
  switch (group) {
    case Expiration:
      return {kExpirationKeyMpe, kExpirationKeyMpems};
    case EditionRoot:
      return {kPolicyRootMpe, kPolicyRootMpems};
    case Product:
      return {kProductKey};
    case Directory:
      return {kDirectoryKey};
    case Service:
      return {kServiceParametersKey};
    case Policy:
    case PolicyRules:
      for (const char* root : {kPolicyRootMpe, kPolicyRootMpems}) {
        for (int slot = 0; slot < kNamedPolicies; ++slot) {
          keys.push_back(std::string(root) + '\\' + policySlotName(slot));
        }
      }
  }
  return keys;
}

std::uint32_t readSettingNumber(platform::Registry& registry, const std::string& key,
                                const Setting& setting, int index) {
  const std::string name = settingName(setting, index);
  const bool optional = setting.type == SettingType::OptionalNumber;
  const std::uint32_t value =
      optional ? readOptionalNumber(registry, key, name) : readNumber(registry, key, name);
  return value == (optional ? kNumberAbsent : 0) ? setting.number : value;
}

std::string readSettingText(platform::Registry& registry, const std::string& key,
                            const Setting& setting) {
  std::string value = readTextField(registry, key, setting.name, setting.limit + 1);
  return value.empty() ? setting.text : value;
}

}  // namespace config
