# jex_flags: what every target of this project is compiled with.
# jex_product_flags: the same, and what only the library, the model and the programs get.
# jex_hot_flags: the same, and what the library and the model get.
#
# With sanitizers, code is not optimised: most of the time goes into compiling it. But what handles
# every update and every packet is, and tests have no checks for undefined behaviour of their own,
# which take longer to compile than all the rest.
add_library(jex_flags INTERFACE)
target_compile_options(jex_flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
                       -Wno-sign-conversion $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
                       -fno-omit-frame-pointer)
# Programs without a place of the build folder in them.
target_compile_options(jex_flags INTERFACE -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
if(JEX_WERROR)
  target_compile_options(jex_flags INTERFACE -Werror)
endif()
if(JEX_SANITIZE)
  string(REPLACE ",undefined" "" sanitizer "${JEX_SANITIZE}")
  target_compile_options(jex_flags INTERFACE -fsanitize=${sanitizer} -fno-sanitize-recover=all)
  # GCC takes what a sanitizer inserts for a use of what was never set.
  target_compile_options(jex_flags INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  if(JEX_SANITIZE STREQUAL "thread")
    # Fences of libraries' headers, which the thread sanitizer does not see.
    target_compile_options(jex_flags INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-tsan>)
  endif()
  target_link_options(jex_flags INTERFACE -fsanitize=${JEX_SANITIZE})
endif()
add_library(jex_product_flags INTERFACE)
target_link_libraries(jex_product_flags INTERFACE jex_flags)
add_library(jex_hot_flags INTERFACE)
target_link_libraries(jex_hot_flags INTERFACE jex_product_flags)
if(JEX_SANITIZE)
  target_compile_options(jex_product_flags INTERFACE -fsanitize=${JEX_SANITIZE})
  target_compile_options(jex_hot_flags INTERFACE -O1)
endif()
if(JEX_BUILD_FUZZERS)
  # Lets a fuzzer see which way its input took through the code.
  target_compile_options(jex_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()
