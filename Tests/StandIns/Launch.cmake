# The launcher's stand-in child, and MetroToast.exe beside the tests so that a scratch install can
# hold the real tool.
add_executable(ExitAfter ExitAfter.cpp)
tavo_warnings(ExitAfter)
target_link_options(ExitAfter PRIVATE -static)
add_custom_command(OUTPUT ${TAVO_TESTS_DIR}/MetroToast.exe
                   COMMAND ${CMAKE_COMMAND} -E copy_if_different $<TARGET_FILE:MetroToast> ${TAVO_TESTS_DIR}/MetroToast.exe
                   DEPENDS MetroToast VERBATIM)
add_custom_target(MetroToastForTests DEPENDS ${TAVO_TESTS_DIR}/MetroToast.exe)
add_dependencies(TavoStandIns ExitAfter MetroToastForTests)
