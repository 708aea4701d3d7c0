#include "mail/smtp/wire_text.h"

#include <algorithm>

#include "base/text.h"
#include "base/unicode.h"
#include "mail/mime/email_address.h"

namespace kelvado {
namespace {

// Longer than any address in use, and short enough for one command line of any server.
constexpr std::size_t kMaxAddressBytes = 900;

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

void DataEncoder::append(std::string_view text, std::string& out) {
  if (text.empty()) return;
  std::size_t at = afterCr_ && text.front() == '\n' ? 1 : 0;
  afterCr_ = false;
  std::size_t taken = at;  // up to here it stands in `out`; line ends that are CR LF wait for more
  std::size_t feed = 0;
  const auto takeUntil = [&](std::size_t end, std::string_view instead) {
    out.append(text.substr(taken, end - taken)).append(instead);
    taken = end;
  };
  while (at < text.size()) {
    if (afterLineEnd_ && text[at] == '.') {
      takeUntil(at, ".");
      ++doubledDots_;
    }
    if (feed <= at) feed = std::min(text.find('\n', at), text.size());
    const std::size_t end = std::min(text.substr(at, feed - at).find('\r'), feed - at) + at;
    afterLineEnd_ = end < text.size();
    if (!afterLineEnd_) break;
    const bool pair = end + 1 == feed && feed < text.size();
    at = pair ? feed + 1 : end + 1;
    if (pair) continue;
    afterCr_ = text[end] == '\r' && at == text.size();
    takeUntil(end, "\r\n");
    taken = at;
  }
  takeUntil(text.size(), {});
}

}  // namespace kelvado
