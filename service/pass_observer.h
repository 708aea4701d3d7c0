// Who watches a pass while it is made: the console's progress bar, the demo's list of verdicts, the
// service's journal. What the pass came to is in its PassRecord. A pass decides nothing by this.
#pragma once

#include <cstdint>
#include <string>

#include "config/findings.h"
#include "notify/user_record.h"

namespace service {

class PassObserver {
 public:
  virtual ~PassObserver() = default;
  // A slot's include file was opened; `listBytes` is its size.
  virtual void slotStarted(int slot, const std::string& includeFile, std::uint64_t listBytes) {
    (void)slot, (void)includeFile, (void)listBytes;
  }
  virtual void userExamined(const notify::UserRecord& user) { (void)user; }
  // A problem or a note that the record keeps.
  virtual void findingMade(config::FindingKind kind, config::Cause cause, const std::string& line) {
    (void)kind, (void)cause, (void)line;
  }
};

}  // namespace service
