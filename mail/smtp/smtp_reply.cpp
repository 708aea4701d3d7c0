#include "mail/smtp/smtp_reply.h"

#include <algorithm>
#include <charconv>

#include "base/ascii.h"

namespace kelvado {
namespace {

constexpr std::size_t kCodeDigits = 3;
constexpr int kEhloCode = 250;  // in every line of its reply

int parseCode(std::string_view line) {
  int code = 0;
  for (const char c : line.substr(0, kCodeDigits)) {
    if (c < '0' || c > '9') return kBadReplyCode;
    code = code * 10 + (c - '0');
  }
  return code;
}

// The number behind a keyword; 0 when there is none that can be one.
std::uint64_t parseLimit(std::string_view text) {
  std::uint64_t limit = 0;
  text = base::trimmed(text);
  std::from_chars(text.data(), text.data() + text.size(), limit);
  return limit;
}

void noteExtension(std::string_view keywords, SmtpExtensions& extensions) {
  constexpr std::string_view kAuth = "AUTH";
  constexpr std::string_view kSize = "SIZE ";
  if (base::beginsWithNoCase(keywords, "DSN")) {
    extensions.dsn = true;
  } else if (base::equalsNoCase(base::trimmed(keywords), "PIPELINING")) {
    extensions.pipelining = true;
  } else if (base::equalsNoCase(base::trimmed(keywords), "SMTPUTF8")) {
    extensions.smtpUtf8 = true;
  } else if (base::beginsWithNoCase(keywords, kSize)) {
    extensions.maxSize = parseLimit(keywords.substr(kSize.size()));
  } else if (base::beginsWithNoCase(keywords, std::string(kAuth) + " ")) {
    extensions.authMethods += keywords.substr(kAuth.size());
  }
}

}  // namespace

SmtpReply::Progress SmtpReply::addLine(std::string_view line) {
  if (line.size() >= 2 && line.substr(line.size() - 2) == "\r\n") line.remove_suffix(2);
  if (++lines_ > kMaxReplyLines || text_.size() + line.size() + 2 > kMaxReplyBytes) {
    return Progress::TooLong;
  }
  text_.append(line).append("\r\n");
  if (line.size() <= kCodeDigits) return Progress::Unrecognized;
  const char separator = line[kCodeDigits];
  // Where the code is not EHLO's there may never be a line with a blank to wait for.
  const bool goesOn = separator == '-' || (ending_ == Ending::Blank && separator != ' ' &&
                                           parseCode(line) == kEhloCode);
  if (goesOn) return Progress::More;
  code_ = parseCode(line);
  return Progress::Complete;
}

std::string oneLine(std::string_view text) {
  constexpr std::size_t kMaxBytes = 512;
  std::string line(text.substr(0, text.find("\r\n")));
  const bool coded = parseCode(text) >= 0;
  if (coded && line.size() > kCodeDigits) line[kCodeDigits] = ' ';
  for (std::size_t end = line.size(); end < text.size();) {
    text.remove_prefix(end + 2 > text.size() ? text.size() : end + 2);
    end = std::min(text.find("\r\n"), text.size());
    const std::string_view more = text.substr(0, end);
    if (more.size() <= kCodeDigits) continue;
    line.append(" ").append(more.substr(coded ? kCodeDigits + 1 : 0));
  }
  if (line.size() <= kMaxBytes) return line;
  std::size_t end = kMaxBytes;
  while ((line[end] & 0xC0) == 0x80) --end;  // not within a character
  return line.substr(0, end) + "...";
}

std::optional<SmtpExtensions> parseEhloReply(std::string_view text) {
  SmtpExtensions extensions;
  while (!text.empty()) {
    const std::size_t end = text.find("\r\n");
    const std::string_view line = text.substr(0, end);
    if (line.size() <= kCodeDigits || parseCode(line) != kEhloCode) return std::nullopt;
    noteExtension(line.substr(kCodeDigits + 1), extensions);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 2);
  }
  return extensions;
}

}  // namespace kelvado
