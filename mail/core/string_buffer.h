// The growable byte string of the mail library: UTF-8 text or raw bytes, always NUL-terminated,
// with a length of its own so that it may hold NULs. A new one has room for 201 bytes, so short
// header values never reallocate. Every operation first checks the validity byte and stops the
// process when it is wrong. Not shared between threads.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "mail/core/validity.h"

namespace kelvado {

class DataBuffer;

class StringBuffer {
 public:
  StringBuffer();
  explicit StringBuffer(std::string_view text);

  void append(const char* text);  // null appends nothing
  void append(std::string_view text);
  void appendChar(char c);
  // Exactly `count` bytes; NULs among them are kept.
  void appendN(const char* bytes, std::uint32_t count);
  void clear();  // the capacity is kept

  const char* getString() const;
  std::uint32_t size() const;
  std::string_view view() const;
  // The text itself, for appending to in place (the encoders do).
  std::string& text();

  // Returns how many were replaced.
  int replaceAll(std::string_view from, std::string_view to);
  void trim();
  // ASCII letters, and the bytes 0xC0 to 0xDF raised by 0x20, as Latin-1 has them; others stay.
  void toLowerCase();
  bool containsChar(char c) const;
  bool beginsWithNoCase(std::string_view prefix) const;
  bool contains8bit() const;
  // Two upper-case digits a byte.
  void appendHex(const DataBuffer& data);

  std::uint32_t serial() const;

 private:
  ValidityByte<0xAA> validity_;
  std::uint32_t serial_ = nextSerial();
  std::string text_;
};

}  // namespace kelvado
