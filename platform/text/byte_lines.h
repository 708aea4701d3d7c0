// Lines of a stream of bytes, each with its place in the stream; LF or CR LF ends a line, and so
// does the end of the stream. Used by LdifReader. Memory is bounded: of a line past kMaxLineBytes
// only the beginning is kept.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <utility>
#include <vector>

namespace platform {

// Longer than any attribute value a pass needs (a security descriptor is at most 64 KiB).
inline constexpr std::size_t kMaxLineBytes = std::size_t{1} << 20U;

struct ByteLine {
  std::string_view text;        // without the line end; valid until consume()
  std::uint64_t number = 0;     // from 1
  std::uint64_t offset = 0;     // of the first byte
  std::uint64_t endOffset = 0;  // after the last, line end not counted
  bool cut = false;             // `text` is only the beginning
};

class ByteLines {
 public:
  // Puts at most `capacity` bytes into `buffer` and returns how many; 0 at the end.
  using ReadBytes = std::function<std::size_t(char* buffer, std::size_t capacity)>;

  explicit ByteLines(ReadBytes read) : read_(std::move(read)) {}

  // The current line, the same until consume(); null at the end.
  const ByteLine* peek();
  void consume();

 private:
  bool refill();

  ReadBytes read_;
  std::vector<char> buffer_;
  std::size_t readBytes_ = 0;        // of the last read
  std::size_t begin_ = 0, end_ = 0;  // what is unread in buffer_
  std::uint64_t offset_ = 0;         // of buffer_[begin_] in the stream
  std::uint64_t lineNumber_ = 1;
  ByteLine line_;
  bool peeked_ = false;
  std::size_t inBuffer_ = 0;   // bytes of the current line, its end included,
  std::uint64_t dropped_ = 0;  // and those of it that are not in the buffer any more
};

}  // namespace platform
