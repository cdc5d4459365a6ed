# What `cmake --install` puts where. Components: library, streams, development, tool, ladspa, gstreamer.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(KORVANE_ZSH_COMPLETIONS ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING
  "Where the completions for zsh go")

install(TARGETS korvane_vad EXPORT KorvaneVAD
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
set(pkg_config_files korvane-vad)
if(TARGET korvane_streams)
  list(APPEND pkg_config_files korvane-streams)
  get_target_property(KORVANE_STREAMS_VERSION korvane_streams VERSION)
  install(TARGETS korvane_streams korvane_streams_static EXPORT KorvaneVAD
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT streams NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
endif()

# The library's name holds its version, so another minor version is another library.
set(KORVANE_CMAKE_FOLDER ${CMAKE_INSTALL_LIBDIR}/cmake/KorvaneVAD)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/KorvaneVADConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(EXPORT KorvaneVAD FILE KorvaneVADConfig.cmake NAMESPACE KorvaneVAD::
  DESTINATION ${KORVANE_CMAKE_FOLDER} COMPONENT development)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/KorvaneVADConfigVersion.cmake
  DESTINATION ${KORVANE_CMAKE_FOLDER} COMPONENT development)

# In the system's folders the tools look by themselves and paths are absolute. Any other prefix can be moved
# as a whole.
set(in_system FALSE)
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(in_system TRUE)
endif()
set(KORVANE_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
if(NOT in_system)
  file(RELATIVE_PATH to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  string(REGEX REPLACE "/$" "" to_prefix "${to_prefix}")
  set(KORVANE_PC_PREFIX "\${pcfiledir}/${to_prefix}")
endif()
file(RELATIVE_PATH KORVANE_PC_LIBDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH KORVANE_PC_INCLUDEDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
foreach(name IN LISTS pkg_config_files)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${name}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()

if(KORVANE_BUILD_TOOLS)
  if(NOT in_system)
    file(RELATIVE_PATH from_tool_to_library ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    set_target_properties(korvane-vad PROPERTIES INSTALL_RPATH "$ORIGIN/${from_tool_to_library}")
  endif()
  install(TARGETS korvane-vad RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
  get_property(texts DIRECTORY PROPERTY KORVANE_TEXTS)
  install(FILES ${texts}/korvane-vad.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
  install(FILES ${texts}/korvane-vad.bash RENAME korvane-vad
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tool)
  install(FILES ${texts}/_korvane-vad DESTINATION ${KORVANE_ZSH_COMPLETIONS} COMPONENT tool)
  install(FILES ${texts}/korvane-vad.fish
    DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT tool)
endif()

# Where hosts look for plugins: below lib on every machine for LADSPA, beside the libraries for GStreamer.
set(ladspa_folder lib/ladspa)
set(gstreamer_folder ${CMAKE_INSTALL_LIBDIR}/gstreamer-1.0)
foreach(host ladspa gstreamer)
  if(TARGET korvane_${host})
    if(NOT in_system)
      file(RELATIVE_PATH to_library ${CMAKE_INSTALL_PREFIX}/${${host}_folder} ${CMAKE_INSTALL_FULL_LIBDIR})
      set_target_properties(korvane_${host} PROPERTIES INSTALL_RPATH "$ORIGIN/${to_library}")
    endif()
    install(TARGETS korvane_${host} LIBRARY DESTINATION ${${host}_folder} COMPONENT ${host})
  endif()
endforeach()

# Elsewhere pip installs the package: scripts/make-python.
if(TARGET korvane_python AND KORVANE_PACKAGING)
  set(folder lib/python3/dist-packages/korvane_vad)
  install(TARGETS korvane_python LIBRARY DESTINATION ${folder} COMPONENT python)
  install(DIRECTORY $<TARGET_FILE_DIR:korvane_python>/ DESTINATION ${folder} COMPONENT python
    FILES_MATCHING PATTERN *.py PATTERN py.typed)
endif()

if(KORVANE_PACKAGING)
  include(cmake/packaging.cmake)
endif()
