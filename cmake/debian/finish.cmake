# Run by cpack for each generator once the files are staged: what Debian wants of a package that an
# installation does not have.
if(NOT CPACK_GENERATOR STREQUAL "DEB")
  return()
endif()
foreach(_package IN LISTS CPACK_COMPONENTS_ALL)
  set(_stage "${CPACK_TEMPORARY_DIRECTORY}/${_package}")
  # The system's linker finds the library by itself.
  file(GLOB _programs "${_stage}/usr/bin/*")
  foreach(_program IN LISTS _programs)
    file(RPATH_REMOVE FILE "${_program}")
  endforeach()
  execute_process(
    COMMAND "${ORVEL_PYTHON}" "${ORVEL_SOURCE_DIR}/scripts/debian-docs" "${_stage}" "${_package}"
            "${CPACK_DEBIAN_PACKAGE_VERSION}" "${CPACK_PACKAGE_CONTACT}"
    COMMAND_ERROR_IS_FATAL ANY)
endforeach()
