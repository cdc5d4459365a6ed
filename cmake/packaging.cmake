# Debian packages, one for each component; scripts/make-packages sets what differs between architectures.
set(data ${PROJECT_SOURCE_DIR}/packaging/debian)
set(KORVANE_library_PACKAGE libkorvanevad-v3.0)
set(KORVANE_streams_PACKAGE libkorvane-streams1)
set(KORVANE_development_PACKAGE libkorvanevad-dev)
set(KORVANE_tool_PACKAGE korvane-vad)
set(KORVANE_ladspa_PACKAGE ladspa-korvane)
set(KORVANE_gstreamer_PACKAGE gstreamer1.0-korvane)
set(KORVANE_python_PACKAGE python3-korvane-vad)

set(CPACK_DEBIAN_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_RELEASE ${KORVANE_PACKAGE_REVISION})
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME korvane-vad)
set(CPACK_PACKAGE_CONTACT "Korvane VAD maintainers <maintainers@korvane-vad.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${data}/finish.cmake)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library streams development tool ladspa gstreamer python)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(about "A streaming voice-activity detector for 16-bit PCM, with a noise suppressor in
front. Fixed point: the same input gives the same bits on every machine.")

# CPack has no setting for Multi-Arch; the field rides on the one before it.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION "libs\nMulti-Arch: same")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "voice-activity detector for 16-bit PCM (shared library)
${about}
.
This package holds the shared library.")

set(CPACK_DEBIAN_STREAMS_PACKAGE_SECTION "libs\nMulti-Arch: same")
set(CPACK_DEBIAN_STREAMS_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_STREAMS_DESCRIPTION "voice-activity detectors for 16-bit PCM, many in a process (shared library)
${about}
.
This package holds the shared library for any number of streams.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION "libdevel\nMulti-Arch: same")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${KORVANE_library_PACKAGE} (= ${PROJECT_VERSION}-${KORVANE_PACKAGE_REVISION}), \
${KORVANE_streams_PACKAGE} (= ${PROJECT_VERSION}-${KORVANE_PACKAGE_REVISION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "voice-activity detector for 16-bit PCM (development files)
${about}
.
This package holds the headers of both libraries, their files for CMake and
pkg-config, and the one for many streams as a static library.")

# What the tool takes from our own library is found in the build; the package it is in is named here.
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_TOOL_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${KORVANE_library_PACKAGE} (>= 3.0)")
set(CPACK_COMPONENT_TOOL_DESCRIPTION "finds the speech in recordings
Prints the segments of recordings and live streams in which somebody speaks,
cuts them out, suppresses the noise, or shows it all on a page. Reads what
libsndfile reads.")

foreach(host LADSPA GSTREAMER)
  set(CPACK_DEBIAN_${host}_PACKAGE_SECTION sound)
  set(CPACK_DEBIAN_${host}_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_${host}_PACKAGE_DEPENDS "${KORVANE_streams_PACKAGE} (>= ${PROJECT_VERSION})")
endforeach()
set(CPACK_DEBIAN_LADSPA_PACKAGE_PROVIDES ladspa-plugin)
set(CPACK_COMPONENT_LADSPA_DESCRIPTION "noise suppressor and voice-activity detector (LADSPA plugins)
Takes steady noise out of speech and tells whether somebody speaks, in ffmpeg,
SoX, PipeWire and all that loads LADSPA plugins. Mono and stereo.")
set(CPACK_DEBIAN_GSTREAMER_PACKAGE_SECTION "sound\nMulti-Arch: same")
set(CPACK_COMPONENT_GSTREAMER_DESCRIPTION "noise suppressor and voice-activity detector (GStreamer element)
The element korvanevad: takes steady noise out of speech, tells the application
where speech begins and ends, and can mute or leave out the rest.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.9), python3-numpy")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${data}/python/postinst ${data}/python/prerm)
set(CPACK_COMPONENT_PYTHON_DESCRIPTION "finds speech in arrays and live chunks (Python 3)
Finds where somebody speaks in NumPy arrays, bytes and live chunks, and takes
the steady noise out. The library comes with it; the interpreter's lock is free
while it works.")

# dpkg-shlibdeps cannot tell name and version of a library apart whose SONAME ends in .so, so there is a
# list of its symbols instead of a shlibs file. They are the same in all of 3.0.
list(TRANSFORM KORVANE_EXPORTS REPLACE "(.+)" " \\1@Base 3.0" OUTPUT_VARIABLE symbols)
list(JOIN symbols "\n" symbols)
file(WRITE ${PROJECT_BINARY_DIR}/debian/symbols
  "libKorvaneVAD_v3.0.so ${KORVANE_library_PACKAGE} #MINVER#
* Build-Depends-Package: ${KORVANE_development_PACKAGE}
${symbols}
")
file(WRITE ${PROJECT_BINARY_DIR}/debian/shlibs
  "libkorvane-streams 1 ${KORVANE_streams_PACKAGE} (>= ${PROJECT_VERSION})\n")
file(WRITE ${PROJECT_BINARY_DIR}/debian/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA
  ${PROJECT_BINARY_DIR}/debian/symbols ${PROJECT_BINARY_DIR}/debian/triggers)
set(CPACK_DEBIAN_STREAMS_PACKAGE_CONTROL_EXTRA
  ${PROJECT_BINARY_DIR}/debian/shlibs ${PROJECT_BINARY_DIR}/debian/triggers)

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  set(package ${KORVANE_${component}_PACKAGE})
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SOURCE korvane-vad)
  install(FILES ${data}/copyright DESTINATION share/doc/${package} COMPONENT ${component})
  install(FILES ${data}/changelog RENAME changelog.Debian
    DESTINATION share/doc/${package} COMPONENT ${component})
endforeach()
include(CPack)
