# What makes a fault of memory a crash instead of a way in: the flags that Debian builds its packages
# with, and what the compiler for Windows has of them. tests/e2e/test_packages.py looks for each of
# them in the programs.
if(PWLAPSE_SANITIZE OR PWLAPSE_FUZZ)
  return()  # the sanitizers see more
endif()
add_compile_options(-fstack-protector-strong -Wformat -Werror=format-security)
# Calls that are given the size of their buffer check it, which takes an optimised build.
add_compile_options("$<$<CONFIG:Release>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
if(WIN32)
  # The control-flow protection of this compiler needs a mark in the program that its linker cannot
  # write, so Windows would not use it.
  add_link_options(-fstack-protector-strong
                   -Wl,--dynamicbase,--nxcompat,--high-entropy-va)
else()
  add_compile_options(-fstack-clash-protection -fcf-protection -fPIE)
  add_link_options(-pie -Wl,-z,relro,-z,now)
endif()
