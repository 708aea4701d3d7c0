#include "mail/core/kv_string.h"

namespace kelvado {

void KvString::setString(const char* text) {
  text_.setUtf8(std::string_view(untrimmedArgument(text)));
}

void KvString::append(const char* text) {
  const std::string joined = text_.getUtf8() + untrimmedArgument(text);
  text_.setUtf8(std::string_view(joined));
}

void KvString::setStringUtf8(const char* text) {
  checkValid();
  text_.setUtf8(text);
}

void KvString::setStringAnsi(const char* text) {
  checkValid();
  text_.setAnsi(text);
}

void KvString::clear() {
  checkValid();
  text_.setUtf8("");
}

const char* KvString::getString() {
  return result(text_.getUtf8());
}

std::string KvString::getUtf8() const {
  checkValid();
  return text_.getUtf8();
}

std::string KvString::getAnsi() const {
  checkValid();
  return text_.getAnsi();
}

std::u16string KvString::getUnicode() const {
  checkValid();
  return text_.getUnicode();
}

bool KvString::isEmpty() const {
  checkValid();
  return text_.isEmpty();
}

}  // namespace kelvado
