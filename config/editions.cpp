#include "config/editions.h"

#include <cstddef>

#include "base/ascii.h"
#include "config/registry_readers.h"

namespace config {
namespace {

constexpr std::size_t kProductTypeCapacity = 100;

constexpr Edition kEditions[] = {
    {"Software\\Policies\\Kadro\\PwsentryProDE", "de", 0, "NRV-DE", "PW-DE", "NRV-DE", "PW-DE",
     false},
    {"Software\\Policies\\Kadro\\PwsentryProSPEMS", "ms", 0, "NRV-SPEMS", "PW-SPE-MS", "NRV-SPEMS",
     "PW-SPEMS", false},
    {kPolicyRootMpems, "ms", 2, "NRV-MPEMS", "PW-MPE-MS", "NRV-MPEMS", "", true},
    {"Software\\Policies\\Kadro\\PwsentryPro", "dc", 0, "NRV-SPE", "PW-SPE", "NRV-SPE", "PW-SPE",
     false},
    {kPolicyRootMpe, "dc", 5, "NRV-MPE", "PW-MPE", "", "", true},
    {"Software\\Policies\\Kadro\\PwsentryProLE", "", 1, "NRV-LE", "", "NRV-LE", "", true},
};

struct MachineKind {
  const char* productType;
  const char* osType;
};

constexpr MachineKind kMachineKinds[] = {{"winnt", "de"}, {"ServerNT", "ms"}, {"LanmanNT", "dc"}};

}  // namespace

std::string policySlotName(int slot) {
  return slot == 0 ? "DefaultPolicy" : "Policy" + std::to_string(slot);
}

std::span<const Edition> editions() {
  return kEditions;
}

std::string machineKind(platform::Registry& registry) {
  const std::string productType =
      readTextField(registry, kProductOptionsKey, "productType", kProductTypeCapacity);
  for (const MachineKind& kind : kMachineKinds) {
    if (base::equalsNoCase(productType, kind.productType)) return kind.osType;
  }
  return {};
}

}  // namespace config
