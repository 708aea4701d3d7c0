// Text that remembers in which form it was given (the ANSI code page, UTF-8 or UTF-16) and is
// converted when another form is asked for. Used for the arguments of public methods.
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

  // What the target form can't carry becomes '?' or U+FFFD.
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
