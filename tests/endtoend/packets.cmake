# Packets through a slice agent: hosts in network namespaces, flows and captures from files.
include(${CMAKE_CURRENT_LIST_DIR}/../support/JexTestLabels.cmake)
find_package(nlohmann_json 3.11 REQUIRED)
find_package(ZLIB REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(ENDTOEND_PCAP REQUIRED IMPORTED_TARGET libpcap)

add_executable(endtoend_packets_test captures_test.cpp cli_run.cpp counters_test.cpp ecmp_test.cpp
               hosts_test.cpp
               switch_run.cpp ../support/test_main.cpp)
target_compile_definitions(endtoend_packets_test PRIVATE
  JEX_SLICE_AGENT="$<TARGET_FILE:slice-agent>" JEX_SWITCHCTL="$<TARGET_FILE:switchctl>"
  JEX_PARTNER_SHELL="$<TARGET_FILE:partner-shell>")
jex_uses_test_data(endtoend_packets_test)
target_link_libraries(endtoend_packets_test PRIVATE jex_flags jex_test_support
                      nlohmann_json::nlohmann_json ZLIB::ZLIB PkgConfig::ENDTOEND_PCAP)
add_dependencies(endtoend_packets_test slice-agent switchctl partner-shell)
# The tests of real captures take all of them, one after the other.
gtest_discover_tests(endtoend_packets_test TEST_PREFIX endtoend. NO_PRETTY_VALUES
                     DISCOVERY_TIMEOUT 600
                     PROPERTIES TIMEOUT 900)
jex_label_tests(endtoend_packets_test endtoend)
