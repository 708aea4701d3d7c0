// File names between the seam, where they are in the ANSI code page, and std::filesystem, whose own
// conversion of narrow text is another one on Windows. Pure.
#pragma once

#include <filesystem>
#include <string>

namespace platform {

std::filesystem::path pathOf(const std::string& name);
std::string nameOf(const std::filesystem::path& path);

}  // namespace platform
