#!/usr/bin/env bash
# package-test.sh SOURCE BUILD MSVC_BUILD WORK GENERATOR MAKE OBJDUMP
# Writes the release archive from the two builds, unpacks it in a scratch directory (the package
# must not depend on where it was made) and, for each C++ ABI, builds a program against it with
# find_package alone - both ABIs' prefixes given, so the package itself must turn the wrong one away -
# and runs it under both kinds of Windows: the library's version must print and the exception thrown
# inside TavoCommon.dll must reach the program's catch.
set -euo pipefail
source=$1 build=$2 msvc=$3 work=$4 generator=$5 make=$6 objdump=$7
export TAVO_WINE_ROOT=${TAVO_WINE_ROOT:-$build/wine}

fail() { echo "PackageConsumers: $*" >&2; exit 1; }
logged() {  # logged LOG COMMAND...: the command's output only when it fails
  local log=$1; shift
  "$@" >"$log" 2>&1 || { cat "$log" >&2; fail "failed: $*"; }
}

rm -rf "$work"
mkdir -p "$work/unpacked"
logged "$work/package.log" bash "$source/cmake/package.sh" "$build" "$msvc" "$work/out"
zip=$(tail -n 1 "$work/package.log")
[[ "$zip" == "$work/out/TavoCommon-"*"-win32.zip" && -f "$zip" ]] || fail "no archive: '$zip'"
(cd "$work/unpacked" && cmake -E tar xf "$zip")
name=$(basename "$zip" .zip)
root=$work/unpacked/$name
version=${name#TavoCommon-}
version=${version%-win32}

for f in README.txt examples/Product.cfg examples/Language.de.lng \
         mingw/bin/TavoCommon.dll mingw/bin/TavoCommon.dll.debug mingw/bin/libgcc_s_dw2-1.dll \
         mingw/bin/libwinpthread-1.dll mingw/bin/CorvDebug.dll mingw/bin/tavoinfo.exe mingw/lib/libTavoCommon.dll.a \
         msvc/bin/TavoCommon.dll msvc/bin/TavoCommon.pdb msvc/bin/CorvDebug.dll msvc/lib/TavoCommon.lib; do
  [ -f "$root/$f" ] || fail "the archive lacks $f"
done
for abi in mingw msvc; do
  for f in TavoCommonConfig.cmake TavoCommonConfigVersion.cmake; do
    [ -f "$root/$abi/lib/cmake/TavoCommon/$f" ] || fail "the archive lacks $abi/lib/cmake/TavoCommon/$f"
  done
done
for h in "$source"/Include/*; do
  cmp -s "$h" "$root/include/$(basename "$h")" || fail "the archive lacks include/$(basename "$h") as in Include/"
done
[ ! -e "$root/mingw/include" ] && [ ! -e "$root/msvc/include" ] || fail "the headers stand more than once"
if grep -rq -e "$work/out" -e "$build" "$root"/*/lib/cmake; then
  fail "the package names the directory it was made in"
fi
# The shipped MinGW DLL carries no debug information of its own, only the link to its file.
sections=$("$objdump" -h "$root/mingw/bin/TavoCommon.dll")
grep -q '\.gnu_debuglink' <<<"$sections" || fail "mingw/bin/TavoCommon.dll has no .gnu_debuglink"
! grep -q '\.debug_info' <<<"$sections" || fail "mingw/bin/TavoCommon.dll is not stripped"

expected=$(printf "%s\n%s" "$version" "caught 0x80070057")
for abi in mingw msvc; do
  app=$work/app-$abi
  extra=()
  [ "$abi" = msvc ] && extra=(-C "$msvc/consumer-runtime.cmake")
  # No package registry: the prefixes given are the only places the package may come from.
  logged "$work/$abi-configure.log" cmake "${extra[@]}" -S "$source/Tests/Consumer/app" -B "$app" -G "$generator" \
    -DCMAKE_MAKE_PROGRAM="$make" -DCMAKE_TOOLCHAIN_FILE="$source/cmake/toolchain-$abi-i686.cmake" \
    -DCMAKE_PREFIX_PATH="$root/mingw;$root/msvc" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF \
    -DCMAKE_FIND_USE_SYSTEM_PACKAGE_REGISTRY=OFF
  found=$(sed -n 's/^TavoCommon_DIR:[A-Z]*=//p' "$app/CMakeCache.txt")
  [ "$found" = "$root/$abi/lib/cmake/TavoCommon" ] || fail "the $abi program took the package from '$found'"
  logged "$work/$abi-build.log" cmake --build "$app"
  exe=$app/consumer.exe
  [ -f "$exe" ] || fail "no $exe"
  cp "$root/$abi"/bin/*.dll "$app/"
  for kind in win64 win32; do
    status=0
    output=$(cd "$app" && "$source/cmake/wine-run.sh" "$kind" "$exe" 2>"$work/$abi-$kind.stderr") || status=$?
    output=${output//$'\r'/}
    echo "--- $abi program under $kind (exit $status)"
    echo "$output"
    cat "$work/$abi-$kind.stderr"
    [ "$status" -eq 0 ] || fail "the $abi program exited with $status under $kind"
    [ "$output" = "$expected" ] || fail "the $abi program printed other than expected under $kind; expected:
$expected"
  done
done
echo "PackageConsumers: $name builds, links and catches for both ABIs under win64 and win32"
