# Read by CMake between the compiler's defaults and the cache entries made from them (both toolchain
# files name it): the optimised build is -O2.
foreach(lang C CXX)
  string(REPLACE "-O3" "-O2" CMAKE_${lang}_FLAGS_RELEASE_INIT "${CMAKE_${lang}_FLAGS_RELEASE_INIT}")
endforeach()
