#include "platform/registry/overlay_registry.h"

#include <algorithm>

#include "base/ascii.h"

namespace platform {

class OverlayRegistry::Key final : public RegistryKey {
 public:
  Key(Values& values, std::unique_ptr<RegistryKey> below)
      : values_(values), below_(std::move(below)) {}

  WinError queryValue(const std::string& name, std::size_t capacity,
                      RegistryValue& value) override {
    const auto given = values_.find(base::lowered(name));
    if (given == values_.end()) {
      return below_ ? below_->queryValue(name, capacity, value) : kErrorFileNotFound;
    }
    value.type = given->second.value.type;
    if (given->second.value.bytes.size() > capacity) return kErrorMoreData;
    value.bytes = given->second.value.bytes;
    return kErrorSuccess;
  }

  WinError setValue(const std::string& name, const RegistryValue& value) override {
    values_[base::lowered(name)] = {name, value};
    return kErrorSuccess;
  }

 private:
  Values& values_;
  std::unique_ptr<RegistryKey> below_;  // null: the key is in the overlay only
};

OverlayRegistry::OverlayRegistry(std::unique_ptr<Registry> below,
                                 const std::vector<GivenValue>& values)
    : owned_(std::move(below)), below_(*owned_) {
  for (const GivenValue& given : values) {
    std::unique_ptr<RegistryKey> needed;
    const bool counts =
        given.onlyWithKey.empty() ||
        below_.openKey(given.onlyWithKey, RegistryAccess::Query, needed) == kErrorSuccess;
    if (!counts) continue;
    keys_[base::lowered(given.key)][base::lowered(given.name)] = {given.name, given.value};
  }
}

WinError OverlayRegistry::openKey(const std::string& path, RegistryAccess /*access*/,
                                  std::unique_ptr<RegistryKey>& key) {
  std::unique_ptr<RegistryKey> below;
  const WinError status = below_.openKey(path, RegistryAccess::Query, below);
  const std::string lowered = base::lowered(path);
  if (status != kErrorSuccess && keys_.count(lowered) == 0) return status;
  key = std::make_unique<Key>(keys_[lowered], std::move(below));
  return kErrorSuccess;
}

WinError OverlayRegistry::createKey(const std::string& path, std::unique_ptr<RegistryKey>& key) {
  keys_[base::lowered(path)];
  return openKey(path, RegistryAccess::All, key);
}

KeyNames OverlayRegistry::list(const std::string& path) {
  KeyNames names = below_.list(path);
  const auto given = keys_.find(base::lowered(path));
  if (given == keys_.end()) return names;
  for (const auto& [lowered, named] : given->second) {
    const bool known = std::any_of(
        names.values.begin(), names.values.end(),
        [&name = named.name](const std::string& other) { return base::equalsNoCase(other, name); });
    if (!known) names.values.push_back(named.name);
  }
  return names;
}

// A value that stands for the one below has no line.
std::string OverlayRegistry::placeOf(const std::string& path, const std::string& value) const {
  const auto given = keys_.find(base::lowered(path));
  const bool isGiven = given != keys_.end() && given->second.count(base::lowered(value)) != 0;
  return isGiven ? "" : below_.placeOf(path, value);
}

}  // namespace platform
