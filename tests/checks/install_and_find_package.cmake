# Installs, moves what was installed to another place, and builds and runs a consumer from there.
include(${CMAKE_CURRENT_LIST_DIR}/run.cmake)
file(REMOVE_RECURSE ${SCRATCH_DIR})

run("installing" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${SCRATCH_DIR}/first)
file(RENAME ${SCRATCH_DIR}/first ${SCRATCH_DIR}/prefix)

run("configuring the consumer" ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${SCRATCH_DIR}/build
    -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${SCRATCH_DIR}/prefix)
run("building the consumer" ${CMAKE_COMMAND} --build ${SCRATCH_DIR}/build)
set(programs ${SCRATCH_DIR}/prefix/share/jexhybridslice/programs)
run("the consumer" ${SCRATCH_DIR}/build/consumer ${programs}/router.json)
if(NOT run_output MATCHES "carries router")
  message(FATAL_ERROR "the consumer printed: ${run_output}")
endif()

# The examples, from the folder that was installed.
set(examples ${SCRATCH_DIR}/prefix/share/doc/jexhybridslice/examples)
run("configuring the examples" ${CMAKE_COMMAND} -S ${examples} -B ${SCRATCH_DIR}/examples
    -G ${GENERATOR} -DCMAKE_C_COMPILER=${CC} -DCMAKE_CXX_COMPILER=${CXX}
    -DCMAKE_PREFIX_PATH=${SCRATCH_DIR}/prefix "-DCMAKE_C_FLAGS=-Wall -Wextra -pedantic -Werror"
    "-DCMAKE_CXX_FLAGS=-Wall -Wextra -pedantic -Werror")
run("building the examples" ${CMAKE_COMMAND} --build ${SCRATCH_DIR}/examples)
foreach(example "l2_learning PROGRAM-FILE [AGE-SECONDS]" "static_address PROGRAM-FILE MAC PORT")
  string(REGEX MATCH "^[^ ]+" name ${example})
  execute_process(COMMAND ${SCRATCH_DIR}/examples/${name} RESULT_VARIABLE status
                  ERROR_VARIABLE said)
  if(NOT status EQUAL 2 OR NOT said STREQUAL "usage: ${example}\n")
    message(FATAL_ERROR "${name} without arguments ended with ${status} and said: ${said}")
  endif()
endforeach()

foreach(program slice-agent partner-shell switchctl slice-counters)
  run("the installed ${program}" ${SCRATCH_DIR}/prefix/bin/${program} --version)
  if(NOT EXISTS ${SCRATCH_DIR}/prefix/share/man/man1/${program}.1)
    message(FATAL_ERROR "no man page of ${program}")
  endif()
endforeach()

# Nothing of the build folder is left in what was installed.
file(GLOB_RECURSE installed ${SCRATCH_DIR}/prefix/lib/*.so* ${SCRATCH_DIR}/prefix/bin/*
     ${SCRATCH_DIR}/prefix/lib/*.cmake)
list(LENGTH installed count)
if(count LESS 6)
  message(FATAL_ERROR "only ${count} files to look at: ${installed}")
endif()
execute_process(COMMAND grep -l -F ${BUILD_DIR}/ ${installed} OUTPUT_VARIABLE naming)
if(naming)
  message(FATAL_ERROR "these name the build folder:\n${naming}")
endif()
