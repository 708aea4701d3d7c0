// The settings file that `pwlapse init` writes. Pure.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace console {

// Texts are in the ANSI code page; those that are empty are left out.
struct SiteProposal {
  std::string directoryUri;
  std::string bindUser;  // empty: Kerberos
  std::string bindPasswordFile;
  std::string caFile;
  std::string mailServer;
  std::string mailUser;  // empty: no login there
  std::string mailPasswordFile;
  std::string sender;
  std::string administrator;
  std::uint32_t maxAge = 90;            // days
  bool usesDirectoryPolicy = false;     // the domain has password settings objects
  std::vector<std::uint32_t> warnings;  // days, three at most
  bool reportOnly = true;
};

// A ".reg" file with a comment line before each value: in UTF-8 or, where the ANSI code page would
// read that as something else, in UTF-16 with its mark, as the system's own tools take it.
std::string siteFileText(const SiteProposal& proposal);

}  // namespace console
