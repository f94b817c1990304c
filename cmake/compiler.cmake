# The language, the warnings and the sanitizers of the whole tree.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

add_compile_options(
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wswitch-enum -Wold-style-cast)
set(CMAKE_COMPILE_WARNING_AS_ERROR ON CACHE BOOL "Off for compilers that warn of more than ours")

# gcc notes where its ABI for ARM changed with version 7. All that this tree calls in C++ is newer.
add_compile_options(-Wno-psabi)

# A program holds only what it uses of the rooms that it stands on.
add_compile_options(-ffunction-sections -fdata-sections)
add_link_options(-Wl,--gc-sections)

# What is released does not tell where it was built.
add_compile_options($<$<CONFIG:MinSizeRel>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=>)

# The released daemon is optimised as a whole.
set(ZONDAR_WHOLE_PROGRAM $<$<CONFIG:MinSizeRel>:-flto=auto>)

# Tables are full of pointers; packed, the 24 bytes that relocate each become one bit. The C library
# that starts the program must know them, too.
include(CMakePushCheckState)
include(CheckCXXSourceCompiles)
cmake_push_check_state()
set(CMAKE_REQUIRED_LINK_OPTIONS -Wl,-z,pack-relative-relocs)
check_cxx_source_compiles("
  #include <features.h>
  #if !__GLIBC_PREREQ(2, 36)
  #error
  #endif
  int main() {}" ZONDAR_PACKS_RELOCATIONS FAIL_REGEX ignored)
cmake_pop_check_state()
if(ZONDAR_PACKS_RELOCATIONS)
  add_link_options(-Wl,-z,pack-relative-relocs)
endif()

# Seconds take 8 bytes, so that time goes on after 2038.
check_cxx_source_compiles("
  #include <ctime>
  static_assert(sizeof(std::time_t) == 8);
  int main() {}" ZONDAR_LIBRARIES_HAVE_LONG_TIME)
if(NOT ZONDAR_LIBRARIES_HAVE_LONG_TIME)
  add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()

# shares_time_with_libraries(SOURCE...): these exchange times with a library other than the C
# library, which has them as the system has.
function(shares_time_with_libraries)
  if(NOT ZONDAR_LIBRARIES_HAVE_LONG_TIME)
    set_source_files_properties(${ARGN} PROPERTIES
      COMPILE_OPTIONS -U_TIME_BITS SKIP_PRECOMPILE_HEADERS ON)
  endif()
endfunction()

set(ZONDAR_SANITIZE "" CACHE STRING "Sanitizers, as -fsanitize takes them")
if(ZONDAR_SANITIZE)
  add_compile_options(-fsanitize=${ZONDAR_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ZONDAR_SANITIZE})
endif()

option(ZONDAR_COVERAGE "Count what is executed" OFF)
if(ZONDAR_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()
