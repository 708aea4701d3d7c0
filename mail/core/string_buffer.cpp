#include "mail/core/string_buffer.h"

#include "base/ascii.h"
#include "base/hex_digit.h"
#include "base/text.h"
#include "mail/core/data_buffer.h"

namespace kelvado {
namespace {

constexpr std::size_t kFirstAllocation = 202;  // with the NUL

}  // namespace

StringBuffer::StringBuffer() {
  text_.reserve(kFirstAllocation - 1);
}

StringBuffer::StringBuffer(std::string_view text) : StringBuffer() {
  text_.append(text);
}

void StringBuffer::append(const char* text) {
  validity_.check();
  if (text != nullptr) text_.append(text);
}

void StringBuffer::append(std::string_view text) {
  validity_.check();
  text_.append(text);
}

void StringBuffer::appendChar(char c) {
  validity_.check();
  text_.push_back(c);
}

void StringBuffer::appendN(const char* bytes, std::uint32_t count) {
  validity_.check();
  if (bytes != nullptr) text_.append(bytes, count);
}

void StringBuffer::clear() {
  validity_.check();
  text_.clear();
}

const char* StringBuffer::getString() const {
  validity_.check();
  return text_.c_str();
}

std::uint32_t StringBuffer::size() const {
  validity_.check();
  return static_cast<std::uint32_t>(text_.size());
}

std::string_view StringBuffer::view() const {
  validity_.check();
  return text_;
}

std::string& StringBuffer::text() {
  validity_.check();
  return text_;
}

int StringBuffer::replaceAll(std::string_view from, std::string_view to) {
  validity_.check();
  return base::replaceAll(text_, from, to);
}

void StringBuffer::trim() {
  validity_.check();
  const std::string_view kept = base::trimmed(text_);
  text_.erase(0, static_cast<std::size_t>(kept.data() - text_.data()));
  text_.resize(kept.size());
}

void StringBuffer::toLowerCase() {
  validity_.check();
  for (char& c : text_) {
    const auto byte = static_cast<unsigned char>(c);
    c = byte >= 0xC0 && byte <= 0xDF ? static_cast<char>(byte + 0x20) : base::lowerAscii(c);
  }
}

bool StringBuffer::containsChar(char c) const {
  validity_.check();
  return text_.find(c) != std::string::npos;
}

bool StringBuffer::beginsWithNoCase(std::string_view prefix) const {
  validity_.check();
  return base::beginsWithNoCase(text_, prefix);
}

bool StringBuffer::contains8bit() const {
  validity_.check();
  return base::contains8bit(text_);
}

void StringBuffer::appendHex(const DataBuffer& data) {
  validity_.check();
  for (const char c : data.view()) {
    const auto byte = static_cast<unsigned char>(c);
    text_.push_back(base::kHexDigits[byte >> 4]);
    text_.push_back(base::kHexDigits[byte & 0x0F]);
  }
}

std::uint32_t StringBuffer::serial() const {
  validity_.check();
  return serial_;
}

}  // namespace kelvado
