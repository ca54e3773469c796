#!/usr/bin/env bash
# consumer-test.sh CMAKE BUILD SOURCE WORK GENERATOR MAKE OBJDUMP VERSION
# Installs the build into a scratch prefix, moves the prefix (the package must be relocatable),
# builds a program against the package alone and runs it under both kinds of Windows: the library's
# version must print and the exception thrown inside TavoCommon.dll must reach the program's catch.
set -euo pipefail
cmake=$1 build=$2 source=$3 work=$4 generator=$5 make=$6 objdump=$7 version=$8
export TAVO_WINE_ROOT=${TAVO_WINE_ROOT:-$build/wine}

fail() { echo "ConsumerFindPackage: $*" >&2; exit 1; }
logged() {  # logged LOG COMMAND...: the command's output only when it fails
  local log=$1; shift
  "$@" >"$log" 2>&1 || { cat "$log" >&2; fail "failed: $*"; }
}

rm -rf "$work/stage" "$work/prefix" "$work/app"
mkdir -p "$work"
logged "$work/install.log" "$cmake" --install "$build" --prefix "$work/stage"
mv "$work/stage" "$work/prefix"
prefix=$work/prefix

for f in bin/TavoCommon.dll bin/libgcc_s_dw2-1.dll bin/libwinpthread-1.dll bin/CorvDebug.dll \
         bin/tavoinfo.exe lib/libTavoCommon.dll.a \
         lib/cmake/TavoCommon/TavoCommonConfig.cmake lib/cmake/TavoCommon/TavoCommonConfigVersion.cmake; do
  [ -f "$prefix/$f" ] || fail "the install lacks $f"
done
for h in "$source"/Include/*; do
  cmp -s "$h" "$prefix/include/$(basename "$h")" || fail "the install lacks include/$(basename "$h") as in Include/"
done
if grep -rq -- "$work/stage" "$prefix/lib/cmake"; then
  fail "the package names the prefix it was installed to"
fi

# No package registry: the prefix given is the only place the package may come from.
logged "$work/configure.log" "$cmake" -S "$source/Tests/Consumer/app" -B "$work/app" -G "$generator" \
  -DCMAKE_MAKE_PROGRAM="$make" -DCMAKE_TOOLCHAIN_FILE="$source/cmake/toolchain-mingw-i686.cmake" \
  -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF \
  -DCMAKE_FIND_USE_SYSTEM_PACKAGE_REGISTRY=OFF
found=$(sed -n 's/^TavoCommon_DIR:[A-Z]*=//p' "$work/app/CMakeCache.txt")
[ "$found" = "$prefix/lib/cmake/TavoCommon" ] || fail "find_package took the package from '$found'"
logged "$work/build.log" "$cmake" --build "$work/app"

exe=$work/app/consumer.exe
[ -f "$exe" ] || fail "no $exe"
imports=$("$objdump" -p "$exe" | sed -n 's/^[[:space:]]*DLL Name: //p')
for dll in TavoCommon.dll libgcc_s_dw2-1.dll; do
  grep -qx "$dll" <<<"$imports" || fail "consumer.exe does not import $dll; it imports: $(echo $imports)"
done
cp "$prefix"/bin/*.dll "$work/app/"

expected=$(printf '%s\n%s' "$version" "caught 0x80070057")
for kind in win64 win32; do
  status=0
  output=$(cd "$work/app" && "$source/cmake/wine-run.sh" "$kind" "$exe" 2>"$work/$kind.stderr") || status=$?
  output=${output//$'\r'/}
  echo "--- $kind (exit $status)"
  echo "$output"
  cat "$work/$kind.stderr"
  [ "$status" -eq 0 ] || fail "consumer.exe exited with $status under $kind"
  [ "$output" = "$expected" ] || fail "consumer.exe printed other than expected under $kind; expected:
$expected"
done
echo "ConsumerFindPackage: the installed package builds, links and catches under win64 and win32"
