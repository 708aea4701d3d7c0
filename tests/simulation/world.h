// The world that a simulated pass runs in: clock, disk, mail server and their faults, all driven by
// one seed. simulated_*.cpp take the place of the system's calls when the program is linked, so the
// pass itself is the real one. Used by one thread.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/manual_clock.h"

namespace simulation {

// Thrown out of a call of the seam: the process ended there.
struct Crash {};

inline constexpr std::int64_t kSecond = test_support::kFileTimeSecond;
inline constexpr std::int64_t kHour = 3600 * kSecond;
inline constexpr std::int64_t kDay = test_support::kFileTimeDay;
inline constexpr std::int64_t kStart = 154497 * kDay;  // midnight, 1 January 2024

class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}
  // 0 .. limit - 1
  int below(std::uint64_t limit) { return static_cast<int>(engine_() % limit); }
  bool chance(int perMille) { return below(1000) < perMille; }

 private:
  std::mt19937_64 engine_;
};

// How often the calls of the seam fail, in one of 1,000, and what is out of order as a whole; from
// one call of the pass to another.
struct Faults {
  int writes = 0;     // a file's write: part of it is there, then the disk is full
  int reads = 0;      // a file that cannot be opened, or not be read to its end
  int mail = 0;       // a command of a mail session, in one of several ways
  int directory = 0;  // a call of the directory, in one of several ways
  bool mailSilent = false, mailDown = false, directorySlow = false, directoryDown = false;
  std::uint64_t from = 0, until = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t crashAt = 0;  // the call in which the process ends
  bool powerCut = false;      // and what is not yet on the disk is lost
};

class SimulatedClock final : public test_support::ManualClock {
 public:
  base::LocalTime localTime() override { return localTimeOf(fileTime()); }
  base::LocalTime localTimeOf(std::int64_t moment) override {
    return base::fromWallSeconds(wallSeconds(moment));
  }
  platform::TimeZone timeZone() override { return {-zoneSeconds(fileTime()) / 60}; }
  // What the clock on the wall shows, as base::wallSeconds has it.
  std::int64_t wallSeconds(std::int64_t moment) const {
    return moment / kSecond - 11'644'473'600 + zoneSeconds(moment);
  }
  std::int64_t localDay(std::int64_t moment) const { return wallSeconds(moment) / 86400; }
  std::int64_t fileTime() override { return now + wrongBy; }
  std::uint32_t tickCount() override { return static_cast<std::uint32_t>(now / (kSecond / 1000)); }
  void sleep(std::uint32_t ms) override { now += std::int64_t{ms} * (kSecond / 1000); }

  std::int64_t wrongBy = 0;  // this machine's clock is ahead of the world's
  int zone = 0;              // seconds that local time is ahead of UTC
  enum { None, North, South } summer = None;

 private:
  // Summer time begins or ends on 31 March and on 27 October 2024.
  int zoneSeconds(std::int64_t moment) const {
    const std::int64_t spring = kStart + 90 * kDay + kHour, autumn = kStart + 300 * kDay + kHour;
    const bool between = moment >= spring && moment < autumn;
    return zone + (summer != None && between == (summer == North) ? 3600 : 0);
  }
};

struct DiskFile {
  std::string current;                   // what the system gives
  std::optional<std::string> durable{};  // what a power cut leaves; none: the same
  // Of a file of records: when each was appended, and the size after it.
  std::vector<std::pair<std::int64_t, std::size_t>> records{};

  void change() {  // comes next
    if (!durable) durable = current;
  }
};

struct DeliveredMail {
  std::int64_t when = 0;
  std::string recipient, text;
  bool confirmed = false;  // the client was given the reply
};

inline constexpr const char* kRegistryFile = "site.reg";

class World {
 public:
  explicit World(std::uint64_t seed) : random(seed) { clock.now = kStart; }

  Random random;
  SimulatedClock clock;
  // By their path in lower case. A file that is replaced lives on for who has it open.
  std::map<std::string, std::shared_ptr<DiskFile>> files;
  std::set<std::string> folders{"logfiles"}, locks;
  Faults faults;
  std::vector<DeliveredMail> mails;
  std::int64_t registryWrites = 0;  // since the world began
  std::size_t lastRecords = 0;      // of those appended before the power cut, younger than a second
  std::vector<std::string> story;   // of the day, for who reads a failure

  const std::string& text(const std::string& path) const {  // empty when there is no such file
    static const std::string none;
    const auto found = files.find(path);
    return found == files.end() ? none : found->second->current;
  }
  void put(const std::string& path, const std::string& text) {
    if (path == kRegistryFile) ++registryWrites;
    files[path] = std::make_shared<DiskFile>(DiskFile{text});
  }

  // Every call of the seam passes here: it may be the one in which the process ends.
  void call() {
    if (thrown_) return;  // destructors at work
    clock.now += kSecond / 1000;
    quietCall();
    if (!dead_) return;
    thrown_ = true;
    throw Crash();
  }
  // The same where an exception cannot be thrown: the process ends, and the next call throws.
  void quietCall() {
    if (dead_ || ++calls_ != faults.crashAt) return;
    dead_ = true;
    story.push_back(faults.powerCut ? "power cut" : "process killed");
  }
  bool dead() const { return dead_; }
  std::uint64_t calls() const { return calls_; }
  bool has(bool fault) const { return fault && calls_ >= faults.from && calls_ < faults.until; }
  // Whether a fault that has these odds happens now.
  bool fails(int perMille, const char* what, const std::string& where = {}) {
    if (perMille == 0 || !has(true) || dead_ || !random.chance(perMille)) return false;
    story.push_back(what + where);
    return true;
  }

  // What comes next comes some time later and without faults; of a new process when this one died.
  void endPass() {
    lastRecords = 0;
    for (auto& [path, file] : files) {
      if (dead_ && faults.powerCut) cutPower(*file);
      file->durable.reset();
      file->records.clear();
    }
    locks.clear();
    faults = {};
    calls_ = 0;
    dead_ = thrown_ = false;
  }

 private:
  // Of what was appended any part may be there, of records all that are a second old, and a bit of
  // the rest may be wrong; of what was written anew the old file, the new one or a part of that.
  void cutPower(DiskFile& file) {
    if (!file.durable || file.current == *file.durable) return;
    const bool appended = file.current.starts_with(*file.durable);
    std::size_t least = appended ? file.durable->size() : 0;
    for (const auto& [when, size] : file.records) {
      if (when + kSecond <= clock.now) least = std::max(least, size);
      if (when + kSecond > clock.now) ++lastRecords;
    }
    if (appended || random.chance(500)) {
      file.current.resize(least +
                          static_cast<std::size_t>(random.below(file.current.size() - least + 1)));
      const std::size_t size = file.current.size() - least;
      if (!appended || least == 0 || size == 0 || random.chance(500)) return;
      file.current[least + static_cast<std::size_t>(random.below(size))] ^= 1;
    } else {
      file.current = *file.durable;
    }
  }

  std::uint64_t calls_ = 0;
  bool dead_ = false, thrown_ = false;
};

// The one that the calls of the seam go to; set by the simulation.
inline World* currentWorld = nullptr;
inline World& world() {
  return *currentWorld;
}

}  // namespace simulation
