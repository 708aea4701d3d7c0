// Services as units of systemd: their files below /etc/systemd/system, and systemctl for the rest.
// Used by the service manager of this system, and by tests with folders of their own.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/service/service_control.h"

namespace platform {

struct SystemdPlaces {
  std::string unitDirectory = "/etc/systemd/system";
  // The service's user, and the rights of its folders.
  std::string userFile = "/etc/sysusers.d/pwlapse.conf";
  std::string rightsFile = "/etc/tmpfiles.d/pwlapse.conf";
  std::string runningMark = "/run/systemd/system";  // exists while systemd is the system's manager
  // Found in PATH.
  std::string systemctl = "systemctl";
  std::string sysusers = "systemd-sysusers";
  std::string tmpfiles = "systemd-tmpfiles";
};

class SystemdUnits {
 public:
  explicit SystemdUnits(SystemdPlaces places) : places_(std::move(places)) {}

  // Each answers kErrorSuccess or what is wrong. Names are those of services, without ".service".
  WinError checkAccess(ManagerAccess access) const;
  // Makes the user that the service runs as, sets the rights of its folders and settings, writes
  // the unit and, when it is to start with the machine, enables it.
  WinError create(const NewService& service) const;
  WinError find(const std::string& name) const;
  WinError start(const std::string& name) const;
  WinError stop(const std::string& name) const;
  // Disables and stops the unit and removes the files that create() wrote. The user stays: another
  // one with its number would own what the service has written.
  WinError remove(const std::string& name) const;
  bool isActive(const std::string& name) const;

  // "SYSTEM\CurrentControlSet\Services\NAME" as a key whose values "Description" and "Start" can be
  // set: they become the unit's description, and whether it is enabled.
  std::unique_ptr<Registry> registry() const;

  WinError setDescription(const std::string& name, const std::string& description) const;
  WinError setStart(const std::string& name, std::uint32_t startType) const;

 private:
  std::string unitFile(const std::string& name) const;
  WinError writeUnit(const std::string& name, const std::string& text) const;
  WinError makeUser() const;
  bool systemctl(std::vector<std::string> arguments) const;

  SystemdPlaces places_;
};

}  // namespace platform
