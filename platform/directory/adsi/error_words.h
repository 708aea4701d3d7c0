// What an error of the network management functions or of ADSI means, for messages. Used in this
// folder only.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

// One line in the ANSI code page and the language of the system, with the number behind it: "Access
// is denied (error 5)", "The server is not operational (0x8007203a)"; the number alone when the
// system has no words. Never empty.
std::string errorWords(std::uint32_t status);

}  // namespace platform
