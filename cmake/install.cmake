# What `cmake --install` puts down, in components: library, development, command, python (the Debian packages of
# scripts/package) and documentation. Everything finds the rest from where it lies itself, so that the tree can be
# installed under any prefix and moved.
include(CMakePackageConfigHelpers)

set(NQ360_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/nq360)
set(NQ360_PRIVATE_LIBDIR ${CMAKE_INSTALL_LIBDIR}/nq360)

# ---- The library, and FFmpeg where it is not the system's ----

install(TARGETS nq360 EXPORT nq360Targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)

# A FFmpeg that scripts/deps built lies in one user's cache: the installed library needs a copy of its own. It is
# found by folder, not by name alone, so the system's FFmpeg does not stand in for it.
function(nq360_install_ffmpeg)
  file(GLOB libraries ${NQ360_FFMPEG_PREFIX}/lib/lib*.so.*)
  foreach(library ${libraries})
    get_filename_component(name ${library} NAME)
    if(name MATCHES "\\.so\\.[0-9]+$")
      get_filename_component(file ${library} REALPATH)
      install(FILES ${file} DESTINATION ${NQ360_PRIVATE_LIBDIR} RENAME ${name} COMPONENT library)
    endif()
  endforeach()

  file(STRINGS ${NQ360_FFMPEG_PREFIX}/include/libavutil/ffversion.h version REGEX "FFMPEG_VERSION \"")
  string(REGEX REPLACE ".*\"(.*)\".*" "\\1" NQ360_FFMPEG_VERSION "${version}")
  file(STRINGS ${NQ360_FFMPEG_PREFIX}/lib/libavutil.so options REGEX "^--prefix=[^ ]* --" LIMIT_COUNT 1)
  string(REGEX REPLACE "^--prefix=[^ ]* " "" NQ360_FFMPEG_OPTIONS "${options}")
  configure_file(cmake/ffmpeg-notice.txt.in ffmpeg/README.txt @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ffmpeg/README.txt docs/licenses/LGPL-2.1.txt
          DESTINATION ${CMAKE_INSTALL_DOCDIR}/ffmpeg COMPONENT documentation)
endfunction()

set(NQ360_LIBRARY_RPATH "")
if(NQ360_FFMPEG_PREFIX)
  nq360_install_ffmpeg()
  set(NQ360_LIBRARY_RPATH "$ORIGIN/nq360")
endif()
set_target_properties(nq360 PROPERTIES INSTALL_RPATH "${NQ360_LIBRARY_RPATH}")

# ---- What clients are built with ----

install(FILES include/nq360.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

file(RELATIVE_PATH NQ360_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" NQ360_PC_TO_PREFIX "${NQ360_PC_TO_PREFIX}")
configure_file(cmake/nq360.pc.in nq360.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/nq360.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)

configure_package_config_file(cmake/nq360Config.cmake.in nq360Config.cmake INSTALL_DESTINATION ${NQ360_CMAKE_DIR}
                              NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(nq360ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/nq360Config.cmake ${CMAKE_CURRENT_BINARY_DIR}/nq360ConfigVersion.cmake
        DESTINATION ${NQ360_CMAKE_DIR} COMPONENT development)
install(EXPORT nq360Targets NAMESPACE nq360:: DESTINATION ${NQ360_CMAKE_DIR} COMPONENT development)

# ---- The command ----

# The system's own folders need no mention.
file(RELATIVE_PATH NQ360_BIN_TO_LIB /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
set(NQ360_COMMAND_RPATH "")
if(NOT CMAKE_INSTALL_FULL_LIBDIR IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES)
  list(APPEND NQ360_COMMAND_RPATH "$ORIGIN/${NQ360_BIN_TO_LIB}")
endif()
set_target_properties(nq360-cli PROPERTIES INSTALL_RPATH "${NQ360_COMMAND_RPATH}")

install(FILES docs/nq360.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT command OPTIONAL)
install(FILES cli/completions/nq360.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        RENAME nq360 COMPONENT command OPTIONAL)
install(FILES cli/completions/_nq360 DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions
        COMPONENT command OPTIONAL)
install(FILES cli/completions/nq360.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d
        COMPONENT command OPTIONAL)

# ---- The Python package ----

if(NQ360_PYTHON)
  # From lib/PYTHON/site-packages/nq360. The loader finds by its name what lies in a folder of the system.
  set(NQ360_PYTHON_LIBRARY ../../../../${CMAKE_INSTALL_LIBDIR}/libnq360.so.${PROJECT_VERSION_MAJOR})
  if(CMAKE_INSTALL_FULL_LIBDIR IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES)
    set(NQ360_PYTHON_LIBRARY libnq360.so.${PROJECT_VERSION_MAJOR})
  endif()
  configure_file(python/nq360/_build.py.in python-installed/_build.py @ONLY)
  configure_file(cmake/python-package.txt.in python-installed/METADATA @ONLY)
  configure_file(cmake/install-python.cmake.in install-python.cmake @ONLY)
  install(SCRIPT ${CMAKE_CURRENT_BINARY_DIR}/install-python.cmake COMPONENT python)
endif()
