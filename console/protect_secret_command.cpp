// `pwlapse protect-secret`: writes a secret into a file that only the service can use, so that it
// need not stand in the registry.
#include <algorithm>
#include <cstdio>

#include "console/commands.h"
#include "platform/system/files.h"
#include "platform/system/stored_secret.h"
#include "platform/system/terminal.h"
#include "service/service_system.h"

namespace console {
namespace {

// From the terminal, where it is not shown, or the first line of standard input. Never from the
// command line, which other users can see.
bool readSecretLine(const std::string& file, std::string& secret) {
  if (platform::isTerminal(stdin)) {
    std::printf("Secret for %s (is not shown): ", file.c_str());
    std::fflush(stdout);
    const bool read = platform::readHiddenLine(secret);
    std::printf("\n");
    return read;
  }
  int c = 0;
  while ((c = std::getchar()) != EOF && c != '\n') secret += static_cast<char>(c);
  while (!secret.empty() && secret.back() == '\r') secret.pop_back();
  return std::ferror(stdin) == 0;
}

}  // namespace

int protectSecretCommand(const ProtectSecretOptions& options) {
  const std::string file = platform::absolutePath(options.file);
  std::string secret;
  std::string error;
  if (!readSecretLine(file, secret) || secret.empty()) return refuse("no secret was given");
  const bool written = platform::storeSecret(file, secret, service::kServiceName, error);
  std::fill(secret.begin(), secret.end(), '\0');
  if (!written) return refuse(file + ": " + error);
  std::printf(
      "%s is written. Set smtpPasswordFile to it, or oauthClientSecretFile, and remove\n"
      "smtpPassword; pwlapse check shows whether others can read it.\n",
      file.c_str());
  return kExitDone;
}

}  // namespace console
