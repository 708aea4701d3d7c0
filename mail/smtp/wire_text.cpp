#include "mail/smtp/wire_text.h"

#include <algorithm>

#include "base/ascii.h"
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
  std::size_t taken = at;  // up to here it is in `out`; what needs no change goes there at once
  const auto takeUntil = [&](std::size_t end, std::string_view more) {
    out.append(text.substr(taken, end - taken)).append(more);
    taken = end;
  };
  while (at < text.size()) {
    if (afterLineEnd_ && text[at] == '.') {
      takeUntil(at, ".");
      ++doubledDots_;
    }
    const std::size_t end = at + base::lineLength(text.substr(at));
    afterLineEnd_ = end < text.size();
    if (!afterLineEnd_) break;
    const bool pair = text.substr(end, 2) == "\r\n";
    at = end + (pair ? 2 : 1);
    if (pair) continue;
    takeUntil(end, "\r\n");
    taken = at;
    afterCr_ = text[end] == '\r' && at == text.size();
  }
  takeUntil(text.size(), {});
}

}  // namespace kelvado
