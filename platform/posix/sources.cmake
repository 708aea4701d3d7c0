# The sources below platform/posix.
list(APPEND platform_sources
  posix/terminal.cpp
)
