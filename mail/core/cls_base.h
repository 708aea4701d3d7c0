// What the implementation classes share: the log, and the bracket in which every public method
// runs.
#pragma once

#include <string_view>

#include "mail/core/error_log.h"
#include "mail/core/validity.h"

namespace kelvado {

class ClsBase {
 public:
  virtual ~ClsBase() = default;

  ErrorLog& log() {
    validity_.check();
    return log_;
  }

 private:
  ValidityByte<0x5C> validity_;
  ErrorLog log_;
};

// The frame of a public method: clears the log and opens a context of the method's name, exactly as
// the public class spells it, with the build date; the context is closed at the end. On failure the
// method logs one error. The log can be read after success as well.
class MethodBracket {
 public:
  MethodBracket(ClsBase& object, std::string_view method);
  ~MethodBracket() { log_.LeaveContext(); }
  MethodBracket(const MethodBracket&) = delete;
  MethodBracket& operator=(const MethodBracket&) = delete;

  ErrorLog& log() const { return log_; }
  // Logs the error; false, so that a method can end with `return bracket.fail("...")`.
  bool fail(std::string_view error) const {
    log_.LogError(error);
    return false;
  }

 private:
  ErrorLog& log_;
};

}  // namespace kelvado
