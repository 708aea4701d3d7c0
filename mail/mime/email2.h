// The internal message: a tree of MIME parts, each with its header, content type, transfer
// encoding, body and children. KvEmail builds one; the mail-sending object takes a copy, prepares
// it and writes it. Text bodies and header values are held as UTF-8 and converted when written.
// Bodies are shared between copies, so copying a message does not copy its attachments. Not shared
// between threads.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mail/mime/content_type.h"
#include "mail/mime/data_buffer.h"
#include "mail/mime/email_address.h"
#include "mail/mime/log_base.h"
#include "mail/mime/mime_header.h"

namespace kelvado {

enum class RecipientKind { To, Cc, Bcc };

// How a body's line ends are treated when it is written.
enum class BodyKind {
  Text,   // lines: any line end becomes CR LF
  Exact,  // a file's bytes: encoded so that they come back as they are
};

class Email2 {
 public:
  // A message with the default fields of a new one.
  static std::unique_ptr<Email2> createMessage(LogBase& log);
  // A part without a message's own fields.
  static std::unique_ptr<Email2> createPart(std::string_view contentType,
                                            std::string_view transferEncoding);
  // A container with a fresh boundary: "multipart/mixed", "/alternative" or "/related".
  static std::unique_ptr<Email2> createContainer(std::string_view contentType);

  ~Email2();
  std::unique_ptr<Email2> clone() const;

  // --- header ---

  // Takes line breaks and NULs out of the value. An empty name is ignored; a name that can't be a
  // field's, or a Content-Type that does not fit the part's structure, is refused and logged.
  // "Content-Transfer-Encoding", "Content-ID", "Content-Type", "Date", "From" and "Reply-To" go
  // through their own setters. A value that is not ASCII gives a message without a charset one
  // that can carry it.
  bool setHeaderField(std::string_view name, std::string_view value, LogBase& log);
  void removeHeaderField(std::string_view name);
  // Unfolded, as UTF-8; empty when there is none.
  std::string headerField(std::string_view name) const;
  const MimeHeader& header() const { return header_; }

  // One address, with or without a display name. Ignored without an '@'.
  void setFrom(std::string_view text);
  const EmailAddress& from() const { return from_; }
  void generateMessageId(LogBase& log);
  void generateMessageId();
  void setDateToNow();

  // --- addresses ---

  // False when no mail could be sent to the address.
  bool addRecipient(RecipientKind kind, const EmailAddress& recipient);
  std::vector<EmailAddress> recipientList(RecipientKind kind) const;
  // Plain addresses, as for RCPT TO. Bcc: from the "Bcc" header of a prepared copy and from the
  // private one of a message that is not prepared yet.
  std::vector<std::string> recipients(RecipientKind kind) const;
  // The explicit bounce address ("Return-Path" set by name; it outlives that field), else the
  // From address.
  std::string reversePath() const;

  // --- content ---

  const std::string& contentType() const { return contentType_.type; }
  const std::string& charset() const { return contentType_.charset; }
  const ContentType& contentTypeParts() const { return contentType_; }
  void setContentType(const ContentType& contentType);
  void setCharset(std::string_view charset);
  const std::string& transferEncoding() const { return transferEncoding_; }
  void setTransferEncoding(std::string_view encoding);
  const std::string& disposition() const { return disposition_; }
  const std::string& filename() const { return filename_; }
  void setDisposition(std::string_view disposition, std::string_view filename);
  const std::string& contentId() const { return contentId_; }
  void setContentId(std::string_view contentId);
  void setContentLocation(std::string_view location);
  bool isAttachment() const;

  // Text is UTF-8. Text that the part's charset can't carry makes that "utf-8", except that
  // "us-ascii" stays what it says.
  void setTextBody(std::string text);
  void setBody(std::shared_ptr<const DataBuffer> bytes, BodyKind kind);
  std::string_view body() const;  // UTF-8 when it is text
  bool bodyIsText() const { return bodyKind_ == BodyKind::Text; }

  const std::vector<std::unique_ptr<Email2>>& children() const { return children_; }
  void addChild(std::unique_ptr<Email2> child);

  // --- the roles of parts ---

  // The part that holds the message's own text: the message itself or, inside its containers, the
  // first part. Of alternatives: the HTML one, else the first.
  Email2& mainTextPart();
  // Null when the message has no such part. Attachments are not looked at.
  const Email2* findText(std::string_view contentType) const;
  void setHtmlBody(std::string html);
  void setPlainTextBody(std::string text, std::string_view contentType);
  // Adds an alternative of the type beside the body, in a multipart/alternative, plain text first.
  void setAlternativeBody(std::string text, std::string_view contentType);
  void addRelated(std::unique_ptr<Email2> item);
  void addAttachment(std::unique_ptr<Email2> item);
  std::vector<const Email2*> attachments() const;
  std::vector<const Email2*> relatedItems() const;

  // --- the wire ---

  // Chooses the transfer encodings for the whole tree, just before it is written.
  void normaliseTransferEncodings();
  // Everything on the wire, CR LF throughout: the header without private fields and without "Bcc",
  // so that blind copies stay blind; then the body.
  void appendMime(std::string& out) const;
  // About what appendMime appends, in bytes.
  std::size_t sizeEstimate() const;

 private:
  friend class MimeMessage2;
  Email2() = default;

  void rebuildContentType();
  void rebuildDisposition();
  void adoptCharsetFor(std::string_view text);
  void splitOffBody(Email2& container);
  Email2* relatedGroup();

  MimeHeader header_;
  ContentType contentType_;
  std::string transferEncoding_;
  std::string disposition_;
  std::string filename_;
  std::string contentId_;
  std::string contentLocation_;
  EmailAddress from_;
  std::optional<std::string> bounceAddress_;
  std::shared_ptr<const DataBuffer> body_;  // null: empty
  BodyKind bodyKind_ = BodyKind::Text;
  std::vector<std::unique_ptr<Email2>> children_;
};

}  // namespace kelvado
