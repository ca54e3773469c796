# cmake --install: the library with the runtime DLLs it imports, the sink and the tool in bin/, the
# public headers in include/, the import library in lib/ and the CMake package beside it.
include(CMakePackageConfigHelpers)

set(TAVO_INSTALL_BINDIR bin)
set(TAVO_INSTALL_INCLUDEDIR include)
set(TAVO_INSTALL_LIBDIR lib)
set(TAVO_INSTALL_PACKAGEDIR lib/cmake/TavoCommon)

if(TARGET TavoCommon)
  install(TARGETS TavoCommon
          RUNTIME DESTINATION ${TAVO_INSTALL_BINDIR}
          ARCHIVE DESTINATION ${TAVO_INSTALL_LIBDIR})
  install(FILES ${TAVO_RUNTIME_DLLS} DESTINATION ${TAVO_INSTALL_BINDIR})
endif()
if(TARGET tavoinfo)
  install(TARGETS tavoinfo RUNTIME DESTINATION ${TAVO_INSTALL_BINDIR})
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/Include/ DESTINATION ${TAVO_INSTALL_INCLUDEDIR})

# The imported target is written by hand: the build's own target carries source-tree include paths
# and private link options that have no place in a package.
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/TavoCommonConfig.cmake.in
                              ${CMAKE_BINARY_DIR}/package/TavoCommonConfig.cmake
                              INSTALL_DESTINATION ${TAVO_INSTALL_PACKAGEDIR}
                              PATH_VARS TAVO_INSTALL_BINDIR TAVO_INSTALL_INCLUDEDIR TAVO_INSTALL_LIBDIR)
# Same major version; the version check also refuses a 64-bit consumer.
write_basic_package_version_file(${CMAKE_BINARY_DIR}/package/TavoCommonConfigVersion.cmake
                                 VERSION ${PROJECT_VERSION}
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/package/TavoCommonConfig.cmake
              ${CMAKE_BINARY_DIR}/package/TavoCommonConfigVersion.cmake
        DESTINATION ${TAVO_INSTALL_PACKAGEDIR})
