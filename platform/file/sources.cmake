# The sources below platform/file.
list(APPEND platform_sources
  file/byte_lines.cpp
  case_fold.cpp
  file/entry_attributes.cpp
  file/ldap_filter.cpp
  file/ldif_reader.cpp
  file/ldif_source.cpp
  file/name_index.cpp
  file/security_descriptor.cpp
  file/snapshot_directory.cpp
  unicode.cpp
  file/reg_parser.cpp
  file/reg_registry.cpp
  file/reg_writer.cpp
  file/text_lines.cpp
)
