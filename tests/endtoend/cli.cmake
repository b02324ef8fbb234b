# slice-agent, switchctl and the control server as people run them.
find_package(nlohmann_json 3.11 REQUIRED)
add_executable(endtoend_cli_test cli_agent_switchctl_test.cpp control_server_test.cpp
               ../support/test_main.cpp)
target_compile_definitions(endtoend_cli_test PRIVATE
  JEX_SLICE_AGENT="$<TARGET_FILE:slice-agent>" JEX_SWITCHCTL="$<TARGET_FILE:switchctl>"
  JEX_PARTNER_SHELL="$<TARGET_FILE:partner-shell>")
target_link_libraries(endtoend_cli_test PRIVATE jex_flags jex_test_support
                      nlohmann_json::nlohmann_json)
add_dependencies(endtoend_cli_test slice-agent switchctl partner-shell)
gtest_discover_tests(endtoend_cli_test TEST_PREFIX endtoend. PROPERTIES TIMEOUT 300)
