# orvel_mkl: Intel MKL's sequential layer with 32-bit integers, as static archives.
#
# Looked for in this order: MKLROOT, the project's .venv (packages mkl-static and mkl-include),
# Debian's libmkl-dev. The found folders can be fixed with -DORVEL_MKL_INCLUDE_DIR=... and
# -DORVEL_MKL_LIBRARY_DIR=....
set(_mkl_roots "")
if(DEFINED ENV{MKLROOT})
  list(APPEND _mkl_roots "$ENV{MKLROOT}")
endif()
list(APPEND _mkl_roots "${CMAKE_CURRENT_SOURCE_DIR}/.venv")
set(_mkl_lib_suffixes lib lib/intel64 lib/x86_64-linux-gnu)

find_path(ORVEL_MKL_INCLUDE_DIR mkl_dfti.h HINTS ${_mkl_roots}
          PATH_SUFFIXES include include/mkl mkl DOC "Folder that holds mkl_dfti.h")
find_path(ORVEL_MKL_LIBRARY_DIR libmkl_sequential.a HINTS ${_mkl_roots} PATHS /usr
          PATH_SUFFIXES ${_mkl_lib_suffixes} DOC "Folder that holds libmkl_sequential.a")
if(NOT ORVEL_MKL_INCLUDE_DIR OR NOT ORVEL_MKL_LIBRARY_DIR)
  message(FATAL_ERROR "Intel MKL (static archives and headers) was not found. Run scripts/setup, "
                      "install libmkl-dev, or set MKLROOT.")
endif()
foreach(_layer intel_lp64 core)
  if(NOT EXISTS "${ORVEL_MKL_LIBRARY_DIR}/libmkl_${_layer}.a")
    message(FATAL_ERROR "${ORVEL_MKL_LIBRARY_DIR} lacks libmkl_${_layer}.a")
  endif()
endforeach()
message(STATUS "MKL: ${ORVEL_MKL_LIBRARY_DIR}")

file(GLOB ORVEL_MKL_NOTICES
     "${ORVEL_MKL_INCLUDE_DIR}/../share/doc/mkl/licensing/third-party-programs*.txt")

find_package(Threads REQUIRED)
add_library(orvel_mkl INTERFACE)
target_include_directories(orvel_mkl SYSTEM INTERFACE "${ORVEL_MKL_INCLUDE_DIR}")
# The three archives refer to each other in a circle.
target_link_libraries(
  orvel_mkl
  INTERFACE "-Wl,--start-group"
            "${ORVEL_MKL_LIBRARY_DIR}/libmkl_intel_lp64.a"
            "${ORVEL_MKL_LIBRARY_DIR}/libmkl_sequential.a"
            "${ORVEL_MKL_LIBRARY_DIR}/libmkl_core.a"
            "-Wl,--end-group"
            Threads::Threads m ${CMAKE_DL_LIBS})
