#!/usr/bin/env bash
# Installs what the build and the tests need on Debian 12: i386 multiarch, the MinGW-w64 cross
# compilers, Wine (64-bit with its 32-bit half), Xvfb and CMake. Idempotent and quiet when done.
set -euo pipefail

packages=(wine wine64 wine32:i386 g++-mingw-w64-i686-posix mingw-w64-tools binutils-mingw-w64-i686
          xvfb xauth cmake make locales googletest)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive

echo "setup: installing ${missing[*]}" >&2
if ! dpkg --print-foreign-architectures | grep -qx i386; then
  $sudo dpkg --add-architecture i386
fi
# The i386 index of the security suite may fail to download; that is not fatal.
$sudo apt-get update -qq || true

# amd64 libraries from the security suite can be newer than anything the i386 index has, which makes
# wine32:i386 uninstallable. Install in one transaction with apt seeing only the non-security suites,
# derived from the machine's own source list.
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir -p "$scratch/parts"
derived=0
for f in /etc/apt/sources.list.d/*.sources; do
  [ -e "$f" ] || continue
  # Stanzas are separated by blank lines; drop those whose suites are all "-security".
  awk 'BEGIN { RS=""; ORS="\n\n" } !/Suites:[^\n]*-security/' "$f" > "$scratch/parts/$(basename "$f")"
  [ -s "$scratch/parts/$(basename "$f")" ] && derived=1
done
if [ -f /etc/apt/sources.list ]; then
  grep -E '^[[:space:]]*deb(-src)?[[:space:]]' /etc/apt/sources.list | grep -v -- '-security' \
    > "$scratch/parts/derived.list" || true
  [ -s "$scratch/parts/derived.list" ] && derived=1
fi

install=(apt-get install -y -qq --no-install-recommends "${packages[@]}")
if [ "$derived" -eq 1 ]; then
  $sudo apt-get update -qq -o Dir::Etc::SourceParts="$scratch/parts" -o Dir::Etc::SourceList=/dev/null || true
  if ! $sudo "${install[@]}" -o Dir::Etc::SourceParts="$scratch/parts" -o Dir::Etc::SourceList=/dev/null; then
    $sudo apt-get update -qq || true
    $sudo "${install[@]}"
  fi
  # Leave apt's ordinary lists as they were for the rest of the machine.
  $sudo apt-get update -qq || true
else
  $sudo "${install[@]}"
fi
