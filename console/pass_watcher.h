// Watches a pass for the console: draws a progress bar on a terminal and gathers what the summary
// tells. Memory does not grow with the number of users, but for the verdicts that the demo keeps.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "console/outcome.h"
#include "service/run_observer.h"

namespace console {

class PassWatcher : public service::RunObserver {
 public:
  enum class Keep { Counts, Verdicts };
  // `terminal` is where the bar is drawn, borrowed; null draws none.
  PassWatcher(Keep keep, std::FILE* terminal) : keep_(keep), terminal_(terminal) {}

  void slotStarted(int slot, const std::string& includeFile, std::uint64_t listBytes) override;
  void problemFound(const std::string& problem) override;
  void noteFound(const std::string& note) override;
  void userExamined(const service::UserVerdict& verdict) override;

  // The pass is over: the bar goes. `warnings` are the directory's. True when nothing failed.
  bool finish(const service::RunSummary& summary, const std::vector<std::string>& warnings);

  // What the pass came to, one fact a line, and what failed; after finish().
  std::string summaryText() const;
  const std::vector<service::UserVerdict>& verdicts() const { return verdicts_; }

 private:
  void drawBar();

  Keep keep_;
  std::FILE* terminal_;
  std::array<std::uint64_t, kOutcomes> counts_{};
  std::uint64_t lines_ = 0;
  bool anyMailFailed_ = false;
  int lists_ = 0;
  bool reportOnly_ = false;
  std::uint64_t problemCount_ = 0;
  std::vector<std::string> problems_;  // the first few
  std::uint64_t noteCount_ = 0;
  std::vector<std::string> notes_;  // the first few
  std::vector<service::UserVerdict> verdicts_;
  std::string listName_;
  std::uint64_t listBytes_ = 0;
  std::uint64_t readBytes_ = 0;
  int drawnPercent_ = -1;
};

}  // namespace console
