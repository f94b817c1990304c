# room(NAME SOURCES file... [LINKS target...]): the library of one folder, with the short list of
# what it stands on. Includes are written from the root of the tree: "link/mensaje.h".
function(room name)
  cmake_parse_arguments(ROOM "" "" "SOURCES;LINKS" ${ARGN})
  add_library(${name} STATIC ${ROOM_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${ROOM_LINKS})
  target_compile_options(${name} PRIVATE ${ZONDAR_WHOLE_PROGRAM} $<$<CONFIG:MinSizeRel>:-ffat-lto-objects>)
endfunction()
