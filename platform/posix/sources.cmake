# The sources below platform/posix.
list(APPEND platform_sources
  posix/terminal.cpp
  posix/clock.cpp
  posix/code_page.cpp
  posix/digest.cpp
  posix/files.cpp
  posix/random.cpp
  posix/socket_api.cpp
  file/profile_file.cpp
)
