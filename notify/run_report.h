// The "Password Expiration Report" of one pass, built up in five text streams and assembled at its
// end into the mail report and the file report. Used by the pass only.
#pragma once

#include <cstdint>
#include <string>

#include "base/timestamp.h"
#include "config/expiration_settings.h"
#include "config/findings.h"
#include "notify/user_record.h"

namespace notify {

// One object for each pass.
class RunReport {
 public:
  // Writes the settings table, the heads and the table openings.
  // `settings.reportOnly` is the pass's effective one.
  void start(const config::ExpirationSettings& settings, std::uint32_t intervalMs,
             const base::LocalTime& now);

  // The texts of a record are escaped.
  void addUpcoming(const UserRecord& user);
  // As expired or, when `user.expiry` says so, not expired.
  void addExpired(const UserRecord& user);

  // Closes the tables and assembles the mail report. The expired section is left out when it has no
  // row, the section of problems when there is none.
  void finish(const config::FindingLines& problems);
  const std::string& mailReport() const { return mailReport_; }
  // Assembles the file report and writes it to kReportFile. False when it could not be written.
  bool writeFileReport(const config::FindingLines& problems);

 private:
  void appendSections(std::string& report, const config::FindingLines& problems) const;

  std::string mailReport_;
  std::string fileReport_;
  std::string settings_;
  std::string upcoming_;
  std::string expired_;
  bool anyExpired_ = false;
};

// Writes the logo that the file report shows and the mail embeds to kLogoFile.
bool writeReportLogo();

}  // namespace notify
