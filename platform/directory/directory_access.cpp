// The words for a failed call, of a directory that has no better ones.
#include "platform/directory/directory_access.h"

#include "base/format_text.h"

namespace platform {

std::string DirectoryAccess::errorText(HResult status) {
  const DirectoryError error = lastError();
  return error.text.empty() ? base::formatText("error %08x", status) : error.text;
}

}  // namespace platform
