#include "service/service_entry.h"

#include <cstdio>

#include "base/ascii.h"
#include "service/service_installer.h"
#include "service/service_main.h"

namespace service {
namespace {

// The word behind the sign of a switch; empty when the first argument is none.
std::string switchWord(const std::vector<std::string>& arguments) {
  if (arguments.empty() || arguments[0].empty()) return {};
  const std::string& first = arguments[0];
  return first[0] == '-' || first[0] == '/' ? first.substr(1) : std::string();
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
  if (base::equalsNoCase(word, "install")) {
    installService(system, kServiceName, kDisplayName, kDescription, kDependencies);
    return 0;
  }
  if (base::equalsNoCase(word, "remove")) {
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
