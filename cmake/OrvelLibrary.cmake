# The library's forms, made from one compilation with hidden visibility:
#   orvel           liborvel.so.1, only the names in orvel.map are visible
#   orvel_core      all of it, static and without exports: for tests of the inside, fuzz targets, benchmarks
#   orvel_weights   what reads model files, with the table of tuning keys, static: for the command
# A program links one of the first two. orvel_weights goes with orvel: they share no visible name, so the
# order in which they are linked does not matter.
include(orvel_sources)
configure_file("${CMAKE_CURRENT_LIST_DIR}/orvel_version.h.in"
               "${PROJECT_BINARY_DIR}/generated/orvel_version.h" @ONLY)

add_library(orvel_weight_objects OBJECT ${ORVEL_WEIGHT_SOURCES} ${ORVEL_TABLE_SOURCES})
target_include_directories(orvel_weight_objects PUBLIC "${PROJECT_SOURCE_DIR}"
                                                       "${PROJECT_SOURCE_DIR}/include"
                                                       "${PROJECT_BINARY_DIR}/generated")
target_link_libraries(orvel_weight_objects PUBLIC orvel_digest PRIVATE orvel_options)

add_library(orvel_objects OBJECT ${ORVEL_SOURCES})
target_link_libraries(orvel_objects PUBLIC orvel_weight_objects orvel_math orvel_resample
                                    PRIVATE orvel_options)

set(_export_map "${CMAKE_CURRENT_LIST_DIR}/orvel.map")
if(ORVEL_SHARED)
  add_library(orvel SHARED ${ORVEL_EXPORT_SOURCES} ${ORVEL_KERNEL_OBJECTS})
  target_compile_definitions(orvel PRIVATE ORVEL_BUILDING_LIBRARY)
  # Without a version script the names of static archives that are linked are visible as well.
  orvel_link_options(orvel PRIVATE "-Wl,--version-script=${_export_map}" "-Wl,--exclude-libs,ALL"
                     "-Wl,--as-needed" "-Wl,-z,nodelete")
  if(NOT ORVEL_SANITIZE)
    # Sanitizer run-times are resolved from the program, so only a plain build can promise this.
    orvel_link_options(orvel PRIVATE "-Wl,--no-undefined" "-Wl,--gc-sections")
  endif()
else()
  add_library(orvel STATIC ${ORVEL_EXPORT_SOURCES} ${ORVEL_KERNEL_OBJECTS})
  target_compile_definitions(orvel PUBLIC ORVEL_STATIC)
endif()
add_library(orvel::orvel ALIAS orvel)
target_link_libraries(orvel PRIVATE orvel_objects orvel_weight_objects orvel_options)
target_include_directories(orvel INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
                                           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
set_target_properties(orvel PROPERTIES VERSION ${PROJECT_VERSION}
                                       SOVERSION ${PROJECT_VERSION_MAJOR}
                                       LINKER_LANGUAGE CXX
                                       LINK_DEPENDS "${_export_map}")

add_library(orvel_core STATIC ${ORVEL_EXPORT_SOURCES} ${ORVEL_KERNEL_OBJECTS})
target_compile_definitions(orvel_core PUBLIC ORVEL_STATIC)
target_link_libraries(orvel_core PUBLIC orvel_objects orvel_weight_objects PRIVATE orvel_options)

add_library(orvel_weights STATIC)
target_link_libraries(orvel_weights PUBLIC orvel_weight_objects)
set_target_properties(orvel_weights PROPERTIES LINKER_LANGUAGE CXX)
