# Defences of the compiler and linker for everything that is compiled here, and builds that do not depend
# on their folder. tests/package/check_hardening.sh looks for each of them in what was installed.
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)
include(CheckPIESupported)
check_pie_supported()

# Two builds of one source give the same bytes, whatever their folders are called.
target_compile_options(orvel_options INTERFACE "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=."
                                               "-ffile-prefix-map=${PROJECT_BINARY_DIR}=build")
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

# orvel_link_options(TARGET SCOPE OPTION...): those that the linker knows; GNU's are not everybody's.
function(orvel_link_options target scope)
  foreach(_option IN LISTS ARGN)
    string(MAKE_C_IDENTIFIER "ORVEL_LINKS_${_option}" _links)
    check_linker_flag(CXX "${_option}" ${_links})
    if(${_links})
      target_link_options(${target} ${scope} "${_option}")
    endif()
  endforeach()
endfunction()

if(ORVEL_SANITIZE OR EMSCRIPTEN)
  # Sanitizers check the same and more; the two get in each other's way. WebAssembly keeps return addresses
  # and code out of a program's reach by itself.
  return()
endif()
foreach(_flag -fstack-protector-strong -fstack-clash-protection -fcf-protection=full)
  string(MAKE_C_IDENTIFIER "ORVEL_HAS${_flag}" _has)
  check_cxx_compiler_flag(${_flag} ${_has})
  if(${_has})
    target_compile_options(orvel_options INTERFACE ${_flag})
  endif()
endforeach()
# The C library's checks need optimisation; level 3 also checks sizes that are known at run time only.
set(_fortify -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
target_compile_options(orvel_options INTERFACE "$<$<NOT:$<CONFIG:Debug>>:${_fortify}>")
target_compile_definitions(orvel_options INTERFACE _GLIBCXX_ASSERTIONS)
orvel_link_options(orvel_options INTERFACE "-Wl,-z,relro,-z,now,-z,noexecstack,-z,separate-code")
