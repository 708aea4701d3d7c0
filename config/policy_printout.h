// Printouts of a policy and of the verdict of checking one password against it, for diagnosis. The
// short form has the settings that the fixed policy of the "live" edition sets, and another list of
// reasons. The pass does not print any.
#pragma once

#include <string>

#include "config/policy_record.h"

namespace config {

// Both append to the file and return 1, also when it cannot be opened. A policy that is neither
// defined nor evaluated prints nothing.
int printPolicy(const PolicyRecord& policy, const std::string& file);
int printPolicyShort(const PolicyRecord& policy, const std::string& file);

// What they would append.
std::string policyText(const PolicyRecord& policy);
std::string policyTextShort(const PolicyRecord& policy);

}  // namespace config
