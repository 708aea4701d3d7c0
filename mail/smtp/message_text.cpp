#include "mail/smtp/message_text.h"

#include "mail/mime/email2.h"
#include "mail/smtp/wire_text.h"

namespace kelvado {
namespace {

// Between two pieces progress is reported and the application may abort. A text that is not longer
// is made once.
constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;

}  // namespace

MessageText::MessageText(std::string_view mime)
    : mime_(mime), sizeEstimate_(mime.size()), isShort_(sizeEstimate_ <= kPieceBytes) {}

MessageText::MessageText(const Email2& message)
    : message_(&message),
      sizeEstimate_(message.sizeEstimate()),
      isShort_(sizeEstimate_ <= kPieceBytes) {}

const DataSize& MessageText::size() {
  if (size_) return *size_;
  std::uint64_t bytes = 0;
  std::uint64_t doubledDots = 0;
  encode(
      [&](std::string_view piece) {
        bytes += piece.size();
        if (isShort_) data_.append(piece);
        return true;
      },
      doubledDots);
  return size_.emplace(DataSize{bytes - doubledDots, doubledDots});
}

bool MessageText::forEachPiece(const Take& take) {
  size();
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
