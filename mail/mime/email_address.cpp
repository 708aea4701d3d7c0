#include "mail/mime/email_address.h"

#include <algorithm>

#include "base/ascii.h"
#include "base/text.h"
#include "base/unicode.h"
#include "mail/mime/encoded_word.h"

namespace kelvado {
namespace {

constexpr std::string_view kUndisclosed = "undisclosed-recipients";

// A longer one leaves no room in a header line.
constexpr std::size_t kMaxAddressLength = 500;

// Reads a list entry by entry, each byte once.
class AddressScanner {
 public:
  explicit AddressScanner(std::string_view text) : text_(text) {}

  bool atEnd() const { return at_ >= text_.size(); }

  // The text up to the next separator. Both parts are empty when there is nothing in it.
  EmailAddress next() {
    entry_ = Entry();
    while (!atEnd() && !takesSeparator()) takeToken();
    return finished();
  }

 private:
  struct Entry {
    std::string phrase;   // words and quoted strings, without their quotes
    std::string raw;      // the same with its quotes, for an address without angle brackets
    bool hasAt = false;   // in it
    std::string comment;  // the first one
    std::string angle;
    bool hasAngle = false;
    bool blankBefore = false;  // the next word
  };

  bool takesSeparator() {
    const char c = text_[at_];
    // A semicolon ends a group; some programs separate addresses with it. The name of a group that
    // stands for recipients who are not named is an entry.
    const bool unnamed = c == ':' && atGroupName() && isUndisclosedRecipients(entry_.raw);
    if (c != ',' && c != ';' && !unnamed) return false;
    ++at_;
    return true;
  }

  bool atGroupName() const { return !entry_.hasAngle && !entry_.hasAt; }

  void takeToken() {
    const char c = text_[at_];
    if (base::isSpace(c)) {
      entry_.blankBefore = true;
      ++at_;
    } else if (c == '(') {
      const std::string comment = takeComment();
      if (entry_.comment.empty()) entry_.comment = comment;
    } else if (c == '<' && !entry_.hasAngle) {
      takeAngle();
    } else if (c == '"') {
      takeQuotedWord();
    } else if (c == ':' && atGroupName()) {
      entry_ = Entry();  // its members follow
      ++at_;
    } else {
      addWord(text_.substr(at_, 1), text_.substr(at_, 1));
      ++at_;
    }
  }

  void addWord(std::string_view content, std::string_view raw) {
    if (entry_.hasAngle) return;  // text behind it is ignored
    if (entry_.blankBefore && !entry_.raw.empty()) {
      entry_.phrase.push_back(' ');
      entry_.raw.push_back(' ');
    }
    entry_.blankBefore = false;
    entry_.phrase.append(content);
    entry_.raw.append(raw);
    entry_.hasAt = entry_.hasAt || raw.find('@') != std::string_view::npos;
  }

  // A quote without a closing one is ignored, and so are all behind it.
  void takeQuotedWord() {
    const std::size_t start = at_;
    const std::string content = quotesClose_ ? takeQuoted() : std::string();
    quotesClose_ = quotesClose_ && at_ <= text_.size();
    if (!quotesClose_) at_ = start + 1;
    if (quotesClose_) addWord(content, text_.substr(start, at_ - start));
  }

  // At a quote. Behind the end of the text when there is no closing one.
  std::string takeQuoted() {
    std::string content;
    for (++at_; !atEnd() && text_[at_] != '"'; ++at_) {
      if (text_[at_] == '\\' && at_ + 1 < text_.size()) ++at_;
      content.push_back(text_[at_]);
    }
    ++at_;
    return content;
  }

  // At a parenthesis. Comments may hold comments.
  std::string takeComment() {
    std::string content;
    std::size_t depth = 1;
    for (++at_; !atEnd(); ++at_) {
      const char c = text_[at_];
      if (c == ')' && --depth == 0) break;
      if (c == '(') ++depth;
      if (c == '\\' && at_ + 1 < text_.size()) ++at_;
      content.push_back(text_[at_]);
    }
    ++at_;
    return content;
  }

  void takeAngle() {
    entry_.hasAngle = true;
    for (++at_; !atEnd() && text_[at_] != '>';) {
      if (text_[at_] == '"' && quotesClose_) {
        const std::size_t start = at_;
        takeQuoted();
        quotesClose_ = at_ <= text_.size();
        if (!quotesClose_) at_ = start + 1;
        entry_.angle.append(text_.substr(start, at_ - start));
      } else if (text_[at_] == '(') {
        takeComment();
      } else {
        entry_.angle.push_back(text_[at_++]);
      }
    }
    ++at_;
  }

  EmailAddress finished() const {
    EmailAddress result;
    const bool noAddress = base::trimmed(entry_.angle).empty();
    if (noAddress && isUndisclosedRecipients(entry_.hasAngle ? entry_.phrase : entry_.raw)) {
      return {std::string(kUndisclosed), ""};
    }
    if (entry_.hasAngle) {
      result.name = entry_.phrase.empty() ? entry_.comment : entry_.phrase;
      result.address = withoutRoute(base::trimmed(entry_.angle));
    } else {
      result.name = entry_.comment;
      result.address = entry_.raw;
      splitNameWithoutBrackets(result);
    }
    result.name = base::trimmed(base::withoutLineBreaks(decodeHeaderText(result.name)));
    return result;
  }

  // "<@relay,@other:user@host>"
  static std::string withoutRoute(std::string_view address) {
    const std::size_t end = address.starts_with('@') ? address.find(':') : std::string_view::npos;
    return std::string(end == std::string_view::npos ? address : address.substr(end + 1));
  }

  // `Name name@host`, without brackets.
  void splitNameWithoutBrackets(EmailAddress& entry) const {
    const std::size_t blank = entry_.phrase.rfind(' ');
    if (blank == std::string::npos) return;
    const std::string_view last = std::string_view(entry_.phrase).substr(blank + 1);
    if (last.size() < 2 || last.find('@') == std::string_view::npos || last.front() == '@' ||
        !entry_.raw.ends_with(last)) {
      return;
    }
    entry.name = entry_.phrase.substr(0, blank);
    entry.address = last;
  }

  std::string_view text_;
  std::size_t at_ = 0;
  Entry entry_;
  bool quotesClose_ = true;
};

bool isQuoted(std::string_view local) {
  if (local.size() < 3 || local.front() != '"' || local.back() != '"') return false;
  for (std::size_t i = 1; i + 1 < local.size(); ++i) {
    if (local[i] == '"') return false;
    if (local[i] == '\\' && ++i + 1 >= local.size()) return false;
  }
  return true;
}

bool isLocalPart(std::string_view local) {
  if (isQuoted(local)) return true;
  return !local.empty() && local.find_first_of(" \"(),:;@[\\]") == std::string_view::npos;
}

bool isDomain(std::string_view domain) {
  if (domain.size() > 2 && domain.front() == '[' && domain.back() == ']') {
    domain = domain.substr(1, domain.size() - 2);
    return domain.find_first_of(" \"(),;@[\\]") == std::string_view::npos;
  }
  return !domain.empty() && domain.find_first_of(" \"(),:;@[\\]") == std::string_view::npos;
}

std::string escapedForQuotes(std::string_view text) {
  std::string out;
  for (const char c : text) {
    if (c == '"' || c == '\\') out.push_back('\\');
    out.push_back(c);
  }
  return out;
}

}  // namespace

EmailAddress parseAddress(std::string_view text) {
  text = base::trimmed(text);
  if (isX400Address(text) && text.find('<') == std::string_view::npos) {
    return {"", std::string(text)};
  }
  AddressScanner scanner(text);
  EmailAddress entry;
  while (!scanner.atEnd() && entry == EmailAddress()) entry = scanner.next();
  return entry;
}

std::vector<EmailAddress> parseAddressField(std::string_view text) {
  std::vector<EmailAddress> list;
  AddressScanner scanner(text);
  while (!scanner.atEnd()) {
    EmailAddress entry = scanner.next();
    if (!entry.address.empty() || entry.name == kUndisclosed) list.push_back(std::move(entry));
  }
  return list;
}

std::vector<EmailAddress> parseAddressList(std::string_view text) {
  std::vector<EmailAddress> list = parseAddressField(text);
  std::erase_if(list, [](const EmailAddress& entry) { return entry.address.empty(); });
  return list;
}

bool isSendableAddress(std::string_view address) {
  if (address.size() > kMaxAddressLength) return false;
  const bool plain = std::none_of(address.begin(), address.end(), [](char c) {
    return base::isControl(c) || c == '<' || c == '>';
  });
  if (!plain || !base::isValidUtf8(address)) return false;
  const std::size_t at = address.rfind('@');
  if (at == std::string_view::npos) {
    return isX400Address(address) && address.find('"') == std::string_view::npos;
  }
  return isLocalPart(address.substr(0, at)) && isDomain(address.substr(at + 1));
}

bool isX400Address(std::string_view address) {
  if (address.find('@') != std::string_view::npos) return false;
  for (const std::string_view element : {"C=", "O=", "CN=", "P="}) {
    for (std::size_t at = address.find(element); at != std::string_view::npos;
         at = address.find(element, at + 1)) {
      if (at == 0 || std::string_view("/;, <").find(address[at - 1]) != std::string_view::npos) {
        return true;
      }
    }
  }
  return false;
}

bool isUndisclosedRecipients(std::string_view text) {
  if (text.find('@') != std::string_view::npos) return false;
  return base::containsNoCase(text, "undisclosed recipient") ||
         base::containsNoCase(text, "undisclosed-recipient");
}

std::string formatAddress(const EmailAddress& address) {
  if (address.address.empty() && address.name == kUndisclosed) return address.name + ":;";
  if (!address.name.empty()) {
    return "\"" + escapedForQuotes(address.name) + "\" <" + address.address + ">";
  }
  // What would not be read as one address without them, like X.400.
  const bool hasBlank = address.address.find(' ') != std::string::npos;
  const bool hasSeparator =
      !address.address.starts_with('"') && address.address.find_first_of(";,") != std::string::npos;
  return hasBlank || hasSeparator ? "<" + address.address + ">" : address.address;
}

}  // namespace kelvado
