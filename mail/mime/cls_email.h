// The implementation behind KvEmail: every operation, inside its method bracket, over the internal
// message. Texts are UTF-8 here. The mail-sending object uses the part marked below.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "mail/mime/cls_base.h"
#include "mail/mime/email2.h"

namespace kelvado {

class ClsEmail : public ClsBase {
 public:
  ClsEmail();
  explicit ClsEmail(std::unique_ptr<Email2> message);  // null is allowed: no internal message
  ~ClsEmail() override;

  // --- for the mail-sending object ---

  // Null when there is no internal message.
  const Email2* message() const { return message_.get(); }
  // Makes an empty message when there is none.
  void createMessageIfMissing(LogBase& log);
  bool hasReplacePatterns() const { return !replacePatterns_.empty(); }
  // A copy to prepare and send, with the replacement patterns applied. Null when there is no
  // internal message.
  std::unique_ptr<Email2> cloneForSending(LogBase& log) const;

  // --- operations of KvEmail ---

  void putSubject(std::string_view subject);
  void putFrom(std::string_view from);
  void putBody(std::string_view text);
  bool add(RecipientKind kind, std::string_view name, std::string_view address);
  bool setHtmlBody(const std::optional<std::string>& html);
  bool addHeaderField(std::string_view name, std::string_view value);
  bool addRelatedFile2(const std::string& path, std::string_view nameInHtml,
                       std::string_view pathForLog);

 private:
  std::unique_ptr<Email2> message_;
  std::vector<std::pair<std::string, std::string>> replacePatterns_;
};

}  // namespace kelvado
