# slice-counters on segments that the tests make, and before a Prometheus of their own.
include(${CMAKE_CURRENT_LIST_DIR}/../support/JexTestLabels.cmake)
find_package(nlohmann_json 3.11 REQUIRED)
find_package(Boost 1.74 REQUIRED)
find_program(JEX_PROMETHEUS prometheus REQUIRED)
find_program(JEX_PROMTOOL promtool REQUIRED)
find_program(JEX_CURL curl REQUIRED)

add_executable(endtoend_counters_test cli_run.cpp cli_slice_counters_test.cpp counter_segment.cpp
               prometheus_test.cpp segment_reader_test.cpp ../support/test_main.cpp)
target_compile_definitions(endtoend_counters_test PRIVATE
  JEX_SLICE_COUNTERS="$<TARGET_FILE:slice-counters>" JEX_SWITCHCTL="$<TARGET_FILE:switchctl>"
  JEX_PROMETHEUS="${JEX_PROMETHEUS}" JEX_PROMTOOL="${JEX_PROMTOOL}" JEX_CURL="${JEX_CURL}"
  JEX_PROGRAMS_DIR="${PROJECT_SOURCE_DIR}/programs")
target_link_libraries(endtoend_counters_test PRIVATE jex_flags jex_test_support slice_counters_segment
                      Boost::headers nlohmann_json::nlohmann_json)
add_dependencies(endtoend_counters_test slice-counters)
gtest_discover_tests(endtoend_counters_test TEST_PREFIX endtoend. DISCOVERY_TIMEOUT 600 PROPERTIES TIMEOUT 600)
jex_label_tests(endtoend_counters_test endtoend)
