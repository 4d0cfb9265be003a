# Flags of every target of this project, and the options that change them.

option(DLB_WERROR "Warnings stop the build" OFF)
option(DLB_CHECK_INVARIANTS "Check the invariants of nodes and tables at every transition" OFF)
option(DLB_CCACHE "Compile through ccache when it is installed" ON)
option(DLB_FUZZ "Build the fuzz targets as fuzzers; needs clang" OFF)
set(DLB_SANITIZE "" CACHE STRING "Sanitizers, as -fsanitize= takes them; empty for none")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_COMPILE_WARNING_AS_ERROR ${DLB_WERROR})

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Build type" FORCE)
endif()

# Assertions and source locations name files as the repository does, whatever the build folder. The
# map of an include root must come after that of the folder that holds it: the last match wins.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow
  "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=")

if(DLB_CHECK_INVARIANTS)
  add_compile_definitions(DLB_CHECK_INVARIANTS=1)
endif()

if(DLB_SANITIZE)
  add_compile_options(-fsanitize=${DLB_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${DLB_SANITIZE})
endif()

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options(-fsized-deallocation)  # part of C++ since 2014; versions before 19 have to be told
endif()

if(DLB_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "DLB_FUZZ needs clang, and CMAKE_CXX_COMPILER is ${CMAKE_CXX_COMPILER}; "
      "configure with the preset \"fuzz\", or with -DCMAKE_CXX_COMPILER=clang++")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

find_program(DLB_CCACHE_PROGRAM ccache)
if(DLB_CCACHE AND DLB_CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${DLB_CCACHE_PROGRAM}")
endif()
