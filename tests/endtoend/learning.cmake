# The example l2_learning as people run it: between hosts, and on captures.
include(${CMAKE_CURRENT_LIST_DIR}/../support/JexTestLabels.cmake)
find_package(nlohmann_json 3.11 REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(ENDTOEND_PCAP REQUIRED IMPORTED_TARGET libpcap)

add_executable(endtoend_learning_test cli_run.cpp examples_test.cpp l2_learning_captures_test.cpp
               l2_learning_forms_test.cpp l2_learning_test.cpp switch_run.cpp ../support/test_main.cpp)
add_dependencies(endtoend_learning_test static_address)
target_compile_definitions(endtoend_learning_test PRIVATE
  JEX_L2_LEARNING="$<TARGET_FILE:l2_learning>"
  JEX_STATIC_ADDRESS="$<TARGET_FILE:static_address>"
  JEX_SLICE_AGENT="$<TARGET_FILE:slice-agent>" JEX_SWITCHCTL="$<TARGET_FILE:switchctl>"
  JEX_PARTNER_SHELL="$<TARGET_FILE:partner-shell>"
  JEX_P4_MAKE_CASES="${PROJECT_SOURCE_DIR}/tests/p4/make_cases.py")
jex_uses_test_data(endtoend_learning_test)
target_link_libraries(endtoend_learning_test PRIVATE jex_flags jex_test_support
                      nlohmann_json::nlohmann_json PkgConfig::ENDTOEND_PCAP)
add_dependencies(endtoend_learning_test l2_learning slice-agent switchctl partner-shell)
# The tests of real captures take all of them, one after the other.
gtest_discover_tests(endtoend_learning_test TEST_PREFIX endtoend. NO_PRETTY_VALUES
                     DISCOVERY_TIMEOUT 600
                     PROPERTIES TIMEOUT 900)
jex_label_tests(endtoend_learning_test endtoend)
