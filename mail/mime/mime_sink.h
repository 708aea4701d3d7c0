// Where the writer of MIME text puts it: into one string that grows, or piece by piece to somebody
// who takes it, so that a message of many megabytes never stands whole in memory.
// Used by MimeMessage2.
#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace kelvado {

class MimeSink {
 public:
  // The bytes are gone after the call. False: nothing more is wanted.
  using Take = std::function<bool(std::string_view bytes)>;

  // All of the text is appended to `text`, which outlives the sink.
  explicit MimeSink(std::string& text) : text_(text) {}
  // `take` gets it in pieces, each at least kPieceBytes long, but for the last one.
  explicit MimeSink(Take take) : text_(piece_), take_(std::move(take)) {}
  MimeSink(const MimeSink&) = delete;
  MimeSink& operator=(const MimeSink&) = delete;

  // Before the first byte: about how many will come.
  void expect(std::size_t bytes) {
    text_.reserve(text_.size() + (take_ == nullptr ? bytes : std::min(bytes, 2 * kPieceBytes)));
  }
  // To append to.
  std::string& text() { return text_; }
  // To be called whenever a block was appended. False when no more is wanted.
  bool drain() { return take_ == nullptr || (isOpen_ && piece_.size() < kPieceBytes) || handOn(); }
  // At the end. False when not all of the text was taken.
  bool finish() { return take_ == nullptr || (isOpen_ && piece_.empty()) || handOn(); }

 private:
  static constexpr std::size_t kPieceBytes = std::size_t{32} * 1024;

  bool handOn() {
    isOpen_ = isOpen_ && take_(piece_);
    piece_.clear();
    return isOpen_;
  }

  std::string piece_;
  std::string& text_;
  Take take_;
  bool isOpen_ = true;
};

}  // namespace kelvado
