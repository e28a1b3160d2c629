# Library, headers, models, orvel.pc and the CMake package. tools/ installs its own program.
include(CMakePackageConfigHelpers)
set(ORVEL_INSTALL_MODELDIR "${CMAKE_INSTALL_DATADIR}/orvel/models")
set(_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/orvel")

# Components are the Debian packages of cmake/OrvelPackages.cmake; a plain installation takes all of them.
install(TARGETS orvel EXPORT orvelTargets
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT liborvel1 NAMELINK_COMPONENT liborvel-dev)
install(DIRECTORY include/orvel DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT liborvel-dev FILES_MATCHING
        PATTERN "*.h" PATTERN "*.hpp")
install(DIRECTORY models/ DESTINATION "${ORVEL_INSTALL_MODELDIR}" COMPONENT orvel-models OPTIONAL FILES_MATCHING
        PATTERN "*.bin" PATTERN "*.ctl" PATTERN "*.md")
# The notices and licences of what is linked, and no others.
set(_parts ${ORVEL_MATH} ${ORVEL_RESAMPLER})
if(TARGET orvel_cli)
  list(APPEND _parts command)
endif()
if(TARGET orvel_ladspa)
  list(APPEND _parts speexdsp)
endif()
set(_notices "${PROJECT_BINARY_DIR}/THIRD_PARTY.md")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS THIRD_PARTY.md scripts/notices)
execute_process(
  COMMAND "${ORVEL_PYTHON}" "${PROJECT_SOURCE_DIR}/scripts/notices"
          "${PROJECT_SOURCE_DIR}/THIRD_PARTY.md" ${_parts}
  OUTPUT_FILE "${_notices}" COMMAND_ERROR_IS_FATAL ANY)
file(STRINGS "${_notices}" _rows REGEX "^[|].*`licenses/")
string(REGEX MATCHALL "licenses/[A-Za-z0-9.-]+" _licenses "${_rows}")
list(REMOVE_DUPLICATES _licenses)
set(ORVEL_LICENSE_FILES ${_licenses})
list(TRANSFORM ORVEL_LICENSE_FILES PREPEND "${PROJECT_SOURCE_DIR}/")
install(FILES LICENSE NOTICE "${_notices}" DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT notices)
install(FILES ${_licenses} DESTINATION "${CMAKE_INSTALL_DOCDIR}/licenses" COMPONENT notices)
if(ORVEL_MKL_NOTICES)
  install(FILES ${ORVEL_MKL_NOTICES} DESTINATION "${CMAKE_INSTALL_DOCDIR}/licenses"
          COMPONENT notices RENAME mkl-third-party-programs.txt)
endif()

install(EXPORT orvelTargets NAMESPACE orvel:: DESTINATION "${_package_dir}" COMPONENT liborvel-dev)
configure_package_config_file(
  cmake/orvelConfig.cmake.in "${PROJECT_BINARY_DIR}/orvelConfig.cmake"
  INSTALL_DESTINATION "${_package_dir}" PATH_VARS ORVEL_INSTALL_MODELDIR)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/orvelConfigVersion.cmake"
                                 COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/orvelConfig.cmake"
              "${PROJECT_BINARY_DIR}/orvelConfigVersion.cmake" DESTINATION "${_package_dir}"
        COMPONENT liborvel-dev)

# orvel.pc finds its prefix from its own place, so an installed tree can be moved. GNUInstallDirs may
# hold absolute folders: only relative ones hang below ${prefix}.
set(ORVEL_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
set(ORVEL_PC_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}")
set(ORVEL_PC_MODELDIR "${ORVEL_INSTALL_MODELDIR}")
foreach(_dir LIBDIR INCLUDEDIR MODELDIR)
  if(NOT IS_ABSOLUTE "${ORVEL_PC_${_dir}}")
    set(ORVEL_PC_${_dir} "\${prefix}/${ORVEL_PC_${_dir}}")
  endif()
endforeach()
set(ORVEL_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  file(RELATIVE_PATH _up "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
  string(REGEX REPLACE "/$" "" _up "${_up}")
  set(ORVEL_PC_PREFIX "\${pcfiledir}/${_up}")
endif()
configure_file(cmake/orvel.pc.in "${PROJECT_BINARY_DIR}/orvel.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/orvel.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
        COMPONENT liborvel-dev)

# Last: a bill of materials of what was installed; each component has its own, but the
# notices, which are no program.
get_property(_parts GLOBAL PROPERTY ORVEL_COMPILED_IN)
list(TRANSFORM _parts PREPEND "--compiled-in=")
install(
  CODE "
  if(NOT CMAKE_INSTALL_COMPONENT STREQUAL notices)
    set(_root \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
    list(TRANSFORM CMAKE_INSTALL_MANIFEST_FILES PREPEND \"\$ENV{DESTDIR}\" OUTPUT_VARIABLE _files)
    list(JOIN _files \"\n\" _files)
    set(_docs \"${CMAKE_INSTALL_DOCDIR}\")
    if(CMAKE_INSTALL_COMPONENT)
      set(_docs \"${CMAKE_INSTALL_DATADIR}/doc/\${CMAKE_INSTALL_COMPONENT}\")
    endif()
    cmake_path(APPEND CMAKE_INSTALL_PREFIX \"\${_docs}/orvel.spdx.json\" OUTPUT_VARIABLE _sbom)
    set(_list \"\$ENV{DESTDIR}\${_sbom}.files\")
    file(WRITE \"\${_list}\" \"\${_files}\n\")
    execute_process(
      COMMAND \"${ORVEL_PYTHON}\" \"${PROJECT_SOURCE_DIR}/scripts/sbom\" \"\${_root}\" --version ${PROJECT_VERSION}
              --files \"\${_list}\" --out \"\$ENV{DESTDIR}\${_sbom}\" ${_parts}
      COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE \"\${_list}\")
    message(STATUS \"Installing: \$ENV{DESTDIR}\${_sbom}\")
    list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${_sbom}\")
  endif()" ALL_COMPONENTS)
