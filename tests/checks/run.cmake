# run(NAME COMMAND...): runs a command; its failure, with what it printed, is the script's.
function(run name)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${name} failed with ${status}:\n${out}")
  endif()
  set(run_output "${out}" PARENT_SCOPE)
endfunction()
