# Queues, idle-time notifications and digests: a raw agent or a raw Partner beside the library's
# other half; the last ones, both halves as processes.
add_library(jex_notify_support OBJECT malloc_fault.cpp new_hooks.cpp notify_agent.cpp
            notify_frames.cpp notify_processes.cpp notify_programs.cpp)
target_link_libraries(jex_notify_support PUBLIC jex_test_support jex_partner_static
                      PRIVATE jex_flags)

# jex_notify_test(NAME [DEATH] SOURCE...): malloc of the library's code can be made to fail.
function(jex_notify_test name)
  jex_wire_test(${name} ${ARGN} $<TARGET_OBJECTS:jex_notify_support>)
  target_link_options(${name} PRIVATE LINKER:--wrap=malloc)
  # A shared library that calls malloc makes the linker look for the wrapper here.
  set_target_properties(${name} PROPERTIES CXX_VISIBILITY_PRESET default)
endfunction()

# Not with the project's flags, which are C++'s.
add_library(jex_queue_from_c OBJECT queue_from_c.c)
target_include_directories(jex_queue_from_c PRIVATE ${PROJECT_SOURCE_DIR}
                           ${PROJECT_SOURCE_DIR}/tests ${PROJECT_SOURCE_DIR}/sdk/include)
target_compile_options(jex_queue_from_c PRIVATE -Wall -Wextra -Wpedantic -Werror)
jex_notify_test(queue_test DEATH queue_test.cpp $<TARGET_OBJECTS:jex_queue_from_c>)
jex_notify_test(idle_partner_test DEATH idle_partner_test.cpp)
jex_notify_test(digest_partner_test DEATH digest_partner_test.cpp)
jex_notify_test(idle_agent_test DEATH idle_agent_test.cpp ${wire_objects})
jex_notify_test(idle_calls_test idle_calls_test.cpp)
foreach(function jx_rt_table_idle_table_attributes_allocate
        jx_rt_attributes_idle_table_notify_mode_set jx_rt_table_attributes_set)
  target_link_options(idle_calls_test PRIVATE LINKER:--wrap=${function})
endforeach()
jex_notify_test(idle_partner_calls_test idle_partner_calls_test.cpp sdk_front.cpp)
jex_notify_test(digest_calls_test digest_calls_test.cpp sdk_front.cpp)
jex_notify_test(digest_agent_test DEATH digest_agent_test.cpp)
jex_notify_test(notify_callback_test DEATH notify_callback_test.cpp)
jex_notify_test(receiver_test DEATH receiver_test.cpp)

# jex_notify_alone(NAME SECONDS): its tests run one at a time, each with a time limit of its own.
function(jex_notify_alone name seconds)
  set(file ${CMAKE_CURRENT_BINARY_DIR}/${name}_alone.cmake)
  file(WRITE ${file} "foreach(test IN LISTS ${name}_TESTS)
  set_tests_properties(\"\${test}\" PROPERTIES RUN_SERIAL TRUE TIMEOUT ${seconds}
                       LABELS \"wire;slow;serial\")
endforeach()
")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${file})
endfunction()

jex_notify_test(notify_race_test notify_race_test.cpp ${wire_objects})
jex_notify_alone(notify_race_test 900)
jex_notify_test(notify_flood_test notify_flood_test.cpp)
jex_notify_alone(notify_flood_test 600)
