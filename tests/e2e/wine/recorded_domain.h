// What the two stand-in DLLs share: the domain they answer from, and the record of every call.
// Both are files beside the DLLs: domain.ldif and calls.log. A third, fault.txt, may name one call
// that is to fail whenever it is made.
#pragma once

#include <string>

#include "platform/directory/snapshot_directory.h"

namespace stand_in {

// Read when it is first asked for. Ends the process when there is none.
platform::SnapshotDirectory& domain();

// Adds a line.
void record(const std::string& line);

// Adds a line for a call; false when it is the one that is to fail.
bool begin(const std::string& call, const std::string& details = "");

// A wide text for a line of the record; "null" for none.
std::string shown(const wchar_t* text);
std::u16string utf16(const wchar_t* text);

}  // namespace stand_in
