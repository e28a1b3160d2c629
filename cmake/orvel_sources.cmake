# Versions and tuning keys as plain data: no MKL behind them, so that the command can hold them too. A
# new version's unit is found by its name.
file(GLOB _versions RELATIVE "${PROJECT_SOURCE_DIR}" CONFIGURE_DEPENDS
     "${PROJECT_SOURCE_DIR}/noise_canceller/noise_cleaner_v*.cpp")
set(ORVEL_TABLE_SOURCES ${_versions} noise_canceller/cleaner_versions.cpp
                        noise_canceller/tuning_key_table.cpp)

# What the system is asked for: nothing outside these files, weights/'s utils/posix/regular_file.cpp
# included. A system that is neither POSIX nor WebAssembly needs files of its own for the same headers.
set(ORVEL_PLATFORM_SOURCES utils/posix/thread_slot.cpp)
if(EMSCRIPTEN)
  list(APPEND ORVEL_PLATFORM_SOURCES utils/wasm/host.cpp)
elseif(UNIX)
  list(APPEND ORVEL_PLATFORM_SOURCES utils/posix/c_numbers.cpp utils/posix/call_scope.cpp
       utils/posix/error_line.cpp)
else()
  message(FATAL_ERROR "No platform files for ${CMAKE_SYSTEM_NAME} yet (docs/platforms.md).")
endif()

# What reads model files: nothing but the C++ library and SHA-256 behind it.
set(ORVEL_WEIGHT_SOURCES
  utils/native_path.cpp
  utils/posix/regular_file.cpp
  weights/control_file.cpp
  weights/model_files.cpp
  weights/model_store.cpp
  weights/weight.cpp
  weights/weight_format.cpp
)

# The rest of the library, by folder.
set(ORVEL_SOURCES
  ${ORVEL_MATH_SOURCES}
  ${ORVEL_PLATFORM_SOURCES}
  utils/energy_trackers.cpp
  utils/window_generators.cpp
  noise_canceller/gain_chain.cpp
  noise_canceller/masking_cleaner.cpp
  noise_canceller/network.cpp
  noise_canceller/network_input.cpp
  noise_canceller/network_weights.cpp
  noise_canceller/noise_cleaner.cpp
  noise_canceller/overlap_add.cpp
  noise_canceller/spectral_features.cpp
  noise_canceller/synthesis.cpp
  noise_canceller/tuning_values.cpp
  noise_canceller/vad_cleaner_v0_0_1.cpp
  noise_canceller/vad_features.cpp
  noise_canceller/weight_parameters.cpp
  orv-sdk/batch.cpp
  orv-sdk/context.cpp
  orv-sdk/exports.cpp
  ${ORVEL_RESAMPLER_SOURCES}
  orv-sdk/instance.cpp
  orv-sdk/last_error.cpp
  orv-sdk/session.cpp
  orv-sdk/session_table.cpp
)

# The C functions. The shared library makes them visible, the static one does not.
set(ORVEL_EXPORT_SOURCES orv-sdk/orv-sdk-ext.cpp orv-sdk/orv-sdk.cpp)
