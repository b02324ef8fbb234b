# Waiting, signals and shortages of a process.
jex_wire_test(stop_line_test DEATH stop_line_test.cpp)
target_link_options(stop_line_test PRIVATE LINKER:--wrap=poll)
# A shared library that calls it makes the linker look for the wrapper here.
set_target_properties(stop_line_test PROPERTIES CXX_VISIBILITY_PRESET default)
