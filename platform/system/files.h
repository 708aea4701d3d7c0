// Files by the system's own relative names, such as "logfiles\Norvyn-expired-pw.log". On Windows
// those are used as they stand. Elsewhere backslashes become slashes, and a relative name means the
// same file in any letter case: the lower-case spelling is the one that is created; a file that
// exists in another case is found. Absolute names are used as they are given.
// Names are in the ANSI code page. Nothing here throws.
//
// Who can write to a folder must not lead a program that runs as root to other files, nor hold it
// up. So only regular files are opened, and never waited for. On systems with symbolic links, one
// that belongs to root or to the program's own user is followed for reading; for writing none is in
// the last part of a name, but replaceFileAtomically and overwriteInFile go on to the file behind a
// link that may be read through. What root makes belongs to the owner of the folder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// Why the last call of this header failed, from errno: to be asked at once. Without a line end.
std::string fileErrorText();

// fopen. Null, with errno set, when it cannot be opened. With a text mode ("r", "w", "a+": no "b")
// lines end in "\n" for the program; on disk they end as the system has it. Reads see CR LF as "\n"
// on every system when they go through readTextLine.
File openFile(const std::string& name, const char* mode);

// One read of at most `capacity` - 1 bytes, up to and including a "\n" (fgets, but NUL bytes are
// kept); CR LF counts as "\n". False at the end of the file.
bool readTextLine(std::FILE* file, std::size_t capacity, std::string& line);

inline constexpr std::size_t kNoSizeLimit = static_cast<std::size_t>(-1);

// The whole file, unchanged. False when it cannot be read or has more than `limit` bytes; `bytes`
// is then empty and errno says why (EFBIG: the limit).
bool readWholeFile(const std::string& name, std::string& bytes, std::size_t limit = kNoSizeLimit);

// Replaces or makes the file with these bytes, directly. False when not all could be written.
bool writeWholeFile(const std::string& name, std::string_view bytes);

// As writeWholeFile, for text: a "\n" becomes the system's own line end on disk.
bool writeTextFile(const std::string& name, std::string_view text);

// Who may read a file that is replaced.
enum class FileReaders {
  OwnerAndGroup,
  AsUsual,    // as for any new file; those of the old file
  Everybody,  // of a new file, whatever is usual; those of the old file
};

// As writeWholeFile, but a reader sees the old file or the new one, never a part, whatever happens:
// a temporary file beside it, flushed to the disk, then renamed. The file keeps its access rights;
// on systems with file modes, those of other users than owner and group are taken away unless
// `readers` says otherwise, and a new file is then for its owner only (0600).
bool replaceFileAtomically(const std::string& name, std::string_view bytes,
                           FileReaders readers = FileReaders::OwnerAndGroup);

// Removes the temporary files beside `name` that replacing it left when its process was killed. Not
// while another process holds the file's lock: it may be replacing the file.
void removeTemporaries(const std::string& name);

// Opens, appends, closes: for lines of text, whose "\n" becomes the system's own line end on disk.
// False when not everything could be written.
bool appendToFile(const std::string& name, std::string_view text);

// Overwrites bytes in the middle of an existing file with one write, flushed to the disk.
bool overwriteInFile(const std::string& name, std::uint64_t offset, std::string_view bytes);

bool createDirectory(const std::string& name);  // true also when it exists already
// False only when it is certain that there is no such file: one that cannot be looked for may be
// there, and so is a link that leads nowhere.
bool fileExists(const std::string& name);
bool removeFile(const std::string& name);
// What is in the folder, sorted; a relative name is used as it stands. As much as can be listed.
std::vector<std::string> namesInFolder(const std::string& folder);

// What changes when a file is written: for who has read it and wants to know whether to do so
// again. Its numbers are for comparing only; they are 0 when there is no such file.
struct FileStamp {
  std::int64_t written = 0;
  std::uint64_t size = 0;
  bool operator==(const FileStamp&) const = default;
};
// Of the file of just this name, or behind a link of that name.
FileStamp fileStamp(const std::string& name);

// Whether others than the program's user, an administrator and, where there are groups, the
// program's group can write to the folder: they can put files there that a pass reads.
bool folderIsShared(const std::string& folder);
// The same for reading a file that holds a secret. The group's members are the program's business
// only while it does not run as root. False also when it cannot be found out.
bool fileIsShared(const std::string& name);

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
  // waiting, is held by another: then `isTaken()` is true. fileErrorText() has the reason.
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
