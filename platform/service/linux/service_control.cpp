// The service manager of this system is systemd: the installer's calls become a unit and systemctl,
// the service's status goes out by sd_notify, and controls come in as signals: SIGTERM stop,
// SIGUSR1 pause, SIGUSR2 continue.
//
// Controls wait until the service has reported that it takes them, as with Windows' own manager:
// the signals are blocked in every thread and only the dispatcher takes them, when it is time.
#include "platform/service/service_control.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <pthread.h>
#include <systemd/sd-daemon.h>

#include "platform/service/linux/systemd_units.h"
#include "platform/service/service_setup.h"
#include "platform/system/linux/last_error.h"

namespace platform {
namespace {

// Of the process to itself: the service takes controls now, or has ended.
int wakeSignal() {
  return SIGRTMIN + 3;
}

constexpr int kControlSignals[] = {SIGTERM, SIGUSR1, SIGUSR2};

ServiceControlCode controlOf(int signal) {
  switch (signal) {
    case SIGUSR1:
      return ServiceControlCode::Pause;
    case SIGUSR2:
      return ServiceControlCode::Continue;
    default:
      return ServiceControlCode::Stop;
  }
}

const char* notificationOf(ServiceState state) {
  switch (state) {
    case ServiceState::StartPending:
      return "STATUS=Starting";
    case ServiceState::Running:
      return "READY=1\nSTATUS=Running";
    case ServiceState::PausePending:
      return "STATUS=Pausing";
    case ServiceState::Paused:
      return "STATUS=Paused";
    case ServiceState::ContinuePending:
      return "STATUS=Continuing";
    case ServiceState::StopPending:
      return "STOPPING=1\nSTATUS=Stopping";
    case ServiceState::Stopped:
      return "STOPPING=1\nSTATUS=Stopped";
    case ServiceState::None:
      break;
  }
  return nullptr;
}

constexpr ServiceHandle kManagerHandle = 1;
constexpr ServiceHandle kStatusHandle = 2;
constexpr ServiceHandle kFirstServiceHandle = 3;

class SystemdControl final : public ServiceControl {
 public:
  bool startDispatcher(const std::string&, std::function<void()> serviceMain) override {
    if (std::getenv("NOTIFY_SOCKET") == nullptr) return fail(kErrorNoServiceManager);
    sigset_t controls;
    sigset_t wakeOnly;
    sigemptyset(&wakeOnly);
    sigaddset(&wakeOnly, wakeSignal());
    controls = wakeOnly;
    for (const int signal : kControlSignals) sigaddset(&controls, signal);
    pthread_sigmask(SIG_BLOCK, &controls, nullptr);  // inherited by the threads made from here on
    // By default it ends the process, which counts as a good end: nobody would start it again.
    std::signal(SIGHUP, SIG_IGN);
    dispatcher_ = pthread_self();

    // Not joined: a thread's end frees memory, and a worker that is frozen may hold the lock for
    // it.
    try {
      std::thread([this, serviceMain = std::move(serviceMain)] {
        serviceMain();
        ended_ = true;
        pthread_kill(dispatcher_, wakeSignal());
      }).detach();
    } catch (const std::system_error& error) {
      return fail(winErrorOf(error.code().value()));
    }
    while (!ended_) {
      int signal = 0;
      if (sigwait(accepting_ ? &controls : &wakeOnly, &signal) == 0 && signal != wakeSignal()) {
        handler_(controlOf(signal));
      }
    }
    return true;
  }

  ServiceHandle registerHandler(const std::string&,
                                std::function<void(ServiceControlCode)> handler) override {
    handler_ = std::move(handler);
    return kStatusHandle;
  }

  // A status text that is lost is no failure; that the service is ready must arrive.
  bool setStatus(ServiceHandle handle, const ServiceStatus& status) override {
    if (handle != kStatusHandle) return fail(kErrorInvalidHandle);
    if (status.controlsAccepted != 0 && !accepting_.exchange(true)) {
      pthread_kill(dispatcher_, wakeSignal());
    }
    const char* notification = notificationOf(status.state);
    if (notification == nullptr) return true;  // a control that is not taken leaves all as it is
    constexpr std::size_t kLongestNotification = 80;
    char text[kLongestNotification];
    if (status.exitCode == kErrorSuccess) {
      std::snprintf(text, sizeof text, "%s", notification);
    } else {
      std::snprintf(text, sizeof text, "%s, error %u", notification, status.exitCode);
    }
    const int sent = sd_notify(0, text);
    return sent >= 0 || status.state != ServiceState::Running || fail(winErrorOf(-sent));
  }

  ServiceHandle openManager(ManagerAccess access) override {
    return succeeded(units_.checkAccess(access)) ? kManagerHandle : kNoServiceHandle;
  }

  ServiceHandle createService(ServiceHandle manager, const NewService& service) override {
    // The unit names the account.
    const bool created = isManager(manager) && succeeded(units_.create(service));
    return created ? handleOf(service.name) : kNoServiceHandle;
  }

  ServiceHandle openService(ServiceHandle manager, const std::string& name) override {
    const bool found = isManager(manager) && succeeded(units_.find(name));
    return found ? handleOf(name) : kNoServiceHandle;
  }

  bool startService(ServiceHandle service) override {
    const std::string* name = nameOf(service);
    return name != nullptr && succeeded(units_.start(*name));
  }

  bool queryStatus(ServiceHandle service, ServiceStatus& status) override {
    const std::string* name = nameOf(service);
    if (name == nullptr) return false;
    status = {};
    status.state = units_.isActive(*name) ? ServiceState::Running : ServiceState::Stopped;
    return true;
  }

  // Stop only: pause and continue are signals that "systemctl kill" sends.
  bool control(ServiceHandle service, ServiceControlCode code, ServiceStatus& status) override {
    const std::string* name = nameOf(service);
    if (name == nullptr) return false;
    if (code != ServiceControlCode::Stop) return fail(kErrorInvalidServiceControl);
    status = {};
    status.state = ServiceState::StopPending;
    return succeeded(units_.stop(*name));
  }

  bool deleteService(ServiceHandle service) override {
    const std::string* name = nameOf(service);
    return name != nullptr && succeeded(units_.remove(*name));
  }

  void closeHandle(ServiceHandle) override {}  // they are numbers

  WinError connectRegistry(std::unique_ptr<Registry>& registry) override {
    registry = units_.registry();
    return kErrorSuccess;
  }

 private:
  static bool fail(WinError error) {
    setLastError(error);
    return false;
  }
  static bool succeeded(WinError error) { return error == kErrorSuccess || fail(error); }

  static bool isManager(ServiceHandle handle) {
    return handle == kManagerHandle || fail(kErrorInvalidHandle);
  }
  ServiceHandle handleOf(const std::string& name) {
    names_.push_back(name);
    return kFirstServiceHandle + names_.size() - 1;
  }
  const std::string* nameOf(ServiceHandle service) {
    if (service >= kFirstServiceHandle && service - kFirstServiceHandle < names_.size()) {
      return &names_[service - kFirstServiceHandle];
    }
    fail(kErrorInvalidHandle);
    return nullptr;
  }

  SystemdUnits units_{SystemdPlaces{}};
  std::vector<std::string> names_;  // of the services that handles were given for
  std::function<void(ServiceControlCode)> handler_;
  pthread_t dispatcher_{};
  std::atomic<bool> accepting_{false};
  std::atomic<bool> ended_{false};
};

}  // namespace

ServiceControl& systemServiceControl() {
  static SystemdControl control;
  return control;
}

// The unit has it all.
ServiceSetup* systemServiceSetup() {
  return nullptr;
}

}  // namespace platform
