// A file that only grows, record by record, for what a process must not forget when it is killed.
// Used by one thread; a thread of its own flushes what was appended.
//
// A record that append() has taken survives the end of the process at any later moment, and is on
// the disk within a second, so a power cut loses at most the last second's records. The last record
// of a file may be there in part after a power cut: its reader has to notice.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace platform {

class RecordFile {
 public:
  // Opens the file (a name as in files.h) behind its last byte, made when it is missing, readable
  // by its owner only. A link is not followed. Null, with errno set, when it cannot be opened.
  static std::unique_ptr<RecordFile> open(const std::string& name);
  // Flushes what is left.
  ~RecordFile();
  RecordFile(const RecordFile&) = delete;
  RecordFile& operator=(const RecordFile&) = delete;

  // Appends all of the bytes, or none: what a full disk left of them is cut off again. False, with
  // errno set, in the latter case.
  bool append(std::string_view bytes);

 private:
  explicit RecordFile(std::intptr_t handle);
  void flushInBackground();

  std::intptr_t handle_;
  std::mutex mutex_;  // guards what follows
  std::condition_variable changed_;
  bool dirty_ = false;
  bool closing_ = false;
  std::thread flusher_;
};

}  // namespace platform
