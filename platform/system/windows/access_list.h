// Lists of access rights (DACLs) of files, folders and registry keys, and the identity that a
// service has of its own; rights of accounts. Used by the Windows folders only. Names are in the
// ANSI code page.
#pragma once

#include <string>

#include <windows.h>
#include <accctrl.h>

#include "platform/system/win_error.h"

namespace platform {

// "S-1-5-80-...": the SID of "NT SERVICE\NAME". Windows makes it of the name, so it can be named
// before the service exists.
std::wstring serviceSid(const std::string& service);

// The name of a key below HKEY_LOCAL_MACHINE as the calls below have it.
std::string objectNameOfKey(const std::string& path);

// Replaces the list by that of an SDDL text, in which "%SERVICE%" stands for the service's SID.
// What is below inherits from it.
WinError setAccess(const std::string& object, SE_OBJECT_TYPE type, const wchar_t* sddl,
                   const std::string& service);
// Adds an entry for the service, for what is below too; the other entries stay.
WinError addAccess(const std::string& object, SE_OBJECT_TYPE type, DWORD rights,
                   const std::string& service);

// Whether the list grants one of the `wanted` rights to a group that every user of the domain is
// in. False also when the list cannot be read.
bool isGrantedToEverybody(const std::string& object, SE_OBJECT_TYPE type, DWORD wanted);

// Gives an account a right such as "SeServiceLogonRight".
WinError addAccountRight(const std::string& account, const wchar_t* right);

}  // namespace platform
