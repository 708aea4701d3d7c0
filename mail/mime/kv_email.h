// The public e-mail object: a program composes a message with it, and hands it to KvMailMan to
// send. Text arguments are in the encoding that the Utf8 flag selects; white space around them is
// removed, except from the contents of attachments and MIME text; a null pointer counts as empty
// unless a method says otherwise. Results of type `const char*` are null on failure; kv_object.h
// says how long they live. Every method writes its record to LastErrorText. One thread at a time;
// nothing here throws, and nothing blocks but reading or writing a file.
//
// No argument can start a header line or end a quoted string: line breaks are removed from values,
// and an address that could not be sent to is refused. Text that the message's charset cannot carry
// makes it "utf-8".
#pragma once

#include <cstddef>
#include <memory>

#include "mail/core/kv_object.h"

namespace kelvado {

class ClsEmail;

class KvEmail : public KvObject {
 public:
  // A new message has a Date of now, a Message-ID and an empty text/plain body.
  KvEmail();
  ~KvEmail() override;

  void put_Subject(const char* subject);
  // `Name <address>` or a bare address; also the address for bounces, when there is none yet.
  // A text without '@' is ignored.
  void put_From(const char* from);
  // The text of the message's main part, which keeps its type.
  void put_Body(const char* text);

  // --- recipients ---

  // `name` may be empty. False when no mail could be sent to the address.
  bool AddTo(const char* name, const char* address);
  bool AddCC(const char* name, const char* address);
  bool AddBcc(const char* name, const char* address);
  // Addresses, with or without names, separated by commas. Stops at the first bad one; more than
  // 100,000 in one field are refused altogether.
  bool AddMultipleTo(const char* addresses);
  bool AddMultipleCC(const char* addresses);
  bool AddMultipleBcc(const char* addresses);
  // Separated by ", "; empty when there are none.
  const char* GetTo();
  const char* GetCC();
  const char* GetBcc();

  // --- header ---

  // Sets the field; one that the message has already gets the new value. An empty name is ignored.
  // Names that begin with "KVX-" or "KVZ-" are private to the library and never sent.
  bool AddHeaderField(const char* name, const char* value);
  const char* GetHeaderField(const char* name);  // null when there is none
  // By position, from 0; null behind the last.
  const char* GetHeaderFieldName(int index);
  const char* GetHeaderFieldValue(int index);

  // --- text ---

  // Null HTML fails.
  bool SetHtmlBody(const char* html);
  // A text of any type that begins with "text/"; empty means "text/plain".
  bool SetTextBody(const char* text, const char* contentType);
  // Beside the other form of the text; a reader's program shows the one it prefers.
  bool AddPlainTextAlternativeBody(const char* text);
  bool AddHtmlAlternativeBody(const char* html);
  const char* GetPlainTextBody();  // null when the message has none
  const char* GetHtmlBody();

  // --- files ---

  // A file that the HTML refers to by `nameInHtml`.
  bool AddRelatedFile2(const char* path, const char* nameInHtml);
  // A file, a text or bytes that the HTML refers to as "cid:" and the returned Content-ID; the last
  // two also by `nameInHtml`, whose extension selects the type.
  const char* AddRelatedFile(const char* path);
  const char* AddRelatedString(const char* nameInHtml, const char* text);
  const char* AddRelatedData(const char* nameInHtml, const void* data, std::size_t size);
  // The extension of the file's name selects the type.
  bool AddFileAttachment(const char* path);
  bool AddStringAttachment(const char* fileName, const char* text);
  bool AddDataAttachment(const char* fileName, const void* data, std::size_t size);

  // --- the whole message ---

  const char* GetMime();
  bool SaveEml(const char* path);
  // Replace the message by one that is read, without private fields. On failure it is unchanged.
  bool LoadEml(const char* path);
  bool SetFromMimeText(const char* mime);
  // Null on failure; the caller owns the new object.
  std::unique_ptr<KvEmail> Clone();
  std::unique_ptr<KvEmail> CreateReply();
  std::unique_ptr<KvEmail> CreateForward();

  // To be replaced in subject and texts of the copy that is sent. The message itself is unchanged.
  bool SetReplacePattern(const char* pattern, const char* replacement);

  // The text as encoded words of the charset (RFC 2047); empty means "utf-8".
  const char* BEncodeString(const char* text, const char* charset);
  const char* QEncodeString(const char* text, const char* charset);

  // For the mail-sending object.
  ClsEmail& implementation() const;

 protected:
  ClsBase* base() const override;

 private:
  explicit KvEmail(std::unique_ptr<ClsEmail> impl, bool utf8);
  std::unique_ptr<KvEmail> wrapped(std::unique_ptr<ClsEmail> impl) const;

  std::unique_ptr<ClsEmail> impl_;
};

}  // namespace kelvado
