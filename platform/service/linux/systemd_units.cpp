#include "platform/service/linux/systemd_units.h"

#include <cerrno>
#include <cstddef>
#include <string_view>
#include <utility>

#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/text.h"
#include "platform/service/linux/unit_text.h"
#include "platform/system/files.h"
#include "platform/system/linux/last_error.h"

namespace platform {
namespace {

constexpr mode_t kFileMode = 0644;
constexpr std::string_view kServicesKey = "SYSTEM\\CurrentControlSet\\Services\\";
constexpr std::string_view kDescriptionLine = "\nDescription=";

std::string unitName(const std::string& name) {
  return name + ".service";
}

// systemd starts no program whose path holds one of these.
constexpr std::string_view kNotInPrograms = "\"\\'\n";

// One line, with no specifier in it.
std::string unitValue(std::string text) {
  base::replaceAll(text, "\n", " ");
  base::replaceAll(text, "%", "%%");
  return text;
}

std::string unitText(const NewService& service) {
  std::string text = kUnitTemplate;
  base::replaceAll(text, "@DESCRIPTION@", unitValue(service.displayName));
  // Quoted for its blanks.
  base::replaceAll(text, "@EXEC_START@", '"' + unitValue(service.imagePath) + '"');
  return text;
}

// These files hold no secret, and "systemctl cat" is for everybody.
bool writeForAll(const std::string& file, const std::string& text) {
  return replaceFileAtomically(file, text) && ::chmod(file.c_str(), kFileMode) == 0;
}

// Whether it ended with status 0. Its complaints reach the administrator by standard error.
bool runProgram(std::vector<std::string> words) {
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  pid_t child = 0;
  if (posix_spawnp(&child, argv[0], nullptr, nullptr, argv.data(), environ) != 0) return false;
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return false;
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

class UnitKey final : public RegistryKey {
 public:
  UnitKey(SystemdUnits units, std::string name)
      : units_(std::move(units)), name_(std::move(name)) {}

  WinError queryValue(const std::string&, std::size_t, RegistryValue&) override {
    return kErrorFileNotFound;
  }
  WinError setValue(const std::string& name, const RegistryValue& value) override {
    if (name == "Description" && value.type == RegistryType::String) {
      return units_.setDescription(name_, value.bytes.substr(0, value.bytes.find('\0')));
    }
    if (name == "Start" && value.type == RegistryType::Dword && !value.bytes.empty()) {
      return units_.setStart(name_, static_cast<unsigned char>(value.bytes[0]));
    }
    return kErrorAccessDenied;
  }

 private:
  SystemdUnits units_;
  std::string name_;
};

class UnitRegistry final : public Registry {
 public:
  explicit UnitRegistry(SystemdUnits units) : units_(std::move(units)) {}

  WinError openKey(const std::string& path, RegistryAccess,
                   std::unique_ptr<RegistryKey>& key) override {
    if (!path.starts_with(kServicesKey)) return kErrorFileNotFound;
    std::string name = path.substr(kServicesKey.size());
    const WinError found = units_.find(name);
    if (found == kErrorSuccess) key = std::make_unique<UnitKey>(units_, std::move(name));
    return found == kErrorServiceDoesNotExist ? kErrorFileNotFound : found;
  }
  // Services are made by the manager, not here.
  WinError createKey(const std::string& path, std::unique_ptr<RegistryKey>& key) override {
    return openKey(path, RegistryAccess::All, key);
  }

 private:
  SystemdUnits units_;
};

}  // namespace

WinError SystemdUnits::checkAccess(ManagerAccess access) const {
  if (!fileExists(places_.runningMark)) return kErrorDatabaseDoesNotExist;
  if (access == ManagerAccess::Connect) return kErrorSuccess;
  return ::access(places_.unitDirectory.c_str(), W_OK) == 0 ? kErrorSuccess : winErrorOf(errno);
}

WinError SystemdUnits::create(const NewService& service) const {
  if (find(service.name) == kErrorSuccess) return kErrorServiceExists;
  if (service.imagePath.find_first_of(kNotInPrograms) != std::string::npos) {
    return kErrorInvalidName;
  }
  const WinError user = makeUser();
  if (user != kErrorSuccess) return user;
  const WinError written = writeUnit(service.name, unitText(service));
  return written == kErrorSuccess ? setStart(service.name, service.startType) : written;
}

WinError SystemdUnits::find(const std::string& name) const {
  return fileExists(unitFile(name)) ? kErrorSuccess : kErrorServiceDoesNotExist;
}

WinError SystemdUnits::start(const std::string& name) const {
  return systemctl({"start", unitName(name)}) ? kErrorSuccess : kErrorServiceRequestTimeout;
}

WinError SystemdUnits::stop(const std::string& name) const {
  return systemctl({"stop", unitName(name)}) ? kErrorSuccess : kErrorServiceRequestTimeout;
}

WinError SystemdUnits::remove(const std::string& name) const {
  // What cannot be disabled is removed all the same; its links then lead nowhere.
  systemctl({"disable", "--now", unitName(name)});
  removeFile(places_.userFile);
  removeFile(places_.rightsFile);
  if (::unlink(unitFile(name).c_str()) != 0) return winErrorOf(errno);
  return systemctl({"daemon-reload"}) ? kErrorSuccess : kErrorServiceRequestTimeout;
}

bool SystemdUnits::isActive(const std::string& name) const {
  return systemctl({"is-active", unitName(name)});
}

std::unique_ptr<Registry> SystemdUnits::registry() const {
  return std::make_unique<UnitRegistry>(*this);
}

WinError SystemdUnits::setDescription(const std::string& name,
                                      const std::string& description) const {
  std::string text;
  if (!readWholeFile(unitFile(name), text)) return winErrorOf(errno);
  std::size_t from = text.find(kDescriptionLine);
  if (from == std::string::npos) return kErrorFileNotFound;
  from += kDescriptionLine.size();
  text.replace(from, text.find('\n', from) - from, unitValue(description));
  return writeUnit(name, text);
}

WinError SystemdUnits::setStart(const std::string& name, std::uint32_t startType) const {
  const char* verb = startType == kStartAutomatically ? "enable" : "disable";
  return systemctl({verb, unitName(name)}) ? kErrorSuccess : kErrorServiceRequestTimeout;
}

std::string SystemdUnits::unitFile(const std::string& name) const {
  return places_.unitDirectory + '/' + unitName(name);
}

WinError SystemdUnits::writeUnit(const std::string& name, const std::string& text) const {
  if (!writeForAll(unitFile(name), text)) return winErrorOf(errno);
  return systemctl({"daemon-reload"}) ? kErrorSuccess : kErrorServiceRequestTimeout;
}

WinError SystemdUnits::makeUser() const {
  const std::pair<std::string, const char*> files[] = {{places_.userFile, kUserText},
                                                       {places_.rightsFile, kRightsText}};
  for (const auto& [file, text] : files) {
    createDirectory(file.substr(0, file.rfind('/')));
    if (!writeForAll(file, text)) return winErrorOf(errno);
  }
  const bool made = runProgram({places_.sysusers, places_.userFile}) &&
                    runProgram({places_.tmpfiles, "--create", places_.rightsFile});
  return made ? kErrorSuccess : kErrorServiceRequestTimeout;
}

bool SystemdUnits::systemctl(std::vector<std::string> arguments) const {
  arguments.insert(arguments.begin(), {places_.systemctl, "--quiet"});
  return runProgram(std::move(arguments));
}

}  // namespace platform
