// A text log that a pass leaves for people and programs to read: who expires soon, who was expired,
// who was skipped. Each write opens the file and closes it again. A line that cannot be written is
// a problem of the pass, said once for each file; where the folder of the logs is missing, which is
// how a service without the debug log runs, the lines are dropped.
// One object for each file and pass, used by its thread.
#pragma once

#include <string>

#include "config/findings.h"

namespace config {

class AuditLog {
 public:
  // `file` and `findings` are borrowed. A null file takes every line, and keeps none.
  AuditLog(const char* file, Findings& findings) : file_(file), findings_(findings) {}

  // Starts the file anew with this line.
  void recreate(const std::string& heading);
  // `line` ends in "\n". A line that an earlier write left unfinished, on a full disk say, is ended
  // first.
  void append(const std::string& line);

 private:
  void sayFailed();

  const char* file_;
  Findings& findings_;
  bool failed_ = false;
};

}  // namespace config
