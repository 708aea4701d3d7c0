// What is known of the last pass after its program has ended: `logfiles\norvyn-last-run.json`,
// which every pass replaces, for `pwlapse status` and for programs. docs/service.md describes its
// shape.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "service/pass_record.h"

namespace service {

// Times are seconds since 1970-01-01, UTC. Texts are in the ANSI code page.
struct LastRun {
  std::int64_t began = 0;
  std::int64_t ended = 0;
  double durationSeconds = 0;
  std::optional<std::int64_t> next;         // of the service; a pass by hand knows none
  std::optional<std::int64_t> lastSuccess;  // end of the last pass without problems
  bool reportOnly = false;
  int lists = 0;
  std::uint64_t lines = 0;
  std::array<std::uint64_t, kOutcomes> counts{};  // by outcome
  MailCounts mails;
  std::optional<MailCounts> managers;  // empty without managerDays
  config::FindingLines problems;
  config::FindingLines notes;

  bool allWell() const { return problems.count == 0; }
};

// The record of a pass that ended at `ended`; `next` and `lastSuccess` are left empty, the latter
// unless there were no problems.
LastRun lastRunOf(const PassRecord& record, std::int64_t ended);

// UTF-8, one object.
std::string lastRunText(const LastRun& run);

// Replaces the file. False, with errno set, when it could not be written.
bool writeLastRun(const LastRun& run);

// Of the current directory. Nothing, with `reason` one line, when there is none or it cannot be
// used.
std::optional<LastRun> readLastRun(std::string& reason);

// "2026-11-22T01:46:50Z".
std::string utcText(std::int64_t time);

}  // namespace service
