# What `cmake --install` lays down, the package that find_package(JexHybridSlice) finds, and the .deb.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/JexHybridSlice)
set(share_dir ${CMAKE_INSTALL_DATADIR}/jexhybridslice)

# Everything finds its libraries relative to itself, so that a prefix can be moved.
file(RELATIVE_PATH bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
foreach(program slice-agent partner-shell switchctl)
  if(TARGET ${program})
    set_target_properties(${program} PROPERTIES INSTALL_RPATH "$ORIGIN/${bin_to_lib}")
  endif()
endforeach()
set_target_properties(JexPartnerAgentLib PROPERTIES INSTALL_RPATH "$ORIGIN")
if(TARGET driver)
  set_target_properties(driver PROPERTIES EXPORT_NAME sdk)
endif()

install(TARGETS JexPartnerAgentLib EXPORT JexHybridSliceTargets)
install(FILES JexHybridSlice/JexPartnerLib.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/JexHybridSlice)
install(DIRECTORY programs DESTINATION ${share_dir} FILES_MATCHING PATTERN "*.json")
install(FILES docs/program.schema.json DESTINATION ${share_dir}/docs OPTIONAL)
install(FILES LICENSE README.md CHANGELOG.md
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/jexhybridslice)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/jexhybridslice)
install(DIRECTORY packaging/man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
        FILES_MATCHING PATTERN "*.1")

install(EXPORT JexHybridSliceTargets NAMESPACE jex:: DESTINATION ${package_dir})
configure_package_config_file(cmake/JexHybridSliceConfig.cmake.in
  ${PROJECT_BINARY_DIR}/JexHybridSliceConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/JexHybridSliceConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/JexHybridSliceConfig.cmake
              ${PROJECT_BINARY_DIR}/JexHybridSliceConfigVersion.cmake
        DESTINATION ${package_dir})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME jexhybridslice)
set(CPACK_PACKAGE_CONTACT "JexHybridSlice developers <jexhybridslice@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The programs' libraries lie in the package itself.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
include(CPack)
