# Installs the switch SDK alone, builds the library against that, and a consumer against both.
include(${CMAKE_CURRENT_LIST_DIR}/run.cmake)
file(REMOVE_RECURSE ${SCRATCH_DIR})

file(INSTALL ${SOURCE_DIR}/sdk/include/jxsdk DESTINATION ${SCRATCH_DIR}/sdk/include)
file(GLOB libraries ${BUILD_DIR}/lib/libdriver.so*)
file(INSTALL ${libraries} DESTINATION ${SCRATCH_DIR}/sdk/lib)

run("configuring the library" ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${SCRATCH_DIR}/library
    -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER}
    -DJEX_SDK_ROOT=${SCRATCH_DIR}/sdk -DJEX_WERROR=ON
    -DCMAKE_INSTALL_PREFIX=${SCRATCH_DIR}/prefix)
run("building the library" ${CMAKE_COMMAND} --build ${SCRATCH_DIR}/library)
run("installing the library" ${CMAKE_COMMAND} --install ${SCRATCH_DIR}/library)
if(EXISTS ${SCRATCH_DIR}/prefix/include/jxsdk)
  message(FATAL_ERROR "an SDK was installed, although one from elsewhere was taken")
endif()

run("configuring the consumer" ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${SCRATCH_DIR}/build
    -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${SCRATCH_DIR}/prefix)
run("building the consumer" ${CMAKE_COMMAND} --build ${SCRATCH_DIR}/build)
run("the consumer" ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${SCRATCH_DIR}/sdk/lib
    ${SCRATCH_DIR}/build/consumer ${SOURCE_DIR}/programs/router.json)
