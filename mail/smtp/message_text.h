// The text of a message as it goes out after DATA. A short one is made once, when it is first asked
// for. One of many megabytes is made anew each time, and never stands whole in memory. Used by the
// session; one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
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

  // About the size of the text, or less; known without making it.
  std::size_t sizeEstimate() const { return sizeEstimate_; }
  const DataSize& size();
  // All of it in pieces of at most about 64 KB, without the terminator. False when `take` did not
  // want all of it.
  bool forEachPiece(const Take& take);

 private:
  bool encode(const Take& take, std::uint64_t& doubledDots) const;

  const Email2* message_ = nullptr;  // null: it is mime_
  std::string_view mime_;
  std::size_t sizeEstimate_;
  bool isShort_;
  std::string data_;  // a short text, encoded
  std::optional<DataSize> size_;
};

}  // namespace kelvado
