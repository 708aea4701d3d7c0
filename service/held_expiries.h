// The expiries that wait for the end of a pass, because a setting limits their number
// (maxExpirations) or wants each user notified first (expireOnlyNotified). Used by the pass only,
// on its thread.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <utility>

#include "service/pass_state.h"
#include "service/user_examiner.h"

namespace service {

class HeldExpiries {
 public:
  // `examiner` and `pass` are borrowed.
  HeldExpiries(UserExaminer& examiner, PassState& pass, std::function<bool()> isToStop)
      : examiner_(examiner), pass_(pass), isToStop_(std::move(isToStop)) {}

  // Decides about every held expiry, the oldest password first, and carries it out. One whose
  // user's mail is to be tried again stays held, for the next call. Once `isToStop` answers true
  // nobody is expired any more. Blocks for as long as the directory and the mail server take.
  void settle();
  // Who was left out, and why, becomes a problem of the pass.
  void report() const;

 private:
  UserExaminer& examiner_;
  PassState& pass_;
  std::function<bool()> isToStop_;
  std::uint64_t forced_ = 0;
  std::uint64_t unanswered_ = 0;  // count for maxExpirations as well: they may be forced
  std::uint64_t overLimit_ = 0;
  std::uint64_t stopped_ = 0;
  std::array<std::uint64_t, kNoNoticeReasons> notNotified_{};
};

}  // namespace service
