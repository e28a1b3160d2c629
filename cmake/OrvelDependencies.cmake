# Where speexdsp, libmd and GoogleTest come from. An ordinary build takes what is installed. A build for
# another machine compiles them: ORVEL_DEPENDENCY_SOURCES is the folder where scripts/setup puts the sources
# of Debian's packages (scripts/packages/sources.txt), GoogleTest's come with the package googletest.
set(ORVEL_DEPENDENCY_SOURCES "" CACHE PATH "Sources of speexdsp and libmd to compile; empty: installed libraries")

if(NOT ORVEL_DEPENDENCY_SOURCES)
  return()
endif()
foreach(_name IN ITEMS speexdsp libmd)
  if(NOT EXISTS "${ORVEL_DEPENDENCY_SOURCES}/${_name}")
    orvel_missing("sources of ${_name} (scripts/setup sources)")
    return()
  endif()
endforeach()
set(_generated "${PROJECT_BINARY_DIR}/generated/dependencies")
set(_md "${ORVEL_DEPENDENCY_SOURCES}/libmd")
set(_speex "${ORVEL_DEPENDENCY_SOURCES}/speexdsp")

# Their own configure programs would find out what these lines say.
file(WRITE "${_generated}/config.h" "")
file(WRITE "${_generated}/speexdsp_config_types.h"
     "#include <stdint.h>\ntypedef int16_t spx_int16_t;\ntypedef uint16_t spx_uint16_t;\n"
     "typedef int32_t spx_int32_t;\ntypedef uint32_t spx_uint32_t;\n")

add_library(orvel_md STATIC "${_md}/src/sha2.c")
target_include_directories(orvel_md PRIVATE "${_generated}")
target_include_directories(orvel_md SYSTEM PUBLIC "${_md}/include")
set_property(GLOBAL APPEND PROPERTY ORVEL_COMPILED_IN "libmd=${_md}")

add_library(orvel_speexdsp STATIC "${_speex}/libspeexdsp/resample.c")
target_include_directories(orvel_speexdsp PRIVATE "${_generated}")
target_include_directories(orvel_speexdsp SYSTEM PUBLIC "${_speex}/include" "${_generated}")
target_compile_definitions(orvel_speexdsp PRIVATE HAVE_CONFIG_H FLOATING_POINT EXPORT=)
foreach(_library IN ITEMS orvel_md orvel_speexdsp)
  set_target_properties(${_library} PROPERTIES C_VISIBILITY_PRESET hidden)
endforeach()
