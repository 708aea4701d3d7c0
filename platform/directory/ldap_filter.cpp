// Parser and evaluator of search filters; see the header.
#include "platform/directory/ldap_filter.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "base/ascii.h"
#include "base/case_fold.h"
#include "base/hex_digit.h"

namespace platform {
namespace {

// Longer than any filter built from one name; deep enough for a hand-written one.
constexpr std::size_t kMaxFilterBytes = 8192;
constexpr int kMaxFilterDepth = 32;

constexpr std::string_view kBitAndRule = "1.2.840.113556.1.4.803";
constexpr std::string_view kBitOrRule = "1.2.840.113556.1.4.804";

bool isAttributeName(std::string_view name) {
  return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == ';';
  });
}

// The assertion value with its "\XX" escapes undone; nothing when one is malformed.
std::optional<std::string> unescape(std::string_view text) {
  std::string value;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      value += text[i];
      continue;
    }
    if (text.size() - i < 3) return std::nullopt;
    int high = base::hexValue(text[i + 1]);
    int low = base::hexValue(text[i + 2]);
    if (high < 0 || low < 0) return std::nullopt;
    value += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return value;
}

bool meetsCategory(const DirectoryEntry& entry, std::string_view value) {
  if (value.starts_with("cn=")) value = value.substr(3, value.find(',') - 3);
  if (value == "person" || value == "user") return entry.isPerson;
  return value == "computer" && !entry.isPerson;
}

bool hasClass(const DirectoryEntry& entry, std::string_view value) {
  return value == "user" || value == "person" || value == "organizationalperson" ||
         value == "top" || (value == "computer" && !entry.isPerson);
}

// `parts` is the initial, any number of middle pieces, and the final one; empty ones match
// anything.
bool matchesSubstrings(std::string_view text, const std::vector<std::string>& parts) {
  if (!text.starts_with(parts.front())) return false;
  text.remove_prefix(parts.front().size());
  for (std::size_t i = 1; i + 1 < parts.size(); ++i) {
    std::size_t found = text.find(parts[i]);
    if (found == std::string_view::npos) return false;
    text.remove_prefix(found + parts[i].size());
  }
  return text.ends_with(parts.back());
}

}  // namespace

class LdapFilterParser {
 public:
  using Node = LdapFilter::Node;
  using Kind = LdapFilter::Kind;

  explicit LdapFilterParser(std::string_view text) : rest_(text) {}

  bool parse(Node& node) { return parseFilter(node, 0) && rest_.empty(); }

 private:
  bool take(char c) {
    if (rest_.empty() || rest_.front() != c) return false;
    rest_.remove_prefix(1);
    return true;
  }

  bool parseFilter(Node& node, int depth) {
    if (depth == kMaxFilterDepth || !take('(')) return false;
    if (take('&')) return parseOperands(node, Kind::And, depth);
    if (take('|')) return parseOperands(node, Kind::Or, depth);
    if (take('!')) {
      node.kind = Kind::Not;
      Node& operand = node.operands.emplace_back();
      bool parenthesised = !rest_.empty() && rest_.front() == '(';
      return (parenthesised ? parseFilter(operand, depth + 1) : parseItem(operand)) && take(')');
    }
    return parseItem(node) && take(')');
  }

  bool parseOperands(Node& node, Kind kind, int depth) {
    node.kind = kind;
    while (!rest_.empty() && rest_.front() == '(') {
      if (!parseFilter(node.operands.emplace_back(), depth + 1)) return false;
    }
    return take(')');
  }

  // attribute operator value, up to the closing parenthesis.
  bool parseItem(Node& node) {
    std::string_view item = rest_.substr(0, rest_.find_first_of("()"));
    rest_.remove_prefix(item.size());
    std::size_t equals = item.find('=');
    if (equals == std::string_view::npos || equals == 0) return false;
    std::string_view value = item.substr(equals + 1);
    std::string_view name = item.substr(0, equals);
    node.kind = Kind::Equal;
    switch (name.back()) {
      case '>':
        node.kind = Kind::AtLeast;
        break;
      case '<':
        node.kind = Kind::AtMost;
        break;
      case '~':
        break;
      case ':':
        return parseExtensible(node, name.substr(0, name.size() - 1), value);
      default:
        return setAttribute(node, name) && parseEquality(node, value);
    }
    return setAttribute(node, name.substr(0, name.size() - 1)) && addValue(node, value);
  }

  bool parseExtensible(Node& node, std::string_view name, std::string_view value) {
    std::size_t colon = name.rfind(':');
    if (colon == std::string_view::npos) return setAttribute(node, name) && addValue(node, value);
    std::string_view rule = name.substr(colon + 1);
    node.kind = rule == kBitAndRule ? Kind::BitAnd : rule == kBitOrRule ? Kind::BitOr : Kind::None;
    return setAttribute(node, name.substr(0, name.find(':'))) && addValue(node, value);
  }

  bool parseEquality(Node& node, std::string_view value) {
    if (value == "*") {
      node.kind = Kind::Present;
      return true;
    }
    if (value.find('*') == std::string_view::npos) return addValue(node, value);
    node.kind = Kind::Substrings;
    for (;;) {
      std::size_t star = value.find('*');
      if (!addValue(node, value.substr(0, star))) return false;
      if (star == std::string_view::npos) return true;
      value.remove_prefix(star + 1);
    }
  }

  static bool setAttribute(Node& node, std::string_view name) {
    node.attribute = entryAttribute(name);
    if (node.attribute != nullptr && node.attribute->text == nullptr) node.attribute = nullptr;
    return isAttributeName(name);
  }

  static bool addValue(Node& node, std::string_view text) {
    std::optional<std::string> value = unescape(text);
    if (!value || text.find('*') != std::string_view::npos) return false;
    node.number = decimalValue(*value);
    node.values.push_back(base::foldCase(*value));
    return true;
  }

  std::string_view rest_;
};

std::optional<LdapFilter> LdapFilter::parse(std::string_view text) {
  LdapFilter filter;
  if (text.size() > kMaxFilterBytes || !LdapFilterParser(text).parse(filter.root_)) {
    return std::nullopt;
  }
  return filter;
}

bool LdapFilter::matches(const DirectoryEntry& entry) const {
  return evaluate(root_, entry) == Truth::True;
}

LdapFilter::Truth LdapFilter::evaluate(const Node& node, const DirectoryEntry& entry) {
  switch (node.kind) {
    case Kind::And: {
      Truth truth = Truth::True;
      for (const Node& operand : node.operands) truth = std::min(truth, evaluate(operand, entry));
      return truth;
    }
    case Kind::Or: {
      Truth truth = Truth::False;
      for (const Node& operand : node.operands) truth = std::max(truth, evaluate(operand, entry));
      return truth;
    }
    case Kind::Not: {
      Truth truth = evaluate(node.operands.front(), entry);
      if (truth == Truth::Undefined) return truth;
      return truth == Truth::True ? Truth::False : Truth::True;
    }
    default:
      return evaluateItem(node, entry);
  }
}

// userAccountControl, the one number there is: 32 bits, which may be asserted with a sign.
LdapFilter::Truth LdapFilter::evaluateNumber(const Node& node, const DirectoryEntry& entry) {
  auto truth = [](bool value) { return value ? Truth::True : Truth::False; };
  if (!node.number) return Truth::Undefined;
  const auto asserted = static_cast<std::uint32_t>(*node.number);
  switch (node.kind) {
    case Kind::Equal:
      return truth(entry.accountControl == asserted);
    case Kind::AtLeast:
      return truth(entry.accountControl >= asserted);
    case Kind::AtMost:
      return truth(entry.accountControl <= asserted);
    case Kind::BitAnd:
      return truth((entry.accountControl & asserted) == asserted);
    case Kind::BitOr:
      return truth((entry.accountControl & asserted) != 0);
    default:
      return Truth::Undefined;
  }
}

LdapFilter::Truth LdapFilter::evaluateItem(const Node& node, const DirectoryEntry& entry) {
  auto truth = [](bool value) { return value ? Truth::True : Truth::False; };
  if (node.attribute == nullptr || node.kind == Kind::None) return Truth::Undefined;
  const AttributeSyntax syntax = node.attribute->syntax;
  if (syntax == AttributeSyntax::Category && node.kind == Kind::Equal) {
    return truth(meetsCategory(entry, node.values.front()));
  }
  if (syntax == AttributeSyntax::Class && node.kind == Kind::Equal) {
    return truth(hasClass(entry, node.values.front()));
  }
  if (syntax == AttributeSyntax::Number && node.kind != Kind::Present) {
    return evaluateNumber(node, entry);
  }
  std::string value = base::foldCase(node.attribute->text(entry));
  if (value.empty()) return Truth::False;
  switch (node.kind) {
    case Kind::Present:
      return Truth::True;
    case Kind::Equal:
      return truth(value == node.values.front());
    case Kind::AtLeast:
      return truth(value >= node.values.front());
    case Kind::AtMost:
      return truth(value <= node.values.front());
    case Kind::Substrings:
      return truth(matchesSubstrings(value, node.values));
    default:
      return Truth::Undefined;
  }
}

const LdapFilter::Node* LdapFilter::logonNameItem(const Node& node) {
  const bool isLogonName = node.attribute != nullptr && node.attribute->mark == kLogonName;
  if (node.kind == Kind::Equal && isLogonName) return &node;
  if (node.kind != Kind::And) return nullptr;
  for (const Node& operand : node.operands) {
    if (const Node* found = logonNameItem(operand)) return found;
  }
  return nullptr;
}

std::optional<std::string> LdapFilter::requiredLogonName() const {
  const Node* item = logonNameItem(root_);
  if (item == nullptr) return std::nullopt;
  return item->values.front();
}

std::u16string escapeFilterValue(std::u16string_view value) {
  std::u16string escaped;
  for (char16_t c : value) {
    switch (c) {
      case u'*':
        escaped += u"\\2a";
        break;
      case u'(':
        escaped += u"\\28";
        break;
      case u')':
        escaped += u"\\29";
        break;
      case u'\\':
        escaped += u"\\5c";
        break;
      case u'\0':
        escaped += u"\\00";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

}  // namespace platform
