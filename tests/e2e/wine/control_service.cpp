// Sends a control to a service and prints its state, as a number, when it is no longer a pending
// one:
//   control_service NAME stop|pause|continue|query
// The exit status is 1, with the error's number printed, when the service manager refuses.
#include <cstdio>
#include <cstring>

#include <windows.h>

namespace {

constexpr DWORD kPollMs = 20;
constexpr int kPolls = 1500;

int refused() {
  std::printf("error %lu\n", GetLastError());
  return 1;
}

DWORD controlOf(const char* word) {
  if (std::strcmp(word, "stop") == 0) return SERVICE_CONTROL_STOP;
  if (std::strcmp(word, "pause") == 0) return SERVICE_CONTROL_PAUSE;
  if (std::strcmp(word, "continue") == 0) return SERVICE_CONTROL_CONTINUE;
  return 0;
}

bool isPending(DWORD state) {
  return state == SERVICE_START_PENDING || state == SERVICE_STOP_PENDING ||
         state == SERVICE_PAUSE_PENDING || state == SERVICE_CONTINUE_PENDING;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT);
  if (manager == nullptr) return refused();
  const SC_HANDLE service = OpenServiceA(manager, argv[1], SERVICE_ALL_ACCESS);
  if (service == nullptr) return refused();
  SERVICE_STATUS status{};
  const DWORD control = controlOf(argv[2]);
  if (control != 0 && ControlService(service, control, &status) == FALSE) return refused();
  for (int i = 0; i < kPolls; ++i) {
    if (QueryServiceStatus(service, &status) == FALSE) return refused();
    if (!isPending(status.dwCurrentState)) break;
    Sleep(kPollMs);
  }
  std::printf("%lu\n", status.dwCurrentState);
  return 0;
}
