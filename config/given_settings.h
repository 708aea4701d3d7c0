// Settings that are given on a command line, as "Policy1.maxPasswordAge=60". Used by the console.
#pragma once

#include <string>
#include <vector>

#include "platform/registry/overlay_registry.h"

namespace config {

// The names that a setting may be given by, of every value of the table of settings: plain for the
// expiration settings, an edition's switches and the product's values ("smtpServer"), behind the
// policy's name ("Policy1.maxPasswordAge", "DefaultPolicy.emailWarnings") or "Directory." for
// theirs ("Directory.uri").
std::vector<std::string> givenSettingNames();

// Reads "NAME=VALUE" and adds the registry values that it stands for, one for each edition. Letter
// case does not count in a name; a number is decimal, a switch 0 or 1, a text in the ANSI code
// page. False with `error` in one line, with the nearest known name or the limit; secrets are
// refused, since other users see a command line.
bool readGivenSetting(const std::string& text, std::vector<platform::GivenValue>& values,
                      std::string& error);

}  // namespace config
