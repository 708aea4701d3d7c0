// The service program's way in: its command line, its usage, and the hand-over to the service
// dispatcher.
#pragma once

#include <string>
#include <vector>

#include "service/service_system.h"
#include "service/service_work.h"

namespace service {

// "-install" and "-remove", also with '/', in any case, as the first of `arguments` (the program's
// name is not among them). Behind "-install" may stand "--account NAME", "--work-folder FOLDER" and
// "--delayed-start"; what cannot be used of them is said in one line, and the exit code is 2.
// Anything else runs the service, which ends the process: with 0 after it
// was stopped, with the error's number when there is no dispatcher to run under. Returns the
// process's exit code.
int enterService(const std::vector<std::string>& arguments, ServiceSystem system,
                 ServiceWork& work);

}  // namespace service
