#!/bin/bash
# check_install.sh CMAKE BUILD_DIR STAGE VERSION: installs /usr below STAGE and looks at what is there.
set -euo pipefail
export LC_ALL=C
cmake=$1 build=$2 stage=$3 version=$4
cd "$(dirname "$0")/../.."
fail() { echo "FAIL: $*" >&2; exit 1; }
prefix=$stage/usr
rm -rf "$stage"
DESTDIR=$stage "$cmake" --install "$build" --prefix /usr > /dev/null

# Everything that belongs there, and nothing else.
lib=$(cd "$prefix" && dirname lib*/liborvel.so lib*/*/liborvel.so 2> /dev/null | grep -v '\*')
expected() {
  echo bin/orvel
  printf "$lib/%s\n" liborvel.so "liborvel.so.${version%%.*}" "liborvel.so.$version" pkgconfig/orvel.pc
  printf "$lib/cmake/orvel/%s.cmake\n" orvelConfig orvelConfigVersion orvelTargets orvelTargets-release
  (cd include && find orvel -type f -printf 'include/%p\n')
  find models -type f -printf 'share/orvel/%p\n'
  printf 'share/doc/orvel/%s\n' LICENSE NOTICE THIRD_PARTY.md licenses/mkl-third-party-programs.txt
  find licenses -type f -printf 'share/doc/orvel/%p\n'
}
diff <(expected | sort) <(cd "$prefix" && find . ! -type d -printf '%P\n' | sort) ||
  fail "what was installed (>) differs from what should be (<)"

# Each library that is linked has its row in the notices, and each notice its text.
notices=$prefix/share/doc/orvel
for name in $(objdump -p "$prefix/$lib/liborvel.so" "$prefix/bin/orvel" | awk '$1 == "NEEDED" {print $2}'); do
  case $name in
    libc.so.* | libm.so.* | libstdc++.so.* | libgcc_s.so.* | ld-linux-*) ;;
    liborvel.so.*) ;;
    *) grep -q "linked dynamically.*LGPL" <(grep -i "${name%%.so*}" "$notices/THIRD_PARTY.md") ||
      fail "$name is linked, and THIRD_PARTY.md does not say so" ;;
  esac
done
for text in $(grep -o 'licenses/[A-Za-z0-9.-]*' "$notices/THIRD_PARTY.md"); do
  [ -s "$notices/$text" ] || fail "THIRD_PARTY.md names $text, which is not installed"
done

# The installed command finds its library and its models beside itself, not in the build folder.
mv "$stage" "$stage.moved"
trap 'mv "$stage.moved" "$stage"' EXIT
moved=$stage.moved/usr
resolved=$(ldd "$moved/bin/orvel" | grep liborvel || true)
[[ $resolved == *"$moved"/* ]] || fail "the moved command loads $resolved"
"$moved/bin/orvel" --version | grep -F "$version"
