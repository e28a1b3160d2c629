# orvel_math: the implementation of utils/arithmetic.h and utils/fft.h.
#   mkl       Intel MKL, linked statically (x86-64)
#   portable  kernels compiled for each instruction set and chosen when the library is loaded
# ORVEL_MATH_SOURCES and ORVEL_KERNEL_OBJECTS are what the library takes in, orvel_math what it needs for
# that. Either takes the products of a matrix with several vectors from the kernels.
set(ORVEL_MATH "mkl" CACHE STRING "Arithmetic: mkl or portable")
set_property(CACHE ORVEL_MATH PROPERTY STRINGS mkl portable)

set(ORVEL_MATH_SOURCES utils/kernels/kernel_sets.cpp)
add_library(orvel_math INTERFACE)

# orvel_kernels(NAME OPTION...): the kernels compiled with these options.
function(orvel_kernels name)
  add_library(orvel_${name} OBJECT utils/kernels/kernels.cpp)
  target_include_directories(orvel_${name} PRIVATE "${PROJECT_SOURCE_DIR}")
  target_compile_definitions(orvel_${name} PRIVATE ORVEL_KERNELS=${name})
  # Vectors are passed inside one file only: how other files would pass them does not matter.
  target_compile_options(orvel_${name} PRIVATE -fno-math-errno -ffp-contract=fast -Wno-psabi ${ARGN})
  target_link_libraries(orvel_${name} PRIVATE orvel_options)
  set(ORVEL_KERNEL_OBJECTS ${ORVEL_KERNEL_OBJECTS} $<TARGET_OBJECTS:orvel_${name}> PARENT_SCOPE)
endfunction()
orvel_kernels(kBaseline)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
  orvel_kernels(kAvx2 -mavx2 -mfma)
  orvel_kernels(kAvx512 -mavx512f -mavx512dq -mavx512vl -mfma)
  target_compile_definitions(orvel_math INTERFACE ORVEL_X86_KERNELS)
endif()

if(ORVEL_MATH STREQUAL "mkl")
  include(OrvelMkl)
  list(APPEND ORVEL_MATH_SOURCES utils/mkl/arithmetic_mkl.cpp utils/mkl/fft_mkl.cpp
       utils/mkl/mkl_memory.cpp)
elseif(ORVEL_MATH STREQUAL "portable")
  list(APPEND ORVEL_MATH_SOURCES utils/portable/arithmetic_portable.cpp utils/portable/fft_portable.cpp)
else()
  message(FATAL_ERROR "ORVEL_MATH is ${ORVEL_MATH}, it must be mkl or portable.")
endif()
