// The templates in the work folder, and which of them a mail is made from. Read and prepared once
// for a pass; choosing and filling cost no access to the disk.
//
// A template is named KIND.POLICY.LANGUAGE.html or .txt, without the parts it does not have:
// "NorvynExpirationEmail.Policy1.de.html". Letter case does not count. Where both files are there
// they are one template.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "config/expiration_settings.h"
#include "mail/mime/kv_email.h"
#include "notify/message_template.h"

namespace notify {

enum class MailKind { Warning, Expired, Manager };
inline constexpr int kMailKinds = 3;

inline constexpr int kEveryPolicy = -1;

struct MessageTemplate {
  MailKind kind = MailKind::Warning;
  int slot = kEveryPolicy;  // of the policy in its name
  std::string tag;          // the language in its name, in lower case; empty: none
  std::string language;     // of its dates: a tag in lower case; empty: not known
  std::optional<PreparedText> html;
  // Of its file, or made from the HTML. Not of an HTML with <%users%>: that is filled in first.
  std::optional<PreparedText> text;
  std::optional<PreparedText> subject;  // its own; none: emailSubject
  std::string htmlFile, textFile;       // UTF-8; empty: not there, or not usable

  // The one that the mail is made from, or both.
  std::string files() const;
};

// Why a template was chosen.
struct TemplateChoice {
  const MessageTemplate* found = nullptr;  // null: there is none
  enum class Language { None, Users, Settings } language = Language::None;
};

class MailTemplates {
 public:
  // Reads the folder. `settings` is borrowed. What cannot be read or decoded is passed over.
  explicit MailTemplates(const config::ExpirationSettings& settings);

  // The template of that kind for a user of the policy slot: the policy's own before the one for
  // all, and in each of the two that in a language which the user prefers (a value of
  // preferredLanguage), in one of emailLanguage, without a language. RFC 4647 section 3.4.
  TemplateChoice choose(MailKind kind, int slot, std::string_view preferredLanguage) const;

  // Sets subject and body. `email` takes UTF-8 texts.
  void fill(kelvado::KvEmail& email, const MessageTemplate& chosen,
            const TokenValues& values) const;

  // What a template without a language in its name is taken to be written in, as is emailCustomMsg:
  // the first of emailLanguage.
  std::string language() const { return languages_.empty() ? "" : languages_.front(); }
  // The templates that are there and cannot be used: one line each, for an administrator.
  const std::vector<std::string>& problems() const { return problems_; }
  // Whether one of this kind is there that cannot be used.
  bool anyLost(MailKind kind) const { return lost_[static_cast<std::size_t>(kind)]; }
  // What looks like a token and is none.
  struct TokenInFile {
    std::string file;
    UnknownToken token;
  };
  const std::vector<TokenInFile>& unknownTokens() const { return unknownTokens_; }
  // Whether a mail needs what DomainDirectory::readDetails() brings.
  bool needDetails() const;
  // All that can be used, the plain names before the others.
  std::vector<const MessageTemplate*> all() const;

 private:
  // The kind, the policy slot or kEveryPolicy, the language or an empty text.
  using Place = std::tuple<MailKind, int, std::string>;
  struct FoundFile {
    Place place;
    bool html = false;
    std::string name;
  };

  void read(const FoundFile& file);
  void finish(const Place& place, MessageTemplate& found) const;
  const MessageTemplate* find(const Place& place) const;

  const config::ExpirationSettings& settings_;
  PreparedText subject_;                // emailSubject
  std::vector<std::string> languages_;  // of emailLanguage, in the order of preference
  std::map<Place, MessageTemplate> templates_;
  std::vector<std::string> problems_;
  std::vector<TokenInFile> unknownTokens_;
  std::array<bool, kMailKinds> lost_{};
};

// What a file of the work folder is by its name. False: no template.
bool isTemplateName(std::string_view fileName);

// Which template it is and why, in one line for an administrator.
std::string choiceText(const TemplateChoice& choice, MailKind kind,
                       std::string_view preferredLanguage);

}  // namespace notify
