# WebAssembly with Debian's emscripten: 128-bit vectors and WebAssembly's own exceptions, one thread. Its
# programs run under node.
find_program(ORVEL_EM_CONFIG em-config REQUIRED)
execute_process(COMMAND "${ORVEL_EM_CONFIG}" EMSCRIPTEN_ROOT OUTPUT_VARIABLE _emscripten
                OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
set(CMAKE_C_FLAGS_INIT "-msimd128 -fwasm-exceptions")
set(CMAKE_CXX_FLAGS_INIT "-msimd128 -fwasm-exceptions")
include("${_emscripten}/cmake/Modules/Platform/Emscripten.cmake")
