// Line splitting over a buffer that is refilled in pieces; see the header.
#include "platform/text/byte_lines.h"

#include <algorithm>
#include <cstring>

namespace platform {
namespace {

// A read doubles the one before it: a short stream needs little memory, a long one few reads.
constexpr std::size_t kFirstReadBytes = std::size_t{4} << 10U;
constexpr std::size_t kMostReadBytes = std::size_t{256} << 10U;

}  // namespace

const ByteLine* ByteLines::peek() {
  if (peeked_) return &line_;
  const char* lineFeed = nullptr;
  std::size_t scanned = 0;
  dropped_ = 0;
  do {
    std::size_t unread = end_ - begin_;
    if (unread > scanned) {
      lineFeed = static_cast<const char*>(
          std::memchr(buffer_.data() + begin_ + scanned, '\n', unread - scanned));
    }
    scanned = unread;
    if (lineFeed == nullptr && unread > kMaxLineBytes) {
      dropped_ += unread - kMaxLineBytes;
      scanned = kMaxLineBytes;
      end_ = begin_ + kMaxLineBytes;
    }
  } while (lineFeed == nullptr && refill());
  if (lineFeed == nullptr && scanned == 0) return nullptr;

  const char* start = buffer_.data() + begin_;
  std::size_t size = lineFeed != nullptr ? static_cast<std::size_t>(lineFeed - start) : scanned;
  inBuffer_ = size + (lineFeed != nullptr ? 1 : 0);
  if (lineFeed != nullptr && size > 0 && start[size - 1] == '\r') --size;
  line_.cut = dropped_ > 0 || size > kMaxLineBytes;
  line_.text = std::string_view(start, line_.cut ? kMaxLineBytes : size);
  line_.number = lineNumber_;
  line_.offset = offset_;
  line_.endOffset = offset_ + size + dropped_;
  peeked_ = true;
  return &line_;
}

void ByteLines::consume() {
  begin_ += inBuffer_;
  offset_ += inBuffer_ + dropped_;
  ++lineNumber_;
  peeked_ = false;
}

bool ByteLines::refill() {
  if (begin_ > 0) {
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
  }
  readBytes_ = readBytes_ == 0 ? kFirstReadBytes : std::min(readBytes_ * 2, kMostReadBytes);
  if (buffer_.size() < end_ + readBytes_) buffer_.resize(end_ + readBytes_);
  std::size_t count = read_(buffer_.data() + end_, readBytes_);
  end_ += count;
  return count > 0;
}

}  // namespace platform
