# orvel_digest: SHA-256 from libmd, linked statically.
orvel_find(ORVEL_MD "libmd (libmd-dev)" sha256.h ARCHIVE libmd.a)
if(NOT ORVEL_MD_FOUND)
  return()
endif()
set_property(GLOBAL APPEND PROPERTY ORVEL_COMPILED_IN "libmd=${ORVEL_MD_ARCHIVE}")
add_library(orvel_digest INTERFACE)
target_include_directories(orvel_digest SYSTEM INTERFACE "${ORVEL_MD_INCLUDE_DIR}")
target_link_libraries(orvel_digest INTERFACE "${ORVEL_MD_ARCHIVE}")
