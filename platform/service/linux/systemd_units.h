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
  std::string runningMark = "/run/systemd/system";  // exists while systemd is the system's manager
  std::string systemctl = "systemctl";              // found in PATH
};

class SystemdUnits {
 public:
  explicit SystemdUnits(SystemdPlaces places) : places_(std::move(places)) {}

  // Each answers kErrorSuccess or what is wrong. Names are those of services, without ".service".
  WinError checkAccess(ManagerAccess access) const;
  // Writes the unit and, when it is to start with the machine, enables it.
  WinError create(const NewService& service) const;
  WinError find(const std::string& name) const;
  WinError start(const std::string& name) const;
  WinError stop(const std::string& name) const;
  // Disables and stops the unit and removes its file.
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
  bool systemctl(const std::vector<std::string>& arguments) const;

  SystemdPlaces places_;
};

}  // namespace platform
