#!/usr/bin/env bash
# Installs what the build and the tests need on Debian 12: i386 multiarch, the MinGW-w64 cross
# compilers, Wine (64-bit with its 32-bit half), Xvfb and CMake; on a machine that cannot run 32-bit
# x86 code, an emulator for Wine's 32-bit half. Idempotent and silent when done; while installing,
# apt's output goes to $TAVO_SETUP_LOG and only a summary line is printed.
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

sudo=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    if [ ${#missing[@]} -ne 0 ]; then
      echo "setup: missing ${missing[*]}; run as root or install sudo" >&2
      exit 1
    fi
  # Without a terminal (CI) a password prompt would only hang.
  elif [ -t 0 ]; then sudo=(sudo); else sudo=(sudo -n); fi
fi
export DEBIAN_FRONTEND=noninteractive

log=${TAVO_SETUP_LOG:-${TMPDIR:-/tmp}/tavo-setup-debian.log}
mkdir -p "$(dirname "$log")"
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

# The machine's own apt sources without the security suite, as parts in $scratch/parts; 1 if any.
derive_sources() {
  mkdir -p "$scratch/parts"
  local f derived=0
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
  echo $derived
}

install_packages() {
  echo "setup: installing ${missing[*]} (log: $log)" >&2
  if ! dpkg --print-foreign-architectures | grep -qx i386; then
    as_root dpkg --add-architecture i386
  fi
  # The i386 index of the security suite may fail to download; that is not fatal.
  as_root apt-get update -qq || true

  # amd64 libraries from the security suite can be newer than anything the i386 index has, which
  # makes wine32:i386 uninstallable. Install in one transaction with apt seeing only the
  # non-security suites, derived from the machine's own source list.
  local install=(apt-get install -y -qq --no-install-recommends "${packages[@]}")
  if [ "$(derive_sources)" -eq 1 ]; then
    local only_derived=(-o Dir::Etc::SourceParts="$scratch/parts" -o Dir::Etc::SourceList=/dev/null)
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

  local p still=()
  for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || still+=("$p")
  done
  if [ ${#still[@]} -ne 0 ]; then
    echo "setup: still missing after the install: ${still[*]}" >>"$log"
    exit 1
  fi
  echo "setup: installed ${#missing[@]} packages in $((SECONDS - started)) s" >&2
}

# Some virtual machines execute no 32-bit x86 code at all: a 32-bit program fails with "Exec format
# error", and so does Wine's 32-bit loader, which every test needs. There qemu's user-mode emulator
# runs that half of Wine, registered with binfmt_misc for i386 programs. It must be qemu 8 or newer:
# Debian 12's own 7.2 takes about a minute to start one Wine program, the release's backports suite
# (10.x) a third of a second.
binfmt=/proc/sys/fs/binfmt_misc
i386_probe=/usr/lib/i386-linux-gnu/ld-linux.so.2
i386_runs_natively() {
  local entry=$binfmt/qemu-i386 result=0
  [ -f "$entry" ] && echo 0 | "${sudo[@]}" tee "$entry" >/dev/null
  "$i386_probe" --version >/dev/null 2>&1 || result=1
  [ -f "$entry" ] && echo 1 | "${sudo[@]}" tee "$entry" >/dev/null
  return $result
}

install_emulator() {
  local version codename uris
  version=$(dpkg-query -W -f='${Version}' qemu-user-static 2>/dev/null || true)
  if [ -n "$version" ] && dpkg --compare-versions "$version" ge 1:8; then return 0; fi
  codename=$(. /etc/os-release && echo "${VERSION_CODENAME:-}")
  [ "$(derive_sources)" -eq 1 ] || { echo "setup: no apt source to derive the backports suite from" >>"$log"; exit 1; }
  # The release's own mirror, as the machine's source list names it.
  uris=$(awk -v suite="$codename" 'BEGIN { RS="" } $0 ~ "Suites:[^\n]*[[:space:]]" suite "([[:space:]]|$)" {
             if (match($0, /URIs:[[:space:]]*[^[:space:]\n]+/)) { u = substr($0, RSTART, RLENGTH); sub(/URIs:[[:space:]]*/, "", u); print u; exit } }' \
         "$scratch"/parts/*.sources 2>/dev/null | head -n 1)
  [ -n "$uris" ] || uris=$(awk -v suite="$codename" '$1 == "deb" && $3 == suite { print $2; exit }' \
                             "$scratch/parts/derived.list" 2>/dev/null)
  [ -n "$uris" ] && [ -n "$codename" ] || { echo "setup: cannot derive the backports suite" >>"$log"; exit 1; }
  mkdir -p "$scratch/backports"
  printf 'Types: deb\nURIs: %s\nSuites: %s-backports\nComponents: main\n' "$uris" "$codename" \
    > "$scratch/backports/backports.sources"
  local only_backports=(-o Dir::Etc::SourceParts="$scratch/backports" -o Dir::Etc::SourceList=/dev/null
                        -o APT::Architectures::=amd64)
  echo "setup: this machine runs no 32-bit x86 code; installing qemu-user-static from $codename-backports" >&2
  as_root apt-get update -qq "${only_backports[@]}"
  as_root apt-get install -y -qq --no-install-recommends -t "$codename-backports" "${only_backports[@]}" \
    qemu-user-static
  as_root apt-get update -qq || true
}

register_emulator() {
  [ -f "$binfmt/register" ] || as_root mount -t binfmt_misc binfmt_misc "$binfmt"
  # Registered anew each time, so that the entry holds the emulator installed now (flag F opens the
  # file once, at registration). The magic and mask match any i386 ELF executable.
  [ -f "$binfmt/qemu-i386" ] && { echo -1 | "${sudo[@]}" tee "$binfmt/qemu-i386" >/dev/null; }
  local entry=':qemu-i386:M::\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x03\x00'
  entry+=':\xff\xff\xff\xff\xff\xfe\xfe\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
  entry+=':/usr/bin/qemu-i386-static:F'
  echo "$entry" | "${sudo[@]}" tee "$binfmt/register" >/dev/null
}

[ ${#missing[@]} -eq 0 ] || install_packages

if [ -x "$i386_probe" ] && ! i386_runs_natively; then
  install_emulator
  register_emulator
  if ! "$i386_probe" --version >/dev/null 2>&1; then
    echo "setup: 32-bit x86 programs cannot run here, not even emulated; Wine's 32-bit half is unusable" >&2
    exit 1
  fi
fi
