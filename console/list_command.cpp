// `pwlapse list`: every user, and what a pass would do today.
#include <algorithm>
#include <array>
#include <deque>
#include <limits>
#include <memory_resource>
#include <numeric>
#include <unordered_set>
#include <utility>

#include "base/ascii.h"
#include "base/format_text.h"
#include "base/nearest_name.h"
#include "config/policy_store.h"
#include "console/commands.h"
#include "console/finding_lines.h"
#include "console/user_look_up.h"
#include "console/user_rows.h"
#include "service/dry_run.h"
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

// The lines of the users that are to be shown, and their texts, which are freed all at once.
class UserLines {
 public:
  void add(UserLine line) {
    for (std::string_view* text : {&line.user, &line.address, &line.firstName, &line.lastName}) {
      *text = kept(*text);
    }
    lines.push_back(std::move(line));
  }

  std::deque<UserLine> lines;

 private:
  std::string_view kept(std::string_view text) {
    if (text.empty()) return {};
    char* const copy = static_cast<char*>(texts_.allocate(text.size(), 1));
    std::copy(text.begin(), text.end(), copy);
    return {copy, text.size()};
  }

  std::pmr::monotonic_buffer_resource texts_;
};

// Keeps a line of each user of a dry run that is to be shown.
class ListMaker final : public service::PassObserver {
 public:
  ListMaker(const platform::Host& host, const Filter& filter, UserLines& users)
      : filter_(filter), calendar_(host.clock), lookUp_(host.directory), users_(users) {}

  void userExamined(const UserRecord& user) override {
    const std::uint32_t skipped = user.skipReasons;
    if ((skipped & notify::kSkipProcessedEarlier) != 0 || !filter_.takes(user)) return;
    data_ = user.data;
    if (user.accountFound) lookUp_.complete(user.username, data_);
    const bool hasAddress = data_.email != directory::kNoEmail;
    const bool computer = (skipped & notify::kSkipComputerAccount) != 0;
    if (filter_.options->noAddress && (hasAddress || computer)) return;
    users_.add(lineOf(user, data_, calendar_));
  }

 private:
  const Filter& filter_;
  Calendar calendar_;
  UserLookUp lookUp_;
  directory::UserDirectoryData data_;  // of the user at hand; kept for its memory
  UserLines& users_;
};

// One line a user: that of the policy that has him, or the first of those that leave him out.
void keepOneOfEach(std::deque<UserLine>& lines) {
  // Whom one policy leaves out another one may have.
  std::unordered_set<std::string> open;
  for (const UserLine& line : lines) {
    if (line.leftOut) open.insert(service::nameKey(line.user));
  }
  if (open.empty()) return;
  for (const UserLine& line : lines) {
    if (!line.leftOut) open.erase(service::nameKey(line.user));
  }
  std::erase_if(lines, [&](const UserLine& line) {
    return line.leftOut && open.erase(service::nameKey(line.user)) == 0;
  });
}

// What lines are sorted by: a number, then a text.
using SortKey = std::pair<std::int64_t, std::string>;

SortKey sortKey(const UserLine& line, const std::string& by) {
  constexpr std::int64_t kLast = std::numeric_limits<std::int64_t>::max();
  if (by == "address") return {line.address.empty() ? kLast : 0, base::lowered(line.address)};
  std::string name = service::nameKey(line.user);
  if (by == "user") return {0, std::move(name)};
  if (by == "policy") return {line.slot, std::move(name)};
  if (by == "outcome") return {static_cast<std::int64_t>(line.outcome), std::move(name)};
  if (by == "age") return {line.age ? -std::int64_t{*line.age} : kLast, std::move(name)};
  return {line.daysLeft ? std::int64_t{*line.daysLeft} : kLast, std::move(name)};
}

std::vector<const UserLine*> sorted(const std::deque<UserLine>& lines, const std::string& by) {
  std::vector<std::pair<SortKey, const UserLine*>> keys;
  keys.reserve(lines.size());
  for (const UserLine& line : lines) keys.emplace_back(sortKey(line, by), &line);
  // Numbers are sorted and not the keys, which are larger.
  std::vector<std::uint32_t> numbers(keys.size());
  std::iota(numbers.begin(), numbers.end(), 0U);
  std::stable_sort(numbers.begin(), numbers.end(),
                   [&keys](std::uint32_t left, std::uint32_t right) {
                     return keys[left].first < keys[right].first;
                   });
  std::vector<const UserLine*> order;
  order.reserve(keys.size());
  for (const std::uint32_t number : numbers) order.push_back(keys[number].second);
  return order;
}

// One line for each name that was asked for and is no user's.
std::string missingUsers(const std::vector<std::string>& asked, const std::deque<UserLine>& lines) {
  std::unordered_set<std::string> missing;
  for (const std::string& name : asked) missing.insert(service::nameKey(name));
  for (const UserLine& line : lines) {
    if (missing.empty()) break;
    missing.erase(service::nameKey(line.user));
  }
  std::string text;
  for (const std::string& name : asked) {
    if (missing.count(service::nameKey(name)) == 0) continue;
    text.append("no policy's list names \"").append(name);
    text.append("\": see pwlapse explain \"").append(name).append("\"\n");
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

  service::PassRecord pass;
  UserLines users;
  {
    ListMaker maker(host, filter, users);
    pass = service::makeDryRun(host, &maker, {});
  }
  std::deque<UserLine>& lines = users.lines;
  keepOneOfEach(lines);
  const std::vector<const UserLine*> order = sorted(lines, options.sort);

  const Calendar calendar(host.clock);
  std::array<std::uint64_t, service::kOutcomes> counts{};
  for (const UserLine& line : lines) ++counts.at(static_cast<std::size_t>(line.outcome));
  Answer answer;
  answer.command = "list";
  answer.rowsKey = "users";
  answer.table.columns = userColumns();
  answer.table.madeRows = order.size();
  answer.table.makeRow = [&order](std::size_t number, std::vector<Value>& row) {
    fillUserRow(*order[number], row);
  };
  const TextStyle style = outputStyle();
  const std::string missing = missingUsers(options.users, lines);
  answer.peopleSeeTable = !lines.empty();
  answer.below =
      (lines.empty() ? "" : "\n") +
      style.paragraph(
          "", 0, totals(counts, lines.size()) + (pass.reportOnly ? "; report-only mode" : "")) +
      missing + findingsText(pass.findings.problems(), pass.findings.notes(), style);
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
