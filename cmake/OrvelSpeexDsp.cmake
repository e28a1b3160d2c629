# speexdsp as sessions' resampler; the linker takes the shared library.
orvel_find(ORVEL_SPEEXDSP "speexdsp (libspeexdsp-dev)" speex/speex_resampler.h LIBRARY speexdsp)
if(NOT ORVEL_SPEEXDSP_FOUND)
  return()
endif()
add_library(orvel_resample INTERFACE)
target_include_directories(orvel_resample SYSTEM INTERFACE "${ORVEL_SPEEXDSP_INCLUDE_DIR}")
target_compile_definitions(orvel_resample INTERFACE ORVEL_RESAMPLER_SPEEXDSP)
target_link_libraries(orvel_resample INTERFACE "${ORVEL_SPEEXDSP_LIBRARY}")
set(ORVEL_RESAMPLER_SOURCES orv-sdk/speexdsp_resampler.cpp)
# For the reference in the tests.
add_library(orvel_plain_resample ALIAS orvel_resample)
