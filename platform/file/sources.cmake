# The sources below platform/file.
list(APPEND platform_sources
  unicode.cpp
)
