// The security functions of "security.dll", loaded once for the process, and what they hand out.
// Used in this folder only.
#pragma once

#ifndef SECURITY_WIN32
#define SECURITY_WIN32
#endif

#include <string>

#include <windows.h>
#include <security.h>

namespace platform {

// Null, with `error` in words, when the library or its entry is missing. Never unloaded.
const SecurityFunctionTableA* securityFunctions(std::string& error);

// The buffers of one call, and their description: both stay where they are while it lasts.
template <unsigned Count>
struct SecurityBuffers {
  SecBuffer buffers[Count] = {};
  SecBufferDesc description{SECBUFFER_VERSION, Count, buffers};

  SecurityBuffers() = default;
  SecurityBuffers(const SecurityBuffers&) = delete;
  SecurityBuffers& operator=(const SecurityBuffers&) = delete;

  void set(unsigned index, unsigned long type, void* data, std::size_t size) {
    buffers[index] = {static_cast<unsigned long>(size), type, data};
  }
  const SecBuffer* find(unsigned long type) const {
    for (const SecBuffer& buffer : buffers) {
      if (buffer.BufferType == type) return &buffer;
    }
    return nullptr;
  }
};

}  // namespace platform
