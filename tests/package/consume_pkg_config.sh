#!/bin/bash
# consume_pkg_config.sh CC PREFIX VERSION: builds and runs the consumer with orvel.pc.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
cc=$1 prefix=$2 version=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

libdir=$(dirname "$(compgen -G "$prefix/lib*/liborvel.so" || compgen -G "$prefix/lib/*/liborvel.so")")
PKG_CONFIG_PATH=$libdir/pkgconfig
export PKG_CONFIG_PATH
[ "$(pkg-config --modversion orvel)" = "$version" ]
read -ra flags <<< "$(pkg-config --cflags --libs orvel)"
"$cc" -std=c99 -Wall -Wextra -Werror "$here/consumer/consumer.c" "${flags[@]}" -o "$work/consumer"
LD_LIBRARY_PATH=$libdir "$work/consumer" "$(pkg-config --variable=modeldir orvel)"
