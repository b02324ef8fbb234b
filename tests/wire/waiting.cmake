# Waiting, signals and shortages: the calls with which the library waits go through the tests.
add_library(jex_call_hooks OBJECT call_hooks.cpp)
target_link_libraries(jex_call_hooks PUBLIC jex_test_support PRIVATE PkgConfig::NANOMSG jex_flags)

# jex_hooked_test(NAME [DEATH] SOURCE...)
function(jex_hooked_test name)
  jex_wire_test(${name} ${ARGN} $<TARGET_OBJECTS:jex_call_hooks>)
  foreach(function nn_poll nn_send nn_recv nanosleep)
    target_link_options(${name} PRIVATE LINKER:--wrap=${function})
  endforeach()
  # A shared library that calls one of these makes the linker look for the wrapper here.
  set_target_properties(${name} PROPERTIES CXX_VISIBILITY_PRESET default)
endfunction()

jex_hooked_test(waiting_test DEATH waiting_test.cpp)
jex_hooked_test(interruption_test DEATH interruption_test.cpp)

jex_wire_test(stop_line_test DEATH stop_line_test.cpp)
target_link_options(stop_line_test PRIVATE LINKER:--wrap=poll)
set_target_properties(stop_line_test PROPERTIES CXX_VISIBILITY_PRESET default)

jex_wire_test(reverse_name_test reverse_name_test.cpp)

jex_wire_test(together_test together_test.cpp)
jex_label_tests(together_test wire serial)
set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES
             ${CMAKE_CURRENT_BINARY_DIR}/together_test_limit.cmake)
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/together_test_limit.cmake
  "foreach(test IN LISTS together_test_TESTS)
  set_tests_properties(\"\${test}\" PROPERTIES RUN_SERIAL TRUE TIMEOUT 600)
endforeach()
")

jex_notify_test(shortage_test DEATH shortage_test.cpp)
target_link_options(shortage_test PRIVATE LINKER:--wrap=nn_connect)
