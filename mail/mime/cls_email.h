// The implementation behind KvEmail: every operation, inside its method bracket, over the internal
// message. Texts are UTF-8 here, file names in the form of platform/system/files.h. Operations that
// return text return nothing when they fail. The mail-sending object uses the part marked below.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/log_base.h"
#include "mail/core/cls_base.h"
#include "mail/mime/email2.h"

namespace kelvado {

class ClsEmail : public ClsBase {
 public:
  using Text = std::optional<std::string>;

  ClsEmail();
  explicit ClsEmail(std::unique_ptr<Email2> message);  // null: there is no internal message
  ~ClsEmail() override;

  // --- for the mail-sending object ---

  // Null when there is no internal message.
  const Email2* message() const { return message_.get(); }
  void createMessageIfMissing(base::LogBase& log);
  // A copy to prepare and send, with the replacement patterns applied. Null when there is no
  // internal message.
  std::unique_ptr<Email2> cloneForSending(base::LogBase& log) const;
  bool hasReplacePatterns() const { return !replacePatterns_.empty(); }

  // --- operations of KvEmail, under their own names ---

  void putSubject(std::string_view subject);
  void putFrom(std::string_view from);
  void putBody(std::string text);

  bool addRecipient(std::string_view method, RecipientKind kind, std::string_view name,
                    std::string_view address);
  bool addMultiple(std::string_view method, RecipientKind kind, std::string_view list);
  Text getRecipients(std::string_view method, RecipientKind kind);

  bool addHeaderField(std::string_view name, std::string_view value);
  Text getHeaderField(std::string_view name);
  Text getHeaderFieldName(int index);
  Text getHeaderFieldValue(int index);

  bool setHtmlBody(Text html);
  bool setTextBody(std::string text, std::string_view contentType);
  bool addAlternativeBody(std::string_view method, std::string text, std::string_view contentType);
  Text getTextBody(std::string_view method, std::string_view contentType);

  bool addRelatedFile2(const std::string& path, std::string_view nameInHtml);
  Text addRelatedFile(const std::string& path);
  Text addRelatedContent(std::string_view method, std::string_view nameInHtml, std::string bytes);
  bool addFileAttachment(const std::string& path);
  bool addAttachment(std::string_view method, std::string_view fileName, std::string bytes);

  Text getMime();
  bool saveEml(const std::string& path);
  bool loadEml(const std::string& path);
  bool setFromMimeText(std::string_view text);

  // Null on failure.
  std::unique_ptr<ClsEmail> clone();
  std::unique_ptr<ClsEmail> createReply();
  std::unique_ptr<ClsEmail> createForward();

  bool setReplacePattern(std::string_view pattern, std::string_view replacement);
  std::string bEncodeString(std::string_view text, std::string_view charset);
  std::string qEncodeString(std::string_view text, std::string_view charset);

 private:
  bool hasMessage(const MethodBracket& method) const;
  bool hasRoomFor(std::size_t count, RecipientKind kind) const;
  bool parseInto(std::string_view text, const MethodBracket& method);
  std::string mimeText() const;

  std::unique_ptr<Email2> message_;
  std::vector<std::pair<std::string, std::string>> replacePatterns_;
};

}  // namespace kelvado
