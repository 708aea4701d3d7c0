// One SMTP server reply, possibly of many lines (RFC 5321 section 4.2), and the extension list in
// the reply to EHLO (section 4.1.1.1). Pure: fed with lines, never blocks. Limits: lines of
// kMaxReplyLineBytes, replies of kMaxReplyLines and kMaxReplyBytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kelvado {

// The longest line that an authentication exchange may need (RFC 4954 section 4), CR LF included.
inline constexpr std::size_t kMaxReplyLineBytes = 12'288;
inline constexpr std::size_t kMaxReplyLines = 128;  // no server lists more extensions than that
inline constexpr std::size_t kMaxReplyBytes = 64 * 1024;

inline constexpr int kNoReplyCode = -1;   // no reply was received
inline constexpr int kBadReplyCode = -2;  // its first three characters are not a number

class SmtpReply {
 public:
  // Blank, for EHLO: the reply ends at a line with a blank behind its 250, or at the first line
  // that is neither 250 nor has a '-' there. NoHyphen, for the others: at the first line without
  // the '-'.
  enum class Ending { NoHyphen, Blank };
  enum class Progress { More, Complete, Unrecognized, TooLong };

  explicit SmtpReply(Ending ending = Ending::NoHyphen) : ending_(ending) {}

  // `line` ends in CR LF. Unrecognized: shorter than a code and a separator.
  Progress addLine(std::string_view line);

  int code() const { return code_; }
  const std::string& text() const { return text_; }  // all lines as received, CR LF included

 private:
  Ending ending_;
  std::size_t lines_ = 0;
  int code_ = kNoReplyCode;
  std::string text_;
};

struct SmtpExtensions {
  bool dsn = false;           // RFC 3461
  bool pipelining = false;    // RFC 2920
  bool smtpUtf8 = false;      // RFC 6531
  std::uint64_t maxSize = 0;  // of a message, in bytes (RFC 1870); 0: none given
  std::string authMethods;    // as listed, a blank before each; smtp_auth.cpp knows the names
};

// The text of a reply on one line: the code once, the texts of its lines with blanks between them.
// Cut at 512 bytes.
std::string oneLine(std::string_view text);

// The extensions in a complete reply to EHLO. Nothing when a line of it does not carry 250.
// Keywords count in any letter case; "AUTH=LOGIN", an old spelling, lists nothing.
std::optional<SmtpExtensions> parseEhloReply(std::string_view text);

}  // namespace kelvado
