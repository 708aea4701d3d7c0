# The sources below platform/windows.
list(APPEND platform_sources
  windows/adsi_directory.cpp
  windows/certificates.cpp
  windows/clock.cpp
  windows/code_page.cpp
  windows/digest.cpp
  windows/dns.cpp
  windows/files.cpp
  windows/ntlm_client.cpp
  windows/process.cpp
  windows/profile_file.cpp
  windows/random.cpp
  windows/schannel_stream.cpp
  windows/service_control.cpp
  windows/socket_api.cpp
  windows/sspi.cpp
  windows/status_text.cpp
  windows/system_accounts.cpp
  windows/system_host.cpp
  windows/system_registry.cpp
  windows/terminal.cpp
  windows/worker_thread.cpp
)
