# MinGW-w64 i686 cross toolchain, the -posix thread model (GoogleTest needs std::mutex).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR i686)

set(TAVO_MINGW_PREFIX i686-w64-mingw32)
set(CMAKE_C_COMPILER   ${TAVO_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${TAVO_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER  ${TAVO_MINGW_PREFIX}-windres)
set(CMAKE_AR           ${TAVO_MINGW_PREFIX}-ar CACHE FILEPATH "")
set(CMAKE_RANLIB       ${TAVO_MINGW_PREFIX}-ranlib CACHE FILEPATH "")

set(CMAKE_FIND_ROOT_PATH /usr/${TAVO_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# A consumer's find_package(TavoCommon) searches its CMAKE_PREFIX_PATH outside the root too.
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# Release is -O2, not the compiler module's -O3 (the flags a build type starts from).
set(CMAKE_USER_MAKE_RULES_OVERRIDE ${CMAKE_CURRENT_LIST_DIR}/TavoFlags.cmake)
