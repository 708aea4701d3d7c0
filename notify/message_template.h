// The text of a mail with tokens in it: read from its file, prepared once, filled in for each mail.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace notify {

// What a token stands for. Each has a row in the table of message_template.cpp.
enum class Token {
  Username,
  FirstName,
  LastName,
  DaysUntilExpiration,
  Backslash,
  ExpirationDate,
  ExpirationTime,
  DisplayName,
  Domain,
  PolicyName,
  Email,
  ManagerName,
  Users,  // begins what is repeated for each user, up to "<%/users%>"
};

// "<%username%>" and the others, in the order of Token.
std::vector<std::string> knownTokens();

enum class TextFormat { Plain, Html };

class PreparedText;

// What the tokens of one mail become.
class TokenValues {
 public:
  virtual ~TokenValues() = default;
  // Appends the value as UTF-8, as it is to stand in a text of that format: in HTML as text, so
  // that it can't become markup, unless it is meant to be some.
  virtual void append(Token token, TextFormat format, std::string& text) const = 0;
  // Appends what stands between "<%users%>" and "<%/users%>", filled for each user of the mail.
  virtual void appendUsers(const PreparedText& each, TextFormat format,
                           std::string& text) const = 0;
};

// A text and where its tokens are. Letter case counts in a token.
class PreparedText {
 public:
  explicit PreparedText(std::string text);

  // With the tokens replaced; what is inserted is not looked at again.
  std::string filled(const TokenValues& values, TextFormat format) const;
  bool uses(Token token) const;
  const std::string& source() const { return source_; }

 private:
  struct Place {
    std::size_t offset;
    std::size_t length;
    Token token;
    std::shared_ptr<const PreparedText> each;  // of Users only: what is repeated
  };

  std::string source_;  // UTF-8
  std::vector<Place> places_;
};

// What looks like a token and is none.
struct UnknownToken {
  std::size_t line;  // 1 is the first
  std::string text;  // "<%...%>"; empty: the "<%" has no "%>" behind it on its line

  std::string problem() const;  // in words, ANSI
};
std::vector<UnknownToken> findUnknownTokens(std::string_view text);

// A stored message has a backslash for every line break; several in a row count as one. ANSI.
std::string messageLines(const std::string& message);

struct TemplateFile {
  std::optional<std::string> text;  // UTF-8, lines end in LF
  std::string problem;              // why there is no text; empty when there is no file
};

// A template is UTF-16 when it begins with that encoding's mark, else UTF-8 when it is valid UTF-8,
// else ANSI.
TemplateFile readTemplate(const std::string& name);

}  // namespace notify
