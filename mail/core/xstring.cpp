#include "mail/core/xstring.h"

#include <cstring>

#include "base/unicode.h"
#include "platform/text/code_page.h"

namespace kelvado {

void XString::setAnsi(const char* text) {
  form_ = Form::Ansi;
  text_.clear();
  text_.append(text);
}

void XString::setUtf8(const char* text) {
  setUtf8(std::string_view(text == nullptr ? "" : text));
}

void XString::setUtf8(std::string_view text) {
  form_ = Form::Utf8;
  text_.clear();
  text_.append(text);
}

void XString::setUnicode(std::u16string_view text) {
  form_ = Form::Utf16;
  text_.clear();
  text_.append(
      std::string_view(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t)));
}

std::string XString::getAnsi() const {
  // ASCII is the same in every form but UTF-16.
  if (form_ == Form::Ansi || (form_ == Form::Utf8 && !text_.contains8bit())) {
    return std::string(text_.view());
  }
  return platform::utf16ToAnsi(getUnicode());
}

std::string XString::getUtf8() const {
  if (form_ == Form::Ansi && !text_.contains8bit()) return std::string(text_.view());
  if (form_ == Form::Utf8 && base::isValidUtf8(text_.view())) return std::string(text_.view());
  return base::utf16ToUtf8(getUnicode());
}

std::u16string XString::getUnicode() const {
  if (form_ == Form::Ansi) return platform::ansiToUtf16(text_.view());
  if (form_ == Form::Utf8) return base::utf8ToUtf16(text_.view());
  std::u16string units(text_.size() / sizeof(char16_t), u'\0');
  std::memcpy(units.data(), text_.getString(), units.size() * sizeof(char16_t));
  return units;
}

}  // namespace kelvado
