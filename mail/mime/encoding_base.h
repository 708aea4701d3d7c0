// What the transfer encoders share: the length of an output line.
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

  std::uint32_t lineLength() const { return lineLength_; }
  void setLineLength(std::uint32_t characters) { lineLength_ = characters; }

  // Appends.
  virtual void encode(std::string_view bytes, StringBuffer& out) const = 0;

 protected:
  explicit EncodingBase(std::uint32_t lineLength = kBodyLineLength) : lineLength_(lineLength) {}

 private:
  std::uint32_t lineLength_;
};

}  // namespace kelvado
