// Finds the servers of a service by DNS SRV records (RFC 2782), for a directory that no setting
// names. Used by the LDAP connection.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

struct SrvTarget {
  std::string host;  // letters, digits, '-', '_' and '.' only, without the last dot
  std::uint16_t port = 0;
  std::uint16_t priority = 0;
  std::uint16_t weight = 0;
};

// The targets in the order to try them; empty when there are none or no name server answers. Blocks
// for as long as the system's resolver takes, which its configuration bounds.
std::vector<SrvTarget> lookUpSrv(const std::string& name);

// The SRV records in a DNS message, of any bytes. A record that is malformed, or whose target is
// "." or no host name, is left out.
std::vector<SrvTarget> parseSrvReply(std::string_view message);

// Lowest priority first; among equals at random in proportion to the weights.
void orderTargets(std::vector<SrvTarget>& targets, const std::function<std::uint32_t()>& random);

}  // namespace platform
