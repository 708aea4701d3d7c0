// One SMTP server reply, possibly of many lines (RFC 5321 section 4.2), and the extension list in
// the reply to EHLO (section 4.1.1.1). Pure: fed with lines, never blocks. Limits: lines of
// kMaxReplyLineBytes, replies of kMaxReplyLines and kMaxReplyBytes.
#pragma once

#include <cstddef>
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
  // EHLO's reply ends at a line with a blank behind its 250; any other, and one to EHLO that is not
  // 250, at the first line without a '-' there.
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

// The methods a server may list, in no order of preference. Bits of SmtpExtensions::authMethods.
enum AuthMethod : unsigned {
  kAuthLogin = 1U << 0,
  kAuthNtlm = 1U << 1,
  kAuthMsn = 1U << 2,
  kAuthCramMd5 = 1U << 3,
  kAuthPlain = 1U << 4,
  kAuthDigestMd5 = 1U << 5,
  kAuthGssapi = 1U << 6,
  kAuthKerberosV4 = 1U << 7,
  kAuthAnonymous = 1U << 8,
};

struct SmtpExtensions {
  bool dsn = false;
  bool pipelining = false;  // RFC 2920
  unsigned authMethods = 0;
};

// The extensions in a complete reply to EHLO. Nothing when a line of it does not carry 250.
// Keywords count in any letter case; "AUTH=LOGIN", an old spelling, lists nothing.
std::optional<SmtpExtensions> parseEhloReply(std::string_view text);

}  // namespace kelvado
