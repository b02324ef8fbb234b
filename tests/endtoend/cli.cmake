# slice-agent, partner-shell, switchctl and the control server as people run them.
include(${CMAKE_CURRENT_LIST_DIR}/../support/JexTestLabels.cmake)
find_package(nlohmann_json 3.11 REQUIRED)
find_package(ZLIB REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(ENDTOEND_PCAP REQUIRED IMPORTED_TARGET libpcap)

# A client of the control server's reflection, which is not linked to libdriver.so.
include(JexGrpc)
jex_grpc_library(reflection_client reflection.proto)
add_executable(list-services list_services.cpp)
target_link_libraries(list-services PRIVATE jex_flags reflection_client)

add_executable(endtoend_cli_test cli_agent_start_test.cpp cli_agent_switchctl_test.cpp
               cli_control_service_test.cpp cli_descriptors_test.cpp cli_p4_counts_test.cpp cli_p4_forms_test.cpp
               cli_partner_events_test.cpp
               cli_partner_shell_interrupt_test.cpp cli_partner_shell_start_test.cpp
               cli_partner_shell_test.cpp
               cli_run.cpp cli_stf_test.cpp cli_switch_test.cpp cli_watch_test.cpp control_server_test.cpp
               switch_run.cpp
               terminal.cpp ../support/test_main.cpp)
target_compile_definitions(endtoend_cli_test PRIVATE
  JEX_P4_PROGRAMS_DIR="${PROJECT_SOURCE_DIR}/tests/p4/programs"
  JEX_SLICE_AGENT="$<TARGET_FILE:slice-agent>" JEX_SWITCHCTL="$<TARGET_FILE:switchctl>"
  JEX_PARTNER_SHELL="$<TARGET_FILE:partner-shell>"
  JEX_SLICE_COUNTERS="$<TARGET_FILE:slice-counters>"
  JEX_LIST_SERVICES="$<TARGET_FILE:list-services>")
target_link_libraries(endtoend_cli_test PRIVATE jex_flags jex_test_support
                      nlohmann_json::nlohmann_json ZLIB::ZLIB PkgConfig::ENDTOEND_PCAP)
add_dependencies(endtoend_cli_test slice-agent slice-counters switchctl partner-shell list-services)
gtest_discover_tests(endtoend_cli_test TEST_PREFIX endtoend. DISCOVERY_TIMEOUT 600 PROPERTIES TIMEOUT 600)
jex_label_tests(endtoend_cli_test endtoend)
