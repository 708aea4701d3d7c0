#include "service/service_entry.h"

#include <cstddef>
#include <cstdio>

#include "base/ascii.h"
#include "platform/system/files.h"
#include "platform/system/terminal.h"
#include "service/service_installer.h"
#include "service/service_main.h"

namespace service {
namespace {

constexpr int kExitUnusable = 2;

// The word behind the sign of a switch; empty when the first argument is none.
std::string switchWord(const std::vector<std::string>& arguments) {
  if (arguments.empty() || arguments[0].empty()) return {};
  const std::string& first = arguments[0];
  return first[0] == '-' || first[0] == '/' ? first.substr(1) : std::string();
}

// Reads what follows "-install". False, with `fault` one line, when that cannot be used; what does
// not begin with "--" is passed over.
bool readInstallOptions(const std::vector<std::string>& arguments, InstallOptions& options,
                        std::string& fault) {
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const std::string& option = arguments[i];
    std::string* value = nullptr;
    if (base::equalsNoCase(option, "--account")) value = &options.account;
    if (base::equalsNoCase(option, "--work-folder")) value = &options.workFolder;
    if (base::equalsNoCase(option, "--delayed-start")) {
      options.delayedStart = true;
    } else if (value == nullptr && option.starts_with("--")) {
      fault = option + " is not known: the options are --account, --work-folder, --delayed-start";
    } else if (value != nullptr && (++i == arguments.size() || arguments[i].empty())) {
      fault = option + " needs a value";
    } else if (value != nullptr) {
      *value = arguments[i];
    }
    if (!fault.empty()) return false;
  }
  if (!options.workFolder.empty()) {
    options.workFolder = platform::absolutePath(options.workFolder);
  }
  return true;
}

int install(const std::vector<std::string>& arguments, ServiceSystem system) {
  InstallOptions options;
  std::string fault;
  if (readInstallOptions(arguments, options, fault)) fault = installOptionsFault(options, system);
  if (!fault.empty()) {
    std::printf("Not installed: %s.\n", fault.c_str());
    return kExitUnusable;
  }
  installService(system, kServiceName, kDisplayName, kDescription, kDependencies, options);
  return 0;
}

void printUsage() {
  std::printf("%s -install          install service\n", kServiceName);
  std::printf("%s -remove           remove service\n", kServiceName);
  std::fflush(stdout);  // the service ends without flushing
}

// Ends the process.
void fatalError(platform::Process& process, const char* message, platform::WinError code) {
  std::printf("%sError number: %u\n", message, code);
  std::fflush(stdout);
  process.exit(code);
}

}  // namespace

int enterService(const std::vector<std::string>& arguments, ServiceSystem system,
                 ServiceWork& work) {
  const std::string word = switchWord(arguments);
  const bool installs = base::equalsNoCase(word, "install");
  if (installs || base::equalsNoCase(word, "remove")) {
    const platform::AnsiTerminal terminal;
    if (installs) return install(arguments, system);
    removeService(system, kServiceName);
    return 0;
  }
  // Always: started by the service manager it goes nowhere, and started by hand it is the help.
  printUsage();
  ServiceMain service(system, work);
  if (!system.control.startDispatcher(kDispatchName, [&service] { service.main(); })) {
    fatalError(system.process, "In StartServiceCtrlDispatcher", system.process.lastError());
    return 0;
  }
  // Not by returning from main: the worker is still at work on what the destructors would take from
  // it, or is frozen with a lock that they would wait for.
  system.process.terminate(0);
  return 0;
}

}  // namespace service
