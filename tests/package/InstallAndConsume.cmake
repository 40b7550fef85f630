# cmake -P: install BUILD into WORK/prefix, build CONSUMER against it, run it.
set(prefix ${WORK}/prefix)
set(consumer ${WORK}/consumer)
file(REMOVE_RECURSE ${prefix} ${consumer})
set(flags "")
if(SANITIZE)
  set(flags -fsanitize=address,undefined)
endif()

execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix}
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} -S ${CONSUMER} -B ${consumer} -G ${GENERATOR}
  -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${COMPILER}
  -DCMAKE_CXX_FLAGS=${flags} -DCMAKE_EXE_LINKER_FLAGS=${flags}
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} --build ${consumer} COMMAND_ERROR_IS_FATAL ANY)

execute_process(COMMAND ${consumer}/consumer OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
set(expected "codex {\"a\":[true],\"b\":1} 1 git push origin main\n")
if(NOT output STREQUAL expected)
  message(FATAL_ERROR "the consumer printed\n${output}instead of\n${expected}")
endif()
execute_process(COMMAND ${prefix}/bin/pelmora --version OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
if(NOT output STREQUAL "pelmora ${VERSION}\n")
  message(FATAL_ERROR "the installed pelmora --version printed: ${output}")
endif()
if(NOT EXISTS ${prefix}/bin/pelmora-hook)
  message(FATAL_ERROR "pelmora-hook was not installed")
endif()
