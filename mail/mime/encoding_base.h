// The length of an output line, and the base of the transfer encoders as objects. Programs use
// those (public API: Base64, Uu); the library itself calls the functions beside them.
#pragma once

#include <cstdint>
#include <string_view>

#include "mail/core/string_buffer.h"

namespace kelvado {

inline constexpr std::uint32_t kBodyLineLength = 76;        // RFC 2045 sections 6.7 and 6.8
inline constexpr std::uint32_t kHeaderWordLineLength = 72;  // of the RFC 2047 encoders

class EncodingBase {
 public:
  virtual ~EncodingBase() = default;

  // After so many characters of output, or more, a line ends.
  std::uint32_t lineLength() const { return lineLength_; }

  // Appends.
  virtual void encode(std::string_view bytes, StringBuffer& out) const = 0;

 protected:
  explicit EncodingBase(std::uint32_t lineLength = kBodyLineLength) : lineLength_(lineLength) {}

 private:
  std::uint32_t lineLength_;
};

}  // namespace kelvado
