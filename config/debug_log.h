// The debug log "logfiles\Norvyn-expiration-debug.log" and the switch that gates it.
// Every line opens the file, writes and closes it again, so that the file is whole at any moment
// and may be moved away while the service runs. A line that cannot be written is dropped. Used by
// the thread of the pass; one object per worker.
#pragma once

#include <string_view>

namespace config {

class DebugLog {
 public:
  explicit DebugLog(bool enabled = true) : enabled_(enabled) {}
  // One that has no file: printAlways() writes nothing either.
  static DebugLog nowhere() {
    DebugLog log(false);
    log.hasFile_ = false;
    return log;
  }

  bool enabled() const { return enabled_; }

  // Starts the file anew, empty, when enabled.
  void recreate();
  // Appends printf-style text as it stands (a line end is part of the text), when enabled.
  [[gnu::format(printf, 2, 3)]] void print(const char* format, ...);
  // Appends whether enabled or not.
  void printAlways(std::string_view text);

 private:
  bool enabled_;
  bool hasFile_ = true;
};

}  // namespace config
