# Build rules shared by every target of the project.

# The project's own code builds warning-free.
function(tavo_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
endfunction()

# One C++ runtime for the library and every caller: a shared libgcc so that an exception thrown in
# the DLL unwinds into the caller's catch (each static libgcc has its own unwinder), a static
# libstdc++ so that nothing else needs to ship.
function(tavo_shared_unwinder target)
  target_link_options(${target} PRIVATE -shared-libgcc -static-libstdc++)
endfunction()

# Crash dumps need symbols, the shipped DLL does not: TARGET is compiled with debug information,
# which after the link moves to TARGET_FILE.debug beside it, tied to the stripped DLL by
# .gnu_debuglink (where gdb and other debuggers look for it). The code is the same with or without
# -g, so the tests run the very bytes that ship.
function(tavo_split_debug_info target)
  target_compile_options(${target} PRIVATE -g)
  add_custom_command(TARGET ${target} POST_BUILD
                     COMMAND ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE:${target}> $<TARGET_FILE:${target}>.debug
                     COMMAND ${CMAKE_OBJCOPY} --strip-all --add-gnu-debuglink=$<TARGET_FILE_NAME:${target}>.debug
                             $<TARGET_FILE:${target}>
                     WORKING_DIRECTORY $<TARGET_FILE_DIR:${target}>
                     VERBATIM)
endfunction()

# Modules that no exception crosses carry their whole runtime inside.
function(tavo_static_runtime target)
  target_link_options(${target} PRIVATE -static-libgcc -static-libstdc++ -static)
endfunction()

# A build of CorvDebug.dll, the sink the library loads by name: the real one or a test build. The
# platform run-time's printf dialect (%ls is a wide string), not MinGW's emulation of C99.
function(tavo_sink_settings target)
  set_target_properties(${target} PROPERTIES PREFIX "")
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/Include)
  target_compile_definitions(${target} PRIVATE CORVDEBUG_BUILDING __USE_MINGW_ANSI_STDIO=0
                                               WIN32_LEAN_AND_MEAN)
  # Exports are the marked entries only, whatever the static run-time brings along.
  target_link_options(${target} PRIVATE -Wl,--exclude-all-symbols)
  tavo_warnings(${target})
endfunction()

# The two runtime DLLs that TavoCommon.dll and its callers import.
set(TAVO_RUNTIME_DLLS "")
foreach(dll libgcc_s_dw2-1.dll libwinpthread-1.dll)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${dll}
                  OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT EXISTS "${path}")
    message(FATAL_ERROR "${CMAKE_CXX_COMPILER} does not know ${dll}")
  endif()
  get_filename_component(path "${path}" REALPATH)
  list(APPEND TAVO_RUNTIME_DLLS "${path}")
endforeach()
set(TAVO_RUNTIME_DLLS "${TAVO_RUNTIME_DLLS}" CACHE INTERNAL "")

# Copies the runtime DLLs beside the programs built into DIR, before TARGET links.
function(tavo_runtime_beside target dir)
  set(stamps "")
  foreach(dll ${TAVO_RUNTIME_DLLS})
    get_filename_component(name "${dll}" NAME)
    add_custom_command(OUTPUT ${dir}/${name}
                       COMMAND ${CMAKE_COMMAND} -E make_directory ${dir}
                       COMMAND ${CMAKE_COMMAND} -E copy_if_different ${dll} ${dir}/${name}
                       DEPENDS ${dll} VERBATIM)
    list(APPEND stamps ${dir}/${name})
  endforeach()
  string(MAKE_C_IDENTIFIER "runtime_${dir}" runtime_target)
  if(NOT TARGET ${runtime_target})
    add_custom_target(${runtime_target} DEPENDS ${stamps})
  endif()
  add_dependencies(${target} ${runtime_target})
endfunction()

# Registers a test program once per kind of Windows: 64-bit (the library under WOW64) and 32-bit.
# tavo_add_wine_test(NAME name TARGET target [ARGS ...])
# A hang fails fast: a program that takes a few seconds natively and under half a minute where 32-bit
# code is emulated is stopped after one.
function(tavo_add_wine_test)
  cmake_parse_arguments(T "" "NAME;TARGET" "ARGS" ${ARGN})
  foreach(kind win64 win32)
    add_test(NAME ${T_NAME}.${kind}
             COMMAND ${PROJECT_SOURCE_DIR}/cmake/wine-run.sh ${kind} $<TARGET_FILE:${T_TARGET}> ${T_ARGS}
             WORKING_DIRECTORY $<TARGET_FILE_DIR:${T_TARGET}>)
    set_tests_properties(${T_NAME}.${kind} PROPERTIES
                         ENVIRONMENT "TAVO_WINE_ROOT=${CMAKE_BINARY_DIR}/wine"
                         LABELS ${kind}
                         TIMEOUT 60)
  endforeach()
endfunction()
