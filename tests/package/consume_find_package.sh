#!/bin/bash
# consume_find_package.sh CMAKE CC PREFIX VERSION: builds and runs the consumer with orvel::orvel.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
cmake=$1 cc=$2 prefix=$3 version=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$cmake" -S "$here/consumer" -B "$work" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_COMPILER="$cc" \
  -DORVEL_EXPECTED_VERSION="$version"
"$cmake" --build "$work"
"$work/consumer" "$(cat "$work/model_dir")"
