// The settings store as the system offers it: keys below HKEY_LOCAL_MACHINE, opened, queried and
// written one value at a time. The readers with their default rules are in config/registry_readers.
// Used by one thread. Implemented by the operating system's registry and by a ".reg" text file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/system/win_error.h"

namespace platform {

enum class RegistryType : std::uint32_t {
  None = 0,
  String = 1,
  ExpandString = 2,
  Binary = 3,
  Dword = 4,
  DwordBigEndian = 5,
  Link = 6,
  MultiString = 7,
  Qword = 11,
};

struct RegistryValue {
  RegistryType type = RegistryType::None;
  // The value's bytes. Texts are in the ANSI code page and end in the NUL that was stored, if one
  // was; a Dword is four bytes, little-endian.
  std::string bytes;
};

enum class RegistryAccess { Query, All };

// One open key. Destroying it closes it.
class RegistryKey {
 public:
  virtual ~RegistryKey() = default;
  // Names are compared without regard to case; "" is the key's default value.
  // kErrorMoreData, with `value` untouched but for its type, when the value has more than
  // `capacity` bytes.
  virtual WinError queryValue(const std::string& name, std::size_t capacity,
                              RegistryValue& value) = 0;
  virtual WinError setValue(const std::string& name, const RegistryValue& value) = 0;
};

// As they were written.
struct KeyNames {
  std::vector<std::string> values;  // "" is the default value
  std::vector<std::string> subkeys;
};

// A place that says again what was said before.
struct RegistryRepeat {
  std::string place;       // "FILE:LINE"
  std::string name;        // of the value, or the key's path; ANSI
  std::string firstPlace;  // where the value was set first; empty of a key
};

class Registry {
 public:
  virtual ~Registry() = default;
  // `path` is below HKEY_LOCAL_MACHINE, backslashes between its parts. `key` is set on success
  // only.
  virtual WinError openKey(const std::string& path, RegistryAccess access,
                           std::unique_ptr<RegistryKey>& key) = 0;
  // Opens the key, made first (with every key above it) when it does not exist.
  virtual WinError createKey(const std::string& path, std::unique_ptr<RegistryKey>& key) = 0;

  // What a key holds; nothing when it does not exist, or may not be listed.
  virtual KeyNames list(const std::string& path) {
    (void)path;
    return {};
  }

  // Where it is, in words for messages: the path of a file, or the registry of this system.
  virtual std::string name() const { return "the registry of this system"; }
  // Whether every user of this machine can read the values of a key.
  virtual bool isReadByEverybody(const std::string& path) const {
    (void)path;
    return false;
  }
  // "FILE:LINE" of a value; empty where there are no lines, or no such value.
  virtual std::string placeOf(const std::string& path, const std::string& value) const {
    (void)path;
    (void)value;
    return {};
  }
  // What is there more than once; of a value the last one counts.
  virtual std::vector<RegistryRepeat> repeats() const { return {}; }
  // Why a write failed last: one line, no value in it. Empty when none did.
  virtual std::string lastError() const { return {}; }
  // Why its values are older than they could be: it changed and could not be read again. One line,
  // no value in it; else empty.
  virtual std::string staleReason() const { return {}; }
};

}  // namespace platform
