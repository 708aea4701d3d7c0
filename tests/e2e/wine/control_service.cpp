// Sends a control to a service and prints its state, as a number, when that is no longer a pending
// one:
//   control_service NAME CONTROL
// CONTROL is a number; with 0 none is sent. When the service manager refuses it prints the error's
// number and the exit status is 1.
#include <cstdio>
#include <cstdlib>

#include <windows.h>

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const DWORD control = std::atoi(argv[2]);
  const SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT);
  const SC_HANDLE service = OpenServiceA(manager, argv[1], SERVICE_ALL_ACCESS);
  SERVICE_STATUS status{};
  bool done = service != nullptr;
  if (done && control != 0) done = ControlService(service, control, &status) != FALSE;
  for (int polls = 0; done && polls < 1500; ++polls) {
    done = QueryServiceStatus(service, &status) != FALSE;
    const DWORD state = status.dwCurrentState;
    if (state == SERVICE_STOPPED || state == SERVICE_RUNNING || state == SERVICE_PAUSED) break;
    Sleep(20);
  }
  std::printf(done ? "%lu\n" : "error %lu\n", done ? status.dwCurrentState : GetLastError());
  return done ? 0 : 1;
}
