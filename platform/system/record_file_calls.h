// The system's calls behind RecordFile; for record_file.cpp only. Each fails with errno set.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

inline constexpr std::intptr_t kNoRecordFile = -1;

std::intptr_t openForRecords(const std::string& name);
// All of the bytes or none.
bool appendRecord(std::intptr_t handle, std::string_view bytes);
bool flushRecords(std::intptr_t handle);
void closeRecords(std::intptr_t handle);

}  // namespace platform
