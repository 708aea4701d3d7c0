#include <cerrno>
#include <system_error>

#include "platform/system/files.h"

namespace platform {

std::string fileErrorText() {
  const int error = errno;
  switch (error) {
    case ELOOP:
      return "a symbolic link that leads nowhere or must not be followed here";
    case ENOTSUP:
      return "not a regular file";
    case EFBIG:
      return "too large";
    case EMFILE:
      return "this process has too many files open";
    default:
      return std::generic_category().message(error);
  }
}

}  // namespace platform
