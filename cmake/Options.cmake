# What every target of this project is built with.

option(CLISESSION_TESTS "Build the tests" ON)
option(CLISESSION_BENCH "Build the benchmarks" ON)
option(CLISESSION_FUZZ "Build the fuzz targets as libFuzzer programs, which takes clang" OFF)
set(CLISESSION_SANITIZE "" CACHE STRING "Sanitizers to build with, as in -fsanitize=, e.g. address,undefined")

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -g1")

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
if(CLISESSION_SANITIZE)
  add_compile_options(-fsanitize=${CLISESSION_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${CLISESSION_SANITIZE})
endif()
