# Intel MKL's sequential layer with 32-bit integers, linked statically.
#
# Looked for in this order: ORVEL_MKL_ROOT (first taken from MKLROOT), the project's .venv/mkl, where
# scripts/setup puts the routines of mkl_routines.txt, and Debian's libmkl-dev.
set(ORVEL_MKL_ROOT "$ENV{MKLROOT}" CACHE PATH "Folder of Intel MKL, searched first")

set(_mkl_include "")
foreach(_root IN ITEMS "${ORVEL_MKL_ROOT}" "${CMAKE_CURRENT_SOURCE_DIR}/.venv/mkl" /usr)
  if(_root STREQUAL "")
    continue()
  endif()
  unset(_mkl_include)
  unset(_mkl_library)
  find_path(_mkl_include mkl_dfti.h PATHS "${_root}" PATH_SUFFIXES include include/mkl
            NO_DEFAULT_PATH NO_CACHE)
  find_path(_mkl_library NAMES libmkl_orvel.a libmkl_sequential.a PATHS "${_root}"
            PATH_SUFFIXES lib lib/intel64 lib/x86_64-linux-gnu NO_DEFAULT_PATH NO_CACHE)
  if(_mkl_include AND _mkl_library)
    set(ORVEL_MKL_FOLDER "${_root}")
    break()
  endif()
endforeach()
if(NOT _mkl_include OR NOT _mkl_library)
  orvel_missing("Intel MKL (scripts/setup, libmkl-dev or MKLROOT)")
  return()
endif()
message(STATUS "MKL: ${_mkl_library}")
file(STRINGS "${_mkl_include}/mkl_version.h" _version REGEX "define __INTEL_MKL(__|_UPDATE__) ")
list(TRANSFORM _version REPLACE "[^0-9]+" "")
list(JOIN _version "." _version)
set_property(GLOBAL APPEND PROPERTY ORVEL_COMPILED_IN "mkl=${_version}")

# MKL's own list of what it contains; the lists beside it are those of layers that are not linked.
file(GLOB ORVEL_MKL_NOTICES "${_mkl_include}/../licensing/third-party-programs.txt"
     "${_mkl_include}/../share/doc/mkl/licensing/third-party-programs.txt")

find_package(Threads REQUIRED)
target_include_directories(orvel_math SYSTEM INTERFACE "${_mkl_include}")
if(EXISTS "${_mkl_library}/libmkl_orvel.a")
  target_link_libraries(orvel_math INTERFACE "${_mkl_library}/libmkl_orvel.a")
else()
  # The three archives refer to each other in a circle.
  target_link_libraries(
    orvel_math
    INTERFACE "-Wl,--start-group"
              "${_mkl_library}/libmkl_intel_lp64.a"
              "${_mkl_library}/libmkl_sequential.a"
              "${_mkl_library}/libmkl_core.a"
              "-Wl,--end-group")
endif()
target_link_libraries(orvel_math INTERFACE Threads::Threads m ${CMAKE_DL_LIBS})
