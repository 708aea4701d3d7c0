// The simulated site: users, policies, lists and settings as administrators and users change them
// from day to day, and the directory that serves them to the pass.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "base/format_text.h"
#include "platform/directory/directory_snapshot.h"
#include "tests/simulation/world.h"

namespace simulation {

inline constexpr const char* kAdministrator = "admin@simulated.example";
inline constexpr int kPolicies = 4;  // the default policy and Policy1 to Policy3

struct User {
  enum Account { Normal = 0x200, Disabled = 0x202, NeverExpires = 0x10200 };

  std::string name, mail;
  std::int64_t passwordSet = 0;  // FILETIME; 0: to be changed at next logon
  std::int64_t setBefore = 0;    // the same when the pass began
  std::int64_t setWhenRead = 0;  // the same when he was first read again; -1: not yet
  Account account = Normal;
  bool gone = false;
  int ownAge = 0;         // the directory's own maximum age for him, in days; 0: never
  int policy = 0;         // slot whose list names the user; 0: none
  bool excluded = false;  // from the default policy, which else covers everybody

  std::int64_t passwordExpires() const {  // as a directory has it
    if (ownAge == 0) return platform::kNoExpiryTime;
    return passwordSet == 0 ? 0 : passwordSet + ownAge * kDay;
  }
};

// A forced change of a password.
struct Forced {
  std::int64_t when = 0;
  const User* user = nullptr;
  std::int64_t passwordSet = 0;  // before
};

class Site {
 public:
  // `busy`: users change their passwords while a pass is made.
  Site(World& world, std::uint64_t seed, bool busy) : world_(world), random_(seed), busy_(busy) {
    for (int slot = 0; slot < kPolicies; ++slot) {
      maxAge[slot] = nextMaxAge[slot] = 30 + random_.below(90);
      emailWarnings[slot] = random_.chance(900) ? 1 : 0;
      byDirectory[slot] = random_.chance(150);
    }
    threshold = nextThreshold = 4 + random_.below(6);
    if (random_.chance(800)) warningDays = {threshold - random_.below(2), 3, 1};
    for (int i = 0; i < 200; ++i) {
      join();
      users.back().passwordSet -= random_.below(100) * kDay;
    }
  }

  // What people do between two days; `steady`: users only, and nobody comes or goes.
  void liveOneNight(bool steady) {
    for (User& user : users) {
      if (user.gone) continue;
      const bool mustChange = user.passwordSet == 0 && user.account == User::Normal;
      if (random_.chance(mustChange ? 500 : 8)) {
        user.passwordSet = world_.clock.now - random_.below(3600) * kSecond;
      }
      if (steady || !random_.chance(4)) continue;
      const User::Account other = random_.chance(500) ? User::Disabled : User::NeverExpires;
      const int what = random_.below(5);
      if (what == 0) user.account = user.account == User::Normal ? other : User::Normal;
      if (what == 1) user.mail = user.mail.empty() ? user.name + "@simulated.example" : "";
      if (what == 2) user.policy = random_.below(kPolicies);
      if (what == 3) user.excluded = !user.excluded;
      if (what == 4) user.gone = true;
    }
    if (steady) return;
    if (random_.chance(200)) join();
    if (random_.chance(5)) changeSettings();
  }

  // Registry file and lists as they are now, onto the disk.
  void writeRegistry() {
    const std::string root = "HKEY_LOCAL_MACHINE\\Software\\Policies\\Kadro\\PwsentryProMPE\\";
    const auto section = [&](const std::string& name, const std::map<std::string, int>& values) {
      registryText += "\r\n[" + root + name + "]\r\n\"policyName\"=\"" + name + "\"\r\n";
      for (const auto& [value, number] : values) {
        registryText += '"' + value + base::formatText("\"=dword:%08x\r\n", unsigned(number));
      }
    };
    std::map<std::string, int> values = settings;
    values["warningThreshold"] = nextThreshold;
    for (const int day : warningDays)
      values["warning" + std::to_string(values.count("warning1") + values.count("warning2") + 1)] =
          day;
    // What the pass has written behind it stays.
    const std::string& before = world_.text(kRegistryFile);
    const std::string written = before.substr(std::min(registryText.size(), before.size()));
    registryText = "Windows Registry Editor Version 5.00\r\n";
    section("PWExpiration", values);
    registryText +=
        "\"smtpServer\"=\"127.0.0.1\"\r\n\"emailCustomMsg\"=\"days:<%daysUntilExpiration%>\"\r\n"
        "\"adminEmailAddress\"=\"" +
        std::string(kAdministrator) + "\"\r\n\"expirationServiceTime\"=\"" + serviceTime + "\"\r\n";
    for (int slot = 0; slot < kPolicies; ++slot) {
      section(slot == 0 ? "DefaultPolicy" : "Policy" + std::to_string(slot),
              {{"maxPasswordAge", nextMaxAge[slot]},
               {"emailWarnings", emailWarnings[slot]},
               {"useDirectoryPolicy", byDirectory[slot] ? 1 : 0}});
    }
    world_.put(kRegistryFile, registryText + written);
  }

  void writeLists() {
    std::array<std::string, kPolicies> lists;
    for (const User& user : users) {
      if (user.policy != 0) lists[user.policy] += user.name + "\n";
      if (user.excluded) lists[0] += user.name + "\n";
    }
    for (int slot = 0; slot < kPolicies; ++slot) {
      const std::string file = slot == 0
                                   ? "pwsentry_pro_defaultpolicy_exclude.txt"
                                   : "pwsentry_pro_policy" + std::to_string(slot) + "_include.txt";
      world_.put(file, lists[slot]);
    }
  }

  void beginPass() {
    maxAge = nextMaxAge;
    threshold = nextThreshold;
    forced.clear();
    inHand = nullptr;
    for (User& user : users) {
      user.setBefore = user.passwordSet;
      user.setWhenRead = -1;
    }
  }

  User* find(const std::string& name) {  // may go on behind the name
    const auto number = static_cast<std::size_t>(std::atoi(name.c_str() + 4));
    const bool known = name.starts_with("user") && number < users.size() && !users[number].gone;
    return known ? &users[number] : nullptr;
  }
  int setting(const char* name, int otherwise = 0) const {
    const auto found = settings.find(name);
    return found == settings.end() ? otherwise : found->second;
  }
  bool covers(int slot, const User& user) const {
    return slot == 0 ? !user.excluded : user.policy == slot;
  }
  // The slot that he belongs to when any covers him: the one of the lowest age.
  int slotOf(const User& user) const {
    if (user.policy == 0 || maxAge[user.policy] > maxAge[0]) return user.excluded ? user.policy : 0;
    return user.policy;
  }
  // What a slot gives him, in days; 0: his password never expires.
  int maxAgeIn(int slot, const User& user) const {
    return byDirectory[slot] ? user.ownAge : maxAge[slot];
  }
  int maxAgeOf(const User& user) const {
    const bool covered = user.policy != 0 || !user.excluded;
    return covered ? maxAgeIn(slotOf(user), user) : 0;
  }

  // For the next pass: one that is being made keeps to what it has read.
  void changeSettings() {
    nextMaxAge[random_.below(kPolicies)] = 30 + random_.below(90);
    nextThreshold = 4 + random_.below(6);
    writeRegistry();
  }
  void changeSettingsInMidPass() {
    if (busy_ && !world_.dead() && random_.chance(1)) changeSettings();
  }

  void force(User& user) {
    forced.push_back({world_.clock.now, &user, user.passwordSet});
    if (user.setWhenRead == -1) user.setWhenRead = user.passwordSet;
    user.passwordSet = 0;
  }

  void changeSomebodysPassword() {
    if (!busy_ || world_.dead() || !random_.chance(5)) return;
    world_.clock.now += kSecond;
    User& other = users[static_cast<std::size_t>(random_.below(users.size()))];
    User& user = inHand != nullptr && random_.chance(500) ? *inHand : other;
    user.passwordSet = world_.clock.now;
  }

  std::array<int, kPolicies> maxAge{}, nextMaxAge{}, emailWarnings{};  // by slot
  std::array<bool, kPolicies> byDirectory{};                           // useDirectoryPolicy
  int threshold = 14, nextThreshold = 14;
  std::string serviceTime;  // "HH:MM", or empty
  std::vector<int> warningDays;
  std::map<std::string, int> settings{{"htmllog", 1}};  // further ones
  std::vector<User> users;
  std::vector<Forced> forced;  // by the pass
  User* inHand = nullptr;      // whom the pass asked for last; changes his password more often
  std::string registryText;    // as the administrator wrote it

 private:
  void join() {
    User user;
    user.name = "user" + std::to_string(users.size());
    user.mail = user.name + "@simulated.example";
    user.passwordSet = world_.clock.now - random_.below(6 * 3600) * kSecond;
    user.policy = random_.below(kPolicies);
    user.excluded = random_.chance(20);
    if (!random_.chance(50)) user.ownAge = 30 + random_.below(90);
    users.push_back(user);
  }

  World& world_;
  Random random_;  // of its own: what people do does not depend on what a pass does
  bool busy_;
};

// The directory: a server that may be slow, away, or deny, and answers with the users as they are.
class SimulatedDirectory final : public platform::DirectorySource {
 public:
  SimulatedDirectory(Site& site, World& world) : site_(site), world_(world) {}

  platform::HResult load(platform::DirectorySnapshot& snapshot,
                         platform::DirectoryError& error) override {
    const platform::AccountResult result = answer();
    error = {81, result.text, "simulated"};
    if (!result.ok()) return platform::kServerDown;
    snapshot.namingContext = "DC=simulated,DC=example";
    snapshot.clockOffset = -world_.clock.wrongBy / kSecond;  // the directory's clock is right
    for (const User& user : site_.users) {
      if (!user.gone) read(user, snapshot.entries.emplace_back());
    }
    return platform::kOk;
  }
  platform::AccountResult refresh(platform::DirectoryEntry& entry) override {
    User* user = site_.inHand = site_.find(entry.logonName);
    platform::AccountResult result = answer();
    if (!result.ok()) return result;
    site_.changeSettingsInMidPass();
    read(*user, entry);
    if (user->setWhenRead == -1) user->setWhenRead = user->passwordSet;
    return result;
  }
  platform::AccountResult expirePassword(const platform::DirectoryEntry& entry) override {
    User* user = site_.inHand = site_.find(entry.logonName);
    platform::AccountResult result = answer();
    if (!result.ok()) return result;
    if (user->passwordSet != entry.pwdLastSet) return {platform::kNetPasswordChanged, "changed"};
    site_.force(*user);
    const bool lost = world_.has(world_.faults.directoryDown) ||
                      world_.fails(world_.faults.directory, "the directory's answer is lost");
    return {lost ? platform::kNetNoDomainController : platform::kNetSuccess, "simulated: lost"};
  }
  void want(const platform::OptionalAttributes& wanted) override { wanted_ = wanted; }
  platform::DirectoryFacts facts() override { return {}; }

 private:
  void read(const User& user, platform::DirectoryEntry& entry) const {
    entry.dn = "CN=" + user.name + ",DC=simulated,DC=example";
    entry.logonName = user.name;
    entry.mail = user.mail;
    entry.givenName = "Given";
    entry.surname = "Surname";
    entry.pwdLastSet = user.passwordSet;
    entry.accountControl = user.account;
    if (wanted_.expiryTimes) entry.passwordExpires = user.passwordExpires();
  }

  platform::AccountResult answer() {
    world_.call();
    if (world_.has(world_.faults.directorySlow)) world_.clock.now += 2 * kSecond;
    if (world_.has(world_.faults.directoryDown) ||
        world_.fails(world_.faults.directory, "the directory does not answer")) {
      return {platform::kNetNoDomainController, "simulated: no answer"};
    }
    const bool denies = world_.fails(world_.faults.directory, "the directory denies");
    if (!denies) site_.changeSomebodysPassword();
    return {denies ? platform::kNetAccessDenied : platform::kNetSuccess, "simulated: denied"};
  }

  Site& site_;
  World& world_;
  platform::OptionalAttributes wanted_;
};

}  // namespace simulation
