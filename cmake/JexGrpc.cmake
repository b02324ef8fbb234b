# jex_grpc_library(NAME PROTO [LITE]): messages and stubs of the services in PROTO, as a static
# library. LITE: messages without descriptors.
# Generated code is compiled without warnings, and quickly: no packet waits for it.
# jex_generated: all of it, not compiled.
find_package(Protobuf REQUIRED)
find_package(gRPC CONFIG REQUIRED)
find_program(JEX_GRPC_CPP_PLUGIN grpc_cpp_plugin REQUIRED)
if(NOT TARGET jex_generated)
  add_custom_target(jex_generated)
endif()

function(jex_grpc_library name proto)
  get_filename_component(folder ${proto} ABSOLUTE)
  get_filename_component(folder ${folder} DIRECTORY)
  get_filename_component(stem ${proto} NAME_WE)
  cmake_parse_arguments(arg "LITE" "" "" ${ARGN})
  set(out ${CMAKE_CURRENT_BINARY_DIR}/generated/${name})
  set(options "")
  if(arg_LITE)
    set(options "lite:")
  endif()
  set(generated ${out}/${stem}.pb.cc ${out}/${stem}.pb.h
                ${out}/${stem}.grpc.pb.cc ${out}/${stem}.grpc.pb.h)
  file(MAKE_DIRECTORY ${out})
  add_custom_command(
    OUTPUT ${generated}
    COMMAND protobuf::protoc --cpp_out=${options}${out} --grpc_out=${out}
            --plugin=protoc-gen-grpc=${JEX_GRPC_CPP_PLUGIN} -I ${folder} ${folder}/${stem}.proto
    DEPENDS ${folder}/${stem}.proto
    COMMENT "Generating the service of ${stem}.proto"
    VERBATIM)
  add_custom_target(${name}_sources DEPENDS ${generated})
  add_dependencies(jex_generated ${name}_sources)
  add_library(${name} STATIC ${generated})
  target_compile_options(${name} PRIVATE -w $<$<CONFIG:Release>:-O1>)
  target_include_directories(${name} SYSTEM PUBLIC ${out})
  target_link_libraries(${name} PUBLIC gRPC::grpc++ protobuf::libprotobuf PRIVATE jex_flags)
endfunction()

# jex_proto_library(NAME PROTO): the messages in PROTO alone, likewise.
function(jex_proto_library name proto)
  get_filename_component(folder ${proto} ABSOLUTE)
  get_filename_component(folder ${folder} DIRECTORY)
  get_filename_component(stem ${proto} NAME_WE)
  set(out ${CMAKE_CURRENT_BINARY_DIR}/generated)
  set(generated ${out}/${stem}.pb.cc ${out}/${stem}.pb.h)
  file(MAKE_DIRECTORY ${out})
  add_custom_command(
    OUTPUT ${generated}
    COMMAND protobuf::protoc --cpp_out=${out} -I ${folder} ${folder}/${stem}.proto
    DEPENDS ${folder}/${stem}.proto
    COMMENT "Generating the messages of ${stem}.proto"
    VERBATIM)
  add_custom_target(${name}_sources DEPENDS ${generated})
  add_dependencies(jex_generated ${name}_sources)
  add_library(${name} STATIC ${generated})
  target_compile_options(${name} PRIVATE -w)
  target_include_directories(${name} SYSTEM PUBLIC ${out})
  target_link_libraries(${name} PUBLIC protobuf::libprotobuf PRIVATE jex_flags)
endfunction()
