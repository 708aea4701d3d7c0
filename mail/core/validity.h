// The validity byte by which every object of the mail library detects memory damage, and the serial
// numbers that identify objects in a trace. Used by the strings, buffers, logs and public objects.
#pragma once

#include <cstdint>

namespace kelvado {

// Ends the process at once, by a write through a null pointer. Deliberate: an object that was
// destroyed or overwritten must never be used further, and nothing can be reported safely.
[[noreturn]] void stopOnDamage();

// From one process-wide counter, which is not locked: under concurrency numbers may repeat.
std::uint32_t nextSerial();

// A byte that holds `Value` for as long as its owner lives. The owner checks it first in every
// operation. Volatile, or the compiler would drop the store in the destructor.
template <std::uint8_t Value>
class ValidityByte {
 public:
  ValidityByte() = default;
  ValidityByte(const ValidityByte& other) { other.check(); }
  ValidityByte& operator=(const ValidityByte& other) {
    check();
    other.check();
    return *this;
  }
  ~ValidityByte() { byte_ = 0; }

  void check() const {
    if (byte_ != Value) stopOnDamage();
  }

 private:
  volatile std::uint8_t byte_ = Value;
};

}  // namespace kelvado
