# orvel_resample: libresample as a shared library (its archive is not position-independent).
find_path(ORVEL_RESAMPLE_INCLUDE_DIR libresample.h DOC "Folder that holds libresample.h")
find_library(ORVEL_RESAMPLE_LIBRARY NAMES libresample.so DOC "libresample.so")
if(NOT ORVEL_RESAMPLE_INCLUDE_DIR OR NOT ORVEL_RESAMPLE_LIBRARY)
  message(FATAL_ERROR "libresample was not found. Run scripts/setup or install libresample1-dev.")
endif()
add_library(orvel_resample INTERFACE)
target_include_directories(orvel_resample SYSTEM INTERFACE "${ORVEL_RESAMPLE_INCLUDE_DIR}")
target_link_libraries(orvel_resample INTERFACE "${ORVEL_RESAMPLE_LIBRARY}")
