#!/bin/bash
# check_library.sh LIBRARY EXPORTS SOVERSION RESAMPLER: the shared object's names and dependencies.
set -euo pipefail
export LC_ALL=C
library=$1 exports=$2 soversion=$3 resampler=$4
fail() { echo "FAIL: $*" >&2; exit 1; }

diff <(sort "$exports") <(nm -D --defined-only "$library" | awk '{print $NF}' | sort) ||
  fail "the visible names (>) differ from those listed (<)"

dynamic=$(objdump -p "$library")
soname=$(awk '$1 == "SONAME" {print $2}' <<< "$dynamic")
[ "$soname" = "liborvel.so.$soversion" ] || fail "SONAME is '$soname'"

# What is allowed: libc's and libstdc++'s own parts. MKL and libresample are inside.
allowed=' libstdc++.so.6 libgcc_s.so.1 libm.so.6 libc.so.6 ld-linux-x86-64.so.2 '
[ "$resampler" != speexdsp ] || allowed+='libspeexdsp.so.1 '
needed=$(awk '$1 == "NEEDED" {print $2}' <<< "$dynamic")
for name in $needed; do
  [[ $allowed == *" $name "* ]] || fail "needs $name"
done
if grep -Eq '\bRPATH|\bRUNPATH' <<< "$dynamic"; then fail "has a run-time search path"; fi

# The library starts no thread, so it cannot refer to anything that does.
if nm -D --undefined-only "$library" | grep -E 'pthread_create|thrd_create|_M_start_thread'; then
  fail "refers to a function that starts threads"
fi

# Kernels for a processor that may not be there define nothing that the linker could take for others.
objects=("$(dirname "$library")"/CMakeFiles/orvel_k*.dir/utils/kernels/kernels.cpp.o)
for object in "${objects[@]}"; do
  defined=$(nm --defined-only "$object" | awk '$2 ~ /^[A-Zu-w]$/ {print $3}')
  [[ $defined =~ ^_ZN5ORVEL5UTILS[0-9]+k[A-Za-z0-9]+E$ ]] || fail "$object defines $defined"
done
[ "${#objects[@]}" -ge 1 ]
