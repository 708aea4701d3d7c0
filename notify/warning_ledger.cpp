#include "notify/warning_ledger.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <optional>
#include <utility>

#include "base/crc32.h"
#include "base/hex_digit.h"
#include "base/text.h"
#include "config/pass_files.h"
#include "platform/system/files.h"

namespace notify {
namespace {

constexpr std::string_view kHeading = "norvyn-warnings-sent 1\n";
// Longer than any password is in use in practice, and than most maximum ages.
constexpr std::int64_t kKeptDays = 1100;
// The time of a password's change is worked out from its age, and two clocks take part in that.
constexpr std::int64_t kSamePasswordSeconds = 300;

std::int64_t dayNumber(const base::LocalTime& date) {
  return base::dayNumber(date.year, date.month, date.day);
}

bool samePassword(std::int64_t left, std::int64_t right) {
  return left - right <= kSamePasswordSeconds && right - left <= kSamePasswordSeconds;
}

// Blanks and control characters cannot stand in a record's field.
std::string encodedName(std::string_view name) {
  std::string out;
  for (const char c : name) {
    if (c == '%' || c == ' ' || base::isControl(c)) {
      const auto byte = static_cast<unsigned char>(c);
      out.append(1, '%').append(1, base::kHexDigits[byte >> 4]);
      out.append(1, base::kHexDigits[byte & 15]);
    } else {
      out += c;
    }
  }
  return out;
}

std::string decodedName(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int high = text[i] == '%' && i + 2 < text.size() ? base::hexValue(text[i + 1]) : -1;
    const int low = high >= 0 ? base::hexValue(text[i + 2]) : -1;
    if (low < 0) {
      out += text[i];
    } else {
      out += static_cast<char>(high * 16 + low);
      i += 2;
    }
  }
  return out;
}

std::string_view takeField(std::string_view& line, char end = ' ') {
  const std::size_t size = std::min(line.find(end), line.size());
  const std::string_view field = line.substr(0, size);
  line.remove_prefix(std::min(size + 1, line.size()));
  return field;
}

template <typename Number>
std::optional<Number> numberOf(std::string_view text, int base = 10) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

// "2026-03-05"
std::string dateText(std::int64_t day) {
  const std::chrono::year_month_day date{std::chrono::sys_days(std::chrono::days(day))};
  std::string text = "0000-00-00";
  const auto put = [&text](std::size_t end, unsigned number) {
    for (; number != 0; number /= 10) text[--end] = static_cast<char>('0' + number % 10);
  };
  put(4, static_cast<unsigned>(static_cast<int>(date.year())));
  put(7, static_cast<unsigned>(date.month()));
  put(10, static_cast<unsigned>(date.day()));
  return text;
}

std::optional<std::int64_t> dateOf(std::string_view text) {
  const auto year = numberOf<int>(takeField(text, '-'));
  const auto month = numberOf<int>(takeField(text, '-'));
  const auto day = numberOf<int>(text);
  const auto within = [](const auto& number, int least, int most) {
    return number && *number >= least && *number <= most;
  };
  if (!within(year, 1601, 9999) || !within(month, 1, 12) || !within(day, 1, 31)) return {};
  return base::dayNumber(*year, *month, *day);
}

std::string lineOf(const std::string& account, std::int64_t changedSeconds, std::int64_t date,
                   const std::vector<std::int32_t>& days) {
  std::string list;
  for (const std::int32_t day : days) {
    list.append(list.empty() ? "" : ",").append(std::to_string(day));
  }
  const std::string rest = dateText(date) + ' ' + std::to_string(changedSeconds) + ' ' +
                           (list.empty() ? "-" : list) + ' ' + encodedName(account);
  const std::uint32_t checksum = base::crc32(rest);
  std::string line;
  for (int shift = 28; shift >= 0; shift -= 4) line += base::kHexDigits[checksum >> shift & 15];
  return line.append(1, ' ').append(rest).append(1, '\n');
}

std::string problemText(const char* action) {
  return std::string(config::kWarningLedgerFile) + ": " + action + ": " + platform::fileErrorText();
}

}  // namespace

bool WarningLedger::open(std::string& problem, std::size_t& dropped) {
  accounts_.clear();
  dropped = 0;
  std::string bytes;
  const bool present = platform::readWholeFile(config::kWarningLedgerFile, bytes);
  if (!present && errno != ENOENT) {
    problem = problemText("cannot be read");
    return false;
  }
  // What has to stand before the next record: the (rest of the) heading, or the end of a torn line.
  std::string_view start = bytes.empty() || bytes.back() == '\n' ? "" : "\n";
  std::string_view rest = bytes;
  if (rest.starts_with(kHeading)) {
    rest.remove_prefix(kHeading.size());
    while (!rest.empty()) dropped += take(base::takeLine(rest)) ? 0 : 1;
  } else if (kHeading.starts_with(rest)) {
    start = kHeading.substr(rest.size());
  } else {
    problem = std::string(config::kWarningLedgerFile) + ": is no record of warnings; move it away";
    return false;
  }

  if (mode_ == PassMode::Dry) return true;
  file_ = platform::RecordFile::open(config::kWarningLedgerFile);
  if (file_ == nullptr || (!start.empty() && !file_->append(start))) {
    problem = problemText("cannot be written");
    file_.reset();
    return false;
  }
  return true;
}

bool WarningLedger::take(std::string_view line) {
  const auto checksum = numberOf<std::uint32_t>(takeField(line), 16);
  if (!checksum || *checksum != base::crc32(line)) return false;
  const auto date = dateOf(takeField(line));
  const auto changed = numberOf<std::int64_t>(takeField(line));
  std::string_view list = takeField(line);
  std::vector<std::int32_t> days;
  while (list != "-" && !list.empty()) {
    const auto day = numberOf<std::int32_t>(takeField(list, ','));
    if (!day) return false;
    days.push_back(*day);
  }
  if (!date || !changed || line.empty()) return false;
  add(decodedName(line), *changed, *date, days);
  return true;
}

// The newest password of an account counts; of an older one nothing is asked any more.
void WarningLedger::add(const std::string& account, std::int64_t changedSeconds, std::int64_t date,
                        const std::vector<std::int32_t>& days) {
  Mailings& mailings = accounts_[account];
  if (!samePassword(mailings.changedSeconds, changedSeconds)) {
    mailings = {changedSeconds, 0, {}};
  }
  mailings.lastDate = std::max(mailings.lastDate, date);
  for (const std::int32_t day : days) {
    if (std::find(mailings.days.begin(), mailings.days.end(), day) == mailings.days.end()) {
      mailings.days.push_back(day);
    }
  }
}

const WarningLedger::Mailings* WarningLedger::find(const AccountPassword& password) const {
  const auto found = accounts_.find(password.account);
  const bool same = found != accounts_.end() &&
                    samePassword(found->second.changedSeconds, password.changedSeconds);
  return same ? &found->second : nullptr;
}

bool WarningLedger::isDone(const AccountPassword& password, std::int32_t warningDay) const {
  const Mailings* mailings = find(password);
  return mailings != nullptr && std::find(mailings->days.begin(), mailings->days.end(),
                                          warningDay) != mailings->days.end();
}

bool WarningLedger::wasMailedOn(const AccountPassword& password,
                                const base::LocalTime& date) const {
  const Mailings* mailings = find(password);
  return mailings != nullptr && mailings->lastDate == dayNumber(date);
}

bool WarningLedger::record(const AccountPassword& password,
                           const std::vector<std::int32_t>& warningDays,
                           const base::LocalTime& date, std::string& problem) {
  const std::int64_t day = dayNumber(date);
  add(password.account, password.changedSeconds, day, warningDays);
  if (mode_ == PassMode::Dry) return true;
  if (file_ != nullptr &&
      file_->append(lineOf(password.account, password.changedSeconds, day, warningDays))) {
    return true;
  }
  problem = problemText("a warning that was mailed cannot be recorded");
  return false;
}

bool WarningLedger::finish(const base::LocalTime& today, std::string& problem) {
  if (mode_ == PassMode::Dry) return true;
  file_.reset();
  const std::int64_t oldest = dayNumber(today) - kKeptDays;
  std::vector<const std::pair<const std::string, Mailings>*> kept;
  for (const auto& account : accounts_) {
    if (account.second.lastDate >= oldest) kept.push_back(&account);
  }
  std::sort(kept.begin(), kept.end(),
            [](const auto* left, const auto* right) { return left->first < right->first; });
  std::string bytes(kHeading);
  for (const auto* account : kept) {
    const Mailings& mailings = account->second;
    bytes += lineOf(account->first, mailings.changedSeconds, mailings.lastDate, mailings.days);
  }
  if (platform::replaceFileAtomically(config::kWarningLedgerFile, bytes)) return true;
  problem = problemText("cannot be written anew");
  return false;
}

}  // namespace notify
