// `pwlapse explain`: one user's case, from the lists that name him to what a pass would do today.
#include <algorithm>
#include <bit>

#include "base/format_text.h"
#include "console/commands.h"
#include "console/finding_lines.h"
#include "console/user_rows.h"
#include "console/user_story.h"
#include "platform/text/code_page.h"

namespace console {
namespace {

using base::formatText;
using notify::UserRecord;
using service::Outcome;

constexpr std::size_t kIndent = 10;  // of what stands behind the name of a section

std::string days(std::int64_t count) {
  return formatText("%lli %s", static_cast<long long>(count), count == 1 ? "day" : "days");
}

// "in 7 days", "today", "3 days ago"
std::string fromToday(std::int64_t count) {
  if (count == 0) return "today";
  return count > 0 ? "in " + days(count) : days(-count) + " ago";
}

// One condition of a mail: what speaks for it, or against.
struct Condition {
  std::uint32_t reasons;  // of UserRecord::noMailReasons
  std::string met;        // empty: not worth a line when it is met
  std::string notMet;     // empty: as noMailLabel() has it
};

std::vector<Condition> conditionsOf(const UserStory& story) {
  using enum notify::NoMail;
  using notify::noMailBit;
  const UserRecord& user = *story.record;
  const config::ExpirationSettings& settings = story.settings;
  std::string warnings;
  for (const std::int32_t day : settings.warnings) {
    if (day > 0) warnings += (warnings.empty() ? "" : ", ") + std::to_string(day);
  }
  return {
      {noMailBit(PolicyMailsNobody), "the policy warns its users",
       "the policy mails nobody: its emailWarnings is not 1"},
      {noMailBit(ReportOnly), "users are mailed, not only reported",
       "report-only mode" +
           (story.whyReportOnly.empty() ? ": see below" : ": " + story.whyReportOnly)},
      {noMailBit(NotAWarningDay) | noMailBit(Remembered),
       "a warning is due with " + days(user.daysLeft()) + " left",
       settings.rememberWarnings ? "no warning is due that was not mailed (rememberWarnings)"
                                 : "no warning day: they are " + warnings},
      {noMailBit(MailedToday),
       settings.limitEmails ? "no warnings were mailed today (limitEmails)" : "", ""},
      {noMailBit(HeldBack), "", "warnings are held back: see below"},
      {noMailBit(WithExpiry), "", ""},
      {noMailBit(NoAddress) | noMailBit(NoSurname),
       user.data.email == directory::kNoEmail ? "" : "the directory has the address",
       (user.noMailReasons & noMailBit(NoSurname)) != 0
           ? "the directory has no surname, without which the address does not count"
           : "the directory has no e-mail address"},
      {noMailBit(LookUpFailed), "",
       user.lookUpError.empty() ? "" : "the address could not be looked up: " + user.lookUpError},
  };
}

bool isMet(const Condition& condition, const UserRecord& user) {
  return (user.noMailReasons & condition.reasons) == 0;
}

std::string wordsOf(const Condition& condition, const UserRecord& user) {
  if (isMet(condition, user)) return condition.met;
  if (!condition.notMet.empty()) return condition.notMet;
  const int first = std::countr_zero(user.noMailReasons & condition.reasons);
  return service::noMailLabel(static_cast<notify::NoMail>(first));
}

class StoryText {
 public:
  StoryText(const std::string& name, const UserStory& story, const Calendar& calendar,
            const TextStyle& style)
      : name_(name), story_(story), calendar_(calendar), style_(style) {}

  std::string text() {
    headline();
    account();
    policies();
    if (story_.record != nullptr) {
      password();
      warnings();
      if (dated()) add("Mail", story_.mailSource);
      if (dated() && !story_.manager.empty()) add("Manager", story_.manager);
      today();
      forced();
    } else {
      add("Today", style_.painted(Tone::Note, "nothing: no policy has this user"));
    }
    return text_;
  }

 private:
  // Further lines of a section have an empty name.
  void add(const std::string& section, const std::string& text) {
    text_ += style_.paragraph(style_.heading(section), kIndent, text);
  }

  bool dated() const {
    return story_.accountFound && story_.record->skipReasons == 0 &&
           !story_.record->changeAlreadyDue;
  }

  void headline() {
    text_ = style_.heading(name_);
    const auto known =
        std::find_if(story_.records.begin(), story_.records.end(),
                     [](const UserRecord& user) { return user.data.email != directory::kNoEmail; });
    if (known != story_.records.end()) {
      const directory::UserDirectoryData& data = known->data;
      text_ += ": " + Value(data.firstName + ' ' + data.lastName + " <" + data.email + '>').text();
    }
    text_ += "\n\n";
  }

  void account() {
    if (!story_.accountError.empty()) {
      return add("Account", style_.painted(Tone::Bad, "cannot be read: ") + story_.accountError);
    }
    if (!story_.accountFound) {
      return add("Account", style_.painted(Tone::Bad, "the directory has no such account") +
                                (story_.settings.skipUnreadableAccounts
                                     ? ""
                                     : "; a pass takes the age of the user before, unless "
                                       "skipUnreadableAccounts is set"));
    }
    const std::uint32_t flags = story_.account.flags;
    std::string text = (flags & platform::kAccountDisabled) != 0 ? "disabled" : "enabled";
    text += (flags & platform::kPasswordDontExpire) != 0 ? "; the password never expires"
                                                         : "; the password can expire";
    text += (flags & platform::kPasswordCantChange) != 0 ? "; the user cannot change it"
                                                         : "; the user can change it";
    if (story_.account.passwordExpired != 0) text += "; it is to be changed at the next logon";
    add("Account", text);
  }

  void policies() {
    std::string section = "Policies";
    if (story_.policies.empty()) add(section, "none is in use");
    std::size_t width = 0;
    for (const PolicyVerdict& policy : story_.policies) {
      width = std::max(width, displayWidth(title(policy)));
    }
    for (const PolicyVerdict& policy : story_.policies) {
      const std::string label = title(policy);
      std::string text = label + std::string(width - displayWidth(label), ' ') +
                         formatText("  %5i days  ", policy.maxAge);
      text_ += style_.paragraph(
          std::string(kIndent, ' ').replace(0, section.size(), style_.heading(section)) + text,
          kIndent + text.size(),
          style_.painted(policy.has ? Tone::Good : Tone::Faint, policy.why + places(policy)));
      section.clear();
    }
  }

  static std::string title(const PolicyVerdict& policy) {
    return Value(policy.title.empty() ? policy.label : policy.label + " (" + policy.title + ")")
        .text();
  }

  // Where the policy's lists name the user.
  static std::string places(const PolicyVerdict& policy) {
    std::string text;
    for (const ListEntry& entry : policy.entries) {
      if (entry.excludes) continue;
      text += text.empty() ? " (" : ", ";
      text += entry.line == 0 ? "all enabled users of the domain"
                              : entry.file + ':' + std::to_string(entry.line);
    }
    return text.empty() ? text : text + ')';
  }

  void password() {
    const UserRecord& user = *story_.record;
    if (!dated()) return;
    std::string text = "set " + calendar_.momentText(momentOf(user.passwordSet)) + ", " +
                       fromToday(-static_cast<std::int64_t>(user.age));
    if (const auto moment = expiryMoment(user)) {
      text += "; reaches " + days(user.maxAge) + " on " + calendar_.momentText(*moment);
    }
    const std::int64_t left = user.daysLeft();
    add("Password", text + ", " + (left < 0 ? days(-left) + " over" : days(left) + " left"));
  }

  void warnings() {
    if (!dated()) return;
    const UserRecord& user = *story_.record;
    const std::vector<WarningDay> dates = warningDays(story_, calendar_);
    const auto threshold = static_cast<std::int64_t>(story_.settings.warningThreshold);
    const std::int64_t begin = calendar_.today() + user.daysLeft() - threshold;
    std::string text = "from " + dayText(begin) + " on, " + days(threshold) + " before";
    if (dates.empty()) {
      return add("Warnings",
                 text + (story_.settings.rememberWarnings ? ": one a day" : ": one in every pass"));
    }
    add("Warnings", text + ", by a pass at this hour on these days:");
    for (const WarningDay& date : dates) {
      const std::int64_t until = date.day - calendar_.today();
      const Tone tone = until == 0 ? Tone::Good : until < 0 ? Tone::Faint : Tone::Plain;
      add("", style_.painted(tone, dayText(date.day) + formatText("  %3i left  ", date.daysLeft) +
                                       (until == 0  ? "today"
                                        : until < 0 ? "past"
                                                    : "to come, " + fromToday(until))));
    }
  }

  void today() {
    const UserRecord& user = *story_.record;
    const Outcome outcome = service::outcomeOf(user);
    const std::string why = whyToday(user);
    std::string text = service::outcomeLabel(outcome, notify::PassMode::Dry);
    if (outcome == Outcome::OutsidePeriod) text = "nothing";
    if (outcome == Outcome::Warned) text += " to " + user.data.email;
    if (!story_.accountFound && user.skipReasons == 0) text = "as with the user before in the list";
    const bool early = outcome == Outcome::OutsidePeriod && why.empty();
    add("Today",
        style_.painted(outcomeTone(outcome), text) + (early ? ": the warning period has not begun"
                                                      : why.empty() ? ""
                                                                    : ": " + why));
    if (!user.inWarningPeriod || !story_.accountFound) return;
    for (const Condition& condition : conditionsOf(story_)) {
      const bool met = isMet(condition, user);
      const std::string words = wordsOf(condition, user);
      if (words.empty()) continue;
      text_ += style_.paragraph(
          std::string(kIndent, ' ') + style_.painted(met ? Tone::Good : Tone::Bad, met ? "+" : "-"),
          kIndent + 2, words);
    }
  }

  void forced() {
    const UserRecord& user = *story_.record;
    if (!dated() && !(story_.accountFound && user.skipReasons == 0)) {
      return add("Forced",
                 story_.accountFound ? "never: a pass leaves this user alone" : "see the account");
    }
    add("Forced", forcedText(user));
  }

  std::string forcedText(const UserRecord& user) const {
    if (user.directoryPolicy) return "never by a pass: the directory ends the password itself";
    if (user.changeAlreadyDue) return "already: the password is to be changed at the next logon";
    const auto moment = expiryMoment(user);
    const bool dueNow = user.daysLeft() <= 0 || !moment;
    const std::string when =
        dueNow ? "now" : "by the first pass after " + calendar_.momentText(*moment);
    if (story_.pass.reportOnly) return "not in report-only mode; otherwise " + when;
    std::string text = when;
    if (story_.settings.maxExpirations != 0) {
      text += formatText(
          "; a pass forces at most %u, the oldest passwords first: pwlapse list "
          "--user shows whether this one is among them (maxExpirations)",
          story_.settings.maxExpirations);
    }
    if (story_.settings.expireOnlyNotified) {
      text += "; only when the mail about it was accepted (expireOnlyNotified)";
    }
    return text;
  }

  const std::string& name_;
  const UserStory& story_;
  const Calendar& calendar_;
  const TextStyle& style_;
  std::string text_;
};

JsonValue policiesJson(const UserStory& story) {
  JsonValue policies = JsonValue::array();
  for (const PolicyVerdict& policy : story.policies) {
    JsonValue entries = JsonValue::array();
    for (const ListEntry& entry : policy.entries) {
      entries.push_back({{"file", jsonText(entry.file)},
                         {"line", entry.line == 0 ? JsonValue(nullptr) : JsonValue(entry.line)},
                         {"excludes", entry.excludes}});
    }
    policies.push_back({{"policy", policy.label},
                        {"policyName", jsonText(policy.title)},
                        {"maximumAge", policy.maxAge},
                        {"has", policy.has},
                        {"why", jsonText(policy.why)},
                        {"lists", std::move(entries)}});
  }
  return policies;
}

JsonValue warningsJson(const UserStory& story, const Calendar& calendar) {
  JsonValue warnings = JsonValue::array();
  for (const WarningDay& date : warningDays(story, calendar)) {
    warnings.push_back({{"date", dayText(date.day)}, {"daysLeft", date.daysLeft}});
  }
  return warnings;
}

JsonValue obstaclesJson(const UserStory& story) {
  JsonValue obstacles = JsonValue::array();
  if (story.record == nullptr || !story.record->inWarningPeriod) return obstacles;
  for (const Condition& condition : conditionsOf(story)) {
    if (!isMet(condition, *story.record)) {
      obstacles.push_back(jsonText(wordsOf(condition, *story.record)));
    }
  }
  return obstacles;
}

JsonValue accountJson(const UserStory& story) {
  if (!story.accountFound) return nullptr;
  const std::uint32_t flags = story.account.flags;
  return {{"disabled", (flags & platform::kAccountDisabled) != 0},
          {"neverExpires", (flags & platform::kPasswordDontExpire) != 0},
          {"cannotChange", (flags & platform::kPasswordCantChange) != 0},
          {"changeAtNextLogon", story.account.passwordExpired != 0}};
}

std::string unknownUser(const platform::Host& host, const std::string& name) {
  std::string text = "neither the directory nor a list has a user \"" + name + '"';
  const char* before = ": ";
  for (const std::string& near : nearUsers(host, name)) {
    text += before + ('"' + near + '"');
    before = " or ";
  }
  return *before == ':' ? text : text + " may be meant";
}

}  // namespace

int explainCommand(const ExplainOptions& options) {
  std::string error;
  const std::unique_ptr<platform::SystemHost> system = openSite(options.question.site, error);
  if (!system) return refuse(error);
  const platform::Host host = system->host();
  const UserStory story = tellStory(host, options.user);
  const bool named =
      std::any_of(story.policies.begin(), story.policies.end(),
                  [](const PolicyVerdict& policy) { return !policy.entries.empty(); });
  if (!story.accountFound && !named && story.accountError.empty()) {
    return refuse(unknownUser(host, options.user));
  }
  const Calendar calendar(host.clock);
  const config::Findings& findings = story.pass.findings;
  const TextStyle style = outputStyle();
  Answer answer;
  answer.command = "explain";
  answer.rowsKey = "users";
  answer.peopleSeeTable = false;
  answer.above = StoryText(options.user, story, calendar, style).text();
  const std::string found = findingsText(findings.problems(), {}, style);
  if (!found.empty()) answer.below = '\n' + found;
  answer.members = {
      {"date", dayText(calendar.today())},      {"account", accountJson(story)},
      {"policies", policiesJson(story)},        {"warnings", warningsJson(story, calendar)},
      {"template", jsonText(story.mailSource)}, {"manager", jsonText(story.manager)},
      {"obstacles", obstaclesJson(story)},      {"problems", findingsJson(findings.problems())}};
  answer.table.columns = userColumns();
  if (story.record != nullptr) {
    fillUserRow(lineOf(*story.record, story.record->data, calendar),
                answer.table.rows.emplace_back());
  }
  printAnswer(answer, options.question.format);
  return story.pass.allWell() ? kExitDone : kExitSomethingFailed;
}

}  // namespace console
