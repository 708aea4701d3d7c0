// Win32 error numbers. Every implementation of the seam answers with them, whatever the system's
// own numbers are.
#pragma once

#include <cstdint>

namespace platform {

using WinError = std::uint32_t;
inline constexpr WinError kErrorSuccess = 0;
inline constexpr WinError kErrorFileNotFound = 2;  // no such key or value
inline constexpr WinError kErrorAccessDenied = 5;
inline constexpr WinError kErrorInvalidHandle = 6;
inline constexpr WinError kErrorNotEnoughMemory = 8;
inline constexpr WinError kErrorWriteFault = 29;
inline constexpr WinError kErrorInvalidName = 123;
inline constexpr WinError kErrorMoreData = 234;  // the value is longer than the capacity given
inline constexpr WinError kErrorInvalidServiceControl = 1052;
inline constexpr WinError kErrorServiceRequestTimeout = 1053;
inline constexpr WinError kErrorServiceDoesNotExist = 1060;
inline constexpr WinError kErrorNoServiceManager = 1063;      // the dispatcher, outside the manager
inline constexpr WinError kErrorDatabaseDoesNotExist = 1065;  // there is no manager
inline constexpr WinError kErrorServiceSpecific = 1066;
inline constexpr WinError kErrorServiceExists = 1073;

}  // namespace platform
