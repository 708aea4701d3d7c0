// The public e-mail object: what a program composes a message with, and hands to KvMailMan to send.
// Text arguments are taken in the encoding that the Utf8 flag tells and trimmed of white space;
// results that are `const char*` are null on failure and live as kv_object.h says. Every method
// leaves its record in LastErrorText. One thread at a time; nothing here throws or blocks, except
// that files are read where a method says so.
#pragma once

#include <cstddef>
#include <memory>

#include "mail/mime/kv_object.h"

namespace kelvado {

class ClsEmail;

class KvEmail : public KvObject {
 public:
  KvEmail();
  ~KvEmail() override;

  void put_Subject(const char* subject);
  // `Name <address>` or a bare address. A text without '@' is ignored.
  void put_From(const char* from);
  // The text of the message's main part, which keeps its type.
  void put_Body(const char* text);

  bool AddTo(const char* name, const char* address);

  bool SetHtmlBody(const char* html);

  // Sets the field; one that the message has already takes the new value. An empty name is ignored.
  bool AddHeaderField(const char* name, const char* value);

  // Adds a file that the HTML refers to by `nameInHtml`.
  bool AddRelatedFile2(const char* path, const char* nameInHtml);

  // For the mail-sending object.
  ClsEmail& implementation() const { return *impl_; }

 protected:
  ClsBase* base() const override;

 private:
  explicit KvEmail(std::unique_ptr<ClsEmail> impl);

  std::unique_ptr<ClsEmail> impl_;
};

}  // namespace kelvado
