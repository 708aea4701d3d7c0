#include "mail/smtp/smtp_reply.h"

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

struct MethodName {
  const char* name;  // as it stands in the list, with the blank before it
  unsigned method;
};

constexpr MethodName kMethodNames[] = {
    {" LOGIN", kAuthLogin},
    {" NTLM", kAuthNtlm},
    {" MSN", kAuthMsn},
    {" GSSAPI", kAuthGssapi},
    {" ANONYMOUS", kAuthAnonymous},
    {" PLAIN", kAuthPlain},
    {" CRAM-MD5", kAuthCramMd5},
    {" DIGEST-MD5", kAuthDigestMd5},
    {" KERBEROS_V4", kAuthKerberosV4},
};

void noteExtension(std::string_view keywords, SmtpExtensions& extensions) {
  if (base::beginsWithNoCase(keywords, "DSN")) {
    extensions.dsn = true;
  } else if (base::equalsNoCase(base::trimmed(keywords), "PIPELINING")) {
    extensions.pipelining = true;
  } else if (base::beginsWithNoCase(keywords, "AUTH ")) {
    for (const MethodName& row : kMethodNames) {
      if (base::containsNoCase(keywords, row.name)) extensions.authMethods |= row.method;
    }
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
  // Nonsense in place of an EHLO reply has no line with a blank to wait for.
  const bool goesOn = separator == '-' || (ending_ == Ending::Blank && separator != ' ' &&
                                           parseCode(line) == kEhloCode);
  if (goesOn) return Progress::More;
  code_ = parseCode(line);
  return Progress::Complete;
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
