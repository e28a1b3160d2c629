#!/bin/bash
# check_headers.sh INCLUDE_DIR CC CXX: every public header compiles alone, as C and as C++ or, by its
# extension, as C++20 only.
set -euo pipefail
include=$1 cc=$2 cxx=$3
count=0
for header in "$include"/orvel/*.h; do
  name=orvel/$(basename "$header")
  for standard in c99 c11 c17 c++11 c++17 c++20; do
    case $standard in c++*) compiler=$cxx language=c++ ;; *) compiler=$cc language=c ;; esac
    echo "$name as $standard"
    # Twice: the include guard is checked as well.
    printf '#include "%s"\n#include "%s"\nint main(void) { return 0; }\n' "$name" "$name" |
      "$compiler" -x "$language" "-std=$standard" -Wall -Wextra -Wpedantic -pedantic-errors -Werror \
        -Wstrict-aliasing -fsyntax-only -I"$include" -
    count=$((count + 1))
  done
done
[ "$count" -ge 12 ]

compilers=("$cxx")
! command -v clang++ > /dev/null || compilers+=(clang++)
for header in "$include"/orvel/*.hpp; do
  name=orvel/$(basename "$header")
  for compiler in "${compilers[@]}"; do
    for option in -frtti -fno-rtti; do
      echo "$name with $compiler $option"
      printf '#include "%s"\n#include "%s"\nint main() { return 0; }\n' "$name" "$name" |
        "$compiler" -x c++ -std=c++20 -Wall -Wextra -Wpedantic -Wshadow -Wconversion \
          -Wsign-conversion -Wold-style-cast -Werror "$option" -fsyntax-only -I"$include" -
    done
  done
done
