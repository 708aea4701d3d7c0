// The registry over one ".reg" text file, with the keys below HKEY_LOCAL_MACHINE.
//
// The file is read again, whole, when it has changed on disk at the moment a key is opened; a file
// that has meanwhile become unreadable or wrong leaves the values as they were (see staleReason).
// Each write reads the file anew under a lock, changes one place in it and replaces it whole; a
// file that is wrong is never written. Keys must not outlive their registry. Used by one thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/registry/file/reg_file.h"
#include "platform/registry/registry.h"
#include "platform/system/files.h"

namespace platform {

// A site's keys take kilobytes. More than this is another file by mistake.
inline constexpr std::size_t kMaxRegFileBytes = std::size_t{64} * 1024 * 1024;

class RegRegistry final : public Registry {
 public:
  // Whether a file that does not exist is an error, or has no keys and is made by the first write.
  enum class Missing { IsError, IsEmpty };
  // Null with `error` one line, "FILE:LINE: what is wrong" or "FILE: reason". Temporary files that
  // a process left beside it when it was killed in a write are removed.
  static std::unique_ptr<RegRegistry> load(const std::string& file, std::string& error,
                                           Missing missing = Missing::IsError);

  WinError openKey(const std::string& path, RegistryAccess access,
                   std::unique_ptr<RegistryKey>& key) override;
  WinError createKey(const std::string& path, std::unique_ptr<RegistryKey>& key) override;
  KeyNames list(const std::string& path) override;

  bool isReadByEverybody(const std::string& /*path*/) const override { return fileIsShared(file_); }
  std::string name() const override { return file_; }
  std::string placeOf(const std::string& path, const std::string& value) const override;
  std::vector<RegistryRepeat> repeats() const override;
  std::string lastError() const override { return error_; }
  std::string staleReason() const override { return staleReason_; }

 private:
  class Key;
  // Gives the edited bytes of the file, or the file's own when there is nothing to change.
  using Edit = std::function<std::string(const RegFile&)>;
  using Check = std::function<bool(const RegFile&)>;

  RegRegistry(std::string file, Missing missing) : file_(std::move(file)), missing_(missing) {}

  bool read(RegFile& contents);
  std::string atLine(std::size_t line) const { return file_ + ":" + std::to_string(line); }
  void readIfChanged();
  // Makes an edit unless `done` holds already; it must hold of the edited file.
  WinError change(const Edit& edit, const Check& done);

  std::string file_;  // absolute
  Missing missing_;
  void hold(RegFile contents);
  const RegFileKey* findKey(const std::string& path);  // as RegFile::findKey

  RegFile contents_;
  // What findKey was asked: the loaders and checks ask for many values of a few keys.
  std::unordered_map<std::string, const RegFileKey*> found_;
  FileStamp stamp_;
  std::string error_;  // of the last reading or writing
  std::string staleReason_;
};

}  // namespace platform
