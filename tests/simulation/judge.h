// Checks after a pass that nobody was wronged by it. It knows from the world what is true, and from
// the pass's record and observer what the pass says of itself.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "notify/warning_ledger.h"
#include "platform/registry/file/reg_registry.h"
#include "service/pass_observer.h"
#include "service/pass_record.h"
#include "tests/simulation/site.h"

namespace simulation {

inline constexpr const char* kReportFile = "logfiles/norvyn-expiration-report.html";

class Judge final : public service::PassObserver {
 public:
  Judge(World& world, Site& site) : world_(world), site_(site) {}

  void beginPass() {
    began_ = world_.clock.now;
    mailsBefore_ = world_.mails.size();
    expiredLogBefore_ = world_.text(kExpiredLog).size();
    const std::string& registry = world_.text(kRegistryFile);
    const std::size_t recorded = registry.find("expirationLastRunDay\"=dword:");
    const bool mailedToday =
        recorded != std::string::npos &&
        std::stoi(registry.substr(recorded + 28), nullptr, 16) == world_.clock.localTime().day;
    mayMail_ = site_.setting("limitEmails") == 0 || (!mailedToday && heldDay_ != localDay(began_));
    faults_ = world_.faults;
    examined_.clear();
    judged_.clear();
    site_.beginPass();
  }

  void userExamined(const notify::UserRecord& user) override {
    if (user.skipReasons == 0) judged_.emplace(user.username, examined_.size());
    examined_.push_back(user);
  }

  // When the service begins a pass: each day has one, at the time of the settings. Where the clock
  // skips that, when it did. Not of a pass that follows on one that failed.
  void judgeBegin(int firstSecond) {
    const std::int64_t now = world_.clock.now;
    const std::int64_t sinceFirst = world_.clock.wallSeconds(now) - firstSecond;
    const std::int64_t late = sinceFirst % 86400;
    const std::int64_t before = world_.clock.wallSeconds(now - late * kSecond) - firstSecond;
    const bool isNext = sinceFirst / 86400 == slot_ + 1 && (late == 0 || before % 86400 != 0);
    if (slot_ != 0 && !isNext)
      wrong("a pass began " + std::to_string(late) + " s late, " +
            std::to_string(sinceFirst / 86400 - slot_) + " days after the one before");
    slot_ = world_.clock.wrongBy == 0 ? sinceFirst / 86400 : 0;
  }

  // Before World::endPass. `record`: none of a pass that was killed.
  void judge(const std::optional<service::PassRecord>& record) {
    record_ = record;
    troubled_ = !record || record->findings.problems().count != 0;
    for (const notify::UserRecord& user : examined_) judgeExamined(user);
    for (std::size_t i = mailsBefore_; i < world_.mails.size(); ++i) judgeMail(world_.mails[i]);
    for (const Forced& forced : site_.forced) judgeForced(forced);
    if (troubled_) mailedDay_ = -1;  // it is also written for a mail that fails
    for (std::size_t i = mailsBefore_; i < world_.mails.size(); ++i) {
      const DeliveredMail& mail = world_.mails[i];
      if (mail.recipient == kAdministrator) continue;
      if (!troubled_) mailedDay_ = localDay(mail.when);
      heldDay_ = said("limitEmails holds") ? localDay(mail.when) : -1;
    }
    const auto limit = static_cast<std::size_t>(site_.setting("maxExpirations"));
    if (limit != 0 && site_.forced.size() > limit) wrong("more were forced than maxExpirations");
    if (troubled_ || world_.clock.wrongBy != 0) slot_ = 0;
    if (record) judgeWholePass();
  }

  // After it: registry, record of warnings and report are whole, whatever ended the pass.
  void judgeFiles() {
    if (!troubled_) kills_ = 0;  // the record of warnings was written anew
    if (!record_) kills_ += 1 + world_.lastRecords;
    std::string error;
    const std::string& registry = world_.text(kRegistryFile);
    const bool written = registry.size() != site_.registryText.size();
    if (!registry.starts_with(site_.registryText) ||
        (written && platform::RegRegistry::load(kRegistryFile, error) == nullptr)) {
      wrong("the registry is not whole: " + error);
    }
    const std::string& report = world_.text(kReportFile);
    if (!report.empty() && !report.ends_with("</html>")) wrong("the report is not whole");
    if (record_) return;
    const std::string ledgerBefore = world_.text(kLedgerFile);
    notify::WarningLedger ledger;
    std::size_t dropped = 0;
    if (!ledger.open(error, dropped)) wrong(error);
    if (dropped > kills_) wrong("more than the last record of warnings was lost");
    world_.put(kLedgerFile, ledgerBefore);
  }

  // What the process alone knew is forgotten.
  void processEnded() { heldDay_ = -1; }

  // What was found wrong.
  const std::vector<std::string>& verdicts() const { return verdicts_; }

 private:
  static constexpr std::int64_t kMinute = 60 * kSecond;
  static constexpr int kExpiryOf = -10'000;  // less a maximum age: the mail about the expiry
  static constexpr const char* kLedgerFile = "logfiles/norvyn-warnings-sent.log";
  static constexpr const char* kExpiredLog = "logfiles/norvyn-expired-pw.log";

  // What was mailed for one password.
  struct Mailings {
    std::int64_t set = 0;
    std::set<int> done;   // warning days
    std::set<int> maybe;  // of a mail in hand when the process ended or the reply was lost
    std::int64_t lastDay = -1, maybeLastDay = -1;  // local
    bool notified = false;                         // of the expiry
  };

  void wrong(const std::string& what) { verdicts_.push_back(what); }

  static int daysBetween(std::int64_t from, std::int64_t to) {
    return from <= 0 || to <= from ? 0 : static_cast<int>((to - from) / kDay);
  }
  static std::size_t count(std::string_view text, std::string_view part) {
    std::size_t found = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++found;
    return found;
  }
  std::int64_t machineTime(std::int64_t time) const { return time + world_.clock.wrongBy; }
  std::int64_t localDay(std::int64_t time) const {
    return world_.clock.localDay(machineTime(time));
  }

  // Of the list that had him: in others he was examined earlier.
  const notify::UserRecord* recordOf(const User& user) const {
    const auto found = judged_.find(user.name);
    return found == judged_.end() ? nullptr : &examined_[found->second];
  }
  bool wasMailed(const User& user) const {
    return std::any_of(
        world_.mails.begin() + static_cast<std::ptrdiff_t>(mailsBefore_), world_.mails.end(),
        [&](const DeliveredMail& mail) { return mail.recipient == user.mail && mail.confirmed; });
  }

  // What the pass says of a user is true of him: it goes into mail, report and logs.
  void judgeExamined(const notify::UserRecord& record) {
    if (record.skipReasons != 0 || !record.readError.empty()) return;
    const User* user = site_.find(record.username);
    if (user == nullptr || !record.accountFound) {
      if (site_.setting("skipUnreadableAccounts") != 0)
        wrong(record.username + " was examined unread");
      return;
    }
    bool trueAge = false;
    for (const std::int64_t set : {user->setBefore, user->setWhenRead, user->passwordSet}) {
      const int age = static_cast<int>(record.age);
      trueAge = trueAge || (age >= daysBetween(set, machineTime(began_)) &&
                            age <= daysBetween(set, machineTime(world_.clock.now)));
    }
    if (!trueAge) wrong(user->name + " was given an age of " + std::to_string(record.age));
    // No age is known of who has to change his password, or did in the future by a slow clock.
    const bool noAge =
        site_.byDirectory[record.slot] && (world_.clock.wrongBy < 0 || record.passwordSet == 0);
    const bool ownAge = site_.covers(record.slot, *user) &&
                        record.maxAge == site_.maxAgeIn(record.slot, *user) &&
                        (troubled_ || record.maxAge == site_.maxAgeOf(*user));
    if (!ownAge && !noAge) wrong(user->name + " was given the maximum age of another policy");
    if (record.data.email != "none" && record.data.email != user->mail) {
      wrong(user->name + " was given the address " + record.data.email);
    }
    if (!world_.dead() && (record.emailedText == "yes") != wasMailed(*user)) {
      wrong(user->name + " was mailed, or not, and the pass says: " + record.emailedText);
    }
    const bool forced = std::any_of(site_.forced.begin(), site_.forced.end(),
                                    [&](const Forced& one) { return one.user == user; });
    using notify::Expiry;
    if (record.expiry == Expiry::Forced ? !forced : forced && record.expiry != Expiry::Unanswered) {
      wrong(user->name + " was forced, or not, and the pass says otherwise");
    }
  }

  // Who gets it, and that its words are true of the password he had when he was read, or has since.
  void judgeMail(const DeliveredMail& mail) {
    if (mail.recipient == kAdministrator) return;
    const User* user = site_.find(mail.recipient);
    if (user == nullptr || user->mail != mail.recipient || user->account != User::Normal) {
      return wrong("a mail went to " + mail.recipient);
    }
    const std::size_t at = mail.text.find("days:");
    const int told = at == std::string::npos ? 0 : std::atoi(mail.text.c_str() + at + 5);
    const notify::UserRecord* record = recordOf(*user);
    if (told == 0 && record != nullptr && record->expiry == notify::Expiry::OverLimit) {
      wrong(user->name + " was mailed about an expiry that is left for later");
    }
    if (site_.setting("limitEmails") != 0 && mailedDay_ == localDay(began_)) {
      wrong(user->name + " was mailed on a day of an earlier mailing");
    }
    const int maxAge =
        site_.maxAgeIn(record != nullptr ? record->slot : site_.slotOf(*user), *user);
    for (const std::int64_t set : {user->setWhenRead, user->passwordSet}) {
      if (set <= 0) continue;
      const int most = maxAge - daysBetween(set, machineTime(began_));
      const int least = maxAge - daysBetween(set, machineTime(mail.when));
      if (told == 0 ? least <= 0 : told <= most && told >= least) {
        return rememberMail(*user, set, told == 0 ? least : told, maxAge, mail);
      }
    }
    wrong("the mail to " + user->name + " tells him " + std::to_string(told) + " days");
  }

  // But for the mail in hand when the process ended, those of the last second before a power cut,
  // and the one that the pass could not record and said so.
  bool isRecorded(const DeliveredMail& mail) const {
    if (!mail.confirmed) return false;
    const bool last = &mail == &world_.mails.back();
    // It is recorded some calls after it was taken.
    const bool lost = faults_.powerCut && mail.when + kSecond + kSecond / 10 > world_.clock.now;
    if (!record_) return !last && !lost;
    return !said(mail.recipient.substr(0, mail.recipient.find('@')) + " may be warned");
  }

  bool said(const std::string& words) const {
    if (!record_) return false;
    const auto& lines = record_->findings.problems().lines;
    return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
      return line.find(words) != std::string::npos;
    });
  }

  void rememberMail(const User& user, std::int64_t password, int left, int maxAge,
                    const DeliveredMail& mail) {
    Mailings& mailings = mailings_[user.name];
    if (mailings.set != password) mailings = {password, {}, {}};
    const bool recorded = isRecorded(mail);
    const std::int64_t today = localDay(mail.when);
    bool anyNew = site_.warningDays.empty() && mailings.lastDay != today;
    std::vector<int> days = site_.warningDays;
    if (site_.setting("expireOnlyNotified") != 0 && left <= 0) days.push_back(kExpiryOf - maxAge);
    if (left <= 0 && mail.confirmed) mailings.notified = true;
    for (const int day : days) {
      if (day < left && day > kExpiryOf) continue;
      anyNew = anyNew || mailings.done.count(day) == 0;
      (recorded ? mailings.done : mailings.maybe).insert(day);
    }
    (recorded ? mailings.lastDay : mailings.maybeLastDay) = today;
    if (site_.setting("rememberWarnings") != 0 && !anyNew) wrong(user.name + " was mailed twice");
  }

  bool isMissed(const User& user, int left) {
    const auto& days = site_.warningDays;
    if (site_.setting("rememberWarnings") == 0) {
      const bool due = days.empty() || std::find(days.begin(), days.end(), left) != days.end();
      return due && !wasMailed(user);
    }
    const Mailings& mailings = mailings_[user.name];
    if (mailings.set != user.passwordSet) return days.empty() || days.front() >= left;
    if (days.empty()) {
      return std::max(mailings.lastDay, mailings.maybeLastDay) < localDay(began_);
    }
    return std::any_of(days.begin(), days.end(), [&](int day) {
      return day >= left && mailings.done.count(day) + mailings.maybe.count(day) == 0;
    });
  }

  void judgeForced(const Forced& forced) {
    const User& user = *forced.user;
    const std::int64_t error = std::abs(world_.clock.wrongBy);
    const int age = daysBetween(forced.passwordSet, forced.when + error);
    // A policy whose list cannot be read is left out, and its users are then the default policy's.
    bool due = false;
    for (int slot = 0; slot < kPolicies; ++slot) {
      due = due || (site_.covers(slot, user) && age >= site_.maxAge[slot] &&
                    !site_.byDirectory[slot] && (troubled_ || slot == site_.slotOf(user)));
    }
    if (!due || user.account != User::Normal || error > 61 * kMinute) {
      wrong(user.name + " was forced after " + std::to_string(age) + " days");
    }
    const Mailings& mailings = mailings_[user.name];
    const bool notified = mailings.set == forced.passwordSet && mailings.notified;
    if (site_.setting("expireOnlyNotified") != 0 && !user.mail.empty() && !notified) {
      wrong(user.name + " was forced without a mail");
    }
    for (const notify::UserRecord& record : examined_) {
      const User* other = site_.find(record.username);
      if (record.expiry == notify::Expiry::OverLimit && record.passwordSet != 0 &&
          other != nullptr && other->setBefore + 2 * kSecond < forced.passwordSet) {
        wrong(user.name + " was forced before " + record.username + ", whose password is older");
      }
    }
  }

  // Where nothing is said to have gone wrong, nothing may have.
  void judgeWholePass() {
    const std::int64_t took = world_.clock.now - began_;
    const bool bounded = site_.setting("smtpGiveUpAfter", 5) != 0 &&
                         site_.setting("smtpMaxPerMinute") == 0 &&
                         site_.setting("smtpRetries") == 0;
    if (faults_.mailSilent && bounded && took > 5 * kMinute) {
      wrong("the pass took " + std::to_string(took / kSecond) + " s for a silent server");
    }
    const auto expiries = [this](notify::Expiry expiry) {
      return std::count_if(examined_.begin(), examined_.end(),
                           [&](const auto& user) { return user.expiry == expiry; });
    };
    using enum notify::Expiry;
    if (expiries(OverLimit) != 0 &&
        expiries(Forced) + expiries(Unanswered) < site_.setting("maxExpirations")) {
      wrong("expiries were left for later before maxExpirations was reached");
    }
    if (troubled_) return;
    if (std::abs(world_.clock.wrongBy) > 6 * kMinute) wrong("a wrong clock was passed over");
    for (const User& user : site_.users) {
      const int maxAge = site_.maxAgeOf(user);
      if (user.gone || user.account != User::Normal || user.passwordSet == 0 || maxAge == 0) {
        continue;
      }
      const notify::UserRecord* record = recordOf(user);
      const int age = daysBetween(user.passwordSet, machineTime(began_));
      const int left = maxAge - age;
      if (age != daysBetween(user.passwordSet, machineTime(world_.clock.now))) continue;
      if (record == nullptr) {
        wrong(user.name + " was not examined, and nothing was said");
      } else if (left <= 0 && !record->directoryPolicy &&
                 (mayMail_ || site_.setting("expireOnlyNotified") == 0)) {
        wrong(user.name + " was not forced, and nothing was said");
      } else if (mayMail_ && record->emailWarnings == 1 && !user.mail.empty() && left > 0 &&
                 left <= site_.threshold && isMissed(user, left)) {
        wrong(user.name + " was not warned, " + std::to_string(left) + " days before");
      }
    }
    const std::size_t forced = site_.forced.size();
    const std::string_view expiredLog =
        std::string_view(world_.text(kExpiredLog)).substr(expiredLogBefore_);
    const bool mailed = !world_.mails.empty() && world_.mails.back().recipient == kAdministrator;
    if (count(expiredLog, "\"successful\"") != forced ||
        count(world_.text(kReportFile), ">PASSWORD EXPIRED<") != forced ||
        (site_.setting("emailAdminReports") != 0 && !mailed)) {
      wrong("log or reports lack who was forced, and nothing was said");
    }
  }

  World& world_;
  Site& site_;
  std::vector<notify::UserRecord> examined_;
  std::unordered_map<std::string, std::size_t> judged_;  // of examined_, by user
  std::map<std::string, Mailings> mailings_;             // by user
  std::optional<service::PassRecord> record_;
  bool mayMail_ = true;          // limitEmails allows it
  std::int64_t mailedDay_ = -1;  // of the last mailing that the registry has
  std::int64_t heldDay_ = -1;    // of one that the process alone knows of
  std::int64_t slot_ = 0;        // day number of the last pass at expirationServiceTime
  bool troubled_ = false;        // the pass was killed or had problems
  std::size_t kills_ = 0;        // of the last passes, in a row
  Faults faults_;
  std::int64_t began_ = 0;
  std::size_t mailsBefore_ = 0, expiredLogBefore_ = 0;
  std::vector<std::string> verdicts_;
};

}  // namespace simulation
