#include <cstdio>

#include "console/commands.h"
#include "console/smtp_catcher.h"
#include "platform/system/clock.h"

namespace console {
namespace {

constexpr std::uint32_t kLookIntervalMs = 200;

}  // namespace

int catchCommand(const CatchOptions& options) {
  SmtpCatcher catcher;
  CatcherOptions catcherOptions;
  catcherOptions.port = options.port;
  catcherOptions.directory = options.directory;
  std::string error;
  if (!catcher.start(catcherOptions, error)) return refuse(error);
  std::printf("Catching mail on 127.0.0.1:%u; stop with Ctrl-C.\n",
              static_cast<unsigned>(catcher.port()));
  std::fflush(stdout);
  // A mail's file is whole or absent, so being ended at any moment loses nothing.
  for (std::size_t shown = 0;; platform::systemClock().sleep(kLookIntervalMs)) {
    const std::vector<std::string> files = catcher.savedFiles();
    for (; shown < files.size(); ++shown) std::printf("%s\n", files[shown].c_str());
    std::fflush(stdout);
    if (std::ferror(stdout) != 0) return kExitDone;  // the program says so as it ends
  }
}

}  // namespace console
