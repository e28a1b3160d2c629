# Library, headers, models, orvel.pc and the CMake package. tools/ installs its own program.
include(CMakePackageConfigHelpers)
set(ORVEL_INSTALL_MODELDIR "${CMAKE_INSTALL_DATADIR}/orvel/models")
set(_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/orvel")

install(TARGETS orvel EXPORT orvelTargets LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")
install(DIRECTORY include/orvel DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" FILES_MATCHING
        PATTERN "*.h" PATTERN "*.hpp")
install(DIRECTORY models/ DESTINATION "${ORVEL_INSTALL_MODELDIR}" OPTIONAL FILES_MATCHING
        PATTERN "*.bin" PATTERN "*.ctl" PATTERN "*.md")
# The licences of what is linked, and no others: CLI11 and JSON are part of the command only.
set(_licenses licenses/MKL.txt licenses/LGPL-2.1.txt)
if(TARGET orvel_cli)
  list(APPEND _licenses licenses/CLI11.txt licenses/nlohmann-json.txt)
endif()
install(FILES LICENSE NOTICE THIRD_PARTY.md DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(FILES ${_licenses} DESTINATION "${CMAKE_INSTALL_DOCDIR}/licenses")
if(ORVEL_MKL_NOTICES)
  install(FILES ${ORVEL_MKL_NOTICES} DESTINATION "${CMAKE_INSTALL_DOCDIR}/licenses"
          RENAME mkl-third-party-programs.txt)
endif()

install(EXPORT orvelTargets NAMESPACE orvel:: DESTINATION "${_package_dir}")
configure_package_config_file(
  cmake/orvelConfig.cmake.in "${PROJECT_BINARY_DIR}/orvelConfig.cmake"
  INSTALL_DESTINATION "${_package_dir}" PATH_VARS ORVEL_INSTALL_MODELDIR)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/orvelConfigVersion.cmake"
                                 COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/orvelConfig.cmake"
              "${PROJECT_BINARY_DIR}/orvelConfigVersion.cmake" DESTINATION "${_package_dir}")

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
install(FILES "${PROJECT_BINARY_DIR}/orvel.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
