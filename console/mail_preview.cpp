#include "console/mail_preview.h"

#include <vector>

#include "config/debug_log.h"
#include "console/user_look_up.h"
#include "notify/message_template.h"
#include "notify/warning_email.h"
#include "service/dry_run.h"
#include "service/edition_keys.h"
#include "service/policy_table.h"

namespace console {
namespace {

// Keeps the records of one user; one of the policy that has him before those that leave him out.
class UserKeeper : public service::PassObserver {
 public:
  explicit UserKeeper(platform::DirectoryAccess& access)
      : lookUp_(access, UserLookUp::Details::Wanted) {}

  void userExamined(const notify::UserRecord& user) override {
    if (kept_ && (kept_->record.skipReasons == 0 || user.skipReasons != 0)) return;
    constexpr notify::PassMode kDry = notify::PassMode::Dry;
    kept_ = {user, std::string(service::outcomeLabel(service::outcomeOf(user), kDry)) + ", " +
                       service::slotLabel(user.slot) + ": " + service::outcomeReason(user, kDry)};
    lookUp_.complete(user.username, kept_->record.data);
  }

  const std::optional<PreviewedUser>& kept() const { return kept_; }

 private:
  UserLookUp lookUp_;
  std::optional<PreviewedUser> kept_;
};

}  // namespace

config::ExpirationSettings mailSettings(platform::Registry& registry) {
  config::ExpirationSettings settings =
      config::loadExpirationSettings(registry, service::findEditionKeys(registry).settingsKey);
  settings.emailCustomMsg = notify::messageLines(settings.emailCustomMsg);
  return settings;
}

std::optional<PreviewedUser> findPreviewedUser(const platform::Host& host,
                                               const std::string& username, std::string& error) {
  UserKeeper keeper(host.directory);
  service::DryRunOptions options;
  options.onlyUser = username;
  const service::PassRecord record = service::makeDryRun(host, &keeper, options);
  if (keeper.kept()) return keeper.kept();
  const std::vector<std::string>& problems = record.findings.problems().lines;
  error = problems.empty() ? "no policy's list names " + username : problems.front();
  return std::nullopt;
}

void setDaysLeft(notify::UserRecord& user, std::int32_t days) {
  if (user.passwordExpires != 0) {
    user.passwordExpires += (days - user.daysLeft()) * notify::kSecondsPerDay;
  }
  user.maxAge = static_cast<std::int32_t>(user.age) + days;
}

bool composePreview(kelvado::KvEmail& email, const config::ExpirationSettings& settings,
                    const notify::MailTemplates& templates, const notify::UserRecord& user,
                    platform::Clock& clock, std::string& error) {
  config::DebugLog silent = config::DebugLog::nowhere();
  if (notify::composeWarning(email, settings, templates, user, clock, silent)) return true;
  const std::vector<std::string>& problems = templates.problems();
  error = problems.empty() ? notify::kTemplateLost : problems.front();
  return false;
}

}  // namespace console
