// pwLapseSvc, the password expiration service: installs and removes itself, and runs under the
// service manager of its system.
#include "service/expiration_worker.h"
#include "service/service_entry.h"

int main(int argc, char** argv) {
  platform::hardenProcess();
  const service::ServiceSystem system{platform::systemServiceControl(),
                                      platform::systemServiceSetup(), platform::systemThreads(),
                                      platform::systemProcess(), platform::systemClock()};
  service::ExpirationWorker work;
  return service::enterService(platform::commandLineArguments(argc, argv), system, work);
}
