// Text in the form in which it was set (the ANSI code page, UTF-8 or UTF-16), converted when
// another form is asked for. Used for the arguments of public methods.
#pragma once

#include <string>
#include <string_view>

#include "mail/core/string_buffer.h"

namespace kelvado {

class XString {
 public:
  XString() = default;  // empty UTF-8

  // Null means empty, here and below.
  void setAnsi(const char* text);
  void setUtf8(const char* text);
  void setUtf8(std::string_view text);
  void setUnicode(std::u16string_view text);

  // Characters that the target form does not have become '?' or U+FFFD.
  std::string getAnsi() const;
  std::string getUtf8() const;
  std::u16string getUnicode() const;

  bool isEmpty() const { return text_.size() == 0; }

 private:
  enum class Form { Ansi, Utf8, Utf16 };

  Form form_ = Form::Utf8;
  StringBuffer text_;  // UTF-16 in the machine's byte order
};

}  // namespace kelvado
