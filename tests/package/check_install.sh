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
  printf 'share/doc/orvel/%s\n' LICENSE NOTICE THIRD_PARTY.md orvel.spdx.json licenses/libmd.txt
  printf 'share/man/man1/orvel%s.1\n' '' -clean -completion -info -keys -models -report -vad
  printf 'share/%s\n' bash-completion/completions/orvel zsh/vendor-completions/_orvel \
    fish/vendor_completions.d/orvel.fish
  # The arithmetic and the resampler that were chosen, and what the command uses.
  for part in "$(chosen MATH)" "$(chosen RESAMPLER)" command; do
    case $part in
      mkl) printf 'share/doc/orvel/licenses/%s\n' MKL.txt mkl-third-party-programs.txt ;;
      speexdsp) echo share/doc/orvel/licenses/speexdsp.txt ;;
      command) printf 'share/doc/orvel/licenses/%s.txt\n' CLI11 LGPL-2.1 libebur128 nlohmann-json ;;
    esac
  done
}
chosen() { sed -n "s/^ORVEL_$1:.*=//p" "$build/CMakeCache.txt"; }
diff <(expected | sort) <(cd "$prefix" && find . ! -type d -printf '%P\n' | sort) ||
  fail "what was installed (>) differs from what should be (<)"

# Each library that is linked has its row in the notices, and each notice its text.
notices=$prefix/share/doc/orvel
for name in $(objdump -p "$prefix/$lib/liborvel.so" "$prefix/bin/orvel" | awk '$1 == "NEEDED" {print $2}'); do
  case $name in
    libc.so.* | libm.so.* | libstdc++.so.* | libgcc_s.so.* | ld-linux-*) ;;
    liborvel.so.*) ;;
    *) grep -Eq "linked dynamically.*(LGPL|BSD|MIT)" <(grep -i "${name%%.so*}" "$notices/THIRD_PARTY.md") ||
      fail "$name is linked, and THIRD_PARTY.md does not say so" ;;
  esac
done
for text in $(grep -o 'licenses/[A-Za-z0-9.-]*' "$notices/THIRD_PARTY.md"); do
  [ -s "$notices/$text" ] || fail "THIRD_PARTY.md names $text, which is not installed"
done

# The bill of materials agrees with the files, with what they link and with the notices.
python3 - "$prefix" "$version" "$(chosen MATH)" "$(chosen RESAMPLER)" <<'END'
import hashlib, json, re, subprocess, sys
from pathlib import Path
prefix, version = Path(sys.argv[1]), sys.argv[2]
bill = json.loads((prefix / "share/doc/orvel/orvel.spdx.json").read_text())
assert bill["spdxVersion"] == "SPDX-2.3" and bill["documentNamespace"].startswith("https://")
files = {entry["fileName"]: entry for entry in bill["files"]}
there = {f"./{path.relative_to(prefix)}" for path in prefix.rglob("*") if path.is_file() and not path.is_symlink()}
assert set(files) == there - {"./share/doc/orvel/orvel.spdx.json"}, set(files) ^ there
for name, entry in files.items():
    digests = {one["algorithm"]: one["checksumValue"] for one in entry["checksums"]}
    assert digests["SHA256"] == hashlib.sha256((prefix / name).read_bytes()).hexdigest(), name
packages = {entry["name"]: entry for entry in bill["packages"]}
assert packages["orvel"]["versionInfo"] == version
links = {(r["spdxElementId"], r["relatedSpdxElement"]) for r in bill["relationships"]}
for name in files:
    needed = subprocess.run(["readelf", "-dW", prefix / name], capture_output=True, text=True).stdout
    for soname in re.findall(r"\(NEEDED\).*\[(.+?)\.so", needed):
        assert soname == "liborvel" or (files[name]["SPDXID"], packages[soname]["SPDXID"]) in links, (name, soname)
compiled_in = {"mkl", "libresample"} & set(sys.argv[3:])
assert {"mkl", "libresample"} & set(packages) == compiled_in, "parts that the build does not have"
assert {"CLI11", "nlohmann-json", "libsndfile"} <= set(packages), set(packages)
for name, entry in packages.items():
    assert entry["versionInfo"][0].isdigit() and entry["licenseDeclared"] != "NOASSERTION", entry
END

# The installed command finds its library and its models beside itself, not in the build folder.
mv "$stage" "$stage.moved"
trap 'mv "$stage.moved" "$stage"' EXIT
moved=$stage.moved/usr
resolved=$(ldd "$moved/bin/orvel" | grep liborvel || true)
[[ $resolved == *"$moved"/* ]] || fail "the moved command loads $resolved"
"$moved/bin/orvel" --version | grep -F "$version"
