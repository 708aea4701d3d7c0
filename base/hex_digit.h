// Hexadecimal digits, as quoted-printable, Q words and RFC 2231 parameters write them.
#pragma once

namespace base {

inline constexpr char kHexDigits[] = "0123456789ABCDEF";

// -1 when it is none.
constexpr int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace base
