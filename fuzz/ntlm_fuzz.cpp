// The NTLM login with anything for a challenge: the system's NTLM, which is not ours, never gets
// one that it would crash on.
#include <string>

#include "fuzz/fuzz.h"
#include "platform/network/security_package.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ForeignLeaks leaksOfTheSystemsNtlm;
  platform::SspiStatus status = platform::kSecOk;
  const auto client = platform::createNtlmClient({"user", "secret", "D"}, "127.0.0.1", status);
  if (client == nullptr) return -1;
  std::string token;
  require(client->step({}, token) == platform::kSecContinueNeeded && !token.empty());
  client->step(textOf(data, size), token);
  return 0;
}
