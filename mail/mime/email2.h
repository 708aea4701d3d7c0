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

#include "base/log_base.h"
#include "mail/core/data_buffer.h"
#include "mail/mime/content_type.h"
#include "mail/mime/email_address.h"
#include "mail/mime/mime_header.h"

namespace kelvado {

enum class RecipientKind { To, Cc, Bcc };

class Email2 {
 public:
  // A message with the default fields of a new one.
  static std::unique_ptr<Email2> createMessage(base::LogBase& log);
  // A part without a message's own fields.
  static std::unique_ptr<Email2> createPart(std::string_view contentType,
                                            std::string_view transferEncoding);

  ~Email2();
  std::unique_ptr<Email2> clone() const;

  // --- header ---

  // Takes line breaks and NULs out of the value. An empty name is ignored; a name that no field can
  // have, an address that a line break is in, an unknown transfer encoding and a Content-Type that
  // does not fit the part's structure are refused and logged. "Content-Transfer-Encoding",
  // "Content-ID", "Content-Type", "Content-Disposition", "From", "Reply-To" and "Return-Path" go
  // through their own setters. A value that is not ASCII gives a message without a charset one that
  // can carry it.
  bool setHeaderField(std::string_view name, std::string_view value, base::LogBase& log);
  void removeHeaderField(std::string_view name);
  // Unfolded, as UTF-8; empty when there is none.
  std::string headerField(std::string_view name) const;
  const MimeHeader& header() const { return header_; }

  // One address, with or without a display name. Ignored without an '@'. What else is wrong with it
  // shows when the message is sent, which then fails.
  void setFrom(std::string_view text);
  const EmailAddress& from() const { return from_; }
  void generateMessageId(base::LogBase& log);

  // --- addresses ---

  // False when no mail could be sent to the address.
  bool addRecipient(RecipientKind kind, const EmailAddress& recipient);
  std::vector<EmailAddress> recipientList(RecipientKind kind) const;
  // Plain addresses, as for RCPT TO. Bcc: those of the "Bcc" header of a prepared copy, and those
  // of the private header of a message that is not prepared yet.
  std::vector<std::string> recipients(RecipientKind kind) const;
  // The explicit bounce address ("Return-Path" set by name; it outlives that field), else the
  // From address.
  std::string reversePath() const;

  // --- content ---

  const ContentType& contentType() const { return contentType_; }
  void setContentType(const ContentType& contentType);
  void setCharset(std::string_view charset);
  const std::string& transferEncoding() const { return transferEncoding_; }
  void setTransferEncoding(std::string_view encoding);
  const std::string& filename() const { return filename_; }
  void setDisposition(std::string_view disposition, std::string_view filename);
  void setContentId(std::string_view contentId);
  void setContentLocation(std::string_view location);
  bool isAttachment() const;  // and no part of the message's own text

  // Text is UTF-8; its line ends leave as CR LF. Text that is not ASCII gives a part without a
  // charset "utf-8", and so does text that the part's charset can't carry, except that "us-ascii"
  // stays what it says.
  void setTextBody(std::string text);
  // Bytes that are to come back as they are.
  void setBody(std::string bytes);
  std::string_view body() const;  // as it was set
  std::string textBody() const;   // as UTF-8, whatever it is held in

  const std::vector<std::unique_ptr<Email2>>& children() const { return children_; }

  // --- the roles of parts (email2_structure.cpp) ---

  // Of the message's main text part, which keeps its type.
  void setMainText(std::string text);
  // The type is "text/html" or "text/plain" or another of text; replaces the message's own text.
  void setOwnText(std::string text, std::string_view contentType);
  // Beside the message's own text, in a multipart/alternative, plain text first.
  void setAlternativeText(std::string text, std::string_view contentType);
  // Null when the message has no such text of its own.
  const Email2* findText(std::string_view contentType) const;
  Email2* findText(std::string_view contentType);
  // In the subject and in the message's own texts; every occurrence.
  void replaceInTexts(std::string_view from, std::string_view to);
  // Takes another message's content over, with the fields that describe it.
  void takeContent(Email2& other);
  void addRelated(std::unique_ptr<Email2> item);
  void addAttachment(std::unique_ptr<Email2> item);

  // --- the wire ---

  // Chooses the transfer encodings for the whole tree, just before it is written, and a fresh
  // boundary where a body holds the one there is.
  void normaliseTransferEncodings();
  // Everything on the wire, CR LF throughout: the header without private fields and without "Bcc",
  // so that blind copies stay blind; then the body.
  void appendMime(std::string& out) const;
  // About what appendMime appends, in bytes.
  std::size_t sizeEstimate() const;

 private:
  friend class MimeMessage2;
  Email2() = default;

  void setContentDisposition(std::string_view value);
  bool setContentTypeField(std::string_view value, base::LogBase& log);
  void adoptCharsetFor(std::string_view text);
  void keepCharsetTrue();
  void normaliseOwnEncoding();
  bool hasInBody(std::string_view text) const;
  // The body as it is before the transfer encoding: text in the part's charset. `scratch` keeps it
  // when it had to be converted.
  std::string_view wireBody(std::string& scratch) const;

  std::unique_ptr<Email2> takeContentAsPart();
  void becomeContainer(std::string_view contentType, std::string_view marker);
  Email2& ownContent();
  Email2& textPart();
  void setText(std::string text, std::string_view contentType, std::string_view messageCharset);
  void setInAlternative(std::string text, std::string_view contentType,
                        std::string_view messageCharset);
  bool hasNoContentYet() const;

  MimeHeader header_;
  ContentType contentType_;
  std::string transferEncoding_;
  std::string disposition_;
  std::string filename_;
  EmailAddress from_;
  std::optional<std::string> bounceAddress_;
  std::shared_ptr<const DataBuffer> body_;  // null: empty
  bool bodyIsUtf8_ = true;                  // else in the part's charset, or no text at all
  bool keepLineEnds_ = false;               // the bytes of a file, not lines
  std::vector<std::unique_ptr<Email2>> children_;
};

}  // namespace kelvado
