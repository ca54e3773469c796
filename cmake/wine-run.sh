#!/usr/bin/env bash
# wine-run.sh KIND PROGRAM [ARGS...] - runs a Windows program under Wine in the prefix of one kind of
# Windows: win64 (64-bit Windows, 32-bit programs under WOW64) or win32. The prefixes live under
# $TAVO_WINE_ROOT (default: ./wine) and are made on first use.
set -euo pipefail
kind=$1; shift
case "$kind" in win64|win32) ;; *) echo "wine-run.sh: unknown kind '$kind'" >&2; exit 2 ;; esac
root=${TAVO_WINE_ROOT:-$PWD/wine}
export WINEPREFIX="$root/$kind" WINEARCH="$kind" WINEDEBUG=${WINEDEBUG:--all}
# No Mono or Gecko installer dialogs: nothing here needs them.
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}

if [ ! -f "$WINEPREFIX/system.reg" ]; then
  mkdir -p "$root"
  (
    flock 9
    if [ ! -f "$WINEPREFIX/system.reg" ]; then
      echo "wine-run.sh: creating the $kind prefix (once)" >&2
      wineboot -i >/dev/null 2>&1 || true
      wineserver -w
    fi
  ) 9>"$root/.$kind.lock"
fi
exec wine "$@"
