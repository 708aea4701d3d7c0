#include "config/audit_log.h"

#include <cerrno>
#include <cstdio>

#include "platform/system/files.h"

namespace config {

void AuditLog::recreate(const std::string& heading) {
  if (file_ != nullptr && !platform::writeTextFile(file_, heading)) sayFailed();
}

void AuditLog::append(const std::string& line) {
  if (file_ == nullptr) return;
  platform::File file = platform::openFile(file_, "a+");
  if (!file) return sayFailed();
  const bool hasText = std::fseek(file.get(), -1, SEEK_END) == 0;
  const bool unfinished = hasText && std::fgetc(file.get()) != '\n';
  std::fseek(file.get(), 0, SEEK_END);  // between reading and writing
  const std::string text = unfinished ? "\n" + line : line;
  bool written = std::fwrite(text.data(), 1, text.size(), file.get()) == text.size();
  written = std::fclose(file.release()) == 0 && written;
  if (!written) sayFailed();
}

// Of the last call, by errno.
void AuditLog::sayFailed() {
  if (failed_ || errno == ENOENT) return;
  failed_ = true;
  findings_.problem(std::string(file_) + " could not be written, and lacks lines of this pass: " +
                    platform::fileErrorText());
}

}  // namespace config
