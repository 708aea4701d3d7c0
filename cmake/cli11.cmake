# The target `cli11`: CLI11's headers for every system. The package has them below /usr/include, which
# must not be on the path of a cross compiler, so a folder of their own leads to them.
find_path(CLI11_INCLUDE_DIR CLI/CLI.hpp PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
set(cli11_folder ${PROJECT_BINARY_DIR}/cli11)
file(MAKE_DIRECTORY ${cli11_folder})
file(CREATE_LINK ${CLI11_INCLUDE_DIR}/CLI ${cli11_folder}/CLI SYMBOLIC)
add_library(cli11 INTERFACE)
target_include_directories(cli11 SYSTEM INTERFACE ${cli11_folder})
