#include "mail/smtp/wire_text.h"

#include <algorithm>

#include "mail/mime/email_address.h"
#include "platform/code_page.h"

namespace kelvado {
namespace {

// Longer than any address in use, and short enough for one command line of any server.
constexpr std::size_t kMaxAddressBytes = 900;
constexpr std::size_t kMaxLoggedBytes = 4096;

bool isControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7F;
}

bool isLineEnd(char c) {
  return c == '\r' || c == '\n';
}

bool isCarriedByLog(char c, bool validUtf8) {
  if (c == '\r' || c == '\n' || c == '\t') return true;
  return !isControl(c) && (validUtf8 || static_cast<unsigned char>(c) < 0x80);
}

}  // namespace

bool isSafeText(std::string_view value) {
  return std::none_of(value.begin(), value.end(), isControl);
}

bool isSafeWord(std::string_view value) {
  return isSafeText(value) && value.find(' ') == std::string_view::npos;
}

bool isSafeAddress(std::string_view address) {
  if (address.empty() || address.size() > kMaxAddressBytes || !isSafeText(address)) return false;
  if (address.find_first_of("<>") != std::string_view::npos) return false;
  // Blanks are at home in quoted names and X.400 addresses only. More is not asked: a server may
  // know local names, and names beyond ASCII.
  return address.find(' ') == std::string_view::npos || isSendableAddress(address);
}

std::string loggable(std::string_view text) {
  const bool cut = text.size() > kMaxLoggedBytes;
  text = text.substr(0, kMaxLoggedBytes);
  // A character cut in half makes the rest bytes, which is as readable for what a log is for.
  const bool validUtf8 = platform::isValidUtf8(text);
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    if (isCarriedByLog(c, validUtf8)) {
      if (c == '>' && out.size() >= 2 && out.compare(out.size() - 2, 2, "]]") == 0) out += ' ';
      out += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      out.append("\\x").append(1, kHex[byte >> 4]).append(1, kHex[byte & 15]);
    }
  }
  if (cut) out += "...";
  return out;
}

std::string loggableLine(std::string_view text) {
  std::string line = loggable(text);
  std::replace_if(
      line.begin(), line.end(), [](char c) { return c == '\r' || c == '\n'; }, ' ');
  return line;
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
