// The "Password Expiration Report" of one pass, built up in five text streams and assembled at its
// end into the mail report and the file report. Used by the pass only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "base/timestamp.h"
#include "config/expiration_settings.h"
#include "config/findings.h"
#include "config/pass_files.h"
#include "notify/pass_mode.h"
#include "notify/user_record.h"

namespace notify {

// One object for each pass.
class RunReport {
 public:
  // The report of a dry pass says what would be.
  explicit RunReport(PassMode mode = PassMode::Live) : mode_(mode) {}

  // Writes the settings table, the heads and the table openings.
  // `settings.reportOnly` is the pass's effective one.
  void start(const config::ExpirationSettings& settings, std::uint32_t intervalMs,
             const base::LocalTime& now);

  // The texts of a record are escaped.
  void addUpcoming(const UserRecord& user);
  // As expired or, when `user.expiry` says so, not expired.
  void addExpired(const UserRecord& user);

  // A row whose words are known at the end of the pass only: its place now, its words later. A
  // place that gets none leaves no trace.
  enum class Table { Upcoming, Expired };
  using Row = std::size_t;
  Row hold(Table table);
  void fill(Row row, const UserRecord& user);

  // Closes the tables and assembles the mail report. The expired section is left out when it has no
  // row, the section of problems when there is none.
  void finish(const config::FindingLines& problems);
  const std::string& mailReport() const { return mailReport_; }
  // The rows of both tables with adminReportCsv, else empty: RFC 4180, in UTF-8 with the mark by
  // which spreadsheets know it.
  const std::string& csv() const { return csv_; }
  // Assembles the file report and writes it: to kReportFile, beside which is the logo, or in a dry
  // pass to any file, with the logo in it. False when it could not be written.
  bool writeFileReport(const config::FindingLines& problems,
                       const std::string& file = config::kReportFile);

 private:
  // Of a table, or one of them, in both forms; `csv` is empty unless it is wanted.
  struct Rows {
    std::string html;
    std::string csv;
  };
  struct HeldRow {
    Table table;
    Rows row;
    std::size_t htmlAt;  // where in the table's section
    std::size_t csvAt;
  };

  Rows upcomingRow(const UserRecord& user) const;
  Rows expiredRow(const UserRecord& user) const;
  std::string csvRow(const UserRecord& user, const std::string& emailed, const char* status) const;
  Rows& section(Table table) { return table == Table::Upcoming ? upcoming_ : expired_; }
  void insertHeldRows(Table table, std::string Rows::*form, std::size_t HeldRow::*at);
  void appendSections(std::string& report, const config::FindingLines& problems) const;

  PassMode mode_;
  std::string mailReport_;
  std::string fileReport_;
  std::string settings_;
  Rows upcoming_;
  Rows expired_;
  bool wantsCsv_ = false;
  std::string csv_;
  std::vector<HeldRow> held_;  // in the order of their places
  bool anyExpired_ = false;
};

// Whether the mailed report shows the logo. Not with a text beside the HTML: filters rate a short
// HTML text with a picture as advertising, and that mail is to get through them.
bool mailHasLogo(const config::ExpirationSettings& settings);

// Writes the logo that the file report shows and the mail embeds to kLogoFile.
bool writeReportLogo();

}  // namespace notify
