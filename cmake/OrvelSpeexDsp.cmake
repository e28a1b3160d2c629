# speexdsp as sessions' resampler; the linker takes the shared library. Its header and its library are
# looked for by themselves, so that a cross build needs no pkg-config.
find_path(ORVEL_SPEEXDSP_INCLUDE_DIR speex/speex_resampler.h DOC "Folder that holds speex/speex_resampler.h")
find_library(ORVEL_SPEEXDSP_LIBRARY NAMES speexdsp DOC "libspeexdsp")
add_library(orvel_resample INTERFACE)
if(NOT ORVEL_SPEEXDSP_INCLUDE_DIR OR NOT ORVEL_SPEEXDSP_LIBRARY)
  orvel_missing("speexdsp (libspeexdsp-dev)")
  return()
endif()
target_include_directories(orvel_resample SYSTEM INTERFACE "${ORVEL_SPEEXDSP_INCLUDE_DIR}")
target_compile_definitions(orvel_resample INTERFACE ORVEL_RESAMPLER_SPEEXDSP)
target_link_libraries(orvel_resample INTERFACE "${ORVEL_SPEEXDSP_LIBRARY}")
set(ORVEL_RESAMPLER_SOURCES orv-sdk/speexdsp_resampler.cpp)
# For the reference in the tests.
add_library(orvel_plain_resample ALIAS orvel_resample)
