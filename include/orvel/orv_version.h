/* Version of ORVEL. The build, orvel.pc and the CMake package take it from here. */
#ifndef ORVEL_ORV_VERSION_H
#define ORVEL_ORV_VERSION_H

#define ORV_VERSION_MAJOR 1
#define ORV_VERSION_MINOR 0
#define ORV_VERSION_PATCH 0
#define ORV_VERSION_STRING "1.0.0"

/* ORV_VERSION_AT_LEAST(1, 2, 0): true when the headers are of that version or a later one. */
#define ORV_VERSION_AT_LEAST(major, minor, patch) \
  (ORV_VERSION_MAJOR > (major) ||                 \
   (ORV_VERSION_MAJOR == (major) &&               \
    (ORV_VERSION_MINOR > (minor) ||               \
     (ORV_VERSION_MINOR == (minor) && ORV_VERSION_PATCH >= (patch)))))

#endif /* ORVEL_ORV_VERSION_H */
