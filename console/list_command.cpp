// `pwlapse list`: every user, and what a pass would do today.
#include <algorithm>
#include <array>
#include <limits>
#include <unordered_set>
#include <utility>

#include "base/ascii.h"
#include "base/format_text.h"
#include "base/nearest_name.h"
#include "config/policy_store.h"
#include "console/commands.h"
#include "console/finding_lines.h"
#include "console/survey.h"
#include "console/user_rows.h"
#include "service/edition_keys.h"
#include "service/policy_table.h"
#include "service/user_list.h"

namespace console {
namespace {

using notify::UserRecord;

// Slots of the policy with this label ("Policy1") or policyName.
std::vector<int> slotsOf(platform::Registry& registry, const std::string& name,
                         std::vector<std::string>& known) {
  config::DebugLog silent = config::DebugLog::nowhere();
  const service::EditionKeys keys = service::findEditionKeys(registry);
  const service::PolicyTable table =
      service::loadPolicyTable(registry, config::loadExpirationSettings(registry, keys.settingsKey),
                               keys.memberServer, silent);
  std::vector<int> slots;
  for (int slot = 0; slot < service::kPolicySlots; ++slot) {
    const std::string& title = table[static_cast<std::size_t>(slot)].policyName;
    known.push_back(service::slotLabel(slot));
    if (!title.empty()) known.push_back(title);
    if (base::equalsNoCase(name, service::slotLabel(slot)) ||
        (!title.empty() && service::nameKey(name) == service::nameKey(title))) {
      slots.push_back(slot);
    }
  }
  return slots;
}

// What of the records is shown.
struct Filter {
  std::vector<int> slots;                 // empty: all
  std::unordered_set<std::string> users;  // keys of names; empty: all
  const ListOptions* options = nullptr;

  // Before the address is known.
  bool takes(const UserRecord& user) const {
    const service::Outcome outcome = service::outcomeOf(user);
    if (!users.empty()) return users.count(service::nameKey(user.username)) != 0;
    if (!slots.empty() && std::count(slots.begin(), slots.end(), user.slot) == 0) return false;
    const auto& wanted = options->outcomes;
    if (!wanted.empty() && std::count(wanted.begin(), wanted.end(), outcomeCode(outcome)) == 0) {
      return false;
    }
    if (!options->due) return true;
    return outcome != service::Outcome::Skipped && user.accountFound && !user.changeAlreadyDue &&
           user.daysLeft() <= *options->due;
  }
};

// What rows are sorted by: a number, then a text.
using SortKey = std::pair<std::int64_t, std::string>;

SortKey sortKey(const UserRecord& user, const std::string& by) {
  const std::string name = service::nameKey(user.username);
  if (by == "user") return {0, name};
  if (by == "policy") return {user.slot, name};
  if (by == "address") return {0, base::lowered(user.data.email)};
  const auto outcome = static_cast<std::int64_t>(service::outcomeOf(user));
  if (by == "outcome") return {outcome, name};
  const bool counts = user.skipReasons == 0 && user.accountFound && !user.changeAlreadyDue;
  const std::int64_t last = std::numeric_limits<std::int64_t>::max();
  if (by == "age") return {counts ? -static_cast<std::int64_t>(user.age) : last, name};
  return {counts ? user.daysLeft() : last, name};
}

void sortUsers(std::vector<UserRecord>& users, const std::string& by) {
  std::vector<std::pair<SortKey, std::size_t>> order;
  order.reserve(users.size());
  for (std::size_t i = 0; i < users.size(); ++i) order.emplace_back(sortKey(users[i], by), i);
  std::sort(order.begin(), order.end());
  std::vector<UserRecord> sorted;
  sorted.reserve(users.size());
  for (const auto& [key, index] : order) sorted.push_back(std::move(users[index]));
  users = std::move(sorted);
}

// One line for each name that was asked for and is no user's.
std::string missingUsers(const std::vector<std::string>& asked,
                         const std::vector<UserRecord>& users) {
  std::unordered_set<std::string> found;
  for (const UserRecord& user : users) found.insert(service::nameKey(user.username));
  std::string text;
  for (const std::string& name : asked) {
    if (found.count(service::nameKey(name)) == 0) {
      text.append("no policy's list names \"").append(name);
      text.append("\": see pwlapse explain \"").append(name).append("\"\n");
    }
  }
  return text;
}

// "812 users: 22 would be mailed, 3 would be forced"
std::string totals(const std::array<std::uint64_t, service::kOutcomes>& counts, std::size_t shown) {
  std::string text = std::to_string(shown) + (shown == 1 ? " user" : " users");
  const char* before = ": ";
  for (int i = 0; i < service::kOutcomes; ++i) {
    if (counts.at(i) == 0) continue;
    const char* label =
        service::outcomeLabel(static_cast<service::Outcome>(i), notify::PassMode::Dry);
    text +=
        base::formatText("%s%llu %s", before, static_cast<unsigned long long>(counts.at(i)), label);
    before = ", ";
  }
  return text;
}

Filter filterOf(const ListOptions& options, platform::Registry& registry, std::string& error) {
  Filter filter;
  filter.options = &options;
  for (const std::string& name : options.users) filter.users.insert(service::nameKey(name));
  if (options.policy.empty()) return filter;
  std::vector<std::string> known;
  filter.slots = slotsOf(registry, options.policy, known);
  if (!filter.slots.empty()) return filter;
  const std::string nearest = base::nearestName(options.policy, known);
  error = "there is no policy \"" + options.policy + "\"" +
          (nearest.empty() ? "" : "; \"" + nearest + "\" may be meant");
  return filter;
}

}  // namespace

int listCommand(const ListOptions& options) {
  std::string error;
  const std::unique_ptr<platform::SystemHost> system = openSite(options.question.site, error);
  if (!system) return refuse(error);
  const platform::Host host = system->host();
  const Filter filter = filterOf(options, host.registry, error);
  if (!error.empty()) return refuse(error);

  SurveyOptions wanted;
  wanted.addresses = true;
  wanted.wanted = [&filter](const UserRecord& user) { return filter.takes(user); };
  Survey survey = makeSurvey(host, wanted);
  keepOneOfEach(survey.users);
  if (options.noAddress) {
    std::erase_if(survey.users, [](const UserRecord& user) {
      return user.data.email != directory::kNoEmail ||
             (user.skipReasons & notify::kSkipComputerAccount) != 0;
    });
  }
  sortUsers(survey.users, options.sort);

  const Calendar calendar(host.clock);
  std::array<std::uint64_t, service::kOutcomes> counts{};
  Answer answer;
  answer.command = "list";
  answer.rowsKey = "users";
  answer.table.columns = userColumns();
  answer.table.rows.reserve(survey.users.size());
  for (const UserRecord& user : survey.users) {
    ++counts.at(static_cast<std::size_t>(service::outcomeOf(user)));
    answer.table.rows.push_back(userRow(user, calendar));
  }
  const service::PassRecord& pass = survey.pass;
  const TextStyle style = outputStyle();
  const std::string missing = missingUsers(options.users, survey.users);
  answer.peopleSeeTable = !survey.users.empty();
  answer.below = '\n' + totals(counts, survey.users.size()) +
                 (pass.reportOnly ? "; report-only mode\n" : "\n") + missing +
                 findingsText(pass.findings.problems(), pass.findings.notes(), style);
  JsonValue outcomes = JsonValue::object();
  for (int i = 0; i < service::kOutcomes; ++i) {
    if (counts.at(i) != 0) outcomes[outcomeCode(static_cast<service::Outcome>(i))] = counts.at(i);
  }
  answer.members = {{"date", dayText(calendar.today())},
                    {"reportOnly", pass.reportOnly},
                    {"counts", outcomes},
                    {"problems", findingsJson(pass.findings.problems())},
                    {"notes", findingsJson(pass.findings.notes())}};
  printAnswer(answer, options.question.format);
  return pass.allWell() && missing.empty() ? kExitDone : kExitSomethingFailed;
}

}  // namespace console
