#include "platform/registry/file/system_reg_registry.h"

#include <algorithm>
#include <utility>

#include "base/case_fold.h"

namespace platform {
namespace {

// Names differ by more than letter case.
void addMissing(std::vector<std::string>& names, const std::vector<std::string>& more) {
  for (const std::string& name : more) {
    const std::string folded = base::foldCase(name);
    const bool known = std::any_of(names.begin(), names.end(), [&](const std::string& other) {
      return base::foldCase(other) == folded;
    });
    if (!known) names.push_back(name);
  }
}

}  // namespace

// Either key may be null, but not both.
class SystemRegRegistry::Key final : public RegistryKey {
 public:
  Key(RegRegistry& writtenFile, std::string path, RegistryAccess access,
      std::unique_ptr<RegistryKey> settings, std::unique_ptr<RegistryKey> written)
      : writtenFile_(writtenFile),
        path_(std::move(path)),
        access_(access),
        settings_(std::move(settings)),
        written_(std::move(written)) {}

  WinError queryValue(const std::string& name, std::size_t capacity,
                      RegistryValue& value) override {
    const WinError status =
        written_ ? written_->queryValue(name, capacity, value) : kErrorFileNotFound;
    const bool inSettings = status == kErrorFileNotFound && settings_;
    return inSettings ? settings_->queryValue(name, capacity, value) : status;
  }

  WinError setValue(const std::string& name, const RegistryValue& value) override {
    if (access_ != RegistryAccess::All) return kErrorAccessDenied;
    const WinError made = written_ ? kErrorSuccess : writtenFile_.createKey(path_, written_);
    return made == kErrorSuccess ? written_->setValue(name, value) : made;
  }

 private:
  RegRegistry& writtenFile_;
  std::string path_;
  RegistryAccess access_;
  std::unique_ptr<RegistryKey> settings_;
  std::unique_ptr<RegistryKey> written_;
};

std::unique_ptr<SystemRegRegistry> SystemRegRegistry::load(const std::string& settingsFile,
                                                           const std::string& writtenFile,
                                                           std::string& error) {
  auto settings = RegRegistry::load(settingsFile, error);
  if (settings == nullptr) return nullptr;
  auto written = RegRegistry::load(writtenFile, error, RegRegistry::Missing::IsEmpty);
  if (written == nullptr) return nullptr;
  return std::unique_ptr<SystemRegRegistry>(
      new SystemRegRegistry(std::move(settings), std::move(written)));
}

WinError SystemRegRegistry::openKey(const std::string& path, RegistryAccess access,
                                    std::unique_ptr<RegistryKey>& key) {
  std::unique_ptr<RegistryKey> settings;
  std::unique_ptr<RegistryKey> written;
  const WinError inSettings = settings_->openKey(path, RegistryAccess::Query, settings);
  const WinError inWritten = written_->openKey(path, access, written);
  if (inSettings != kErrorSuccess && inWritten != kErrorSuccess) return inSettings;
  key = std::make_unique<Key>(*written_, path, access, std::move(settings), std::move(written));
  return kErrorSuccess;
}

WinError SystemRegRegistry::createKey(const std::string& path, std::unique_ptr<RegistryKey>& key) {
  if (openKey(path, RegistryAccess::All, key) == kErrorSuccess) return kErrorSuccess;
  std::unique_ptr<RegistryKey> written;
  const WinError status = written_->createKey(path, written);
  if (status != kErrorSuccess) return status;
  return openKey(path, RegistryAccess::All, key);
}

KeyNames SystemRegRegistry::list(const std::string& path) {
  KeyNames names = settings_->list(path);
  const KeyNames written = written_->list(path);
  addMissing(names.values, written.values);
  addMissing(names.subkeys, written.subkeys);
  return names;
}

std::string SystemRegRegistry::lastError() const {
  const std::string error = settings_->lastError();
  return error.empty() ? written_->lastError() : error;
}

std::string SystemRegRegistry::staleReason() const {
  const std::string reason = settings_->staleReason();
  return reason.empty() ? written_->staleReason() : reason;
}

}  // namespace platform
