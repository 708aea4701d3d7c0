// Watches a pass for the console: draws a progress bar on a terminal, and keeps the records of the
// users where they are asked for.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "service/pass_observer.h"

namespace console {

class PassWatcher : public service::PassObserver {
 public:
  enum class Keep { Nothing, Users };
  // `terminal` is where the bar is drawn, borrowed; null draws none.
  PassWatcher(Keep keep, std::FILE* terminal) : keep_(keep), terminal_(terminal) {}

  void slotStarted(int slot, const std::string& includeFile, std::uint64_t listBytes) override;
  void userExamined(const notify::UserRecord& user) override;

  // The pass is over: the bar goes.
  void finish();

  // In the order of the pass; with Keep::Users.
  const std::vector<notify::UserRecord>& users() const { return users_; }

 private:
  void drawBar();

  Keep keep_;
  std::FILE* terminal_;
  std::vector<notify::UserRecord> users_;
  std::string listName_;
  std::uint64_t listBytes_ = 0;
  std::uint64_t readBytes_ = 0;
  int drawnPercent_ = -1;
};

}  // namespace console
