#include "mail/smtp/wire_text.h"

#include <algorithm>

#include "base/text.h"
#include "base/unicode.h"
#include "mail/mime/email_address.h"

namespace kelvado {
namespace {

// Longer than any address in use, and short enough for one command line of any server.
constexpr std::size_t kMaxAddressBytes = 900;

bool isLineEnd(char c) {
  return c == '\r' || c == '\n';
}

}  // namespace

bool isSafeText(std::string_view value) {
  return std::none_of(value.begin(), value.end(), base::isControl);
}

bool isSafeWord(std::string_view value) {
  return isSafeText(value) && value.find(' ') == std::string_view::npos;
}

bool isSafeAddress(std::string_view address) {
  if (address.empty() || address.size() > kMaxAddressBytes || !isSafeText(address)) return false;
  if (address.find_first_of("<>") != std::string_view::npos) return false;
  if (!base::isValidUtf8(address)) return false;
  // Blanks are allowed in quoted names and X.400 addresses only. More is not asked: a server may
  // know local names without a domain.
  return address.find(' ') == std::string_view::npos || isSendableAddress(address);
}

DataSize dataSize(std::string_view text) {
  DataSize size{text.size(), 0};
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool pair = text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n';
    if (!isLineEnd(text[i]) || pair) continue;
    // Behind the line end; one that is not a pair becomes one.
    const bool secondOfPair = text[i] == '\n' && i > 0 && text[i - 1] == '\r';
    if (!secondOfPair) ++size.message;
    if (i + 1 < text.size() && text[i + 1] == '.') ++size.doubledDots;
  }
  return size;
}

bool DataEncoder::next(std::size_t size, std::string& piece) {
  piece.clear();
  while (!rest_.empty() && piece.size() < size) {
    if (afterLineFeed_ && rest_.front() == '.') piece += '.';
    // A very long line goes out in parts; nothing of it needs a change.
    const std::string_view window = rest_.substr(0, size);
    const auto end = std::find_if(window.begin(), window.end(), isLineEnd);
    const auto plain = static_cast<std::size_t>(end - window.begin());
    piece.append(window.substr(0, plain));
    rest_.remove_prefix(plain);
    afterLineFeed_ = false;
    if (plain == window.size()) continue;
    const bool pair = rest_.size() > 1 && rest_[0] == '\r' && rest_[1] == '\n';
    rest_.remove_prefix(pair ? 2 : 1);
    piece += "\r\n";
    afterLineFeed_ = true;
  }
  return !piece.empty();
}

}  // namespace kelvado
