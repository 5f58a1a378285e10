# Runs at the installation, when the prefix is known: fills in what names the program's place, and links the tools.
#   part             desktop or resources
#   applicationId    the name that the files carry
#   templates        the folder of the files to fill in
#   binFolder, dataFolder  below the prefix
set(staged "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}")

if(part STREQUAL "desktop")
  set(PROGRAM "${CMAKE_INSTALL_PREFIX}/${binFolder}/zunto-helper")
  # Both files would need quotes, each its own, and not every reader of them knows any.
  if(NOT PROGRAM MATCHES "^[A-Za-z0-9/._+@-]+$")
    message(FATAL_ERROR "${PROGRAM} cannot stand in a desktop entry: choose a prefix of plain letters")
  endif()
  foreach(file IN ITEMS "applications/${applicationId}.desktop" "dbus-1/services/${applicationId}.service")
    cmake_path(GET file EXTENSION LAST_ONLY kind)
    message(STATUS "Installing: ${staged}/${dataFolder}/${file}")
    configure_file("${templates}/helper${kind}.in" "${staged}/${dataFolder}/${file}" @ONLY)
  endforeach()
  return()
endif()

# Of a system's package the tools are other packages', whatever the machine that makes it has. Elsewhere it is a
# program of this machine, and its tools are those that its owner calls by name.
set(tools "${dataFolder}/zunto-helper/runtime/bin")
file(MAKE_DIRECTORY "${staged}/${tools}")
foreach(tool IN ITEMS node yt-dlp ffmpeg ffprobe)
  if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY "/usr/${tools}" OUTPUT_VARIABLE up)
    cmake_path(SET target NORMALIZE "${up}/bin/${tool}")
  else()
    find_program(target ${tool} NO_CACHE REQUIRED)
  endif()
  message(STATUS "Installing: ${staged}/${tools}/${tool} -> ${target}")
  file(CREATE_LINK "${target}" "${staged}/${tools}/${tool}" SYMBOLIC)
  unset(target)
endforeach()
