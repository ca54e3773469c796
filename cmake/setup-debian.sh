#!/usr/bin/env bash
# Installs what the build and the tests need on Debian 12: i386 multiarch, the MinGW-w64 cross
# compilers, Wine (64-bit with its 32-bit half), Xvfb and CMake. Idempotent and silent when done;
# while installing, apt's output goes to $TAVO_SETUP_LOG and only a summary line is printed.
set -euo pipefail

packages=(wine wine64 wine32:i386 g++-mingw-w64-i686-posix mingw-w64-tools binutils-mingw-w64-i686
          xvfb xauth cmake make locales googletest
          clang-16 lld-16 llvm-16 libwine-dev)

if ! command -v dpkg-query >/dev/null; then
  echo "setup: not a Debian system; install by hand: ${packages[*]}" >&2
  exit 0
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "setup: missing ${missing[*]}; run as root or install sudo" >&2
    exit 1
  fi
  # Without a terminal (CI) a password prompt would only hang.
  if [ -t 0 ]; then sudo=(sudo); else sudo=(sudo -n); fi
fi
export DEBIAN_FRONTEND=noninteractive

log=${TAVO_SETUP_LOG:-${TMPDIR:-/tmp}/tavo-setup-debian.log}
mkdir -p "$(dirname "$log")"
: > "$log"
echo "setup: installing ${missing[*]} (log: $log)" >&2
started=$SECONDS

scratch=$(mktemp -d)
on_exit() {
  status=$?
  rm -rf "$scratch"
  if [ $status -ne 0 ]; then
    echo "setup: failed (status $status); the end of $log:" >&2
    tail -n 30 "$log" >&2
  fi
}
trap on_exit EXIT

# Everything apt and dpkg say goes to the log.
as_root() { "${sudo[@]}" "$@" >>"$log" 2>&1; }

if ! dpkg --print-foreign-architectures | grep -qx i386; then
  as_root dpkg --add-architecture i386
fi
# The i386 index of the security suite may fail to download; that is not fatal.
as_root apt-get update -qq || true

# amd64 libraries from the security suite can be newer than anything the i386 index has, which makes
# wine32:i386 uninstallable. Install in one transaction with apt seeing only the non-security suites,
# derived from the machine's own source list.
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
  only_derived=(-o Dir::Etc::SourceParts="$scratch/parts" -o Dir::Etc::SourceList=/dev/null)
  as_root apt-get update -qq "${only_derived[@]}" || true
  if ! as_root "${install[@]}" "${only_derived[@]}"; then
    echo "setup: install from the non-security suites failed; trying the full source list" >>"$log"
    as_root apt-get update -qq || true
    as_root "${install[@]}"
  fi
  # Leave apt's ordinary lists as they were for the rest of the machine.
  as_root apt-get update -qq || true
else
  as_root "${install[@]}"
fi

still=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || still+=("$p")
done
if [ ${#still[@]} -ne 0 ]; then
  echo "setup: still missing after the install: ${still[*]}" >>"$log"
  exit 1
fi
echo "setup: installed ${#missing[@]} packages in $((SECONDS - started)) s" >&2
