// The LDIF record reader; see the header.
#include "platform/directory/ldif/ldif_reader.h"

#include <array>

#include "base/ascii.h"

namespace platform {
namespace {

constexpr std::uint8_t kNotBase64 = 0xFF;

constexpr std::array<std::uint8_t, 256> makeBase64Values() {
  std::array<std::uint8_t, 256> values{};
  for (auto& value : values) value = kNotBase64;
  constexpr std::string_view kAlphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
    values[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
  }
  return values;
}

constexpr auto kBase64Values = makeBase64Values();

// Decodes in place, the result being shorter. False when it is not base64 with its padding.
bool decodeBase64(char* text, std::size_t& size) {
  if (size % 4 != 0) return false;
  std::size_t padding = 0;
  while (padding < 2 && padding < size && text[size - 1 - padding] == '=') ++padding;
  std::size_t digits = size - padding;
  std::size_t out = 0;
  std::uint32_t bits = 0;
  for (std::size_t i = 0; i < digits; ++i) {
    std::uint8_t value = kBase64Values[static_cast<unsigned char>(text[i])];
    if (value == kNotBase64) return false;
    bits = bits << 6U | value;
    // Every digit but the first of four completes a byte.
    if (i % 4 != 0) text[out++] = static_cast<char>(bits >> (6 - 2 * (i % 4)));
  }
  size = out;
  return true;
}

bool isAttributeDescription(std::string_view text) {
  if (text.empty()) return false;
  for (char c : text) {
    bool allowed = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                   c == '-' || c == '.' || c == ';' || c == '_';
    if (!allowed) return false;
  }
  return true;
}

bool beginsRecord(std::string_view line) {
  return base::equalsNoCase(line.substr(0, 3), "dn:");
}

}  // namespace

bool LdifReader::next(LdifRecord& record) {
  bool more = true;
  while (more) {
    startRecord();
    more = collectLines();
    if (begun_ && !dropped_) {
      giveRecord(record);
      return true;
    }
  }
  return false;
}

void LdifReader::startRecord() {
  text_.clear();
  attributes_.clear();
  tail_ = Tail::Nothing;
  begun_ = false;
  dropped_ = false;
}

// Takes lines up to the end of the record; false at the end of the stream.
bool LdifReader::collectLines() {
  while (const ByteLine* line = lines_.peek()) {
    if (line->text.starts_with(' ')) {
      if (tail_ == Tail::Nothing) fault(line->number, "a continuation of nothing");
      if (tail_ == Tail::Attribute) addToAttribute(*line);
      lines_.consume();
      continue;
    }
    finishAttribute();
    if (line->text.empty()) {
      lines_.consume();
      if (begun_) return true;
      tail_ = Tail::Nothing;
      continue;
    }
    if (begun_ && beginsRecord(line->text)) {
      // Two records that only lack the line between them: both are good.
      report_(line->number, "no empty line before this record");
      return true;
    }
    tail_ = Tail::Ignored;
    if (line->text.front() != '#' && !dropped_) beginAttribute(*line);
    lines_.consume();
  }
  finishAttribute();
  return false;
}

void LdifReader::beginAttribute(const ByteLine& line) {
  current_ = Pending();
  current_.begin = text_.size();
  current_.line = line.number;
  current_.offset = line.offset;
  tail_ = Tail::Attribute;
  addToAttribute(line);
}

void LdifReader::addToAttribute(const ByteLine& line) {
  std::string_view part = line.text;
  if (line.number != current_.line) part.remove_prefix(1);
  text_.append(part);
  current_.endOffset = line.endOffset;
  // The name itself may be folded, so whether the attribute is wanted shows with its colon.
  if (current_.colon == std::string::npos) {
    current_.colon = text_.find(':', current_.begin);
    if (current_.colon != std::string::npos && !admitAttribute()) {
      text_.resize(current_.begin);
      tail_ = Tail::Ignored;
      return;
    }
  }
  if (line.cut || text_.size() - current_.begin > kMaxLineBytes) {
    fault(current_.line, "line too long");
  } else if (text_.size() > kMaxRecordBytes) {
    fault(current_.line, "record too long");
  }
}

// Whether the current attribute, whose name is known now, is to be kept.
bool LdifReader::admitAttribute() {
  std::string_view description(text_.data() + current_.begin, current_.colon - current_.begin);
  if (!isAttributeDescription(description)) {
    fault(current_.line, "not an attribute");
    return false;
  }
  std::string_view name = nameOf(current_);
  if (!begun_) return admitFirst(name);
  return base::equalsNoCase(name, "changetype") || wanted_(name);
}

bool LdifReader::admitFirst(std::string_view name) {
  if (base::equalsNoCase(name, "version")) return false;  // once, before the first record
  begun_ = true;
  if (base::equalsNoCase(name, "dn")) return true;
  // What the command-line tools print among and after the records.
  if (base::equalsNoCase(name, "ref") || base::equalsNoCase(name, "search") ||
      base::equalsNoCase(name, "result")) {
    dropped_ = true;
    return false;
  }
  fault(current_.line, "a record that does not begin with \"dn:\"");
  return false;
}

void LdifReader::finishAttribute() {
  if (tail_ != Tail::Attribute) return;
  tail_ = Tail::Ignored;
  if (current_.colon == std::string::npos) {
    fault(current_.line, "a line without \":\"");
    return;
  }
  std::size_t value = current_.colon + 1;
  char kind = value < text_.size() ? text_[value] : '\0';
  if (kind == '<') {
    fault(current_.line, "values that are elsewhere are not read");
    return;
  }
  if (kind == ':') ++value;
  while (value < text_.size() && text_[value] == ' ') ++value;
  current_.value = value;
  current_.valueSize = text_.size() - value;
  if (kind == ':' && !decodeBase64(text_.data() + value, current_.valueSize)) {
    fault(current_.line, "not base64");
    return;
  }
  text_.resize(value + current_.valueSize);
  if (base::equalsNoCase(nameOf(current_), "changetype")) {
    if (!base::equalsNoCase(std::string_view(text_).substr(value), "add")) {
      fault(current_.line, "a change of an entry, not an entry");
    }
    return;
  }
  attributes_.push_back(current_);
}

void LdifReader::fault(std::uint64_t line, std::string_view what) {
  if (!dropped_) report_(line, what);
  begun_ = true;
  dropped_ = true;
  tail_ = Tail::Ignored;
}

std::string_view LdifReader::nameOf(const Pending& attribute) const {
  std::string_view description(text_.data() + attribute.begin, attribute.colon - attribute.begin);
  return description.substr(0, description.find(';'));
}

void LdifReader::giveRecord(LdifRecord& record) const {
  auto valueOf = [this](const Pending& attribute) {
    return std::string_view(text_).substr(attribute.value, attribute.valueSize);
  };
  const Pending& dn = attributes_.front();
  record.line = dn.line;
  record.offset = dn.offset;
  record.dn = valueOf(dn);
  record.attributes.clear();
  for (std::size_t i = 1; i < attributes_.size(); ++i) {
    const Pending& pending = attributes_[i];
    LdifAttribute& attribute = record.attributes.emplace_back();
    attribute.name = nameOf(pending);
    std::size_t options = pending.begin + attribute.name.size() + 1;
    if (options < pending.colon) {
      attribute.options = std::string_view(text_).substr(options, pending.colon - options);
    }
    attribute.value = valueOf(pending);
    attribute.line = pending.line;
    attribute.offset = pending.offset;
    attribute.endOffset = pending.endOffset;
  }
}

}  // namespace platform
