#include "config/registry_readers.h"

#include <memory>

#include "base/little_endian.h"
#include "platform/text/code_page.h"

namespace config {
namespace {

using platform::kErrorMoreData;
using platform::kErrorSuccess;
using platform::Registry;
using platform::RegistryAccess;
using platform::RegistryKey;
using platform::RegistryType;
using platform::RegistryValue;
using platform::WinError;

constexpr std::size_t kDwordBytes = 4;

std::unique_ptr<RegistryKey> openForQuery(Registry& registry, const std::string& path) {
  std::unique_ptr<RegistryKey> key;
  if (registry.openKey(path, RegistryAccess::Query, key) != kErrorSuccess) return nullptr;
  return key;
}

bool isDword(RegistryKey& key, const std::string& name) {
  RegistryValue value;
  const WinError status = key.queryValue(name, kDwordBytes, value);
  return (status == kErrorSuccess || status == kErrorMoreData) && value.type == RegistryType::Dword;
}

bool queryDword(RegistryKey& key, const std::string& name, std::uint32_t& number) {
  RegistryValue value;
  if (key.queryValue(name, kDwordBytes, value) != kErrorSuccess ||
      value.type != RegistryType::Dword) {
    return false;
  }
  number = base::littleEndian(value.bytes, 0, value.bytes.size()).value_or(0);
  return true;
}

bool store(Registry& registry, const std::string& path, const std::string& name,
           const RegistryValue& value) {
  std::unique_ptr<RegistryKey> key;
  return registry.createKey(path, key) == kErrorSuccess &&
         key->setValue(name, value) == kErrorSuccess;
}

}  // namespace

std::uint32_t readNumber(Registry& registry, const std::string& key, const std::string& value) {
  const auto open = openForQuery(registry, key);
  std::uint32_t number = 0;
  return open != nullptr && queryDword(*open, value, number) ? number : 0;
}

bool readFlag(Registry& registry, const std::string& key, const std::string& value) {
  return readNumber(registry, key, value) != 0;
}

std::uint32_t readNumberWithDefault(Registry& registry, const std::string& key,
                                    const std::string& value, std::uint32_t fallback) {
  const auto open = openForQuery(registry, key);
  if (open == nullptr || !isDword(*open, value)) return fallback;
  std::uint32_t number = 0;
  return queryDword(*open, value, number) ? number : 0;
}

std::optional<RegistryType> storedType(Registry& registry, const std::string& key,
                                       const std::string& value) {
  const auto open = openForQuery(registry, key);
  RegistryValue stored;
  if (open == nullptr) return std::nullopt;
  const WinError status = open->queryValue(value, kDwordBytes, stored);
  if (status != kErrorSuccess && status != kErrorMoreData) return std::nullopt;
  return stored.type;
}

std::uint32_t readOptionalNumber(Registry& registry, const std::string& key,
                                 const std::string& value) {
  const auto open = openForQuery(registry, key);
  std::uint32_t number = 0;
  return open != nullptr && queryDword(*open, value, number) ? number : kNumberAbsent;
}

bool readText(Registry& registry, const std::string& key, const std::string& value,
              std::string& text) {
  text.clear();
  const auto open = openForQuery(registry, key);
  RegistryValue stored;
  if (open == nullptr || open->queryValue(value, kMaxTextValueBytes, stored) != kErrorSuccess) {
    return false;
  }
  text = stored.bytes.substr(0, stored.bytes.find('\0'));
  return true;
}

std::string readTextField(Registry& registry, const std::string& key, const std::string& value,
                          std::size_t capacity) {
  std::string text;
  readText(registry, key, value, text);
  text.resize(platform::ansiStart(text, capacity == 0 ? 0 : capacity - 1).size());
  return text;
}

bool writeNumber(Registry& registry, const std::string& key, const std::string& value,
                 std::uint32_t number) {
  RegistryValue stored{RegistryType::Dword, {}};
  for (std::size_t i = 0; i < kDwordBytes; ++i, number >>= 8) {
    stored.bytes += static_cast<char>(number & 0xFF);
  }
  return store(registry, key, value, stored);
}

bool writeText(Registry& registry, const std::string& key, const std::string& value,
               const std::string& text) {
  if (text.size() > kMaxWrittenTextBytes) return false;
  return store(registry, key, value, {RegistryType::String, text + '\0'});
}

}  // namespace config
