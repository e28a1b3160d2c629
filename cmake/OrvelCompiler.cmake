# orvel_options: warnings and sanitizers, linked privately by everything that is compiled here.
add_library(orvel_options INTERFACE)
target_compile_options(
  orvel_options
  INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wcast-align -Wundef -Wformat=2
            $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast>
            $<$<BOOL:${ORVEL_WERROR}>:-Werror>)

if(ORVEL_SANITIZE)
  set(_sanitize -fsanitize=${ORVEL_SANITIZE} -fno-omit-frame-pointer)
  if(ORVEL_SANITIZE MATCHES undefined)
    list(APPEND _sanitize -fno-sanitize-recover=undefined)
  endif()
  # For every target, the third-party test mains included: a mixed program reports nonsense.
  add_compile_options(${_sanitize})
  add_link_options(${_sanitize})
endif()

if(ORVEL_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  find_program(ORVEL_CCACHE_PROGRAM ccache)
  if(ORVEL_CCACHE_PROGRAM)
    set(CMAKE_C_COMPILER_LAUNCHER "${ORVEL_CCACHE_PROGRAM}")
    set(CMAKE_CXX_COMPILER_LAUNCHER "${ORVEL_CCACHE_PROGRAM}")
  endif()
endif()
