# orvel_resample: Debian's static libresample with its calls of malloc, free and its message redirected to
# orv-sdk/resample_memory.cpp, which checks what libresample does not. orvel_plain_resample: as it is, for
# the reference in the tests.
orvel_find(ORVEL_RESAMPLE "libresample (libresample1-dev)" libresample.h ARCHIVE libresample.a)
if(NOT ORVEL_RESAMPLE_FOUND)
  return()
endif()
set_property(GLOBAL APPEND PROPERTY ORVEL_COMPILED_IN "libresample=${ORVEL_RESAMPLE_ARCHIVE}")
add_library(orvel_plain_resample INTERFACE)
target_include_directories(orvel_plain_resample SYSTEM INTERFACE "${ORVEL_RESAMPLE_INCLUDE_DIR}")
target_link_libraries(orvel_plain_resample INTERFACE "${ORVEL_RESAMPLE_ARCHIVE}" m)

# Hidden definitions also let the archive, which is made for programs, go into a shared object: the
# message's stream is the one name that it addresses directly.
set(_checked "${PROJECT_BINARY_DIR}/libresample_checked.a")
add_custom_command(
  OUTPUT "${_checked}"
  COMMAND
    "${CMAKE_OBJCOPY}" --redefine-sym malloc=orvel_resample_malloc --redefine-sym
    free=orvel_resample_free --redefine-sym fwrite=orvel_resample_message --redefine-sym
    stderr=orvel_resample_stream "${ORVEL_RESAMPLE_ARCHIVE}" "${_checked}"
  DEPENDS "${ORVEL_RESAMPLE_ARCHIVE}"
  COMMENT "Redirecting libresample's memory"
  VERBATIM)
add_custom_target(orvel_checked_resample DEPENDS "${_checked}")
add_library(orvel_resample INTERFACE)
add_dependencies(orvel_resample orvel_checked_resample)
target_include_directories(orvel_resample SYSTEM INTERFACE "${ORVEL_RESAMPLE_INCLUDE_DIR}")
target_link_libraries(orvel_resample INTERFACE "${_checked}" m)
set(ORVEL_RESAMPLER_SOURCES orv-sdk/libresample_resampler.cpp orv-sdk/resample_memory.cpp)
