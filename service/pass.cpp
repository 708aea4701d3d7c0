#include "service/pass.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "base/ascii.h"
#include "base/format_text.h"
#include "base/timestamp.h"
#include "config/editions.h"
#include "config/pass_files.h"
#include "config/registry_readers.h"
#include "config/settings_check.h"
#include "directory/password_expiry.h"
#include "notify/access_token.h"
#include "notify/admin_report_mail.h"
#include "notify/mail_templates.h"
#include "notify/message_template.h"
#include "notify/run_logs.h"
#include "notify/warning_email.h"
#include "platform/system/files.h"
#include "platform/text/code_page.h"
#include "service/held_expiries.h"

namespace service {
namespace {

using config::Cause;

constexpr const char* kRule = "---------------------------\n";

// By how many seconds the clocks may differ before it is a problem, and before nobody is expired.
constexpr std::int64_t kClockTolerance = 5 * 60;
constexpr std::int64_t kLargestClockOffset = 60 * 60;

Cause causeOf(const notify::MailOutcome& outcome) {
  return outcome.concernsServer ? Cause::MailServer : Cause::Other;
}

config::Findings::Listener listenerOf(PassObserver* observer) {
  if (observer == nullptr) return {};
  return [observer](config::FindingKind kind, config::Cause cause, const std::string& line) {
    observer->findingMade(kind, cause, line);
  };
}

}  // namespace

Pass::Pass(RunContext& run)
    : run_(run),
      log_(run.log),
      domain_(run.host.directory, run.log, run.foundUsers),
      pass_(run.mode),
      findings_(pass_.record.findings),
      accountSearch_(run.host.accounts, run.host.directory, run.host.clock, run.log),
      directoryPolicy_(run.host, run.log, accountSearch_),
      examiner_(run.host, run.log, domain_, accountSearch_, directoryPolicy_, pass_),
      managers_(run.host, run.log, pass_, [this] { return stopped_ || stopRequested(); }) {
  findings_.listen(listenerOf(run.observer));
}

PassRecord Pass::make() {
  const std::uint32_t beganTicks = run_.host.clock.tickCount();
  pass_.record.began = run_.host.clock.localTime();
  if (log_.enabled()) platform::createDirectory(config::kLogDirectory);
  log_.recreate();
  loadSettings();
  checkSettings();
  loadTemplates();
  if (platform::folderIsShared(".")) {
    findings_.note("other users can write to the work folder, and so to its lists and templates");
  }
  sendTestEmail();
  slots_ = loadPolicyTable(run_.host.registry, pass_.settings, run_.edition.memberServer, log_);
  directoryPolicy_.prepare(slots_);
  run_.host.directory.beginPass();
  listDomainUsers();
  splitCustomMessage();
  guardMailingDay();
  startReportAndLogs();
  const std::array<int, kPolicySlots> order = policyOrder(slots_);
  logPolicyOrder(order);
  bindDirectory();
  compareClocks();
  searchAccounts();
  noteLocalAccounts();
  pass_.memory.open(pass_.settings, pass_.expiresNobody, run_.host.clock, findings_);
  for (const int slot : order) {
    if (isToStop()) break;
    visitSlot(slot);
  }
  settleHeldUsers();
  managers_.send();
  pass_.record.reportFailedMails();
  domain_.unbindDomain();
  pass_.memory.finish();
  directoryPolicy_.finish(findings_);
  accountSearch_.drop();
  for (const std::string& warning : run_.host.directory.warnings()) findings_.note(warning);
  finishReport();
  run_.host.directory.endPass();
  run_.unsavedMailingDay = pass_.unsavedMailingDay;
  pass_.record.durationMs = run_.host.clock.tickCount() - beganTicks;
  return std::move(pass_.record);
}

// Without a settings key, or without a mail server in it, a pass only reports.
void Pass::loadSettings() {
  platform::Registry& registry = run_.host.registry;
  EditionKeys& edition = run_.edition;
  pass_.settings = config::loadExpirationSettings(registry, edition.settingsKey);
  const platform::WinError opened =
      registry.openKey(edition.settingsKey, platform::RegistryAccess::Query, edition.settingsOpen);
  if (opened != platform::kErrorSuccess) pass_.settings.reportOnly = true;
  platform::RegistryValue value;
  if (edition.settingsOpen &&
      edition.settingsOpen->queryValue("smtpServer", config::kMaxTextValueBytes, value) ==
          platform::kErrorFileNotFound) {
    pass_.settings.reportOnly = true;
  }
  if (pass_.settings.testEmailOnly) pass_.settings.reportOnly = true;
  pass_.mailer = std::make_unique<notify::Mailer>(pass_.settings, run_.host.clock, findings_,
                                                  run_.makeTransport
                                                      ? run_.makeTransport(pass_.settings)
                                                      : notify::makeSmtpTransport(pass_.settings),
                                                  run_.stopRequested);
  pass_.retriesLeft = pass_.mostRetries();
  pass_.unsavedMailingDay = run_.unsavedMailingDay;
  pass_.record.settingsSource = registry.name();
  pass_.record.settingsKey = edition.settingsKey;
}

// A value of the wrong type counts as 0. What the administrator wanted is not known, so nobody is
// mailed or expired.
void Pass::checkSettings() {
  const std::string stale = run_.host.registry.staleReason();
  if (!stale.empty()) {
    findings_.problem(stale + ": the settings are those of before", Cause::Settings);
  }
  for (const config::SettingMistake& wrong : config::findWrongTypes(run_.host.registry)) {
    pass_.settings.reportOnly = true;
    findings_.problem(wrong.text() + ": the pass only reports", Cause::Settings);
  }
  for (const std::string& problem : notify::findLoginProblems(pass_.settings)) {
    findings_.problem(problem, Cause::Settings);
  }
  if (pass_.settings.emailAdminReports) {
    for (const std::string& problem : notify::findAdminAddressProblems(pass_.settings)) {
      findings_.problem(problem, Cause::Settings);
    }
  }
  for (const config::SettingMistake& unusable : config::findUnusableValues(run_.host.registry)) {
    findings_.problem(unusable.text() + ": it is not used", Cause::Settings);
  }
  for (const config::SettingMistake& note : config::findSettingNotes(run_.host.registry)) {
    findings_.note(note.text());
  }
  pass_.record.reportOnly = pass_.settings.reportOnly;
}

void Pass::loadTemplates() {
  pass_.templates = std::make_unique<notify::MailTemplates>(pass_.settings);
  for (const std::string& problem : pass_.templates->problems()) findings_.problem(problem);
  for (const auto& [file, token] : pass_.templates->unknownTokens()) {
    findings_.note(file + ":" + std::to_string(token.line) + ": " + token.problem());
  }
  domain_.readDetails(pass_.settings.managerDays != 0 || pass_.templates->needDetails());
}

void Pass::sendTestEmail() {
  if (!pass_.settings.testEmailOnly) return;
  const notify::MailOutcome outcome = notify::sendWarningEmail(
      pass_.mailContext(run_.host, log_), notify::placeholderUser(pass_.settings.testEmailAddress));
  if (outcome.sent()) return;
  testEmailFailed_ = true;
  findings_.problem("the test mail was not sent: " + outcome.reason, causeOf(outcome));
}

void Pass::listDomainUsers() {
  bool anyApplies = false;
  for (int slot = 0; slot < kPolicySlots; ++slot) {
    if (slots_[slot].appliesToDomainUsers != 1) continue;
    anyApplies = true;
    log_.print("   policy%i applies to Domain Users\n", slot);
  }
  domain_.listOnly(platform::ansiToUtf16(run_.onlyUser));
  const std::string problem = anyApplies ? keepDomainUsers() : "";
  usersListLost_ = !problem.empty();
  wroteUsersList_ = anyApplies && problem.empty();
  if (usersListLost_) {
    findings_.problem(problem + ": the policies for all users of the domain are left out");
  }
}

// On disk or, in a dry pass, in memory.
std::string Pass::keepDomainUsers() {
  if (run_.mode == notify::PassMode::Live) return domain_.writeDomainUsersList();
  return domain_.forEachDomainUser(
      [this](const std::string& name) { domainUsers_.append(name).append(1, '\n'); });
}

void Pass::splitCustomMessage() {
  if (pass_.settings.hasCustomMessage()) {
    pass_.settings.emailCustomMsg = notify::messageLines(pass_.settings.emailCustomMsg);
  }
}

// Only the day of month is compared: a mailing on the 5th also blocks the 5th of the next month
// when no mail went out in between.
void Pass::guardMailingDay() {
  const auto today = static_cast<std::uint32_t>(run_.host.clock.localTime().day);
  const bool mailedToday =
      pass_.settings.expirationLastRunDay == today || pass_.unsavedMailingDay == today;
  if (mailedToday && pass_.settings.limitEmails) {
    pass_.mayEmail = false;
    pass_.emailedToday = true;
  }
}

void Pass::startReportAndLogs() {
  const base::LocalTime now = run_.host.clock.localTime();
  pass_.report.start(pass_.settings, run_.values.intervalMs, now);
  const directory::DomainMaxAge domainMaxAge = directory::readDomainMaxAge(run_.host.accounts);
  notify::writeDebugHeader(
      log_, pass_.settings,
      {run_.uptimeSeconds, domainMaxAge.days, run_.values.intervalMs, pass_.emailedToday}, now);
  if (log_.enabled()) pass_.skipList.recreate(notify::kSkipListHeading);
  pass_.expiringSoonLog.recreate(notify::kExpiringSoonHeading);
}

void Pass::logPolicyOrder(const std::array<int, kPolicySlots>& order) {
  log_.print("POLICY ORDER\n");
  for (const int slot : order) {
    log_.print("  policy%i  maxAge=%i\n", slot, static_cast<int>(slots_[slot].maxPasswordAge));
  }
}

void Pass::bindDirectory() {
  pass_.record.directoryBound = domain_.bindDomain() != 0;
  if (pass_.record.directoryBound) return;
  findings_.problem("could not bind to the domain: " + domain_.bindError(), Cause::Directory);
}

// Ages are reckoned by this machine's clock from times that the directory set.
void Pass::compareClocks() {
  const std::int64_t offset = run_.host.directory.clockOffset().value_or(0);
  const std::int64_t seconds = std::abs(offset);
  if (seconds <= kClockTolerance) return;
  pass_.expiresNobody = seconds > kLargestClockOffset;
  findings_.problem(
      base::formatText("the clock of the directory server is %lli minutes %s this machine's",
                       static_cast<long long>(seconds / 60), offset > 0 ? "ahead of" : "behind") +
      (pass_.expiresNobody ? ": no password is expired in this pass" : ""));
}

// Where an account call asks this machine and its accounts are the domain's, one search stands for
// the two calls for each user who is not due. It is worth its while when all users are listed.
void Pass::searchAccounts() {
  const bool screening = run_.host.accounts.ofThisMachineOnly() &&
                         config::machineKind(run_.host.registry) == "dc" && wroteUsersList_ &&
                         pass_.record.directoryBound && run_.onlyUser.empty();
  const std::string why = accountSearch_.load(screening, platform::ansiToUtf16(run_.onlyUser));
  directoryPolicy_.begin(why, findings_);
  if (!why.empty() && !directoryPolicy_.wanted()) {
    findings_.note("the accounts could not be searched, so each was read by itself: " + why);
  }
  const std::string differs = platform::utf16ToAnsi(accountSearch_.differsAbout());
  if (!differs.empty()) {
    findings_.note("the directory's search and the account calls differ about " + differs +
                   ", so each account was read by itself");
  }
}

void Pass::noteLocalAccounts() {
  const std::string kind = config::machineKind(run_.host.registry);
  if (!run_.host.accounts.ofThisMachineOnly() || (kind != "ms" && kind != "de")) return;
  findings_.note(
      "this machine is no domain controller: the accounts are its own, and users of the "
      "domain are not found");
}

void Pass::visitSlot(int slot) {
  log_.print("%sPolicy%i Settings\n%s", kRule, slot, kRule);
  PolicyFiles files = policyFiles(slot);
  if (slot == 0) log_.print("  i=0, buf2=%s\n", files.exclude.c_str());

  PolicyInHand policy;
  policy.slot = slot;
  policy.name = slots_[slot].policyName;
  policy.maxAge = effectiveMaxAge(slots_, slot);
  policy.emailWarnings = slots_[slot].emailWarnings;
  policy.directoryPolicy = slots_[slot].useDirectoryPolicy == 1;
  if (policy.maxAge == 0) {
    log_.print("max pw age = %i\n", policy.maxAge);
    log_.print("Policy pw age=0. SKIP THIS POLICY.\n");
    if (policy.directoryPolicy && slots_[slot].maxPasswordAge == 0) {
      findings_.problem(policySlotName(slot) +
                        " has useDirectoryPolicy and the maxPasswordAge 0: it is left out; give it "
                        "the place among the policies that it is to have");
    } else if (slots_[slot].maxPasswordAge != 0) {
      findings_.note(policySlotName(slot) +
                     " has a maximum password age but no policyName of at least 2 "
                     "characters: it is left out");
    }
    return;
  }
  if (slots_[slot].appliesToDomainUsers == 1) files.include = config::kDomainUsersFile;
  examineList(policy, files);
}

UserList Pass::openList(const std::string& file) const {
  const bool written = file == config::kDomainUsersFile && wroteUsersList_;
  if (written && run_.mode == notify::PassMode::Dry) return UserList::inMemory(file, domainUsers_);
  return UserList(file, written ? UserList::Writer::Program : UserList::Writer::Person);
}

void Pass::examineList(PolicyInHand& policy, const PolicyFiles& files) {
  if (files.include == config::kDomainUsersFile && usersListLost_) return;
  UserList list = openList(files.include);
  if (list.state() == UserList::State::Missing) {
    findings_.note(slotLabel(policy.slot) + " has a maximum password age and no list of users (" +
                   files.include + "): it covers nobody");
    return;
  }
  if (list.state() == UserList::State::Open) {
    ExcludeList excluded = readExcludeList(files.exclude, run_.host.accounts, findings_);
    if (!excluded.usable) return;
    policy.excluded = std::move(excluded.keys);
    examineUsers(policy, files.include, list);
  }
  if (list.state() == UserList::State::Unusable) {
    findings_.problem(list.problem() + ": its policy is left out");
  }
}

void Pass::examineUsers(const PolicyInHand& policy, const std::string& file, UserList& list) {
  ++pass_.record.lists;
  const std::string listName = slotLabel(policy.slot) + " (" + file + ")";
  if (run_.observer != nullptr) run_.observer->slotStarted(policy.slot, file, list.size());
  const std::string only = nameKey(run_.onlyUser);
  for (std::string name; !isToStop() && list.next(name);) {
    if (!only.empty() && nameKey(name) != only) continue;
    notify::UserRecord user = examiner_.examine(policy, name);
    if (user.expiryHeld || user.mailHeld) {
      pass_.held.push_back({std::move(user), listName});
    } else {
      countUser(user, listName);
    }
  }
  noteCutName(list, file, findings_);
}

void Pass::countUser(const notify::UserRecord& user, const std::string& listName) {
  pass_.record.addUser(user, listName);
  managers_.add(user);
  if (run_.observer != nullptr) run_.observer->userExamined(user);
}

// What had to wait until all users were examined: expiries, and mails that were refused for now.
void Pass::settleHeldUsers() {
  if (pass_.held.empty()) return;
  HeldExpiries expiries(examiner_, pass_, [this] { return stopped_ || stopRequested(); });
  expiries.settle();
  for (std::uint32_t round = 0; awaitRetries(round); ++round) {
    for (HeldUser& held : pass_.held) {
      if (stopRequested()) break;
      if (held.user.mailHeld && !held.user.expiryHeld) examiner_.retryWarning(held.user);
    }
    expiries.settle();
  }
  expiries.settle();  // what a stop has left
  expiries.report();
  for (const HeldUser& held : pass_.held) {
    const notify::UserRecord& user = held.user;
    if (user.upcomingRow) pass_.report.fill(*user.upcomingRow, user);
    const bool hasPlace = user.expiredRow.has_value();
    if (hasPlace && user.expiry != notify::Expiry::NotDue) {
      pass_.report.fill(*user.expiredRow, user);
    }
    countUser(user, held.listName);
  }
  pass_.held.clear();
}

// Waits until the mails that were refused for now are to be tried again. False when there are none
// or it has been tried often enough, or the pass is to end.
bool Pass::awaitRetries(std::uint32_t round) {
  const bool anyWaits = std::any_of(pass_.held.begin(), pass_.held.end(),
                                    [](const HeldUser& held) { return held.user.mailHeld; });
  if (!anyWaits || pass_.retriesLeft == 0 || stopRequested()) return false;
  constexpr std::uint64_t kMsPerSecond = 1000;
  const std::uint64_t delayMs = pass_.retryDelayMs(round);
  log_.print("mails that were refused for now are tried again in %u s\n",
             static_cast<unsigned>(delayMs / kMsPerSecond));
  if (!pass_.mailer->sleep(delayMs)) return false;
  --pass_.retriesLeft;
  pass_.mailer->allowOneMore();
  return true;
}

bool Pass::isToStop() {
  if (stopped_ || !stopRequested()) return stopped_;
  stopped_ = true;
  findings_.problem("the pass was stopped: the users that follow were not examined");
  return true;
}

// Tried again only when it was refused for now: a server that does not answer has had its time.
notify::MailOutcome Pass::mailReport() {
  const auto mail = [this] {
    return notify::sendAdminReport(pass_.settings, pass_.report, run_.mode, *pass_.mailer);
  };
  notify::MailOutcome outcome = mail();
  for (std::uint32_t round = 0; round < pass_.mostRetries(); ++round) {
    if (outcome.result != notify::MailResult::RefusedForNow) break;
    if (!pass_.mailer->sleep(pass_.retryDelayMs(round))) break;
    outcome = mail();
  }
  return outcome;
}

// By adminReportWhen; a word that it does not know counts as "always".
bool Pass::wantsReportMailed() const {
  const std::string& when = pass_.settings.adminReportWhen;
  const bool changes = base::equalsNoCase(when, config::kReportChanges);
  if (!pass_.settings.emailAdminReports || !run_.mailsReport) return false;
  if (!changes && !base::equalsNoCase(when, config::kReportProblems)) return true;
  if (!pass_.record.allWell()) return true;
  const std::uint64_t forced = pass_.record.counts[static_cast<std::size_t>(Outcome::Expired)];
  return changes && pass_.record.mails.sent + pass_.record.managerMails().sent + forced != 0;
}

void Pass::finishReport() {
  const bool anyFailed =
      pass_.record.mails.failed + pass_.record.managerMails().failed != 0 || testEmailFailed_;
  if (anyFailed && pass_.mailer->errorIsKept()) {
    findings_.note("what the mail server said to the last mail that failed is in " +
                   std::string(config::kMailErrorFile));
  }
  pass_.report.finish(findings_.problems());
  if (wantsReportMailed()) {
    const notify::MailOutcome outcome = mailReport();
    if (!outcome.sent()) {
      findings_.problem("the report was not mailed to the administrator: " + outcome.reason,
                        causeOf(outcome));
    }
    for (const std::string& address : outcome.refused) {
      findings_.problem("the report was not mailed to " + address +
                        ": the mail server does not take this recipient");
    }
  }
  const bool writesFile =
      run_.mode == notify::PassMode::Dry ? !run_.reportFile.empty() : pass_.settings.htmllog;
  if (writesFile && !pass_.report.writeFileReport(findings_.problems(), run_.reportFile)) {
    findings_.problem("the report file could not be written");
  }
}

}  // namespace service
