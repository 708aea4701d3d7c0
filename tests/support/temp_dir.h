// A fresh directory that is the current one while a test lives, and is removed with it.
#pragma once

#include <filesystem>
#include <random>
#include <string>

namespace test_support {

class TempDir {
 public:
  TempDir() : before_(std::filesystem::current_path()) {
    path_ = std::filesystem::temp_directory_path() /
            ("pwlapse-test-" + std::to_string(std::random_device{}()));
    std::filesystem::create_directory(path_);
    std::filesystem::current_path(path_);
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::current_path(before_, ignored);
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string path() const { return path_.string(); }

 private:
  std::filesystem::path before_;
  std::filesystem::path path_;
};

}  // namespace test_support
