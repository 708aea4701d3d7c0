// An advapi32.dll that records the events of the program's event source, for a Wine that stores
// none. Everything else it passes on to Wine's own, which the test puts beside it as advapiw.dll.
// The record is events.log in the system's folder: a line "TYPE NUMBER TEXT" for each, with "|" for
// line ends.
#include <cstdio>
#include <string>

#include <windows.h>

#define EXPORTED extern "C" __declspec(dllexport)

namespace {
int source;  // its address is the handle
}

EXPORTED HANDLE WINAPI recordedSource(LPCSTR server, LPCSTR name) {
  const bool known = server == nullptr && std::string("NRVPasswordExpiration") == name;
  return known ? &source : nullptr;
}

EXPORTED BOOL WINAPI recordedEvent(HANDLE log, WORD type, WORD category, DWORD id, PSID user,
                                   WORD texts, DWORD size, LPCSTR* text, LPVOID) {
  if (log != &source || category != 0 || user != nullptr || texts != 1 || size != 0) return FALSE;
  std::string line = std::to_string(type) + ' ' + std::to_string(id) + ' ' + *text;
  for (char& letter : line) {
    if (letter == '\n') letter = '|';
  }
  char folder[MAX_PATH] = {};
  GetSystemDirectoryA(folder, sizeof folder);
  std::FILE* file = std::fopen((std::string(folder) + "\\events.log").c_str(), "ab");
  if (file == nullptr) return FALSE;
  std::fprintf(file, "%s\n", line.c_str());
  return std::fclose(file) == 0;
}

EXPORTED BOOL WINAPI recordedEnd(HANDLE log) {
  return log == &source;
}
