// The sample site of `pwlapse demo`: a registry file, a directory, templates and lists, with at
// least one user for every outcome a pass can have.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/system/clock.h"
#include "service/outcome.h"

namespace console {

inline constexpr const char* kDemoRegistryFile = "demo-registry.reg";
inline constexpr const char* kDemoDirectoryFile = "demo-directory.ldif";
// The demo's mail server refuses this recipient.
inline constexpr const char* kDemoRefusedAddress = "olaf.brandt@demo.example";

// What a pass over the sample site is to come to for one line of a list.
struct ExpectedOutcome {
  std::string username;
  int slot = 0;
  service::Outcome outcome = service::Outcome::Skipped;
  std::uint32_t skipReasons = 0;
};

// Writes the site's files into the current directory, passwords aged as of now; `smtpPort` is that
// of a mail server on this machine. False, with `error` naming the file, when one cannot be
// written.
bool makeDemoSite(platform::Clock& clock, std::uint16_t smtpPort, std::string& error);

std::vector<ExpectedOutcome> demoExpectations();

}  // namespace console
