#!/bin/bash
# check_reproducible.sh BUILD_DIR WORK_DIR MKL_ROOT: the library and the command once more, from a copy of the
# sources in a folder of another name and depth, are the same to the last byte.
set -euo pipefail
build=$1 work=$2/a/folder/of/another/depth mkl=${3:-}
cd "$(dirname "$0")/../.."
fail() { echo "FAIL: $*" >&2; exit 1; }

rm -rf "$2"
mkdir -p "$work/source"
cp -r CMakeLists.txt CMakePresets.json LICENSE NOTICE THIRD_PARTY.md cmake containers include licenses models \
  noise_canceller orv-sdk scripts tools utils weights "$work/source"
export MKLROOT=$mkl
cd "$work/source"
# What is built is chosen as in the first build.
mapfile -t choices < <(sed -n 's/^\(ORVEL_\(MATH\|RESAMPLER*\)\):STRING=\(.*\)/-D\1=\3/p' "$build/CMakeCache.txt")
cmake -G Ninja -B "$work/out" -DCMAKE_BUILD_TYPE=Release -DORVEL_BUILD_TESTS=OFF \
  "${choices[@]}" > /dev/null
cmake --build "$work/out" --target orvel orvel_cli
for tree in "$build" "$work/out"; do
  DESTDIR=$2/$(basename "$tree") cmake --install "$tree" --prefix /usr > /dev/null
done
cd "$2"
count=0
while read -r file; do
  cmp "$(basename "$build")/$file" "out/$file" || fail "$file depends on the folder it was built in"
  count=$((count + 1))
done < <(cd out && find usr/bin usr/lib* -type f \( -name 'liborvel*' -o -name orvel \))
[ "$count" = 2 ] || fail "$count files were compared"
rm -rf "$2"
