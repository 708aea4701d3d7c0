#include "notify/run_report.h"

#include <algorithm>
#include <cstddef>

#include "base/format_text.h"
#include "base/text.h"
#include "base/timestamp.h"
#include "directory/password_expiry.h"
#include "mail/mime/base64.h"
#include "notify/html_text.h"
#include "notify/report_logo.h"
#include "platform/system/files.h"
#include "platform/text/text_lines.h"

namespace notify {
namespace {

constexpr std::uint32_t kMsPerHour = 3600000;

constexpr const char* kHead =
    "<html><head><title>Norvyn Password Expiration Report</title>\n"
    "<style type=text/css>\n"
    ".title{color:#222222;font-family:Arial,Helvetica,sans-serif;font-size:12pt;"
    "font-weight:bold;}\n"
    "h3{color:#555555;font-family:Arial,Helvetica,sans-serif;font-size:11pt;font-weight:bold;}\n"
    "table{border-color: #DDDDDD;border-width: 1px 1px 1px 1px;border-style: solid;}\n"
    ".labelRow{color:#FFFFFF;font-family:Arial,Helvetica,sans-serif;font-size:10pt;"
    "font-weight:bold;padding: 2px 2px 2px 2px;text-align:center;background-color:#F26721;}"
    "td{font-family:Arial,Helvetica,sans-serif;font-size:8pt;font-weight:100;"
    "padding:2px 2px 2px 2px;background-color:#F5F5F5; text-align:center;}\n"
    "</style></head>";

// Behind the mark of UTF-8. The words are those of `pwlapse list --format csv`.
constexpr const char* kCsvHeading =
    "\xEF\xBB\xBF"
    "user,address,emailWarnings,age,maximumAge,daysLeft,emailed,status\r\n";

constexpr const char* kDryHeading =
    "<h3>A dry run: what a pass would do now. Nobody was mailed, no password was expired.</h3>\n";
constexpr const char* kUpcomingOpening =
    "<h3>Users with upcoming password expirations:</h3>\n"
    "<table><tr><td class=labelRow>Username</td><td class=labelRow>Email</td>"
    "<td class=labelRow>Email Warnings</td><td class=labelRow>pw Age</td>"
    "<td class=labelRow>Max pw Age</td><td class=labelRow>Days until Expiration</td>"
    "<td class=labelRow>Emailed</td></tr>";

constexpr const char* kWouldExpireHeading =
    "<h3>Users with passwords <u>that would be expired</u> during this run:</h3>\n";
constexpr const char* kExpiredHeading =
    "<h3>Users with passwords <u>expired</u> during this run:</h3>\n";
constexpr const char* kExpiredOpening =
    "<table><tr><td class=labelRow>Username</td><td class=labelRow>Email</td>"
    "<td class=labelRow>pw Age</td><td class=labelRow>Max pw Age</td>"
    "<td class=labelRow>Status</td></tr>";

std::string settingsTable(const config::ExpirationSettings& settings, std::uint32_t intervalMs) {
  std::string rows = "<table border=0>\n";
  const auto row = [&rows](const char* label, std::int64_t value) {
    rows += base::formatText("<tr><td>%s</td><td>%i</td></tr>", label, static_cast<int>(value));
  };
  row("Service Interval (in hours)", intervalMs / kMsPerHour);
  rows += "<tr><td>SMTP Server</td><td>" + escapeHtml(settings.smtpServer) + "</td></tr>";
  row("Warning Threshold", settings.warningThreshold);
  const auto& warnings = settings.warnings;
  // Shown from 0 upwards, although a pass keeps to warning days only above 0: intended.
  if (std::any_of(warnings.begin(), warnings.end(), [](std::int32_t day) { return day >= 0; })) {
    row("Email at specific intervals", 1);
    row("Warning 1", warnings[0]);
    row("Warning 2", warnings[1]);
    row("Warning 3", warnings[2]);
  }
  row("Report Only", settings.reportOnly);
  row("Test Email Only", settings.testEmailOnly);
  row("Email Admin Report", settings.emailAdminReports);
  row("Limit Emails", settings.limitEmails);
  row("Email length-based password aging users", settings.emailAgingUsers);
  for (const config::LengthPolicy& policy : settings.lengthPolicies) {
    if (policy.minLength > 0) {
      rows += base::formatText("<tr><td>Min Length / Max Age</td><td>%i / %i</td></tr>",
                               static_cast<int>(policy.minLength), static_cast<int>(policy.maxAge));
    }
  }
  row("Last Email Day", settings.expirationLastRunDay);
  return rows;
}

std::string embeddedLogo() {
  return "data:image/gif;base64," + kelvado::base64Encode(reportLogo());
}

// "<tr><td>username</td><td>email</td>", which every row begins with.
std::string rowStart(const UserRecord& user) {
  return "<tr><td>" + escapeHtml(user.username) + "</td><td>" + escapeHtml(user.data.email) +
         "</td>";
}

std::string emailedWords(const UserRecord& user, PassMode mode) {
  return mode == PassMode::Dry && user.emailedText == "yes" ? "would be" : user.emailedText;
}

const char* statusText(Expiry expiry) {
  switch (expiry) {
    case Expiry::OnlyReported:
      return "PASSWORD NOT EXPIRED (Report Only Mode)";
    case Expiry::Withheld:
      return "PASSWORD NOT EXPIRED (clocks differ)";
    case Expiry::ByDirectory:
      return "PASSWORD EXPIRED (by the directory)";
    case Expiry::OverLimit:
      return "PASSWORD NOT EXPIRED (limit of expirations reached)";
    case Expiry::NotNotified:
      return "PASSWORD NOT EXPIRED (user not notified)";
    case Expiry::PassStopped:
      return "PASSWORD NOT EXPIRED (pass stopped)";
    case Expiry::NotDue:
    case Expiry::Forced:
    case Expiry::Refused:  // the report says what the pass decided
    case Expiry::Unanswered:
      break;
  }
  return "PASSWORD EXPIRED";
}

std::string problemsSection(const config::FindingLines& problems) {
  if (problems.count == 0) return {};
  std::string text =
      "<h3>Problems in this run:</h3>\n<table><tr><td class=labelRow>Problem</td></tr>";
  const auto row = [&text](const std::string& problem) {
    text += "<tr><td style=text-align:left>" + escapeHtml(problem) + "</td></tr>\n";
  };
  for (const std::string& line : problems.lines) row(line);
  if (problems.count > problems.lines.size()) {
    row(base::formatText("%llu more",
                         static_cast<unsigned long long>(problems.count - problems.lines.size())));
  }
  return text + "</table>";
}

}  // namespace

bool mailHasLogo(const config::ExpirationSettings& settings) {
  return !settings.emailTextAlternative;
}

void RunReport::start(const config::ExpirationSettings& settings, std::uint32_t intervalMs,
                      const base::LocalTime& now) {
  const bool dry = mode_ == PassMode::Dry;
  settings_ =
      "<hr size=1 width=625 align=left><span class=title>Norvyn Password Expiration Report</span>"
      "<hr size=1 width=625 align=left><h3>DATE OF RUN:" +
      base::timestampText(now) + "</h3>\n" + (dry ? kDryHeading : "") + "<h3>Settings:</h3>\n" +
      settingsTable(settings, intervalMs);

  mailReport_ = kHead;
  const std::string logo = dry ? embeddedLogo() : "../norvyn-report-logo.gif";
  fileReport_ = mailReport_ + "<body><img src=" + logo + ">\n";
  mailReport_ += mailHasLogo(settings) ? "<body><img src=images/logo.gif>\n" : "<body>\n";

  upcoming_.html = kUpcomingOpening;
  expired_.html = settings.reportOnly || dry ? kWouldExpireHeading : kExpiredHeading;
  expired_.html += kExpiredOpening;
  wantsCsv_ = settings.emailAdminReports && settings.adminReportCsv;
}

std::string RunReport::csvRow(const UserRecord& user, const std::string& emailed,
                              const char* status) const {
  if (!wantsCsv_) return {};
  std::string row;
  base::appendCsvField(platform::ansiToUtf8(user.username), row);
  row += ',';
  base::appendCsvField(platform::ansiToUtf8(user.data.email), row);
  row += base::formatText(",%i,%i,%i,%i,", static_cast<int>(user.emailWarnings),
                          static_cast<int>(user.age), user.maxAge, user.daysLeft());
  base::appendCsvField(platform::ansiToUtf8(emailed), row);
  return row + ',' + status + "\r\n";
}

RunReport::Rows RunReport::upcomingRow(const UserRecord& user) const {
  const std::string emailed = emailedWords(user, mode_);
  return {rowStart(user) +
              base::formatText("<td>%i</td><td>%i</td><td>%i</td><td>%i</td><td>%s</td></tr>\n",
                               static_cast<int>(user.emailWarnings), static_cast<int>(user.age),
                               user.maxAge, user.daysLeft(), emailed.c_str()),
          csvRow(user, emailed, "")};
}

RunReport::Rows RunReport::expiredRow(const UserRecord& user) const {
  const bool wouldBe = mode_ == PassMode::Dry && user.expiry == Expiry::Forced;
  const char* status = wouldBe ? "PASSWORD WOULD BE EXPIRED" : statusText(user.expiry);
  return {
      rowStart(user) +
          base::formatText("<td>%i</td><td>%i</td><td><font color=#FF0000>%s</font></td></tr>\n",
                           static_cast<int>(user.age), user.maxAge, status),
      csvRow(user, emailedWords(user, mode_), status)};
}

void RunReport::addUpcoming(const UserRecord& user) {
  const Rows row = upcomingRow(user);
  upcoming_.html += row.html;
  upcoming_.csv += row.csv;
}

void RunReport::addExpired(const UserRecord& user) {
  anyExpired_ = true;
  const Rows row = expiredRow(user);
  expired_.html += row.html;
  expired_.csv += row.csv;
}

RunReport::Row RunReport::hold(Table table) {
  held_.push_back({table, {}, section(table).html.size(), section(table).csv.size()});
  return held_.size() - 1;
}

void RunReport::fill(Row row, const UserRecord& user) {
  HeldRow& held = held_[row];
  held.row = held.table == Table::Upcoming ? upcomingRow(user) : expiredRow(user);
  if (held.table == Table::Expired) anyExpired_ = true;
}

void RunReport::insertHeldRows(Table table, std::string Rows::*form, std::size_t HeldRow::*at) {
  std::string& rows = section(table).*form;
  std::string whole;
  std::size_t from = 0;
  for (const HeldRow& held : held_) {
    if (held.table != table) continue;
    whole.append(rows, from, held.*at - from).append(held.row.*form);
    from = held.*at;
  }
  rows = whole.append(rows, from);
}

void RunReport::finish(const config::FindingLines& problems) {
  if (!held_.empty()) {
    for (const Table table : {Table::Upcoming, Table::Expired}) {
      insertHeldRows(table, &Rows::html, &HeldRow::htmlAt);
      insertHeldRows(table, &Rows::csv, &HeldRow::csvAt);
    }
  }
  for (std::string* section : {&upcoming_.html, &expired_.html, &settings_}) *section += "</table>";
  if (wantsCsv_) csv_ = kCsvHeading + upcoming_.csv + expired_.csv;
  appendSections(mailReport_, problems);
}

void RunReport::appendSections(std::string& report, const config::FindingLines& problems) const {
  report += settings_ + "<br>" + upcoming_.html + "<br>";
  if (anyExpired_) report += expired_.html;
  report += problemsSection(problems);
  report += "</body></html>";
}

bool RunReport::writeFileReport(const config::FindingLines& problems, const std::string& file) {
  appendSections(fileReport_, problems);
  return platform::replaceFileAtomically(file, fileReport_, platform::FileReaders::AsUsual);
}

bool writeReportLogo() {
  return platform::writeWholeFile(config::kLogoFile, reportLogo());
}

}  // namespace notify
