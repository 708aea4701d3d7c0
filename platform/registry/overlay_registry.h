// A registry with other values laid over it: for questions of the kind "what if", and for passes
// that leave nothing behind. What is written lands in the overlay, in memory; the registry below is
// only read. Used by one thread. Keys must not outlive their registry.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/registry/registry.h"

namespace platform {

// A value that stands for the one below; its key is there, too.
struct GivenValue {
  std::string key;  // below HKEY_LOCAL_MACHINE
  std::string name;
  RegistryValue value;
  std::string onlyWithKey;  // unless empty: counts only where the registry has this key
};

class OverlayRegistry final : public Registry {
 public:
  // Of two values of one name the later one counts.
  OverlayRegistry(std::unique_ptr<Registry> below, const std::vector<GivenValue>& values);
  // Over a registry of somebody else's, which is borrowed.
  explicit OverlayRegistry(Registry& below) : below_(below) {}

  WinError openKey(const std::string& path, RegistryAccess access,
                   std::unique_ptr<RegistryKey>& key) override;
  WinError createKey(const std::string& path, std::unique_ptr<RegistryKey>& key) override;
  KeyNames list(const std::string& path) override;

  bool isReadByEverybody(const std::string& path) const override {
    return below_.isReadByEverybody(path);
  }
  std::string name() const override { return below_.name(); }
  std::string placeOf(const std::string& path, const std::string& value) const override;
  std::vector<RegistryRepeat> repeats() const override { return below_.repeats(); }
  std::string lastError() const override { return below_.lastError(); }
  std::string staleReason() const override { return below_.staleReason(); }

 private:
  class Key;
  struct Named {
    std::string name;  // as it was written
    RegistryValue value;
  };
  using Values = std::map<std::string, Named>;  // by the name in lower case

  std::unique_ptr<Registry> owned_;
  Registry& below_;
  std::map<std::string, Values> keys_;  // by the path in lower case
};

}  // namespace platform
