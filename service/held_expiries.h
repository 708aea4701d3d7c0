// The expiries that wait for the end of a pass, because a setting limits their number
// (maxExpirations) or wants each user notified first (expireOnlyNotified). Used by the pass only,
// on its thread.
#pragma once

#include <functional>

#include "service/pass_state.h"
#include "service/user_examiner.h"

namespace service {

// Decides about every held expiry of `pass`, the oldest password first, and carries it out. Who is
// left out, and why, becomes a problem of the pass. Once `isToStop` answers true nobody is expired
// any more. Blocks for as long as the directory and the mail server take.
void settleExpiries(UserExaminer& examiner, PassState& pass, const std::function<bool()>& isToStop);

}  // namespace service
