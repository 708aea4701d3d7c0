// platform/system/files.h and record_file.h over the simulated disk.
#include <cerrno>

#include "base/ascii.h"
#include "platform/system/file_steps.h"
#include "platform/system/files.h"
#include "platform/system/path_name.h"
#include "platform/system/record_file.h"
#include "tests/simulation/world.h"

namespace platform {
namespace {

using simulation::DiskFile;
using simulation::world;
using FilePointer = std::shared_ptr<DiskFile>;

bool failWith(int error) {
  errno = error;
  return false;
}

std::string pathOnDisk(const std::string& name) {
  std::string path = base::lowered(name);
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

// False, with errno set, when nothing can be written there.
bool mayWrite(const std::string& path) {
  world().call();
  const std::size_t slash = path.rfind('/');
  const bool inFolder = slash != std::string::npos;
  if (inFolder && world().folders.count(path.substr(0, slash)) == 0) return failWith(ENOENT);
  const bool refused = world().fails(world().faults.writes, "cannot open to write: ", path);
  return refused || world().dead() ? failWith(EACCES) : true;
}

FilePointer toWrite(const std::string& name) {
  const std::string path = pathOnDisk(name);
  if (!mayWrite(path)) return nullptr;
  FilePointer& file = world().files[path];
  if (file == nullptr) file = std::make_shared<DiskFile>();
  return file;
}

FilePointer toRead(const std::string& name) {
  world().call();
  const std::string path = pathOnDisk(name);
  const auto found = world().files.find(path);
  if (found == world().files.end()) return failWith(ENOENT), nullptr;
  const bool refused = world().fails(world().faults.reads, "cannot open to read: ", path);
  return refused ? failWith(EACCES), nullptr : found->second;
}

// Writes all, or some of it when the disk is full.
bool append(DiskFile& file, std::string_view bytes) {
  world().quietCall();
  if (world().dead()) return false;
  const bool full = world().fails(world().faults.writes, "disk full");
  file.change();
  const auto most = static_cast<std::size_t>(full ? world().random.below(bytes.size() + 1) : -1);
  file.current.append(bytes.substr(0, most));
  return full ? failWith(ENOSPC) : true;
}

// An open file of stdio. What is opened to write is written at its end only.
struct Stream {
  FilePointer file;
  std::size_t at = 0;
};

ssize_t readStream(void* cookie, char* buffer, std::size_t size) {
  auto& [file, at] = *static_cast<Stream*>(cookie);
  if (world().fails(world().faults.reads, "read error")) return failWith(EIO), -1;
  const std::size_t count = file->current.copy(buffer, size, at);
  at += count;
  return static_cast<ssize_t>(count);
}

ssize_t writeStream(void* cookie, const char* data, std::size_t size) {
  auto& [file, at] = *static_cast<Stream*>(cookie);
  const bool written = append(*file, {data, size});
  at = file->current.size();
  return written ? static_cast<ssize_t>(size) : 0;
}

int seekStream(void* cookie, off64_t* offset, int whence) {
  auto& [file, at] = *static_cast<Stream*>(cookie);
  const auto size = static_cast<off64_t>(file->current.size());
  *offset += whence == SEEK_SET ? 0 : whence == SEEK_CUR ? static_cast<off64_t>(at) : size;
  if (*offset < 0 || *offset > size) return failWith(EINVAL), -1;
  at = static_cast<std::size_t>(*offset);
  return 0;
}

int closeStream(void* cookie) {
  delete static_cast<Stream*>(cookie);
  return 0;
}

}  // namespace

File openFile(const std::string& name, const char* mode) {
  const FilePointer file = *mode == 'r' ? toRead(name) : toWrite(name);
  if (file == nullptr) return nullptr;
  if (*mode == 'w') file->change();
  if (*mode == 'w') file->current.clear();
  return File(
      ::fopencookie(new Stream{file}, mode, {readStream, writeStream, seekStream, closeStream}));
}

bool readTextLine(std::FILE* file, std::size_t capacity, std::string& line) {
  return readTextLineBy([](std::FILE* from) { return getc_unlocked(from); }, file, capacity, line);
}

bool readWholeFile(const std::string& name, std::string& bytes, std::size_t) {
  const FilePointer file = toRead(name);
  bytes = file == nullptr ? "" : file->current;
  return file != nullptr;
}

bool writeWholeFile(const std::string& name, std::string_view bytes) {
  const FilePointer file = toWrite(name);
  if (file == nullptr) return false;
  file->change();
  file->current.clear();
  world().call();
  return append(*file, bytes);
}

bool writeTextFile(const std::string& name, std::string_view text) {
  return writeWholeFile(name, text);
}

bool replaceFileAtomically(const std::string& name, std::string_view bytes, FileReaders) {
  const std::string path = pathOnDisk(name);
  if (!mayWrite(path)) return false;
  world().put(path, std::string(bytes));
  world().call();
  return true;
}

void removeTemporaries(const std::string&) {}

bool appendToFile(const std::string& name, std::string_view text) {
  const FilePointer file = toWrite(name);
  return file != nullptr && append(*file, text);
}

bool overwriteInFile(const std::string&, std::uint64_t, std::string_view) {
  return failWith(EROFS);  // the directory is no file
}

bool createDirectory(const std::string& name) {
  world().call();
  if (!world().dead()) world().folders.insert(pathOnDisk(name));
  return true;
}

bool folderIsShared(const std::string&) {
  return false;
}

bool fileIsShared(const std::string&) {
  return false;
}

bool fileExists(const std::string& name) {
  world().call();
  const std::string path = pathOnDisk(name);
  return world().files.count(path) + world().folders.count(path) != 0;
}

std::vector<std::string> namesInFolder(const std::string&) {
  world().call();
  std::vector<std::string> names;
  for (const auto& [path, file] : world().files) names.push_back(path);
  return names;
}

bool removeFile(const std::string& name) {
  world().call();
  return !world().dead() && world().files.erase(pathOnDisk(name)) != 0;
}

FileStamp fileStamp(const std::string&) {
  return {world().registryWrites};  // nothing is asked of another file
}

bool setWorkingDirectory(const std::string&) {
  return true;
}

std::string absolutePath(const std::string& name) {
  return name;
}

std::filesystem::path pathOf(const std::string& name) {
  return name;
}

std::string nameOf(const std::filesystem::path& path) {
  return path.string();
}

FileLock::FileLock(const std::string& name, Wait) {
  const std::string path = pathOnDisk(name);
  if (!mayWrite(path)) return;
  taken_ = !world().locks.insert(path).second;
  if (!taken_) handle_ = reinterpret_cast<std::intptr_t>(new std::string(path));
}

FileLock::~FileLock() {
  if (!held()) return;
  const std::unique_ptr<std::string> path(reinterpret_cast<std::string*>(handle_));
  world().quietCall();
  world().locks.erase(*path);
}

// The disk knows when a record was appended, and so when it is safe from a power cut.
std::unique_ptr<RecordFile> RecordFile::open(const std::string& name) {
  auto file = std::make_unique<FilePointer>(toWrite(name));
  if (*file == nullptr) return nullptr;
  return std::unique_ptr<RecordFile>(
      new RecordFile(reinterpret_cast<std::intptr_t>(file.release())));
}

RecordFile::RecordFile(std::intptr_t handle) : handle_(handle) {}

RecordFile::~RecordFile() {
  const std::unique_ptr<FilePointer> file(reinterpret_cast<FilePointer*>(handle_));
  world().quietCall();
  if (!world().dead()) (*file)->durable.reset();
}

bool RecordFile::append(std::string_view bytes) {
  world().call();
  DiskFile& file = **reinterpret_cast<FilePointer*>(handle_);
  const std::size_t before = file.current.size();
  const bool written = platform::append(file, bytes);
  if (!written && !world().dead()) file.current.resize(before);
  file.records.emplace_back(world().clock.now, file.current.size());
  return written;
}

}  // namespace platform
