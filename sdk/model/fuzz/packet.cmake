# libFuzzer target of the packet parser and the rewriting of fields: packet_fuzz corpus/packet_fuzz
add_executable(packet_fuzz ${CMAKE_CURRENT_LIST_DIR}/packet_fuzz.cpp)
target_link_libraries(packet_fuzz PRIVATE jex_hot_flags jxmodel_static)
target_compile_options(packet_fuzz PRIVATE -fsanitize=fuzzer)
target_link_options(packet_fuzz PRIVATE -fsanitize=fuzzer)
