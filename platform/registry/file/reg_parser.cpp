// The parser of reg_file.h. What Windows would skip over in silence is an error here: a setting
// that an administrator mistyped must not turn into its default unseen.
#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "base/case_fold.h"
#include "base/hex_digit.h"
#include "platform/registry/file/reg_file.h"
#include "platform/text/text_lines.h"

namespace platform {
namespace {

constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kLocalMachine = "hkey_local_machine";
constexpr std::array<std::string_view, 6> kOtherRoots = {
    "hkey_classes_root",   "hkey_current_user",     "hkey_users",
    "hkey_current_config", "hkey_performance_data", "hkey_dyn_data"};
constexpr std::size_t kMaxHexDigitsOfNumber = 8;

class Parser {
 public:
  Parser(RegFile& file, RegFileError& error) : file_(file), error_(error), lines_({}, 0, false) {}

  bool parse() {
    if (!parseHeader()) return false;
    while (nextLine()) {
      skipBlanks();
      if (atEnd() || peek() == ';') continue;
      if (!(peek() == '[' ? parseKey() : parseValue())) return false;
    }
    const bool torn = file_.utf16 && file_.bytes.size() % 2 != 0;
    return !torn || fail("the file ends inside a character");
  }

 private:
  bool parseHeader();
  bool parseKey();
  bool parseValue();
  bool parseData(RegistryValue& value);
  bool parseQuoted(bool mayContinue, std::string& text);
  bool parseDword(RegistryValue& value);
  bool parseHex(RegistryValue& value);
  bool parseHexBytes(std::string& bytes);
  bool parseNumber(std::uint32_t& number);

  void deleteKey(std::string_view path);

  bool fail(std::string what) { return failAt(lines_.number(), std::move(what)); }
  bool failAt(std::size_t line, std::string what) {
    error_ = {line, std::move(what)};
    return false;
  }

  bool nextLine() {
    position_ = 0;
    return lines_.next();
  }
  bool atEnd() const { return position_ >= lines_.text().size(); }
  char peek() const { return atEnd() ? '\0' : lines_.text()[position_]; }
  std::string_view rest() const { return lines_.text().substr(position_); }
  void skipBlanks() {
    position_ = std::min(lines_.text().find_first_not_of(kBlanks, position_), lines_.text().size());
  }
  bool skip(std::string_view expected) {
    if (!rest().starts_with(expected)) return false;
    position_ += expected.size();
    return true;
  }
  // Nothing more on this line but blanks or a comment.
  bool restIsEmpty() {
    skipBlanks();
    return atEnd() || peek() == ';';
  }

  RegFile& file_;
  RegFileError& error_;
  TextLines lines_;
  std::size_t position_ = 0;  // in the line's text
  bool inSection_ = false;
  RegFileKey* key_ = nullptr;  // null in a section whose values do not count
};

bool Parser::parseHeader() {
  const std::string_view bytes = file_.bytes;
  std::size_t start = 0;
  if (bytes.starts_with("\xFF\xFE")) {
    file_.utf16 = true;
    start = 2;
  } else if (bytes.starts_with("\xEF\xBB\xBF")) {
    start = 3;
  }
  lines_ = TextLines(bytes, start, file_.utf16);
  nextLine();
  file_.version5 = skip("Windows Registry Editor Version 5.00");
  if ((!file_.version5 && !skip("REGEDIT4")) || !restIsEmpty()) {
    return failAt(1,
                  "not a registry file: the first line is neither \"Windows Registry Editor "
                  "Version 5.00\" nor \"REGEDIT4\"");
  }
  if (!lines_.lineEnd().empty()) file_.lineEnd = lines_.lineEnd();
  return true;
}

bool Parser::parseKey() {
  skip("[");
  const bool deletes = skip("-");
  // A key's name may hold brackets itself: it ends at one with nothing behind it.
  const std::size_t begin = position_;
  do {
    position_ = lines_.text().find(']', position_);
    if (position_ == std::string_view::npos) return fail("the key's name does not end in \"]\"");
    ++position_;
  } while (!restIsEmpty());
  const std::size_t end = lines_.text().rfind(']', position_ - 1);
  const std::string_view name = lines_.text().substr(begin, end - begin);

  inSection_ = true;
  key_ = nullptr;
  const std::size_t slash = std::min(name.find('\\'), name.size());
  const std::string root = base::foldCase(name.substr(0, slash));
  if (root != kLocalMachine) {
    const bool known = std::find(kOtherRoots.begin(), kOtherRoots.end(), root) != kOtherRoots.end();
    return known || fail("the key is below no root such as HKEY_LOCAL_MACHINE");
  }
  std::string_view path = name.substr(slash);
  if (static_cast<std::size_t>(std::count(path.begin(), path.end(), '\\')) > kMaxRegKeyLevels) {
    return fail("the key is nested too deep");
  }
  if (path.ends_with('\\') || path.find("\\\\") != std::string_view::npos) {
    return fail("the key's name has an empty part");
  }
  if (deletes) {
    deleteKey(path);
    return true;
  }
  RegFileKey* key = &file_.localMachine;
  while (!path.empty()) {
    path.remove_prefix(1);
    const std::size_t length = std::min(path.find('\\'), path.size());
    std::unique_ptr<RegFileKey>& child = key->subkeys[base::foldCase(path.substr(0, length))];
    if (child == nullptr) {
      child = std::make_unique<RegFileKey>();
      child->name = path.substr(0, length);
    }
    key = child.get();
    path.remove_prefix(length);
  }
  key_ = key;
  const std::string_view whole = name.substr(std::min(slash + 1, name.size()));
  if (key_->appendAt != kNoOffset) {
    file_.repeats.push_back({lines_.number(), 0, std::string(whole)});
  }
  key_->appendAt = lines_.endOffset();
  return true;
}

void Parser::deleteKey(std::string_view path) {
  RegFileKey* parent = &file_.localMachine;
  while (!path.empty()) {
    path.remove_prefix(1);
    const std::size_t length = std::min(path.find('\\'), path.size());
    const auto child = parent->subkeys.find(base::foldCase(path.substr(0, length)));
    if (child == parent->subkeys.end()) return;
    path.remove_prefix(length);
    if (path.empty()) {
      parent->subkeys.erase(child);
      return;
    }
    parent = child->second.get();
  }
}

bool Parser::parseValue() {
  if (!inSection_) return fail("a value before the first key");
  std::string name;
  if (!skip("@")) {
    if (peek() != '"') return fail("neither a key, a value nor a comment");
    if (!parseQuoted(false, name)) return false;
  }
  skipBlanks();
  if (!skip("=")) return fail("no \"=\" behind the value's name");
  skipBlanks();

  const bool deletes = skip("-");
  RegFileValue entry;
  entry.line = lines_.number();
  entry.begin = lines_.offsetOf(position_);
  if (!deletes && !parseData(entry.value)) return false;
  entry.end = lines_.offsetOf(position_);
  if (!restIsEmpty()) return fail("unexpected characters behind the value's data");
  if (key_ == nullptr) return true;
  key_->appendAt = lines_.endOffset();
  if (deletes) {
    key_->values.erase(base::foldCase(name));
  } else {
    entry.name = name;
    RegFileValue& held = key_->values[base::foldCase(name)];
    if (held.line != 0) file_.repeats.push_back({entry.line, held.line, name});
    held = std::move(entry);
  }
  return true;
}

bool Parser::parseData(RegistryValue& value) {
  if (peek() == '"') {
    value.type = RegistryType::String;
    if (!parseQuoted(true, value.bytes)) return false;
    value.bytes += '\0';
    return true;
  }
  if (skip("dword:")) return parseDword(value);
  if (skip("hex")) return parseHex(value);
  return fail("the value's data is neither \"text\", dword: nor hex:");
}

// A text with line breaks in it is exported with them as they are, so it may go on in the next
// lines.
bool Parser::parseQuoted(bool mayContinue, std::string& text) {
  const std::size_t firstLine = lines_.number();
  ++position_;
  for (;;) {
    const std::string_view left = rest();
    const std::size_t stop = left.find_first_of("\"\\");
    text += left.substr(0, stop);
    if (stop == std::string_view::npos) {
      text += lines_.lineEnd();
      if (!mayContinue || !nextLine()) return failAt(firstLine, "a text has no closing quote");
      continue;
    }
    position_ += stop + 1;
    if (left[stop] == '"') return true;
    if (peek() != '"' && peek() != '\\') {
      return fail("a \"\\\" in a text is to be written \"\\\\\"");
    }
    text += peek();
    ++position_;
  }
}

bool Parser::parseNumber(std::uint32_t& number) {
  std::size_t digits = 0;
  number = 0;
  for (; base::hexValue(peek()) >= 0; ++digits, ++position_) {
    if (digits == kMaxHexDigitsOfNumber) return false;
    number = number << 4 | static_cast<std::uint32_t>(base::hexValue(peek()));
  }
  return digits > 0;
}

bool Parser::parseDword(RegistryValue& value) {
  skipBlanks();
  std::uint32_t number = 0;
  if (!parseNumber(number)) return fail("a dword: takes one to eight hexadecimal digits");
  value.type = RegistryType::Dword;
  for (int shift = 0; shift < 32; shift += 8) {
    value.bytes += static_cast<char>(number >> shift & 0xFF);
  }
  return true;
}

bool Parser::parseHex(RegistryValue& value) {
  auto type = static_cast<std::uint32_t>(RegistryType::Binary);
  if (skip("(") && !(parseNumber(type) && skip(")"))) {
    return fail("hex( takes a hexadecimal type number and \")\"");
  }
  if (!skip(":")) return fail("no \":\" behind hex");
  value.type = static_cast<RegistryType>(type);
  if (!parseHexBytes(value.bytes)) return false;
  if (isRegText(value.type)) {
    value.bytes = file_.version5 ? utf16LeToUtf8(value.bytes) : ansiToUtf8(value.bytes);
  }
  return true;
}

bool Parser::parseHexBytes(std::string& bytes) {
  bool mayEnd = true;  // at the start, or behind a byte
  for (;;) {
    skipBlanks();
    if (skip("\\")) {
      if (!restIsEmpty()) return fail("unexpected characters behind the \"\\\" of a hex list");
      if (!nextLine()) return fail("the file ends inside a hex list");
      continue;
    }
    const int high = base::hexValue(peek());
    if (high < 0) return mayEnd || fail("a hex list takes bytes of two hexadecimal digits");
    ++position_;
    const int low = base::hexValue(peek());
    if (low >= 0) ++position_;
    bytes += static_cast<char>(low < 0 ? high : high << 4 | low);
    skipBlanks();
    if (!skip(",")) return true;
    mayEnd = false;
  }
}

const RegFileKey* childOf(const RegFileKey& key, std::string_view name) {
  const auto child = key.subkeys.find(base::foldCase(name));
  return child == key.subkeys.end() ? nullptr : child->second.get();
}

}  // namespace

bool isRegText(RegistryType type) {
  return type == RegistryType::String || type == RegistryType::ExpandString ||
         type == RegistryType::MultiString;
}

const RegFileValue* RegFileKey::findValue(std::string_view valueName) const {
  const auto value = values.find(base::foldCase(valueName));
  return value == values.end() ? nullptr : &value->second;
}

const RegFileKey* RegFile::findKey(std::string_view path) const {
  const RegFileKey* key = &localMachine;
  while (key != nullptr && !path.empty()) {
    const std::size_t length = std::min(path.find('\\'), path.size());
    if (length > 0) key = childOf(*key, path.substr(0, length));
    path.remove_prefix(std::min(length + 1, path.size()));
  }
  return key;
}

const RegFileValue* RegFile::findValue(std::string_view path, std::string_view name) const {
  const RegFileKey* key = findKey(path);
  return key == nullptr ? nullptr : key->findValue(name);
}

bool parseRegFile(std::string bytes, RegFile& file, RegFileError& error) {
  file = RegFile();
  file.bytes = std::move(bytes);
  return Parser(file, error).parse();
}

}  // namespace platform
