#!/usr/bin/env bash
# package.sh BUILD MSVC_BUILD OUT - writes OUT/TavoCommon-<version>-win32.zip from a finished MinGW
# build and Microsoft-ABI build of the same sources and prints its path as the last line.
# The archive holds one directory of that name: include/ (the public headers, once), mingw/ and
# msvc/ (each an install prefix of its ABI: bin/, lib/, lib/cmake/TavoCommon), examples/ and
# README.txt.
set -euo pipefail
build=$(realpath "$1") msvc=$(realpath "$2") out=$(realpath -m "$3")
root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)

fail() { echo "package.sh: $*" >&2; exit 1; }
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
[ -n "$version" ] || fail "$build is no configured build"
# The four parts the library's version resource carries.
while [ "$(tr -cd . <<<"$version" | wc -c)" -lt 3 ]; do version=$version.0; done
name=TavoCommon-$version-win32
stage=$out/$name

rm -rf "$stage" "$out/$name.zip"
mkdir -p "$stage"
cmake --install "$build" --prefix "$stage/mingw" >/dev/null
cmake --install "$msvc" --prefix "$stage/msvc" >/dev/null
# One include/ for both: the headers are the same for every compiler.
diff -r "$stage/mingw/include" "$stage/msvc/include" >/dev/null || fail "the two builds install different headers"
mv "$stage/mingw/include" "$stage/include"
rm -r "$stage/msvc/include"
# The sink is loaded by name beside the library, whichever ABI that is.
cp "$stage/mingw/bin/CorvDebug.dll" "$stage/msvc/bin/"
mkdir "$stage/examples"
cp "$root"/examples/* "$stage/examples/"
sed "s/@VERSION@/$version/g" "$root/cmake/package-readme.txt" >"$stage/README.txt"

(cd "$out" && cmake -E tar cf "$name.zip" --format=zip "$name")
rm -rf "$stage"
echo "$out/$name.zip"
