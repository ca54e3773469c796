# Microsoft C++ ABI, i686: clang 16 for i686-pc-windows-msvc with lld-link, against Wine's Windows and
# C run-time headers. There is no Microsoft run-time library here: Msvc/ supplies import libraries
# made from .def files and the few pieces the static run-time would bring (RuntimeShims.cpp).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR X86)

set(TAVO_LLVM_BIN /usr/lib/llvm-16/bin CACHE PATH "clang 16, lld-link and the llvm tools")
set(TAVO_WINE_INCLUDE /usr/include/wine/wine CACHE PATH "Wine's headers (libwine-dev)")

set(CMAKE_C_COMPILER   ${TAVO_LLVM_BIN}/clang)
set(CMAKE_CXX_COMPILER ${TAVO_LLVM_BIN}/clang++)
set(CMAKE_C_COMPILER_TARGET   i686-pc-windows-msvc)
set(CMAKE_CXX_COMPILER_TARGET i686-pc-windows-msvc)
set(CMAKE_RC_COMPILER  ${TAVO_LLVM_BIN}/llvm-rc)
set(CMAKE_AR           ${TAVO_LLVM_BIN}/llvm-ar CACHE FILEPATH "")
set(CMAKE_LINKER       ${TAVO_LLVM_BIN}/lld-link CACHE FILEPATH "")
set(CMAKE_MT           ${TAVO_LLVM_BIN}/llvm-mt CACHE FILEPATH "")
set(TAVO_DLLTOOL       ${TAVO_LLVM_BIN}/llvm-dlltool)

# No run-time library is picked by the compiler: every import is named by the project.
set(CMAKE_MSVC_RUNTIME_LIBRARY "")
set(CMAKE_C_STANDARD_LIBRARIES "" CACHE STRING "" FORCE)
set(CMAKE_CXX_STANDARD_LIBRARIES "" CACHE STRING "" FORCE)
# Nothing links before the project has made its import libraries.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

# Headers: clang's own (stdarg.h, intrinsics) first, then Wine's C run-time and Windows headers.
# On i386 Wine's headers define fallbacks for 64-bit interlocked functions under names that clang
# has as builtins; rename them out of the way.
set(_tavo_flags
  -fno-threadsafe-statics -fno-stack-protector
  -DWINE_UNICODE_NATIVE -nostdinc
  -isystem ${TAVO_LLVM_BIN}/../lib/clang/16/include
  -isystem ${TAVO_WINE_INCLUDE}/msvcrt -isystem ${TAVO_WINE_INCLUDE}/windows)
foreach(fn _InterlockedAnd64 _InterlockedCompareExchangePointer _InterlockedExchangeAdd64
           _InterlockedExchangePointer _InterlockedIncrement64 _InterlockedDecrement64
           _InterlockedOr64 _InterlockedXor64)
  list(APPEND _tavo_flags -D${fn}=__wine${fn})
endforeach()
list(JOIN _tavo_flags " " _tavo_flags)
set(CMAKE_C_FLAGS_INIT   "${_tavo_flags}")
set(CMAKE_CXX_FLAGS_INIT "${_tavo_flags} -fexceptions -fcxx-exceptions")
set(CMAKE_RC_FLAGS_INIT  "-I ${TAVO_WINE_INCLUDE}/msvcrt -I ${TAVO_WINE_INCLUDE}/windows")
unset(_tavo_flags)

# lld-link through the driver; no default libraries, no start-up objects.
set(CMAKE_EXE_LINKER_FLAGS_INIT    "-fuse-ld=lld-link -Qunused-arguments -nostdlib -Xlinker /nodefaultlib")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-fuse-ld=lld-link -Qunused-arguments -nostdlib -Xlinker /nodefaultlib")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

# Release is -O2, not the compiler module's -O3 (the flags a build type starts from).
set(CMAKE_USER_MAKE_RULES_OVERRIDE ${CMAKE_CURRENT_LIST_DIR}/TavoFlags.cmake)
