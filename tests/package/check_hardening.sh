#!/bin/bash
# check_hardening.sh PREFIX: the defences of cmake/OrvelHardening.cmake, looked for in the installed files.
set -euo pipefail
export LC_ALL=C
prefix=$1
fail() { echo "FAIL: $*" >&2; exit 1; }
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
library=$(compgen -G "$prefix/lib*/liborvel.so" || compgen -G "$prefix/lib/*/liborvel.so")

for file in "$library" "$prefix/bin/orvel"; do
  header=$(readelf -hlW "$file") dynamic=$(readelf -dW "$file") symbols=$(nm -D --undefined-only "$file")
  objdump -d --no-show-raw-insn "$file" > "$work/code"
  has() { grep -Eq -- "$2" <<< "$1" || fail "$file: $3"; }
  hasNot() { ! grep -E -- "$2" <<< "$1" || fail "$file: $3"; }

  # What is written once when the program starts cannot be written afterwards, and no data can be run.
  has "$header" 'GNU_RELRO' "no read-only relocations"
  has "$dynamic" 'FLAGS_1.* NOW' "functions are bound late"
  has "$header" 'GNU_STACK .* RW ' "the stack can be executed"
  hasNot "$header" 'LOAD .* RWE ' "a segment can be written and executed"
  hasNot "$dynamic" 'TEXTREL' "code is relocated"
  has "$header" 'Type: +DYN' "its place in memory is fixed"
  # Only the folder beside the program is searched, wherever both are.
  paths=$(sed -n 's/.*R\(UN\)*PATH.*\[\(.*\)\]/\2/p' <<< "$dynamic")
  [[ $paths =~ ^(\$ORIGIN/[A-Za-z0-9_./-]+)?$ ]] || fail "$file: searches '$paths' for libraries"

  has "$symbols" '__stack_chk_fail' "no stack protector"
  has "$symbols" '__[a-z]+_chk@' "no checks of the C library (FORTIFY_SOURCE)"
  has "$symbols" '__glibcxx_assert_fail' "no assertions of the C++ library"
  # Branch targets: every function that another file can reach begins with the mark.
  [ "$(uname -m)" = x86_64 ] || continue
  unmarked=$(awk 'NR == FNR { wanted["<" $3 ">:"] = $2 == "T" && /Orv_| main$/; next }
    function_name != "" && !/endbr64/ { print function_name }
    { function_name = wanted[$2] ? $2 : "" }' <(nm --defined-only "$file") "$work/code")
  [ -z "$unmarked" ] || fail "$file: no marked branch target: $unmarked"
  mv "$work/code" "$work/$(basename "$file").code"
done

# Stack clash: no frame is larger than a page in one step. MKL's own code in the library was not compiled here.
has "$(readelf -dW "$prefix/bin/orvel")" 'FLAGS_1.* PIE' "not position-independent"
! grep -E 'sub +\$0x(100[1-9a-f]|10[1-9a-f].|1[1-9a-f]..|[2-9a-f]...|[0-9a-f]{5,8}),%rsp' "$work/orvel.code" || fail "a stack frame is not probed"
grep -Eq 'orq +\$0x0,\(%rsp\)' "$work/liborvel.so.code" || fail "no large stack frame is probed"
