// The site that a question is about: its registry, with the values of --set laid over it, its
// directory and its work folder. Nothing is ever written to the registry.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "console/answer.h"
#include "platform/host/system_host.h"

namespace console {

struct SiteOptions {
  std::string registryFile;             // empty: the registry of this system
  std::string directoryUri;             // empty: as the registry says
  std::string workDir;                  // empty: the current directory
  std::vector<std::string> settings;    // "NAME=VALUE": see config/given_settings.h
  bool directoryMayBeUnusable = false;  // its settings fail the directory only
};

// What every question takes beside its own options.
struct QuestionOptions {
  SiteOptions site;
  Format format = Format::Text;
};

// Opens registry and directory. Null, with `error` one line, when one of them or a setting cannot
// be used. Relative names are meant from where the program was started: to be called before
// enterWorkDir.
std::unique_ptr<platform::SystemHost> openHost(const SiteOptions& options, std::string& error);
// Makes the work folder the current directory: `workDir` or, when that is empty, the one that the
// registry, which may be null, names for the service, if it does.
bool enterWorkDir(const std::string& workDir, platform::Registry* registry, std::string& error);
// Host and folder.
std::unique_ptr<platform::SystemHost> openSite(const SiteOptions& options, std::string& error);

}  // namespace console
