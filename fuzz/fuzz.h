// What the fuzzers share: the input as text, and invariants that hold in every build.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include <sanitizer/lsan_interface.h>

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// Takes the text up to the separator off the input; all of it when there is none.
inline std::string_view takeUpTo(char separator, std::string_view& input) {
  const std::size_t end = input.find(separator);
  const std::string_view taken = input.substr(0, end);
  input.remove_prefix(end == std::string_view::npos ? input.size() : end + 1);
  return taken;
}

inline void require(bool holds) {
  if (!holds) std::abort();
}

inline void requireLines(std::string_view text, std::size_t longest) {
  while (!text.empty()) require(takeUpTo('\n', text).size() <= longest + 1);  // the CR
}

// While it lives, nothing that is allocated counts as leaked: for calls into a library that leaks.
class ForeignLeaks {
 public:
  ForeignLeaks() { __lsan_disable(); }
  ~ForeignLeaks() { __lsan_enable(); }
  ForeignLeaks(const ForeignLeaks&) = delete;
  ForeignLeaks& operator=(const ForeignLeaks&) = delete;
};
