// Simulated years of passes over a simulated site, each from one seed. A broken rule prints the
// seed and the day's story.
//   simulate FIRST-SEED COUNT    COUNT 0: goes on until it is stopped
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "base/format_text.h"
#include "base/timestamp.h"
#include "platform/directory/snapshot_directory.h"
#include "platform/registry/file/reg_registry.h"
#include "service/expiration_run.h"
#include "tests/simulation/judge.h"
#include "tests/simulation/site.h"
#include "tests/simulation/world.h"

namespace simulation {
namespace {

constexpr int kSettled = 30;  // days after which nobody is left who was late when the year began

// The service, from its start until it is stopped or killed.
struct Process {
  std::unique_ptr<platform::RegRegistry> registry;
  platform::SnapshotDirectory directory;
  service::ExpirationRun run;

  Process(std::unique_ptr<platform::RegRegistry> settings, Site& site, World& world,
          service::PassObserver& observer)
      : registry(std::move(settings)),
        directory(std::make_unique<SimulatedDirectory>(site, world), world.clock),
        run({*registry, directory, directory, world.clock}, {false, 24 * 3600 * 1000}, &observer,
            nullptr) {
    run.prepare();
    if (!site.serviceTime.empty()) run.repeat();
  }
};

class Year {
 public:
  // `steady`: a year without faults, in which administrators change nothing, with a pass a day.
  Year(std::uint64_t seed, bool steady)
      : seed_(seed), steady_(steady), world_(seed), site_(world_, seed, !steady) {
    currentWorld = &world_;
    world_.clock.zone = (world_.random.below(52) - 24) * 1800;
    const int summer = world_.random.below(4);
    if (summer == 1) world_.clock.summer = SimulatedClock::North;
    if (summer == 2) world_.clock.summer = SimulatedClock::South;
  }

  void set(const char* name, int value) { site_.settings[name] = value; }
  void drawSettings() {
    const auto draw = [this](int perMille, const char* name, int least, int most) {
      if (world_.random.chance(perMille)) set(name, least + world_.random.below(most - least + 1));
    };
    draw(800, "rememberWarnings", 1, 1);
    draw(800, "skipUnreadableAccounts", 1, 1);
    draw(300, "emailAdminReports", 1, 1);
    draw(300, "maxExpirations", 1, 4);
    draw(300, "expireOnlyNotified", 1, 1);
    draw(400, "smtpRetries", 1, 2);
    draw(200, "smtpGiveUpAfter", 0, 3);
    draw(200, "smtpMaxPerMinute", 30, 60);
    draw(200, "limitEmails", 1, 1);
    if (!world_.random.chance(300)) return;
    site_.serviceTime =
        base::formatText("%02d:%02d", world_.random.below(24), world_.random.below(60));
  }

  // False when a rule was broken.
  bool live() {
    for (day_ = 0; day_ < 365; ++day_) {
      world_.story.clear();
      world_.clock.now = kStart + day_ * kDay;
      site_.liveOneNight(steady_);
      site_.writeRegistry();
      site_.writeLists();
      const int passes = steady_ ? 1 : 1 + world_.random.below(8) / 6;
      world_.clock.now += steady_ ? 6 * kHour : world_.random.below(12 * 3600) * kSecond;
      if (!site_.serviceTime.empty()) world_.clock.now = kStart + day_ * kDay;
      for (int pass = 0; pass < passes || !site_.serviceTime.empty(); ++pass) {
        if (!makePass()) break;
        if (!judge_.verdicts().empty()) return tellStory();
        if (!site_.serviceTime.empty()) continue;
        world_.clock.now += world_.random.below(4 * 3600) * kSecond;
      }
    }
    return true;
  }

  // All that went out and was written, for comparing two years.
  const std::string& output() const { return output_; }

 private:
  void drawFaults() {
    Random& random = world_.random;
    Faults& faults = world_.faults;
    world_.clock.wrongBy = 0;
    if (steady_ || random.chance(600)) return;
    const int often = 5 + random.below(300);
    const std::uint64_t someCall = 1 + random.below(lastCalls_ + 1);
    if (random.chance(500)) faults.from = someCall;
    if (random.chance(300)) faults.until = faults.from + random.below(lastCalls_ + 1);
    const std::int64_t units[] = {kSecond, 60 * kSecond, kHour, kDay};
    const int kind = random.below(10);
    if (kind == 0) faults.mail = often;
    if (kind == 1) faults.directory = often;
    if (kind == 2) faults.writes = often;
    if (kind == 3) faults.reads = often;
    faults.mailDown = kind == 4;
    faults.mailSilent = kind == 5;
    faults.directoryDown = kind == 6;
    faults.directorySlow = kind == 7;
    if (kind == 8) world_.clock.wrongBy = (random.below(400) - 200) * units[random.below(4)] / 2;
    if (kind == 9) faults.crashAt = someCall;
    faults.powerCut = random.chance(500);
  }

  // As the service does, which looks at the clock again where that is changed: each third hour from
  // one o'clock UTC. False when the next pass is none of this day's.
  bool awaitTime(const service::ExpirationRun& run) {
    const service::PassTimes times = *run.passTimes();
    while (const std::int64_t left = run.secondsToPass(times)) {
      const std::int64_t look = 3 * kHour - (world_.clock.now + 2 * kHour) % (3 * kHour);
      world_.clock.now += std::min(left * kSecond, look);
      if (world_.clock.now >= kStart + (day_ + 1) * kDay) return false;
    }
    judge_.judgeBegin(*base::secondOfDay(site_.serviceTime));
    return true;
  }

  void beginPass() {
    drawFaults();
    judge_.beginPass();
  }

  void startProcess() {
    std::string error;
    auto registry = platform::RegRegistry::load(kRegistryFile, error);
    if (registry == nullptr) return;
    process_ = std::make_unique<Process>(std::move(registry), site_, world_, judge_);
  }

  // False when none is due on this day.
  bool makePass() {
    const bool atTimes = !site_.serviceTime.empty();
    if (!atTimes) beginPass();
    const std::size_t mailsBefore = world_.mails.size();
    std::optional<service::PassRecord> record;
    try {
      if (process_ == nullptr) startProcess();
      if (process_ != nullptr) {
        if (atTimes && !awaitTime(process_->run)) return false;
        if (atTimes) beginPass();
        record = process_->run.pass();
      }
    } catch (const Crash&) {
    }
    if (world_.dead()) record.reset();
    if (record) {
      lastCalls_ = world_.calls();
      const auto& lines = record->findings.problems().lines;
      world_.story.insert(world_.story.end(), lines.begin(), lines.end());
    }
    judge_.judge(record);
    if (!record || world_.random.chance(300)) {
      process_.reset();
      judge_.processEnded();
    }
    world_.endPass();
    judge_.judgeFiles();
    if (!steady_ || day_ < kSettled) return true;
    std::set<std::string> mails;
    for (std::size_t i = mailsBefore; i < world_.mails.size(); ++i) {
      const auto& [when, recipient, text, confirmed] = world_.mails[i];
      if (recipient != kAdministrator) mails.insert(recipient + text.substr(text.find("\n\n")));
    }
    for (const std::string& mail : mails) output_ += mail;
    output_ += world_.text(kReportFile);
    return true;
  }

  bool tellStory() {
    for (const std::string& verdict : judge_.verdicts()) {
      std::fprintf(stderr, "seed %llu, day %d: %s\n", static_cast<unsigned long long>(seed_), day_,
                   verdict.c_str());
    }
    for (const std::string& line : world_.story) std::fprintf(stderr, "    %s\n", line.c_str());
    return false;
  }

  std::uint64_t seed_;
  bool steady_;
  World world_;
  Site site_;
  Judge judge_{world_, site_};
  std::unique_ptr<Process> process_;
  std::uint64_t lastCalls_ = 1000;  // of the seam, in a whole pass
  int day_ = 0;
  std::string output_;
};

// One year in ten has no faults, and is lived twice: without the settings that faults need, and
// with them.
bool simulate(std::uint64_t seed) {
  Year year(seed, seed % 10 == 0);
  if (seed % 10 != 0) {
    year.drawSettings();
    return year.live();
  }
  bool whole = year.live();
  Year other(seed, true);
  for (const char* name : {"rememberWarnings", "skipUnreadableAccounts", "smtpRetries"}) {
    other.set(name, 1);
  }
  other.set("maxExpirations", 1000);
  whole = other.live() && whole;
  if (other.output() == year.output()) return whole;
  std::fprintf(stderr, "seed %llu: a year without faults is another with the settings for them\n",
               static_cast<unsigned long long>(seed));
  return false;
}

}  // namespace
}  // namespace simulation

int main(int count, char** arguments) {
  if (count < 3) return 2;
  const std::uint64_t first = std::strtoull(arguments[1], nullptr, 10);
  const std::uint64_t years = std::strtoull(arguments[2], nullptr, 10);
  std::uint64_t broken = 0;
  for (std::uint64_t i = 0; years == 0 || i < years; ++i) {
    if (!simulation::simulate(first + i)) ++broken;
  }
  std::fprintf(stderr, "%llu years, %llu broken\n", static_cast<unsigned long long>(years),
               static_cast<unsigned long long>(broken));
  return broken == 0 ? 0 : 1;
}
