# Agent and Partners as helper processes of the test binary, through the shared library.
include(${CMAKE_CURRENT_LIST_DIR}/../support/JexTestLabels.cmake)
find_package(PkgConfig REQUIRED)
pkg_check_modules(NANOMSG REQUIRED IMPORTED_TARGET nanomsg)
add_executable(replication_test ${CMAKE_CURRENT_LIST_DIR}/replication_test.cpp)
target_link_libraries(replication_test PRIVATE jex_test_processes jex_test_support
                      jex::partner_agent jex::sdk jex_flags)
gtest_discover_tests(replication_test TEST_PREFIX endtoend. NO_PRETTY_VALUES DISCOVERY_TIMEOUT 600
                     PROPERTIES TIMEOUT 600)
jex_label_tests(replication_test endtoend)
