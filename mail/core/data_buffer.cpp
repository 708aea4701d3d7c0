#include "mail/core/data_buffer.h"

namespace kelvado {

void DataBuffer::reserve(std::uint32_t capacity) {
  validity_.check();
  bytes_.reserve(capacity);
}

void DataBuffer::append(std::string_view bytes) {
  validity_.check();
  bytes_.append(bytes);
}

void DataBuffer::appendUint32(std::uint32_t number) {
  validity_.check();
  for (int shift = 0; shift < 32; shift += 8) bytes_.push_back(static_cast<char>(number >> shift));
}

void DataBuffer::clear() {
  validity_.check();
  bytes_.clear();
}

std::uint32_t DataBuffer::size() const {
  validity_.check();
  return static_cast<std::uint32_t>(bytes_.size());
}

std::string_view DataBuffer::view() const {
  validity_.check();
  return bytes_;
}

std::uint32_t DataBuffer::serial() const {
  validity_.check();
  return serial_;
}

}  // namespace kelvado
