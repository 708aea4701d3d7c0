#include "platform/registry/windows/system_registry.h"

#include <algorithm>
#include <vector>

#include <windows.h>

#include "platform/system/windows/access_list.h"

namespace platform {
namespace {

class SystemRegistryKey final : public RegistryKey {
 public:
  explicit SystemRegistryKey(HKEY key) : key_(key) {}
  ~SystemRegistryKey() override { RegCloseKey(key_); }
  SystemRegistryKey(const SystemRegistryKey&) = delete;
  SystemRegistryKey& operator=(const SystemRegistryKey&) = delete;

  WinError queryValue(const std::string& name, std::size_t capacity,
                      RegistryValue& value) override {
    // Never empty: without a buffer the call only returns the size, and succeeds.
    std::vector<char> buffer(std::max<std::size_t>(capacity, 1));
    DWORD type = REG_NONE;
    DWORD size = static_cast<DWORD>(capacity);
    const LSTATUS status = RegQueryValueExA(key_, name.c_str(), nullptr, &type,
                                            reinterpret_cast<BYTE*>(buffer.data()), &size);
    if (status == ERROR_SUCCESS || status == ERROR_MORE_DATA) {
      value.type = static_cast<RegistryType>(type);
    }
    if (status == ERROR_SUCCESS) value.bytes.assign(buffer.data(), size);
    return static_cast<WinError>(status);
  }

  WinError setValue(const std::string& name, const RegistryValue& value) override {
    return static_cast<WinError>(RegSetValueExA(
        key_, name.c_str(), 0, static_cast<DWORD>(value.type),
        reinterpret_cast<const BYTE*>(value.bytes.data()), static_cast<DWORD>(value.bytes.size())));
  }

 private:
  HKEY key_;
};

WinError wrap(LSTATUS status, HKEY opened, std::unique_ptr<RegistryKey>& key) {
  if (status == ERROR_SUCCESS) key = std::make_unique<SystemRegistryKey>(opened);
  return static_cast<WinError>(status);
}

// The names that one of the enumerating functions gives, by rising index. The limit is that of the
// system for names of values; those of keys are shorter.
template <typename Enumerate>
std::vector<std::string> namesOf(const Enumerate& enumerate) {
  constexpr DWORD kMaxNameBytes = 32768;
  std::vector<std::string> names;
  std::vector<char> buffer(kMaxNameBytes);
  for (DWORD index = 0;; ++index) {
    DWORD size = kMaxNameBytes;
    const LSTATUS status = enumerate(index, buffer.data(), &size);
    if (status == ERROR_SUCCESS) names.emplace_back(buffer.data(), size);
    if (status != ERROR_SUCCESS && status != ERROR_MORE_DATA) return names;
  }
}

class SystemRegistry final : public Registry {
 public:
  WinError openKey(const std::string& path, RegistryAccess access,
                   std::unique_ptr<RegistryKey>& key) override {
    HKEY opened = nullptr;
    const REGSAM rights = access == RegistryAccess::All ? KEY_ALL_ACCESS : KEY_QUERY_VALUE;
    const LSTATUS status = RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, rights, &opened);
    return wrap(status, opened, key);
  }

  WinError createKey(const std::string& path, std::unique_ptr<RegistryKey>& key) override {
    HKEY opened = nullptr;
    const LSTATUS status =
        RegCreateKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                        KEY_ALL_ACCESS, nullptr, &opened, nullptr);
    return wrap(status, opened, key);
  }

  bool isReadByEverybody(const std::string& path) const override {
    return isGrantedToEverybody(objectNameOfKey(path), SE_REGISTRY_KEY,
                                KEY_QUERY_VALUE | GENERIC_READ | GENERIC_ALL);
  }

  KeyNames list(const std::string& path) override {
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) {
      return {};
    }
    KeyNames names;
    names.values = namesOf([key](DWORD index, char* name, DWORD* size) {
      return RegEnumValueA(key, index, name, size, nullptr, nullptr, nullptr, nullptr);
    });
    names.subkeys = namesOf([key](DWORD index, char* name, DWORD* size) {
      return RegEnumKeyExA(key, index, name, size, nullptr, nullptr, nullptr, nullptr);
    });
    RegCloseKey(key);
    return names;
  }
};

}  // namespace

std::unique_ptr<Registry> makeSystemRegistry() {
  return std::make_unique<SystemRegistry>();
}

}  // namespace platform
