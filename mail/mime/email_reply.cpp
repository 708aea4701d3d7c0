#include "mail/mime/email_reply.h"

#include "base/ascii.h"
#include "base/html.h"
#include "base/log_base.h"
#include "base/text.h"

namespace kelvado {
namespace {

constexpr std::string_view kPlain = "text/plain";
constexpr std::string_view kHtml = "text/html";
// What text between tags cannot hold.
constexpr std::string_view kTextSpecials = "&<>";

std::string subjectWith(std::string_view prefix, const Email2& original) {
  std::string subject = original.headerField("Subject");
  if (base::beginsWithNoCase(subject, base::trimmed(prefix))) return subject;
  return std::string(prefix) + subject;
}

// "> " before every line.
std::string quoted(std::string_view text) {
  std::string lines;
  base::appendWithCrLf(text, lines);
  std::string out;
  for (std::string_view rest = lines; !rest.empty();) {
    const std::size_t end = rest.find("\r\n");
    const std::size_t length = end == std::string_view::npos ? rest.size() : end + 2;
    out.append(rest.front() == '>' ? ">" : "> ").append(rest.substr(0, length));
    rest.remove_prefix(length);
  }
  return out;
}

void quoteText(const Email2& original, Email2& reply) {
  const std::string intro =
      "On " + original.headerField("Date") + ", " + formatAddress(original.from()) + " wrote:";
  if (const Email2* plain = original.findText(kPlain)) {
    reply.setOwnText("\r\n" + intro + "\r\n" + quoted(plain->textBody()), kPlain);
  } else if (const Email2* html = original.findText(kHtml)) {
    reply.setOwnText("<p></p><p>" + base::escapeHtml(intro, kTextSpecials) +
                         "</p>\r\n<blockquote>\r\n" + html->textBody() + "\r\n</blockquote>\r\n",
                     kHtml);
  }
}

std::string originalFields(const Email2& original) {
  std::string out = "-----Original Message-----\r\n";
  for (const std::string_view name : {"From", "Date", "To", "Cc", "Subject"}) {
    const std::string value = original.headerField(name);
    if (!value.empty()) out.append(name).append(": ").append(value).append("\r\n");
  }
  return out;
}

}  // namespace

std::unique_ptr<Email2> createReplyTo(const Email2& original, base::LogBase& log) {
  auto reply = Email2::createMessage(log);
  const std::string replyTo = original.headerField("Reply-To");
  const EmailAddress to = replyTo.empty() ? original.from() : parseAddress(replyTo);
  const std::vector<EmailAddress> receivers = original.recipientList(RecipientKind::To);
  if (!receivers.empty()) reply->setFrom(formatAddress(receivers.front()));
  reply->addRecipient(RecipientKind::To, to);  // an original without a sender gives no recipient
  reply->setHeaderField("Subject", subjectWith("Re: ", original), log);
  const std::string id = original.headerField("Message-ID");
  if (!id.empty()) {
    reply->setHeaderField("In-Reply-To", id, log);
    const std::string thread = original.headerField("References");
    reply->setHeaderField("References", thread.empty() ? id : thread + " " + id, log);
  }
  quoteText(original, *reply);
  return reply;
}

std::unique_ptr<Email2> createForwardOf(const Email2& original, base::LogBase& log) {
  const std::string fields = originalFields(original);
  const auto content = original.clone();
  Email2* html = content->findText(kHtml);
  Email2* plain = content->findText(kPlain);
  if (html != nullptr) {
    std::string block = base::escapeHtml(fields, kTextSpecials);
    base::replaceAll(block, "\r\n", "<br>\r\n");
    html->setTextBody("<p>" + block + "</p>\r\n" + html->textBody());
  }
  if (plain != nullptr) plain->setTextBody("\r\n" + fields + "\r\n" + plain->textBody());

  auto forward = Email2::createMessage(log);
  if (html != nullptr || plain != nullptr) {
    forward->takeContent(*content);
  } else {
    forward->setOwnText("\r\n" + fields, kPlain);
    auto attachment = Email2::createPart(kPlain, "7bit");
    attachment->takeContent(*content);
    forward->addAttachment(std::move(attachment));
  }
  forward->setHeaderField("Subject", subjectWith("Fwd: ", original), log);
  return forward;
}

}  // namespace kelvado
