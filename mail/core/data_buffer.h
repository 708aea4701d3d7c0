// Raw bytes: file contents and bodies. Same scheme as StringBuffer: validity byte, serial, length
// apart from the content. Not shared between threads while it is changed; a const one may be.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "mail/core/validity.h"

namespace kelvado {

class DataBuffer {
 public:
  DataBuffer() = default;
  // Takes the bytes over without copying them.
  explicit DataBuffer(std::string&& bytes) : bytes_(std::move(bytes)) {}

  void reserve(std::uint32_t capacity);
  void append(std::string_view bytes);
  void appendUint32(std::uint32_t number);  // four bytes, least significant first
  void clear();

  std::uint32_t size() const;
  std::string_view view() const;
  std::uint32_t serial() const;

 private:
  ValidityByte<0xDB> validity_;
  std::uint32_t serial_ = nextSerial();
  std::string bytes_;
};

}  // namespace kelvado
