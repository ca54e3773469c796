#!/usr/bin/env bash
# check-imports.sh OBJDUMP DLL ALLOWED... - every DLL that DLL imports must be a Windows system DLL
# (one that Wine ships as part of the system) or one of the ALLOWED names.
set -euo pipefail
objdump=$1 dll=$2; shift 2
allowed=" $(echo "$*" | tr 'A-Z' 'a-z') "

system_dir=""
for d in /usr/lib/i386-linux-gnu/wine/i386-windows /usr/lib/wine/i386-windows /usr/lib32/wine/i386-windows; do
  [ -d "$d" ] && { system_dir=$d; break; }
done
[ -n "$system_dir" ] || { echo "check-imports: no Wine system directory found" >&2; exit 2; }

bad=0
imports=$("$objdump" -p "$dll" | sed -n 's/^[[:space:]]*DLL Name: //p')
[ -n "$imports" ] || { echo "check-imports: $dll shows no imports" >&2; exit 2; }
for name in $imports; do
  lower=$(echo "$name" | tr 'A-Z' 'a-z')
  if [[ "$allowed" == *" $lower "* ]]; then
    echo "  $name (runtime, shipped beside the library)"
  elif [ -f "$system_dir/$lower" ]; then
    echo "  $name (system)"
  else
    echo "  $name: NOT a system DLL and not allowed" >&2
    bad=1
  fi
done
exit $bad
