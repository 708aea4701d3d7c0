// Files opened so that nobody who can write to a folder leads a program that runs as root astray:
// regular files only, and no links but those of root and of the program's own user.
#pragma once

#include <string>

#include <sys/types.h>

namespace platform {

// A file descriptor, closed at its end; -1 is none.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() { close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return number_; }
  bool valid() const { return number_ != -1; }
  int release();
  // A delayed write may be refused only now, so writers ask.
  bool close();

 private:
  int number_;
};

// Both answer -1, with errno set (see fileErrorText in files.h), on failure. They never wait for
// the other end of a pipe, and the descriptor is closed in programs that are started.

// Follows a link that belongs to root or to the program's own user.
int openToRead(const std::string& path);

// Follows no link in the last part of the path, nor, in a relative path, a link of another user in
// the folder before it. `flags` are O_WRONLY or O_RDWR, with O_APPEND, O_TRUNC and O_CREAT as
// wanted. A file that root makes belongs to the owner of its folder.
int openToWrite(const std::string& path, int flags, mode_t mode);

// Whether the path is a symbolic link that is not followed.
bool isForeignLink(const std::string& path);

// When root does the work of an unprivileged service, what it has just made is to belong to that
// service: to the owner of `like`.
void giveToOwnerOf(int file, const std::string& like);

}  // namespace platform
