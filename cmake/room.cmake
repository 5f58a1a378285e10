# A room is one folder of the tree as a library of its own. Its headers are offered under the folder's path, and
# only to those who link the room: an include that the structure does not allow finds no file.
#
#   zunto_room(NAME FOLDER [SOURCES ...] [ROOMS ...] [LIBRARIES ...])
#     NAME       the target
#     FOLDER     the folder below the project, whose *.h become the public headers
#     SOURCES    without any, the room is headers only
#     ROOMS      rooms that its headers include; their users see them too
#     LIBRARIES  libraries that only its sources use
function(zunto_room name folder)
  cmake_parse_arguments(PARSE_ARGV 2 room "" "" "SOURCES;ROOMS;LIBRARIES")
  set(view "${PROJECT_BINARY_DIR}/rooms/${name}")
  file(GLOB headers CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${folder}/*.h")
  file(REMOVE_RECURSE "${view}")
  file(MAKE_DIRECTORY "${view}/${folder}")
  foreach(header IN LISTS headers)
    get_filename_component(file "${header}" NAME)
    file(CREATE_LINK "${header}" "${view}/${folder}/${file}" SYMBOLIC)
  endforeach()
  if(room_SOURCES)
    add_library(${name} STATIC ${room_SOURCES})
    target_include_directories(${name} PUBLIC "${view}")
    target_link_libraries(${name} PUBLIC ${room_ROOMS} PRIVATE ${room_LIBRARIES})
  else()
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE "${view}")
    target_link_libraries(${name} INTERFACE ${room_ROOMS})
  endif()
endfunction()
