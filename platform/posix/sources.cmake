# The sources below platform/posix.
list(APPEND platform_sources
  posix/ntlm_challenge.cpp
  posix/ntlm_client.cpp
  posix/process.cpp
  posix/service_control.cpp
  posix/systemd_units.cpp
  posix/terminal.cpp
  posix/worker_thread.cpp
  posix/clock.cpp
  posix/code_page.cpp
  posix/digest.cpp
  posix/directory_settings.cpp
  posix/dns.cpp
  posix/files.cpp
  posix/ldap_connection.cpp
  posix/ldap_paged_search.cpp
  posix/ldap_source.cpp
  posix/random.cpp
  posix/security_package_openssl.cpp
  posix/secret_file.cpp
  posix/socket_api.cpp
  posix/srv_lookup.cpp
  posix/system_host.cpp
  file/profile_file.cpp
)
