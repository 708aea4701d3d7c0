// The public string object: text that a caller sets in one encoding and reads in another. Public
// API: nothing else in the library uses it.
#pragma once

#include <string>
#include <string_view>

#include "mail/core/kv_object.h"
#include "mail/core/xstring.h"

namespace kelvado {

class KvString : public KvObject {
 public:
  KvString() = default;
  explicit KvString(const char* text) { setString(text); }

  // In the encoding that the Utf8 flag selects; not trimmed. Null means empty.
  void setString(const char* text);
  void append(const char* text);
  void setStringUtf8(const char* text);
  void setStringAnsi(const char* text);
  void clear();

  // In the encoding that the Utf8 flag selects, and in a fixed one.
  const char* getString();
  std::string getUtf8() const;
  std::string getAnsi() const;
  std::u16string getUnicode() const;
  bool isEmpty() const;

 private:
  XString text_;
};

}  // namespace kelvado
