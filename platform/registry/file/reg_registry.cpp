#include "platform/registry/file/reg_registry.h"

#include <utility>

#include "platform/system/files.h"
#include "platform/text/text_lines.h"

namespace platform {
namespace {

constexpr const char* kEmptyFile = "Windows Registry Editor Version 5.00\r\n";

// The file's texts are in UTF-8, those of the seam in the ANSI code page.
RegistryValue fromSeam(const RegistryValue& value) {
  return isRegText(value.type) ? RegistryValue{value.type, ansiToUtf8(value.bytes)} : value;
}

std::string bytesForSeam(const RegistryValue& value) {
  return isRegText(value.type) ? utf8ToAnsi(value.bytes) : value.bytes;
}

}  // namespace

class RegRegistry::Key final : public RegistryKey {
 public:
  Key(RegRegistry& registry, std::string path, RegistryAccess access)
      : registry_(registry), path_(std::move(path)), access_(access) {}

  WinError queryValue(const std::string& name, std::size_t capacity,
                      RegistryValue& value) override {
    const RegFileKey* key = registry_.findKey(path_);
    const RegFileValue* entry = key == nullptr ? nullptr : key->findValue(ansiToUtf8(name));
    if (entry == nullptr) return kErrorFileNotFound;
    value.type = entry->value.type;
    std::string bytes = bytesForSeam(entry->value);
    if (bytes.size() > capacity) return kErrorMoreData;
    value.bytes = std::move(bytes);
    return kErrorSuccess;
  }

  WinError setValue(const std::string& name, const RegistryValue& value) override {
    if (access_ != RegistryAccess::All) return kErrorAccessDenied;
    const RegistryValue wanted = fromSeam(value);
    const std::string utf8Name = ansiToUtf8(name);
    return registry_.change(
        [&](const RegFile& file) { return regFileWithValue(file, path_, utf8Name, wanted); },
        [&](const RegFile& file) {
          const RegFileValue* entry = file.findValue(path_, utf8Name);
          return entry != nullptr && entry->value.type == wanted.type &&
                 entry->value.bytes == wanted.bytes;
        });
  }

 private:
  RegRegistry& registry_;
  std::string path_;  // UTF-8
  RegistryAccess access_;
};

std::unique_ptr<RegRegistry> RegRegistry::load(const std::string& file, std::string& error,
                                               Missing missing) {
  std::unique_ptr<RegRegistry> registry(new RegRegistry(absolutePath(file), missing));
  removeTemporaries(registry->file_);
  registry->stamp_ = fileStamp(registry->file_);
  if (!registry->read(registry->contents_)) {
    error = registry->error_;
    return nullptr;
  }
  return registry;
}

WinError RegRegistry::openKey(const std::string& ansiPath, RegistryAccess access,
                              std::unique_ptr<RegistryKey>& key) {
  readIfChanged();
  std::string path = ansiToUtf8(ansiPath);
  if (findKey(path) == nullptr) return kErrorFileNotFound;
  key = std::make_unique<Key>(*this, std::move(path), access);
  return kErrorSuccess;
}

WinError RegRegistry::createKey(const std::string& ansiPath, std::unique_ptr<RegistryKey>& key) {
  readIfChanged();
  std::string path = ansiToUtf8(ansiPath);
  const Check exists = [&](const RegFile& file) { return file.findKey(path) != nullptr; };
  if (!exists(contents_)) {
    const WinError status =
        change([&](const RegFile& file) { return regFileWithKey(file, path); }, exists);
    if (status != kErrorSuccess) return status;
  }
  key = std::make_unique<Key>(*this, std::move(path), RegistryAccess::All);
  return kErrorSuccess;
}

KeyNames RegRegistry::list(const std::string& path) {
  readIfChanged();
  KeyNames names;
  const RegFileKey* key = contents_.findKey(ansiToUtf8(path));
  if (key == nullptr) return names;
  for (const auto& [folded, value] : key->values) names.values.push_back(utf8ToAnsi(value.name));
  for (const auto& [folded, subkey] : key->subkeys) {
    names.subkeys.push_back(utf8ToAnsi(subkey->name));
  }
  return names;
}

std::string RegRegistry::placeOf(const std::string& path, const std::string& value) const {
  const RegFileValue* found = contents_.findValue(ansiToUtf8(path), ansiToUtf8(value));
  return found == nullptr ? "" : atLine(found->line);
}

std::vector<RegistryRepeat> RegRegistry::repeats() const {
  std::vector<RegistryRepeat> found;
  for (const RegFileRepeat& repeat : contents_.repeats) {
    found.push_back({atLine(repeat.line), utf8ToAnsi(repeat.name),
                     repeat.firstLine == 0 ? "" : atLine(repeat.firstLine)});
  }
  return found;
}

bool RegRegistry::read(RegFile& contents) {
  error_.clear();
  std::string bytes;
  if (!readWholeFile(file_, bytes, kMaxRegFileBytes)) {
    error_ = file_ + ": " + fileErrorText();
    if (missing_ == Missing::IsError || fileExists(file_)) return false;
    error_.clear();
    bytes = kEmptyFile;
  }
  RegFileError wrong;
  if (!parseRegFile(std::move(bytes), contents, wrong)) {
    error_ = atLine(wrong.line) + ": " + wrong.what;
    return false;
  }
  return true;
}

void RegRegistry::hold(RegFile contents) {
  contents_ = std::move(contents);
  found_.clear();
}

const RegFileKey* RegRegistry::findKey(const std::string& path) {
  const auto [place, isNew] = found_.try_emplace(path);
  if (isNew) place->second = contents_.findKey(path);
  return place->second;
}

void RegRegistry::readIfChanged() {
  const FileStamp current = fileStamp(file_);
  if (current == stamp_) return;
  stamp_ = current;  // taken before reading: a change in between is seen the next time
  RegFile contents;
  const bool readAgain = read(contents);
  staleReason_ = error_;
  if (readAgain) hold(std::move(contents));
}

WinError RegRegistry::change(const Edit& edit, const Check& done) {
  const FileLock lock(file_);
  if (!lock.held()) {
    error_ = file_ + ".lock: " + fileErrorText();
    return kErrorAccessDenied;
  }
  RegFile before;
  if (!read(before)) return kErrorWriteFault;
  if (done(before)) {
    hold(std::move(before));
    return kErrorSuccess;
  }
  // Only what reads back as the same is written: a name with a line break in it, say, does not.
  RegFile after;
  RegFileError wrong;
  if (!parseRegFile(edit(before), after, wrong) || !done(after)) {
    error_ = file_ + ": cannot hold this key or value";
    return kErrorWriteFault;
  }
  if (!replaceFileAtomically(file_, after.bytes)) {
    error_ = file_ + ": " + fileErrorText();
    return kErrorWriteFault;
  }
  hold(std::move(after));
  stamp_ = fileStamp(file_);
  staleReason_.clear();
  return kErrorSuccess;
}

}  // namespace platform
