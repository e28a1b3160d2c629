# The library's three forms, made from one compilation:
#   orvel_objects   position-independent objects, hidden visibility
#   orvel           liborvel.so.1, only the names in orvel.map are visible
#   orvel_internal  static, for unit tests, fuzz targets, benchmarks and the weight tools
include(orvel_sources)
configure_file("${CMAKE_CURRENT_LIST_DIR}/orvel_version.h.in"
               "${PROJECT_BINARY_DIR}/generated/orvel_version.h" @ONLY)

add_library(orvel_objects OBJECT ${ORVEL_SOURCES})
target_include_directories(orvel_objects PUBLIC "${PROJECT_SOURCE_DIR}"
                                                "${PROJECT_SOURCE_DIR}/include"
                                                "${PROJECT_BINARY_DIR}/generated")
target_compile_definitions(orvel_objects PRIVATE ORVEL_BUILDING_LIBRARY)
target_link_libraries(orvel_objects PUBLIC orvel_mkl orvel_resample PRIVATE orvel_options)

set(_export_map "${CMAKE_CURRENT_LIST_DIR}/orvel.map")
add_library(orvel SHARED)
add_library(orvel::orvel ALIAS orvel)
target_link_libraries(orvel PRIVATE orvel_objects)
target_include_directories(orvel INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
                                           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_options(orvel PRIVATE "-Wl,--version-script=${_export_map}" "-Wl,--exclude-libs,ALL"
                    "-Wl,--as-needed" "-Wl,-z,relro,-z,now")
if(NOT ORVEL_SANITIZE)
  # Sanitizer run-times are resolved from the program, so only a plain build can promise this.
  target_link_options(orvel PRIVATE "-Wl,--no-undefined" "-Wl,--gc-sections")
endif()
set_target_properties(orvel PROPERTIES VERSION ${PROJECT_VERSION}
                                       SOVERSION ${PROJECT_VERSION_MAJOR}
                                       LINKER_LANGUAGE CXX
                                       LINK_DEPENDS "${_export_map}")

add_library(orvel_internal STATIC)
target_link_libraries(orvel_internal PUBLIC orvel_objects)
set_target_properties(orvel_internal PROPERTIES LINKER_LANGUAGE CXX)
