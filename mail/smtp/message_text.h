// The text of a message as it goes out after DATA. One of many megabytes is made anew each time it
// is wanted, and never stands whole in memory. Used by the session.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace kelvado {

class Email2;

struct DataSize {
  std::uint64_t message = 0;      // as servers count it (RFC 1870): without the doubled dots
  std::uint64_t doubledDots = 0;  // on the wire in addition
};

class MessageText {
 public:
  // False: nothing more is wanted. The bytes are gone after the call.
  using Take = std::function<bool(std::string_view piece)>;

  // Both refer to what they are given, which outlives this and does not change meanwhile.
  explicit MessageText(std::string_view mime);
  explicit MessageText(const Email2& message);

  const DataSize& size() const { return size_; }
  // All of it in pieces of at most about 64 KB, without the terminator. False when `take` did not
  // want all of it.
  bool forEachPiece(const Take& take) const;

 private:
  void measure();
  bool encode(const Take& take, std::uint64_t& doubledDots) const;

  const Email2* message_ = nullptr;  // null: it is mime_
  std::string_view mime_;
  bool isShort_;
  std::string data_;  // a short text, encoded
  DataSize size_;
};

}  // namespace kelvado
