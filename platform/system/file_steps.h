// The rules of files.h that hold on every system, over a system's own calls: what a line of text
// is, how a file is read to its end within a limit, and that all bytes are written. For files.cpp
// of each system only.
//
// A call that reads or writes answers the number of bytes, or less than 0 with errno set; trying
// again after an interruption is its own affair.
#pragma once

#include <array>
#include <cerrno>
#include <cstdio>
#include <string>
#include <string_view>

namespace platform {

// readTextLine() over `next`, the system's way to get one character without a lock.
template <typename Next>
bool readTextLineBy(Next next, std::FILE* file, std::size_t capacity, std::string& line) {
  line.clear();
  while (line.size() + 1 < capacity) {
    int c = next(file);
    if (c == EOF) break;
    if (c == '\r') {
      const int following = next(file);
      if (following == '\n') {
        c = '\n';
      } else if (following != EOF) {
        std::ungetc(following, file);
      }
    }
    line += static_cast<char>(c);
    if (c == '\n') break;
  }
  return !line.empty();
}

// Appends what is left of a file; on failure, EFBIG beyond `limit` among them, `bytes` is empty.
template <typename Read>
bool readToEnd(Read read, std::size_t limit, std::string& bytes) {
  std::array<char, 65536> buffer;
  for (;;) {
    const auto count = read(buffer.data(), buffer.size());
    if (count == 0) return true;
    const bool tooLong = count > 0 && static_cast<std::size_t>(count) > limit - bytes.size();
    if (count < 0 || tooLong) {
      bytes.clear();
      if (tooLong) errno = EFBIG;
      return false;
    }
    bytes.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

template <typename Write>
bool writeToEnd(Write write, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto count = write(bytes.data(), bytes.size());
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

}  // namespace platform
