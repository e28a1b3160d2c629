#!/bin/bash
# check_make_install.sh WORK_DIR: what `make install` would build, and what it says when it cannot.
set -euo pipefail
work=$1
cd "$(dirname "$0")/../.."
fail() { echo "FAIL: $*" >&2; exit 1; }
rm -rf "$work"
mkdir -p "$work/bin"

# Library and command only.
cmake --preset install -B "$work/build" > /dev/null
ninja -C "$work/build" -t commands orvel orvel_cli > "$work/commands"
grep -q 'tools/orvel' "$work/commands" || fail "the command would not be built"
! grep -E " -c $PWD/(tests|bench|fuzz)/" "$work/commands" || fail "tests or benchmarks would be built"

# An environment without compilers: one line names all of them, and nobody calls apt or pip.
for tool in bash dirname sed grep nproc; do ln -s "$(command -v "$tool")" "$work/bin"; done
for tool in apt-get pip pip3 python3 sudo; do
  printf '#!/bin/bash\necho %s >> "%s/called"\n' "$tool" "$work" > "$work/bin/$tool"
  chmod +x "$work/bin/$tool"
done
refused=0
PATH=$work/bin CC=cc CXX=c++ scripts/install "$work/prefix" 2> "$work/message" || refused=$?
[ "$refused" = 1 ] || fail "exit code $refused without a compiler"
[ "$(cat "$work/message")" = \
  "install: not installed: cmake (cmake), ninja (ninja-build), cc (gcc), c++ (g++)" ] ||
  fail "message: $(cat "$work/message")"
[ ! -e "$work/called" ] || fail "called $(cat "$work/called")"

# Missing libraries are named in one line as well.
! cmake --preset install -B "$work/lacking" -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON \
  -DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=ON > "$work/log" 2>&1 ||
  fail "configured without CLI11 and JSON for Modern C++"
grep -q '^orvel: not installed: CLI11 (libcli11-dev), JSON for Modern C++ (nlohmann-json3-dev)$' \
  "$work/log" || fail "message: $(cat "$work/log")"
