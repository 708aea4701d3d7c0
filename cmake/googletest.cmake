# The targets GTest::gtest_main and GTest::gmock. For Windows they are built from the package's sources:
# no package has them built by that compiler.
if(NOT WIN32)
  find_package(GTest REQUIRED)
  return()
endif()
set(INSTALL_GTEST OFF)
add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
foreach(library gtest gtest_main gmock gmock_main)
  target_compile_options(${library} PRIVATE -w)
endforeach()
