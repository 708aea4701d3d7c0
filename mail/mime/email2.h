// The internal message: a tree of MIME parts, each with its header, content type, transfer
// encoding, body and children. KvEmail builds one; the mail-sending object takes a copy, prepares
// it and writes it. Text bodies and header values are held as UTF-8 and converted when written.
// Bodies are shared between copies, so copying a message does not copy its attachments. Not shared
// between threads.
#pragma once

#include <array>
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
#include "mail/mime/mime_sink.h"

namespace kelvado {

enum class RecipientKind { To, Cc, Bcc };

// Of one field. More are refused, when they are set and when they are read.
inline constexpr std::size_t kMaxRecipients = 100000;
inline constexpr std::string_view kTooManyRecipients = "More than 100000 recipients in one field";

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

  // Removes line breaks and NULs from the value. An empty name is ignored. Refused and logged are a
  // name that no field can have, an address with a line break in it, more than kMaxRecipients, an
  // unknown transfer encoding and a Content-Type that does not fit the part's structure.
  // "Content-Transfer-Encoding", "Content-ID", "Content-Type", "Content-Disposition", "From",
  // "Reply-To" and "Return-Path" go through their own setters. A value that is not ASCII gives a
  // message without a charset one that can carry it.
  bool setHeaderField(std::string_view name, std::string_view value, base::LogBase& log);
  void removeHeaderField(std::string_view name);
  // Unfolded, as UTF-8; empty when there is none.
  std::string headerField(std::string_view name) const;
  const MimeHeader& header() const { return header_; }

  // One address, with or without a display name. Ignored without an '@'. An address that cannot be
  // used is not refused here: the send fails.
  void setFrom(std::string_view text);
  const EmailAddress& from() const { return from_; }
  void generateMessageId(base::LogBase& log);

  // --- addresses ---

  // False when no mail could be sent to the address, or the field has kMaxRecipients already.
  bool addRecipient(RecipientKind kind, const EmailAddress& recipient);
  // Those that have an address. Bcc: of the private field, then of the "Bcc" field.
  std::vector<EmailAddress> recipientList(RecipientKind kind) const;
  // Their plain addresses, as for RCPT TO.
  std::vector<std::string> recipients(RecipientKind kind) const;
  // Gives the "Bcc" field the value of the private one, which is removed. Neither is written.
  void moveBlindCopiesToBcc();
  // The explicit bounce address ("Return-Path" set by name, kept when the field is removed), else
  // the From address.
  std::string reversePath() const;
  // Whether there is a From address, or a bounce address was set: an empty one is the null sender.
  bool hasSender() const { return bounceAddress_ || !from_.address.empty(); }

  // --- content ---

  const ContentType& contentType() const { return contentType_; }
  void setContentType(const ContentType& contentType);
  void setCharset(std::string_view charset);
  const std::string& transferEncoding() const { return transferEncoding_; }
  void setTransferEncoding(std::string_view encoding);
  const std::string& disposition() const { return disposition_; }  // in lower case, or empty
  const std::string& filename() const { return filename_; }
  void setDisposition(std::string_view disposition, std::string_view filename);
  void setContentId(std::string_view contentId);
  void setContentLocation(std::string_view location);
  bool isAttachment() const;  // and no part of the message's own text

  // Text is UTF-8; its line ends are written as CR LF. Text that does not convert to the part's
  // charset and back without a change makes the part "utf-8", and so does text that is not ASCII in
  // a part without a charset.
  void setTextBody(std::string text);
  // The bytes of a file: a reader gets them back unchanged.
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
  // Moves another message's content here, with the fields that describe it.
  void takeContent(Email2& other);
  void addRelated(std::unique_ptr<Email2> item);
  void addAttachment(std::unique_ptr<Email2> item);

  // --- for the reader of MIME text (email2_text.cpp) ---

  // A part with a header as it was read. `defaultType` is the type of a part that names none. Null
  // and logged when a field has more than kMaxRecipients.
  static std::unique_ptr<Email2> createRead(MimeHeader header, std::string_view defaultType,
                                            base::LogBase& log);
  void appendChild(std::unique_ptr<Email2> child) { children_.push_back(std::move(child)); }
  // The boundary that the text really uses.
  void setBoundary(std::string_view boundary);
  // A multipart without a part in it: what it holds is plain text.
  void becomePlainText();
  // The body without its transfer encoding, which is set already.
  void setBodyAsRead(std::string bytes);
  // The text that this part was read from, to be written again as long as the part is unchanged.
  // Not kept when the text could not pass through a mail server as it is.
  void keepOriginal(std::string_view text);

  // --- for the writer of MIME text (email2_text.cpp) ---

  // Chooses the transfer encodings for the whole tree, just before it is written, and a fresh
  // boundary where a body holds the one there is.
  void normaliseTransferEncodings();
  // The body before it is encoded: text in the part's charset. `scratch` holds it when it had to be
  // converted.
  std::string_view wireBody(std::string& scratch) const;
  // Whether CR and LF of the body end lines; otherwise they are bytes like others.
  bool hasLines() const;
  // Null when no original is kept.
  const std::string* original() const { return original_.get(); }
  // The whole message as it goes to a mail server: CR LF throughout, the header without private
  // fields and without "Bcc", so that blind copies stay blind; then the body.
  void appendMime(std::string& out) const;
  // The same text in pieces, which are not kept. False when `take` did not want all of it.
  bool writeMime(const MimeSink::Take& take) const;
  // About what appendMime appends, in bytes.
  std::size_t sizeEstimate() const;

 private:
  Email2() = default;

  // The fields whose addresses are recipients.
  enum RecipientField { kTo, kCc, kPrivateBcc, kBcc, kRecipientFields, kNoRecipientField };
  static RecipientField recipientField(std::string_view name);

  bool setAddresses(std::string_view name, const std::string& value, base::LogBase& log);
  void setContentDisposition(std::string_view value);
  bool setContentTypeField(std::string_view value, base::LogBase& log);
  void adoptCharsetFor(std::string_view text);
  void keepCharsetTrue();
  void normaliseOwnEncoding();
  bool hasInBody(std::string_view text) const;

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
  std::array<std::vector<EmailAddress>, kRecipientFields> recipients_;
  std::optional<std::string> bounceAddress_;
  std::shared_ptr<const DataBuffer> body_;  // null: empty
  bool bodyIsUtf8_ = true;                  // else in the part's charset, or no text at all
  bool exactLineEnds_ = false;              // CR and LF are bytes of a file
  std::shared_ptr<const std::string> original_;
  std::vector<std::unique_ptr<Email2>> children_;
};

}  // namespace kelvado
