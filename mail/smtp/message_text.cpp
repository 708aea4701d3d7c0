#include "mail/smtp/message_text.h"

#include <algorithm>

#include "mail/mime/email2.h"
#include "mail/smtp/wire_text.h"

namespace kelvado {
namespace {

// Between two pieces progress is reported and the application may abort. A text that is not longer
// is made once.
constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;

}  // namespace

MessageText::MessageText(std::string_view mime)
    : mime_(mime), isShort_(mime.size() <= kPieceBytes) {
  measure();
}

MessageText::MessageText(const Email2& message)
    : message_(&message), isShort_(message.sizeEstimate() <= kPieceBytes) {
  measure();
}

// A server that limits the size, and the log, are to know it before the text goes out.
void MessageText::measure() {
  std::uint64_t bytes = 0;
  encode(
      [&](std::string_view piece) {
        bytes += piece.size();
        if (isShort_) data_.append(piece);
        return true;
      },
      size_.doubledDots);
  size_.message = bytes - size_.doubledDots;
}

bool MessageText::forEachPiece(const Take& take) const {
  std::uint64_t doubledDots = 0;
  return isShort_ ? take(data_) : encode(take, doubledDots);
}

bool MessageText::encode(const Take& take, std::uint64_t& doubledDots) const {
  DataEncoder encoder;
  std::string piece;
  const auto encodeMore = [&](std::string_view mime) {
    while (!mime.empty()) {
      if (piece.size() >= kPieceBytes) {
        if (!take(piece)) return false;
        piece.clear();
      }
      const std::string_view part = mime.substr(0, kPieceBytes - piece.size());
      encoder.append(part, piece);
      mime.remove_prefix(part.size());
    }
    return true;
  };
  const bool all = message_ == nullptr ? encodeMore(mime_) : message_->writeMime(encodeMore);
  doubledDots = encoder.doubledDots();
  return all && (piece.empty() || take(piece));
}

}  // namespace kelvado
