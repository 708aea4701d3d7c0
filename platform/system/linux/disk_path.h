// From the system's own file names (files.h) to paths on disk.
#pragma once

#include <optional>
#include <string>

namespace platform {

bool isAbsolutePath(const std::string& name);
// The folder that a path's last part is in; "." for a name alone.
std::string folderOfPath(const std::string& path);
std::string lastPartOfPath(const std::string& path);

// The usual spelling of a relative name: that which is made when there is no other. Names that the
// system gives are ASCII, so other letters are left alone.
std::string lowerCasePath(const std::string& name);

// Links are not followed: one that leads nowhere is there. When it cannot be found out, Unknown,
// with errno set.
enum class Presence { Missing, There, Unknown };
Presence presenceOf(const std::string& path);

// The path that a name stands for, whether or not it exists: the lower-case spelling first, at the
// cost of one look-up, then any other. Nothing, with errno set, when a folder cannot be searched.
std::optional<std::string> diskPath(const std::string& name);

}  // namespace platform
