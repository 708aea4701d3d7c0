// Files by the system's own relative names, such as "logfiles\Norvyn-expired-pw.log". On Windows
// those are used as they stand. Elsewhere backslashes become slashes, and a relative name means the
// same file in any letter case: the lower-case spelling is the one that is created; a file that
// exists in another case is found. Absolute names are used as they are given.
// Names are in the ANSI code page. Nothing here throws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace platform {

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// fopen. Null when it cannot be opened. With a text mode ("r", "w", "a+": no "b") lines end in "\n"
// for the program; on disk they end as the system has it. Reads see CR LF as "\n" on every system
// when they go through readTextLine.
File openFile(const std::string& name, const char* mode);

// One read of at most `capacity` - 1 bytes, up to and including a "\n" (fgets, but NUL bytes are
// kept); CR LF counts as "\n". False at the end of the file.
bool readTextLine(std::FILE* file, std::size_t capacity, std::string& line);

inline constexpr std::size_t kNoSizeLimit = static_cast<std::size_t>(-1);

// The whole file, unchanged. False when it cannot be read or has more than `limit` bytes; `bytes`
// is then empty and errno tells why (EFBIG: the limit).
bool readWholeFile(const std::string& name, std::string& bytes, std::size_t limit = kNoSizeLimit);

// Replaces or makes the file with these bytes, directly. False when not all could be written.
bool writeWholeFile(const std::string& name, std::string_view bytes);

// As writeWholeFile, for text: a "\n" becomes the system's own line end on disk.
bool writeTextFile(const std::string& name, std::string_view text);

// As writeWholeFile, but a reader sees the old file or the new one, never a part, whatever happens:
// a temporary file beside it, flushed to the disk, then renamed. On systems with file modes the new
// file is readable by its owner only (0600).
bool replaceFileAtomically(const std::string& name, std::string_view bytes);

// Opens, appends, closes: for lines of text, whose "\n" becomes the system's own line end on disk.
// False when not everything could be written.
bool appendToFile(const std::string& name, std::string_view text);

// Overwrites bytes in the middle of an existing file with one write, flushed to the disk.
bool overwriteInFile(const std::string& name, std::uint64_t offset, std::string_view bytes);

bool createDirectory(const std::string& name);  // true also when it exists already
bool fileExists(const std::string& name);
bool removeFile(const std::string& name);

// The process's current directory, which relative names start from. The name is one that a person
// gave, and is used as it stands.
bool setWorkingDirectory(const std::string& name);
// Where a relative name is, for messages and for use after setWorkingDirectory. A file that exists
// in just this spelling is meant, before any other spelling of the name.
std::string absolutePath(const std::string& name);

// Held while a file is read, changed and replaced: other processes that ask for the same lock wait.
class FileLock {
 public:
  enum class Wait { Yes, No };
  // Locks "NAME.lock", made when missing. `held()` is false when it cannot be made or, without
  // waiting, is held by another: then `isTaken()` is true.
  explicit FileLock(const std::string& name, Wait wait = Wait::Yes);
  ~FileLock();
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  bool held() const { return handle_ != -1; }
  bool isTaken() const { return taken_; }

 private:
  std::intptr_t handle_ = -1;
  bool taken_ = false;
};

}  // namespace platform
