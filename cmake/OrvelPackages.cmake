# Debian packages and a relocatable archive, by cpack: `make packages`. They are made from the preset
# package, which holds permissively licensed parts only: MKL is not free, so no package may contain it.
#
# A component is a package:
#   orvel_debian_package(orvel-NAME SECTION DEPENDS SUMMARY DESCRIPTION)
# for the rules install(... COMPONENT orvel-NAME), which come before this file.
set(ORVEL_MAINTAINER "The ORVEL authors <orvel@lists.invalid>" CACHE STRING "Maintainer named in Debian packages")

# Between releases the packages sort behind the last one, so that symbols added since can name them.
file(STRINGS CHANGELOG.md _headings REGEX "^(## |- )")
list(FIND _headings "## [Unreleased]" _at)
math(EXPR _at "${_at} + 1")
list(GET _headings ${_at} _next)
set(ORVEL_DEBIAN_VERSION "${PROJECT_VERSION}")
if(_next MATCHES "^- ")
  string(APPEND ORVEL_DEBIAN_VERSION "+next")
endif()

function(orvel_debian_package name section depends summary description)
  string(TOUPPER "${name}" _id)
  set_property(GLOBAL APPEND PROPERTY ORVEL_DEBIAN_PACKAGES "${name}")
  set_property(GLOBAL APPEND_STRING PROPERTY ORVEL_DEBIAN_SETTINGS
"set(CPACK_DEBIAN_${_id}_PACKAGE_NAME \"${name}\")
set(CPACK_DEBIAN_${_id}_PACKAGE_SECTION \"${section}\")
set(CPACK_DEBIAN_${_id}_PACKAGE_DEPENDS \"${depends}\")
set(CPACK_COMPONENT_${_id}_DESCRIPTION \"${summary}\n${description}\")
")
endfunction()

orvel_debian_package(liborvel1 libs "" "noise removal and voice activity for live speech, library"
"ORVEL removes ambient noise from live mono speech and scores voice activity.
The host passes one frame of audio per call; the library runs on one core and
allocates nothing while it processes.
.
This package contains the shared library.")
orvel_debian_package(liborvel-dev libdevel "liborvel1 (= ${ORVEL_DEBIAN_VERSION}), orvel-models (= ${ORVEL_DEBIAN_VERSION})"
"noise removal and voice activity for live speech, headers"
"ORVEL removes ambient noise from live mono speech and scores voice activity.
.
This package contains the C and C++ headers, a pkg-config file and a CMake
package.")
orvel_debian_package(orvel sound "liborvel1 (= ${ORVEL_DEBIAN_VERSION}), orvel-models (= ${ORVEL_DEBIAN_VERSION})"
"noise removal and voice activity for speech, command"
"ORVEL removes ambient noise from speech and detects voice activity.
.
This package contains the command, which works on sound files of any rate and
on pipes.")
orvel_debian_package(orvel-models sound "" "noise removal and voice activity for live speech, models"
"ORVEL removes ambient noise from live mono speech and scores voice activity.
.
This package contains the trained models, for 8, 16 and 32 kHz, each with a
card that names the data it was trained on.")
set(CPACK_DEBIAN_ORVEL-MODELS_PACKAGE_ARCHITECTURE all)
if(ORVEL_PLUGINS)
  orvel_debian_package(orvel-ladspa sound "orvel-models (= ${ORVEL_DEBIAN_VERSION})" "noise removal for speech, LADSPA plugin"
"ORVEL removes ambient noise from live speech.
.
This package contains the LADSPA plugin, for one channel and for linked stereo,
and a PipeWire configuration that offers the microphone without noise. The
plugin holds the library.")
  orvel_debian_package(orvel-lv2 sound "orvel-models (= ${ORVEL_DEBIAN_VERSION})" "noise removal for speech, LV2 plugin"
"ORVEL removes ambient noise from live speech.
.
This package contains the LV2 plugin, for one channel and for linked stereo. It
holds the library.")
endif()
set(CPACK_DEBIAN_LIBORVEL1_PACKAGE_CONTROL_EXTRA "${PROJECT_BINARY_DIR}/debian/symbols"
    "${PROJECT_BINARY_DIR}/debian/shlibs" "${PROJECT_BINARY_DIR}/debian/triggers")

set(CPACK_PACKAGE_NAME orvel)
set(CPACK_PACKAGE_VENDOR "The ORVEL authors")
set(CPACK_PACKAGE_CONTACT "${ORVEL_MAINTAINER}")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_PACKAGE_CHECKSUM SHA256)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_GENERATOR DEB TGZ)
set(CPACK_SYSTEM_NAME "linux-${CMAKE_SYSTEM_PROCESSOR}")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ
    GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_VERSION "${ORVEL_DEBIAN_VERSION}")
set(CPACK_DEBIAN_PACKAGE_SOURCE orvel)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS OFF)  # it comes with scripts that call ldconfig
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/debian/finish.cmake")
set(ORVEL_SOURCE_DIR "${PROJECT_SOURCE_DIR}")
# Read by cpack before each generator: the archive is one whole, the Debian packages leave the notices to
# their copyright files.
get_property(_names GLOBAL PROPERTY ORVEL_DEBIAN_PACKAGES)
get_property(_settings GLOBAL PROPERTY ORVEL_DEBIAN_SETTINGS)
set(CPACK_COMPONENTS_ALL ${_names})
set(CPACK_PROJECT_CONFIG_FILE "${PROJECT_BINARY_DIR}/OrvelPackages.cmake")
file(CONFIGURE OUTPUT OrvelPackages.cmake @ONLY CONTENT [[
set(ORVEL_SOURCE_DIR "@PROJECT_SOURCE_DIR@")
set(ORVEL_PYTHON "@ORVEL_PYTHON@")
@_settings@
]])
configure_file(cmake/debian/symbols debian/symbols COPYONLY)
file(WRITE "${PROJECT_BINARY_DIR}/debian/shlibs" "liborvel 1 liborvel1 (>= ${ORVEL_DEBIAN_VERSION})\n")
file(WRITE "${PROJECT_BINARY_DIR}/debian/triggers" "activate-noawait ldconfig\n")
include(CPack)
