#!/bin/bash
# consume_pkg_config.sh CC CXX PREFIX VERSION: builds and runs the consumers with orvel.pc.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
cc=$1 cxx=$2 prefix=$3 version=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

libdir=$(dirname "$(compgen -G "$prefix/lib*/liborvel.so" || compgen -G "$prefix/lib/*/liborvel.so")")
PKG_CONFIG_PATH=$libdir/pkgconfig
export PKG_CONFIG_PATH
[ "$(pkg-config --modversion orvel)" = "$version" ]
read -ra flags <<< "$(pkg-config --cflags --libs orvel)"
"$cc" -std=c99 -Wall -Wextra -Werror "$here/consumer/consumer.c" "${flags[@]}" -o "$work/consumer"
# The C++ header in two translation units of one program.
"$cxx" -std=c++20 -Wall -Wextra -Werror "$here/consumer/consumer.cpp" "$here/consumer/second_unit.cpp" \
  "${flags[@]}" -o "$work/consumer_cpp"
for program in consumer consumer_cpp; do
  LD_LIBRARY_PATH=$libdir "$work/$program" "$(pkg-config --variable=modeldir orvel)"
done
