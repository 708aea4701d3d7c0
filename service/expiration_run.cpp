#include "service/expiration_run.h"

#include <utility>

#include "base/timestamp.h"
#include "config/registry_readers.h"
#include "directory/password_expiry.h"
#include "notify/admin_report_mail.h"
#include "notify/run_logs.h"
#include "notify/warning_email.h"
#include "platform/system/files.h"
#include "service/edition_keys.h"

namespace service {
namespace {

// A service started at boot waits a little under eight minutes.
constexpr double kStartWait = 480000;
constexpr std::uint32_t kMsPerSecond = 1000;

constexpr const char* kRule = "---------------------------\n";

// The user that a test mail is about, and the days it speaks of.
constexpr const char* kTestUserName = "jdoe-test";
constexpr const char* kTestFirstName = "Jane";
constexpr const char* kTestLastName = "Doe";
constexpr int kTestCountdown = 10;

// A stored message has a backslash for every line break; several in a row count as one.
std::string backslashesToLines(const std::string& message) {
  std::string lines;
  std::size_t from = 0;
  while (from < message.size()) {
    std::size_t end = message.find('\\', from);
    if (end == std::string::npos) end = message.size();
    if (end > from) lines += message.substr(from, end - from) + "\n";
    from = end + 1;
  }
  return lines;
}

std::uint64_t fileSize(std::FILE* file) {
  std::fseek(file, 0, SEEK_END);
  const long size = std::ftell(file);
  std::rewind(file);
  return size > 0 ? static_cast<std::uint64_t>(size) : 0;
}

}  // namespace

ExpirationRun::ExpirationRun(platform::Host host, const ServiceValues& values,
                             RunObserver* observer, std::FILE* foundUsers)
    : host_(host),
      values_(values),
      observer_(observer),
      log_(values.debug),
      domain_(host.directory, log_, foundUsers),
      settingsKeyPath_(config::kExpirationKeyMpe),
      examiner_(host_, log_, domain_, pass_) {}

void ExpirationRun::prepare() {
  notify::writeReportLogo();
  decideEdition();
  uptimeSeconds_ = host_.clock.uptimeSeconds();
}

void ExpirationRun::decideEdition() {
  EditionKeys keys = findEditionKeys(host_.registry);
  memberServer_ = keys.memberServer;
  settingsKeyPath_ = keys.settingsKey;
  settingsKey_ = std::move(keys.settingsOpen);
  if (memberServer_) log_.print("**We have NRV-MPEMS version**\n");
}

std::uint32_t ExpirationRun::startDelayMs() const {
  if (uptimeSeconds_ * kMsPerSecond >= kStartWait) return 0;
  // Milliseconds less seconds, on purpose: nearly the whole wait for any service started at boot.
  return static_cast<std::uint32_t>(kStartWait - uptimeSeconds_);
}

RunSummary ExpirationRun::pass() {
  RunSummary summary;
  host_.directory.beginPass();
  beginPass();
  checkSettingsKey();
  sendTestEmail(summary);
  slots_ = loadPolicyTable(host_.registry, pass_.settings, memberServer_, log_);
  listDomainUsers();
  splitCustomMessage();
  guardMailingDay();
  startReportAndLogs();
  const std::array<int, kPolicySlots> order = policyOrder(slots_);
  logPolicyOrder(order);
  pass_.directoryBound = domain_.bindDomain() != 0;
  summary.directoryBound = pass_.directoryBound;
  if (!pass_.directoryBound) summary.directoryError = host_.directory.lastError();
  for (const int slot : order) visitSlot(slot);
  domain_.unbindDomain();
  finishPass(summary);
  host_.directory.endPass();
  return summary;
}

void ExpirationRun::beginPass() {
  if (log_.enabled()) platform::createDirectory(notify::kLogDirectory);
  log_.recreate();
  pass_.processed.clear();
  pass_.emailedToday = false;
  pass_.mayEmail = true;
  pass_.intervalMode = false;
  pass_.smtpFailure = false;
  pass_.upcomingRows = 0;
  pass_.expiredUsers = 0;
  pass_.age = 0;
  pass_.user = {};
  pass_.settings = config::loadExpirationSettings(host_.registry, settingsKeyPath_);
}

// Without a settings key, or without a mail server in it, a pass only reports.
void ExpirationRun::checkSettingsKey() {
  const platform::WinError opened =
      host_.registry.openKey(settingsKeyPath_, platform::RegistryAccess::Query, settingsKey_);
  if (opened != platform::kErrorSuccess) pass_.settings.reportOnly = true;
  platform::RegistryValue value;
  if (settingsKey_ && settingsKey_->queryValue("smtpServer", config::kMaxTextValueBytes, value) ==
                          platform::kErrorFileNotFound) {
    pass_.settings.reportOnly = true;
  }
}

void ExpirationRun::sendTestEmail(RunSummary& summary) {
  if (!pass_.settings.testEmailOnly) return;
  pass_.settings.reportOnly = true;
  pass_.user.username = kTestUserName;
  pass_.user.data.firstName = kTestFirstName;
  pass_.user.data.lastName = kTestLastName;
  const notify::WarningContext context{host_.registry, host_.clock, log_, pass_.settings,
                                       pass_.user};
  summary.testEmailFailed = !notify::sendWarningEmail(
      context, kTestUserName, pass_.settings.testEmailAddress, kTestCountdown);
  pass_.smtpFailure = summary.testEmailFailed;
}

void ExpirationRun::listDomainUsers() {
  bool anyApplies = false;
  for (int slot = 0; slot < kPolicySlots; ++slot) {
    if (slots_[slot].appliesToDomainUsers != 1) continue;
    anyApplies = true;
    log_.print("   policy%i applies to Domain Users\n", slot);
  }
  hasUsersList_ = !anyApplies || domain_.writeDomainUsersList();
  if (!hasUsersList_) {
    tellProblem(std::string(directory::kDomainUsersFile) +
                " cannot be written: the policies for all users of the domain are left out");
  }
}

void ExpirationRun::splitCustomMessage() {
  if (pass_.settings.hasCustomMessage()) {
    pass_.settings.emailCustomMsg = backslashesToLines(pass_.settings.emailCustomMsg);
  }
}

// Only the day of month is compared: a mailing on the 5th also blocks the 5th of the next month
// when no mail went out in between.
void ExpirationRun::guardMailingDay() {
  const auto today = static_cast<std::uint32_t>(host_.clock.localTime().day);
  if (pass_.settings.expirationLastRunDay == today && pass_.settings.limitEmails) {
    pass_.mayEmail = false;
    pass_.emailedToday = true;
  }
}

void ExpirationRun::startReportAndLogs() {
  const base::LocalTime now = host_.clock.localTime();
  pass_.report.start(pass_.settings, values_.intervalMs, now);
  const directory::DomainMaxAge domainMaxAge = directory::readDomainMaxAge(host_.accounts);
  notify::writeDebugHeader(
      log_, pass_.settings,
      {uptimeSeconds_, domainMaxAge.days, values_.intervalMs, pass_.emailedToday}, now);
  if (log_.enabled()) notify::recreateSkipList();
  notify::recreateExpiringSoonLog();
}

void ExpirationRun::logPolicyOrder(const std::array<int, kPolicySlots>& order) {
  log_.print("POLICY ORDER\n");
  for (const int slot : order) {
    log_.print("  policy%i  maxAge=%i\n", slot, static_cast<int>(slots_[slot].maxPasswordAge));
  }
}

void ExpirationRun::visitSlot(int slot) {
  log_.print("%sPolicy%i Settings\n%s", kRule, slot, kRule);
  PolicyFiles files = policyFiles(slot);
  if (slot == 0) log_.print("  i=0, buf2=%s\n", files.exclude.c_str());

  PolicyInHand policy;
  policy.slot = slot;
  policy.maxAge = effectiveMaxAge(slots_, slot);
  policy.emailWarnings = slots_[slot].emailWarnings;
  if (policy.maxAge == 0) {
    log_.print("max pw age = %i\n", policy.maxAge);
    log_.print("Policy pw age=0. SKIP THIS POLICY.\n");
    const bool leftOut = slots_[slot].maxPasswordAge != 0;
    if (leftOut && observer_ != nullptr) {
      observer_->noteFound(policySlotName(slot) +
                           " has a maximum password age but no policyName of at least 2 "
                           "characters: it is left out");
    }
    return;
  }
  if (slots_[slot].appliesToDomainUsers == 1) files.include = directory::kDomainUsersFile;
  examineList(policy, files);
}

void ExpirationRun::examineList(PolicyInHand& policy, const PolicyFiles& files) {
  if (files.include == directory::kDomainUsersFile && !hasUsersList_) return;
  platform::File list = platform::openFile(files.include, "r");
  if (!list) return;
  auto excluded = readExcludeFile(files.exclude);
  if (!excluded) {
    tellProblem(files.exclude + " cannot be read, or not as text of one byte a character: its " +
                "policy is left out");
    return;
  }
  policy.excluded = std::move(*excluded);
  if (observer_ != nullptr) {
    observer_->slotStarted(policy.slot, files.include, fileSize(list.get()));
  }
  std::string line;
  for (bool first = true; platform::readTextLine(list.get(), kListReadSize, line); first = false) {
    if (first) cutByteOrderMark(line);
    const UserVerdict verdict = examiner_.examine(policy, line);
    if (observer_ != nullptr) observer_->userExamined(verdict);
  }
}

void ExpirationRun::tellProblem(const std::string& problem) {
  if (observer_ != nullptr) observer_->problemFound(problem);
}

void ExpirationRun::finishPass(RunSummary& summary) {
  pass_.report.finish(pass_.expiredUsers);
  if (pass_.settings.emailAdminReports) {
    summary.adminReportFailed = !notify::sendAdminReport(pass_.settings, pass_.report.mailReport());
  }
  if (pass_.settings.htmllog) summary.fileReportFailed = !pass_.report.writeFileReport();
  pass_.processed.clear();
  summary.reportOnly = pass_.settings.reportOnly;
  summary.smtpFailure = pass_.smtpFailure;
  summary.upcomingRows = pass_.upcomingRows;
  summary.expiredUsers = pass_.expiredUsers;
}

std::uint32_t ExpirationRun::sleepMs() const {
  const std::uint32_t delaySeconds =
      config::loadExpirationSettings(host_.registry, settingsKeyPath_).expirationDelay;
  return delaySeconds == 0 ? values_.intervalMs : asMs(delaySeconds, kMsPerSecond);
}

}  // namespace service
