# The sources below platform/windows.
list(APPEND platform_sources
  windows/adsi_directory.cpp
  windows/clock.cpp
  windows/code_page.cpp
  windows/digest.cpp
  windows/files.cpp
  windows/profile_file.cpp
  windows/random.cpp
  windows/socket_api.cpp
  windows/system_accounts.cpp
  windows/system_host.cpp
  windows/system_registry.cpp
  windows/terminal.cpp
)
