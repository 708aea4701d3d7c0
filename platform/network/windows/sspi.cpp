#include "platform/network/windows/sspi.h"

namespace platform {
namespace {

struct Library {
  const SecurityFunctionTableA* functions = nullptr;
  const char* problem = "";
};

Library load() {
  // From the system's own folder only: not from beside the program, where others may write.
  const HMODULE module = LoadLibraryExA("security.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (module == nullptr) return {nullptr, "security.dll cannot be loaded"};
  const auto initialise = reinterpret_cast<INIT_SECURITY_INTERFACE_A>(
      reinterpret_cast<void*>(GetProcAddress(module, "InitSecurityInterfaceA")));
  if (initialise == nullptr) return {nullptr, "Failed to find InitSecurityInterfaceA"};
  return {initialise(), "InitSecurityInterfaceA failed"};
}

}  // namespace

const SecurityFunctionTableA* securityFunctions(std::string& error) {
  static const Library library = load();
  if (library.functions == nullptr) error = library.problem;
  return library.functions;
}

}  // namespace platform
