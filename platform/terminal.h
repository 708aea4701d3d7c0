// Whether a stream is a terminal, for programs that draw on one.
#pragma once

#include <cstdio>

namespace platform {

bool isTerminal(std::FILE* stream);

}  // namespace platform
