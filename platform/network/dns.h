// Mail exchangers of a domain, by the system's DNS client. Blocks for as long as that takes; may be
// used by several threads.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

struct MxRecord {
  std::uint16_t preference = 0;  // the lowest is to be tried first
  std::string host;
};

class Dns {
 public:
  virtual ~Dns() = default;
  // The records of type MX in the order of the answer. False when there are none or nobody answers.
  virtual bool queryMx(const std::string& domain, std::vector<MxRecord>& records) = 0;
};

// Never destroyed.
Dns& systemDns();

}  // namespace platform
