#!/bin/bash
# check_headers.sh INCLUDE_DIR CC CXX: every public header compiles alone, as C and as C++.
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
