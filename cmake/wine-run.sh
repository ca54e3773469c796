#!/usr/bin/env bash
# wine-run.sh KIND [PROGRAM [ARGS...]] - runs a Windows program under Wine in the prefix of one kind
# of Windows: win64 (64-bit Windows, 32-bit programs under WOW64) or win32. The prefixes live under
# $TAVO_WINE_ROOT (default: ./wine) and are made on first use; without PROGRAM, only that.
set -euo pipefail
kind=${1:-}
case "$kind" in win64|win32) ;; *) echo "wine-run.sh: unknown kind '$kind' (win64 or win32)" >&2; exit 2 ;; esac
shift
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
      # A half-made prefix would be taken for a finished one by every later run.
      if [ ! -f "$WINEPREFIX/system.reg" ]; then
        echo "wine-run.sh: could not create the $kind prefix in $WINEPREFIX" >&2
        exit 1
      fi
    fi
  ) 9>"$root/.$kind.lock"
fi
# A program that crashes ends at once with its exception code, as on Windows without a debugger,
# instead of waiting on the crash dialog until its test times out.
if [ ! -f "$WINEPREFIX/.no-crash-dialog" ]; then
  wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f >/dev/null 2>&1 &&
    touch "$WINEPREFIX/.no-crash-dialog"
fi
[ $# -eq 0 ] && exit 0
exec wine "$@"
