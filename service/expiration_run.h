// The expiration run: the body of the worker thread. It prepares once and then passes over all
// users, again and again, with a sleep between two passes. Nothing that happens in a pass ends the
// run. One object per worker, used by that thread only.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "service/last_run.h"
#include "service/pass.h"
#include "service/pass_schedule.h"

namespace service {

// Why no pass is made when the lock of the work folder cannot be had; to be asked at once.
std::string lockFailure();

class ExpirationRun {
 public:
  // `observer` and `foundUsers` are borrowed, and may be null (see RunContext).
  ExpirationRun(platform::Host host, const ServiceValues& values, PassObserver* observer,
                std::FILE* foundUsers = stdout)
      : context_{host, values, observer, foundUsers, config::DebugLog(values.debug), {}} {}

  // Asked between two users whether the pass is to end after the one in hand.
  void stopWhen(std::function<bool()> requested) { context_.stopRequested = std::move(requested); }

  // Mails leave by this instead of the mail library.
  void mailBy(notify::MailTransportMaker maker) { context_.makeTransport = std::move(maker); }

  // Once, before the first pass: the logo file, the kind of machine, which edition's keys to use.
  void prepare();
  // How long a worker that has just started has yet to wait for the machine to have come up, in ms.
  std::uint32_t startDelayMs() const;
  // Passes are to follow one another: the record of each then says when the next one is. Called
  // when the first could begin; the record of the last pass counts, whoever made that.
  void repeat();
  // No pass is made in its time: the next one is another's.
  void leaveOutPass() { schedule_.passBegan(base::wallSeconds(context_.host.clock.localTime())); }
  // Blocks for as long as the directory and the mail server take. Leaves the pass's record in the
  // work folder, and its figures in the file for metrics.
  PassRecord pass();
  // The time to sleep before the next pass, in ms, unless passTimes() says when it begins.
  std::uint32_t sleepMs() const { return sleepMs(currentSettings()); }
  // The times of day at which passes begin, by the settings as they are now; nothing when they set
  // none.
  std::optional<PassTimes> passTimes() const { return passTimes(currentSettings()); }
  // The seconds until the next pass begins by the times; 0: it is due.
  std::int64_t secondsToPass(const PassTimes& times) const;

 private:
  config::ExpirationSettings currentSettings() const;
  std::uint32_t sleepMs(const config::ExpirationSettings& settings) const;
  std::optional<PassTimes> passTimes(const config::ExpirationSettings& settings) const;
  std::int64_t nextBegin(std::int64_t ended, const config::ExpirationSettings& settings) const;
  LastRun describe(const PassRecord& record, const config::ExpirationSettings& settings) const;
  void leaveRecord(PassRecord& record);

  RunContext context_;
  bool repeats_ = false;
  PassSchedule schedule_;
  std::optional<std::int64_t> lastSuccess_;  // as LastRun has it; of a pass of this run
};

}  // namespace service
