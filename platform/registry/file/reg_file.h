// A ".reg" text file as "reg export" writes it: "Windows Registry Editor Version 5.00" in UTF-16LE
// or in 8-bit text, and "REGEDIT4". Used by RegRegistry only.
// Pure: bytes in, a tree of keys or an error out, and edited bytes. Paths, names and texts are in
// UTF-8 here. An 8-bit line of the file is in UTF-8 or, when it is not valid UTF-8, in the ANSI
// code page. Work and memory grow with the size of the file and no faster, whatever it holds.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/registry/registry.h"

namespace platform {

// Windows allows no deeper nesting of keys; here it also bounds the recursion over the tree.
inline constexpr std::size_t kMaxRegKeyLevels = 512;

struct RegFileError {
  std::size_t line = 1;
  std::string what;  // never holds a value's text, which may be a password
};

struct RegFileValue {
  std::string name;     // as written, in UTF-8
  RegistryValue value;  // a text in UTF-8
  std::size_t line = 0;
  // Where its data stands in the file's bytes.
  std::size_t begin = 0;
  std::size_t end = 0;
};

inline constexpr std::size_t kNoOffset = static_cast<std::size_t>(-1);

// Names are map keys in folded case.
struct RegFileKey {
  std::string name;  // as written, in UTF-8, of this key alone
  std::map<std::string, RegFileValue> values;
  std::map<std::string, std::unique_ptr<RegFileKey>> subkeys;
  // Where a new value's line goes; kNoOffset: the file has no section of this key's own.
  std::size_t appendAt = kNoOffset;

  const RegFileValue* findValue(std::string_view valueName) const;  // null when there is none
};

// A value that has been set before, or a key that has a section already.
struct RegFileRepeat {
  std::size_t line = 0;
  std::size_t firstLine = 0;  // 0 of a key
  std::string name;           // as written, in UTF-8; of a key its path
};

struct RegFile {
  std::string bytes;  // the whole file
  bool utf16 = false;
  bool version5 = true;          // else REGEDIT4, whose hexadecimal texts are ANSI
  std::string lineEnd = "\r\n";  // that of the first line
  std::vector<RegFileRepeat> repeats;
  RegFileKey localMachine;  // keys of other roots are checked, then left alone

  // Null when there is no such key or value. `path` is below HKEY_LOCAL_MACHINE.
  const RegFileKey* findKey(std::string_view path) const;
  const RegFileValue* findValue(std::string_view path, std::string_view name) const;
};

// False, with `error` set and `file` unspecified, at the first thing wrong in `bytes`.
bool parseRegFile(std::string bytes, RegFile& file, RegFileError& error);

// The file's bytes with the key made, or the value set: everything else stays byte for byte,
// comments and order included.
std::string regFileWithKey(const RegFile& file, std::string_view path);
std::string regFileWithValue(const RegFile& file, std::string_view path, std::string_view name,
                             const RegistryValue& value);

// True for the types whose bytes are text: UTF-8 here, in the hexadecimal lists of a file UTF-16LE
// (version 5.00) or ANSI.
bool isRegText(RegistryType type);

}  // namespace platform
