# jex::sdk, the switch SDK below JEX_SDK_ROOT: headers in include/jxsdk, library lib/libdriver.so.
find_path(JEX_SDK_INCLUDE_DIR jxsdk/rt.hpp PATHS ${JEX_SDK_ROOT}/include NO_DEFAULT_PATH REQUIRED)
find_library(JEX_SDK_LIBRARY driver PATHS ${JEX_SDK_ROOT}/lib ${JEX_SDK_ROOT}/${CMAKE_INSTALL_LIBDIR}
             NO_DEFAULT_PATH REQUIRED)
add_library(jex::sdk SHARED IMPORTED GLOBAL)
set_target_properties(jex::sdk PROPERTIES IMPORTED_LOCATION ${JEX_SDK_LIBRARY}
                      INTERFACE_INCLUDE_DIRECTORIES ${JEX_SDK_INCLUDE_DIR})
