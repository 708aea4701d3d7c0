// Every file that a pass reads or writes in its work folder. A new file is one line here and one
// row in docs/files.md, which says who opens it, when and how (scripts/check_files compares the
// two). Names are used as platform/system/files.h says. What is written is opened for each write
// and closed again (but for the record of warnings, which is held open for a pass), so that a file
// is whole at any moment and may be moved away while the service runs.
#pragma once

namespace config {

// Read.
inline constexpr const char* kDefaultExcludeFile = "pwsentry_pro_defaultpolicy_exclude.txt";
inline constexpr const char* kIncludeFileFormat = "pwsentry_pro_policy%d_include.txt";  // slot
inline constexpr const char* kExcludeFileFormat = "pwsentry_pro_policy%d_exclude.txt";  // slot
// A mail's templates begin so; notify/mail_templates.h has the rest of their names.
inline constexpr const char* kWarningTemplates = "NorvynExpirationEmail";
inline constexpr const char* kExpiredTemplates = "NorvynExpiredEmail";
inline constexpr const char* kManagerTemplates = "NorvynManagerEmail";
// Those of the warning for every policy and language.
inline constexpr const char* kHtmlTemplateFile = "NorvynExpirationEmail.html";
inline constexpr const char* kTextTemplateFile = "NorvynExpirationEmail.txt";

// Written and read.
inline constexpr const char* kDomainUsersFile = "pwsentry_pro_domain_users.txt";
inline constexpr const char* kLogoFile = "norvyn-report-logo.gif";
inline constexpr const char* kLastRunFile = "logfiles\\norvyn-last-run.json";
inline constexpr const char* kWarningLedgerFile = "logfiles\\Norvyn-warnings-sent.log";

// Written. The folder is made where it is missing; without it, logs and report are not written.
inline constexpr const char* kLogDirectory = "LogFiles";
inline constexpr const char* kDebugLogFile = "logfiles\\Norvyn-expiration-debug.log";
inline constexpr const char* kSkipListFile = "logfiles\\pwExpirationSkipList.txt";
inline constexpr const char* kExpiringSoonLog = "logfiles\\Norvyn-expiring-soon.log";
inline constexpr const char* kExpiredPasswordLog = "logfiles\\Norvyn-expired-pw.log";
inline constexpr const char* kReportFile = "logfiles\\Norvyn-expiration-report.html";
inline constexpr const char* kMailErrorFile = "errors-norvyn-email.xml";

// Written by the operations on the list of processed users that a pass does not use.
inline constexpr const char* kUserListFile = "logfiles\\userList.txt";
inline constexpr const char* kExpirationListFile = "logfiles\\ExpirationList.txt";

}  // namespace config
