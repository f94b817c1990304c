# The language, the warnings and the sanitizers of the whole tree.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

add_compile_options(
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wswitch-enum -Wold-style-cast -Werror)

# A program holds only what it uses of the rooms that it stands on.
add_compile_options(-ffunction-sections -fdata-sections)
add_link_options(-Wl,--gc-sections)

# The released daemon is optimised as a whole.
set(ZONDAR_WHOLE_PROGRAM $<$<CONFIG:MinSizeRel>:-flto=auto>)

# Tables are full of pointers; packed, the 24 bytes that relocate each become one bit.
include(CheckLinkerFlag)
check_linker_flag(CXX -Wl,-z,pack-relative-relocs ZONDAR_PACKS_RELOCATIONS)
if(ZONDAR_PACKS_RELOCATIONS)
  add_link_options(-Wl,-z,pack-relative-relocs)
endif()

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
