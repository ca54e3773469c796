# Included from Tests/CMakeLists.txt once tavo_test_program exists.
tavo_test_program(HarnessTests SOURCES ${CMAKE_CURRENT_LIST_DIR}/../HarnessTest.cpp)
