// What the service is there for, seen from its main routine: values read at the start, and work
// done on the worker thread. The expiration worker implements it; tests bring their own.
#pragma once

#include "platform/registry/registry.h"
#include "service/service_values.h"

namespace service {

class ServiceWork {
 public:
  virtual ~ServiceWork() = default;
  // On the service's main thread, before the worker is started. Anything but kErrorSuccess stops
  // the service with that exit code.
  virtual platform::WinError readValues(ServiceValues& values) = 0;
  // On the worker thread; does not return.
  virtual void run(const ServiceValues& values) = 0;
};

}  // namespace service
