# cmake --install: the library with the run-time DLLs it imports and its symbols in bin/ (with the
# sink and the tool in the MinGW build), the public headers in include/, the import library in lib/
# and the CMake package beside it. Both builds include this file; TAVO_ROOT is the source tree.
include(CMakePackageConfigHelpers)

set(TAVO_INSTALL_BINDIR bin)
set(TAVO_INSTALL_INCLUDEDIR include)
set(TAVO_INSTALL_LIBDIR lib)
set(TAVO_INSTALL_PACKAGEDIR lib/cmake/TavoCommon)

install(TARGETS TavoCommon
        RUNTIME DESTINATION ${TAVO_INSTALL_BINDIR}
        ARCHIVE DESTINATION ${TAVO_INSTALL_LIBDIR})
install(DIRECTORY ${TAVO_ROOT}/Include/ DESTINATION ${TAVO_INSTALL_INCLUDEDIR})
if(CMAKE_CXX_SIMULATE_ID STREQUAL "MSVC")
  set(TAVO_PACKAGE_ABI msvc)
  set(TAVO_PACKAGE_IMPLIB TavoCommon.lib)
  set(TAVO_PACKAGE_LINK_OPTIONS "")
  install(FILES $<TARGET_FILE_DIR:TavoCommon>/TavoCommon.pdb DESTINATION ${TAVO_INSTALL_BINDIR})
else()
  set(TAVO_PACKAGE_ABI mingw)
  set(TAVO_PACKAGE_IMPLIB libTavoCommon.dll.a)
  set(TAVO_PACKAGE_LINK_OPTIONS "-shared-libgcc;-static-libstdc++")
  install(FILES $<TARGET_FILE:TavoCommon>.debug ${TAVO_RUNTIME_DLLS} DESTINATION ${TAVO_INSTALL_BINDIR})
  install(TARGETS tavoinfo RUNTIME DESTINATION ${TAVO_INSTALL_BINDIR})
endif()

# The imported target is written by hand: the build's own target carries source-tree include paths
# and private link options that have no place in a package.
configure_package_config_file(${TAVO_ROOT}/cmake/TavoCommonConfig.cmake.in
                              ${CMAKE_BINARY_DIR}/package/TavoCommonConfig.cmake
                              INSTALL_DESTINATION ${TAVO_INSTALL_PACKAGEDIR}
                              PATH_VARS TAVO_INSTALL_BINDIR TAVO_INSTALL_INCLUDEDIR TAVO_INSTALL_LIBDIR)
configure_file(${TAVO_ROOT}/cmake/TavoCommonConfigVersion.cmake.in
               ${CMAKE_BINARY_DIR}/package/TavoCommonConfigVersion.cmake @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/package/TavoCommonConfig.cmake
              ${CMAKE_BINARY_DIR}/package/TavoCommonConfigVersion.cmake
        DESTINATION ${TAVO_INSTALL_PACKAGEDIR})
