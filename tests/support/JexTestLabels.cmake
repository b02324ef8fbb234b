# jex_label_tests(TARGET LABEL...): labels of all tests that gtest_discover_tests has found in
# TARGET; suites named *Slow are labelled slow as well. Tests whose names promise a long run start
# before others, so that none runs on alone at the end. A list of labels does not survive the way
# through gtest_discover_tests itself, so ctest sets them when it reads the tests.
function(jex_label_tests target)
  set(file ${CMAKE_CURRENT_BINARY_DIR}/${target}_labels.cmake)
  file(WRITE ${file} "foreach(test IN LISTS ${target}_TESTS)
  set(labels \"${ARGN}\")
  if(test MATCHES \"Slow\\\\.\")
    list(APPEND labels slow)
  endif()
  if(test MATCHES \"Slow\\\\.|AMillion|Race\\\\.|/real$\")
    set_tests_properties(\"\${test}\" PROPERTIES COST 50)
  endif()
  set_tests_properties(\"\${test}\" PROPERTIES LABELS \"\${labels}\")
endforeach()
")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${file})
endfunction()
