// Reads a password file; see the header.
#include "platform/system/linux/secret_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <unistd.h>

#include "platform/system/files.h"
#include "platform/system/linux/open_file.h"

namespace platform {
namespace {

// Straight from the file: a stream would leave a copy in its buffer. -1 with errno on failure.
ssize_t readStart(const std::string& file, char* buffer, std::size_t capacity) {
  const Descriptor handle(openToRead(file));
  if (!handle.valid()) return -1;
  std::size_t size = 0;
  ssize_t got = 0;
  do {
    got = ::read(handle.get(), buffer + size, capacity - size);
    if (got > 0) size += static_cast<std::size_t>(got);
  } while ((got > 0 && size < capacity) || (got == -1 && errno == EINTR));
  return got == -1 ? -1 : static_cast<ssize_t>(size);
}

}  // namespace

SecretFile::~SecretFile() {
  ::explicit_bzero(bytes_.data(), bytes_.size());
}

bool SecretFile::read(const std::string& file, std::string& error) {
  const ssize_t got = readStart(file, bytes_.data(), bytes_.size());
  if (got == -1) {
    error = "password file " + file + ": " + fileErrorText();
    return false;
  }
  char* const end = bytes_.data() + got;
  const char* const lineEnd = std::find(bytes_.data(), end, '\n');
  size_ = static_cast<std::size_t>(lineEnd - bytes_.data());
  if (size_ == bytes_.size()) {
    error = "password file " + file + ": its first line is too long for a password";
    return false;
  }
  if (size_ > 0 && bytes_[size_ - 1] == '\r') --size_;
  // An empty password would be no proof at all: servers take such a bind for an anonymous one.
  if (size_ == 0) error = "password file " + file + ": its first line is empty";
  return size_ > 0;
}

}  // namespace platform
