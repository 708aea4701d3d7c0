// The edits of reg_file.h: each splices one stretch into the file's bytes.
#include <algorithm>
#include <array>
#include <charconv>

#include "platform/registry/file/reg_file.h"
#include "platform/text/text_lines.h"

namespace platform {
namespace {

// Where exported files break a list of bytes.
constexpr std::size_t kHexLineColumns = 76;

std::string hexNumber(std::uint32_t number, std::size_t digits) {
  std::array<char, 8> buffer{};
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number, 16).ptr;
  std::string text(buffer.data(), end);
  if (text.size() < digits) text.insert(0, digits - text.size(), '0');
  return text;
}

std::string quoted(std::string_view utf8) {
  std::string text = "\"";
  for (const char c : utf8) {
    if (c == '"' || c == '\\') text += '\\';
    text += c;
  }
  return text + '"';
}

// A text goes between quotes when it is whole there: one NUL, at its end, and no line breaks, which
// a text editor might change.
bool fitsInQuotes(const RegistryValue& value) {
  if (value.type != RegistryType::String || !value.bytes.ends_with('\0')) return false;
  return std::none_of(value.bytes.begin(), value.bytes.end() - 1,
                      [](char c) { return static_cast<unsigned char>(c) < 0x20; });
}

std::string hexList(const RegFile& file, const RegistryValue& value, std::size_t column) {
  std::string bytes = value.bytes;
  if (isRegText(value.type)) {
    bytes = file.version5 ? encodeText(bytes, true) : utf8ToAnsi(bytes);
  }
  std::string text = "hex";
  if (value.type != RegistryType::Binary) {
    text += '(' + hexNumber(static_cast<std::uint32_t>(value.type), 1) + ')';
  }
  text += ':';
  column += text.size();
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    text += hexNumber(static_cast<unsigned char>(bytes[i]), 2);
    column += 3;
    if (i + 1 == bytes.size()) break;
    text += ',';
    if (column > kHexLineColumns) {
      text += '\\' + file.lineEnd + "  ";
      column = 2;
    }
  }
  return text;
}

// A value's data in UTF-8, for a line on which `column` characters stand before it.
std::string dataText(const RegFile& file, const RegistryValue& value, std::size_t column) {
  if (fitsInQuotes(value)) {
    return quoted(std::string_view(value.bytes).substr(0, value.bytes.size() - 1));
  }
  if (value.type == RegistryType::Dword && value.bytes.size() == 4) {
    std::uint32_t number = 0;
    for (std::size_t i = 4; i-- > 0;) {
      number = number << 8 | static_cast<unsigned char>(value.bytes[i]);
    }
    return "dword:" + hexNumber(number, 8);
  }
  return hexList(file, value, column);
}

std::string splice(const RegFile& file, std::size_t begin, std::size_t end, std::string_view utf8) {
  std::string bytes = file.bytes;
  return bytes.replace(begin, end - begin, encodeText(utf8, file.utf16));
}

// A whole line, or lines, put in at a line's start; the line before gets the end it may lack.
std::string insertLines(const RegFile& file, std::size_t offset, std::string lines) {
  const std::string feed = encodeText("\n", file.utf16);
  if (!std::string_view(file.bytes).substr(0, offset).ends_with(feed)) {
    lines.insert(0, file.lineEnd);
  }
  return splice(file, offset, offset, lines + file.lineEnd);
}

std::string sectionHead(const RegFile& file, std::string_view path) {
  return file.lineEnd + "[HKEY_LOCAL_MACHINE\\" + std::string(path) + "]";
}

}  // namespace

std::string regFileWithKey(const RegFile& file, std::string_view path) {
  return insertLines(file, file.bytes.size(), sectionHead(file, path));
}

std::string regFileWithValue(const RegFile& file, std::string_view path, std::string_view name,
                             const RegistryValue& value) {
  const std::string head = (name.empty() ? "@" : quoted(name)) + '=';
  const std::string data = dataText(file, value, head.size());
  if (const RegFileValue* old = file.findValue(path, name)) {
    return splice(file, old->begin, old->end, data);
  }
  const RegFileKey* key = file.findKey(path);
  if (key != nullptr && key->appendAt != kNoOffset) {
    return insertLines(file, key->appendAt, head + data);
  }
  return insertLines(file, file.bytes.size(), sectionHead(file, path) + file.lineEnd + head + data);
}

}  // namespace platform
