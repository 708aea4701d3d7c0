# pwlapse_delayed_dll(TARGET DLL FUNCTIONS...): a library TARGET that loads a DLL of Windows at the first
# call of one of these functions, and not before main. Windows itself loads the imports of a program,
# and prefers a file beside the program unless the DLL is one of its "known" ones; main first says that
# DLLs come from the system's folder only (hardenProcess).
function(pwlapse_delayed_dll target dll)
  list(JOIN ARGN "\n" functions)
  set(base ${CMAKE_CURRENT_BINARY_DIR}/${target})
  file(WRITE ${base}.def "LIBRARY \"${dll}\"\nEXPORTS\n${functions}\n")
  execute_process(COMMAND ${CMAKE_DLLTOOL} -d ${base}.def -y ${base}.a COMMAND_ERROR_IS_FATAL ANY)
  add_library(${target} INTERFACE)
  target_link_libraries(${target} INTERFACE ${base}.a delayimp)
endfunction()
