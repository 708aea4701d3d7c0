// The registry of a system that has none of its own: settings that an administrator writes and a
// pass only reads, in one ".reg" file, and what a pass writes in another, so that the service needs
// no right to change its settings. What the second file holds counts before the first.
// Used by one thread.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/registry/file/reg_registry.h"

namespace platform {

class SystemRegRegistry final : public Registry {
 public:
  // Null with `error` one line as RegRegistry::load gives it. The second file may be missing: it is
  // made with the first value that is written.
  static std::unique_ptr<SystemRegRegistry> load(const std::string& settingsFile,
                                                 const std::string& writtenFile,
                                                 std::string& error);

  WinError openKey(const std::string& path, RegistryAccess access,
                   std::unique_ptr<RegistryKey>& key) override;
  WinError createKey(const std::string& path, std::unique_ptr<RegistryKey>& key) override;

  KeyNames list(const std::string& path) override;
  bool isReadByEverybody(const std::string& path) const override {
    return settings_->isReadByEverybody(path);
  }
  std::string name() const override { return settings_->name(); }
  std::string placeOf(const std::string& path, const std::string& value) const override {
    const std::string written = written_->placeOf(path, value);
    return written.empty() ? settings_->placeOf(path, value) : written;
  }
  std::vector<RegistryRepeat> repeats() const override { return settings_->repeats(); }
  std::string lastError() const override;
  std::string staleReason() const override;

 private:
  class Key;
  SystemRegRegistry(std::unique_ptr<RegRegistry> settings, std::unique_ptr<RegRegistry> written)
      : settings_(std::move(settings)), written_(std::move(written)) {}

  std::unique_ptr<RegRegistry> settings_;
  std::unique_ptr<RegRegistry> written_;
};

}  // namespace platform
