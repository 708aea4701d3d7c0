# The targets `cli11` and `nlohmann_json`: libraries of headers only, for every system. Their packages
# have them below /usr/include, which must not be on the path of a cross compiler, so a folder of their
# own leads to them.
#   pwlapse_header_library(TARGET FOLDER HEADER): FOLDER/HEADER is what is looked for.
function(pwlapse_header_library name folder header)
  find_path(${name}_include ${folder}/${header} PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  set(own_folder ${PROJECT_BINARY_DIR}/${name})
  file(MAKE_DIRECTORY ${own_folder})
  file(CREATE_LINK ${${name}_include}/${folder} ${own_folder}/${folder} SYMBOLIC)
  add_library(${name} INTERFACE)
  target_include_directories(${name} SYSTEM INTERFACE ${own_folder})
endfunction()

pwlapse_header_library(cli11 CLI CLI.hpp)
pwlapse_header_library(nlohmann_json nlohmann json.hpp)
