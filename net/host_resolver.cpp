#include "net/host_resolver.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#include "base/text.h"

namespace kelvado {
namespace {

// Shared with the look-up's thread, which may outlive the wait.
struct Lookup {
  std::mutex mutex;
  std::condition_variable finished;
  bool done = false;
  platform::SocketError error = platform::kSocketOk;
  platform::ResolvedHost host;
};

void runLookup(platform::SocketApi& api, const std::string& name,
               const std::shared_ptr<Lookup>& lookup) {
  platform::ResolvedHost host;
  const platform::SocketError error = api.resolve(name, host);
  const std::lock_guard<std::mutex> lock(lookup->mutex);
  lookup->error = error;
  lookup->host = std::move(host);
  lookup->done = true;
  lookup->finished.notify_all();
}

std::thread startLookup(platform::SocketApi& api, const std::string& name,
                        const std::shared_ptr<Lookup>& lookup) {
  try {
    return std::thread([&api, name, lookup] { runLookup(api, name, lookup); });
  } catch (const std::system_error&) {
    runLookup(api, name, lookup);  // no thread can be made: without one the time-out cannot be kept
    return {};
  }
}

bool waitForLookup(Lookup& lookup, std::uint32_t timeoutMs, LookupResult& result, Call& call) {
  const Countdown left(timeoutMs, call.progress.clock());
  std::unique_lock<std::mutex> lock(lookup.mutex);
  for (;;) {
    const std::uint32_t slice = call.progress.sliceMs(left.remaining());
    if (lookup.finished.wait_for(lock, std::chrono::milliseconds(slice),
                                 [&lookup] { return lookup.done; })) {
      return true;
    }
    result.aborted = call.progress.abortCheck();
    result.timedOut = !result.aborted && left.remaining() == 0;
    if (result.aborted || result.timedOut) return false;
  }
}

}  // namespace

bool isDottedAddress(const std::string& text) {
  int numbers = 0;
  int value = -1;  // -1: no digit of this number yet
  for (const char c : text + ".") {
    if (c >= '0' && c <= '9') {
      if (value == 0) return false;  // "010": some read that as octal; the system decides
      value = (value < 0 ? 0 : value * 10) + (c - '0');
      if (value > 255) return false;
    } else if (c == '.' && value >= 0) {
      ++numbers;
      value = -1;
    } else {
      return false;
    }
  }
  return numbers == 4;
}

bool resolveHost(platform::SocketApi& api, const std::string& host, std::uint32_t timeoutMs,
                 LookupResult& result, Call& call) {
  result = {};
  if (host.empty()) {
    call.log.LogError("DNS lookup failed; hostname is empty");
    return false;
  }
  if (isDottedAddress(host)) {
    call.log.LogInfo("IP address passed to DNS lookup");
    result.addresses.push_back(host);
    return true;
  }
  const auto lookup = std::make_shared<Lookup>();
  std::thread thread = startLookup(api, host, lookup);
  const bool answered = waitForLookup(*lookup, timeoutMs, result, call);
  // Left alone only while it still waits. By MinGW's library a thread that is made while a detached
  // one ends does not always begin, about once in some hundred times.
  if (answered && thread.joinable()) {
    thread.join();
  } else if (thread.joinable()) {
    thread.detach();
  }
  if (!answered) {
    call.log.LogError(result.aborted ? "DNS lookup aborted by application callback.."
                                     : "DNS timed out.");
    return false;
  }
  if (lookup->error != platform::kSocketOk || lookup->host.addresses.empty()) {
    call.log.LogError("Cannot get host by name.");
    call.log.LogData("hostname", base::loggable(host));
    call.log.LogError("DNS lookup failed.");
    return false;
  }
  result.addresses = lookup->host.addresses;
  return true;
}

}  // namespace kelvado
