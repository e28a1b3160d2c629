#!/bin/bash
# check_install.sh CMAKE BUILD_DIR PREFIX VERSION: installs into a fresh prefix and looks at it.
set -euo pipefail
cmake=$1 build=$2 prefix=$3 version=$4
rm -rf "$prefix"
"$cmake" --install "$build" --prefix "$prefix" > /dev/null

for file in include/orvel/orv_sdk.h include/orvel/orv_sdk_ext.h "lib*/liborvel.so.$version" \
  "lib*/liborvel.so.${version%%.*}" "lib*/liborvel.so" "lib*/pkgconfig/orvel.pc" \
  "lib*/cmake/orvel/orvelConfig.cmake" share/orvel/models/orvel-16k.ctl \
  share/orvel/models/orvel-16k.bin share/doc/orvel/LICENSE share/doc/orvel/THIRD_PARTY.md bin/orvel
do
  compgen -G "$prefix/$file" > /dev/null || { echo "FAIL: $file was not installed" >&2; exit 1; }
done

# The installed command finds its library and its models beside itself, not in the build folder.
mv "$prefix" "$prefix.moved"
trap 'mv "$prefix.moved" "$prefix"' EXIT
resolved=$(ldd "$prefix.moved/bin/orvel" | grep liborvel || true)
if [ -n "$resolved" ] && [[ $resolved != *"$prefix.moved"/* ]]; then
  echo "FAIL: the moved command loads $resolved" >&2
  exit 1
fi
"$prefix.moved/bin/orvel" --version | grep -F "$version"
