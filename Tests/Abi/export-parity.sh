#!/usr/bin/env bash
# export-parity.sh MINGW_DLL MSVC_DLL - do both builds of TavoCommon.dll export the same functions?
# Each export is demangled (GCC names with c++filt, Microsoft names with llvm-undname) and brought to
# one form, "Tavo::GetModuleFileNameW(HINSTANCE__*)": no return type, calling convention, class/struct
# keyword or spacing, __int64 spelled long long, (void) as (). Exits 1 and lists the functions that
# only one build exports; 0 with their count when the two lists are equal.
set -euo pipefail
if [ $# -ne 2 ]; then
  echo "usage: export-parity.sh MINGW_DLL MSVC_DLL" >&2
  exit 2
fi
mingw_dll=$1 msvc_dll=$2
for f in "$mingw_dll" "$msvc_dll"; do
  [ -f "$f" ] || { echo "export-parity.sh: no such file: $f" >&2; exit 2; }
done

pick() { # first tool of the list that exists
  local t
  for t in "$@"; do command -v "$t" >/dev/null 2>&1 && { echo "$t"; return; }; done
  echo "export-parity.sh: none of $* is installed" >&2
  exit 2
}
objdump=$(pick i686-w64-mingw32-objdump)
cxxfilt=$(pick i686-w64-mingw32-c++filt c++filt)
readobj=$(pick llvm-readobj-16 llvm-readobj)
undname=$(pick llvm-undname-16 llvm-undname)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The export names, one a line.
"$objdump" -p "$mingw_dll" |
  sed -n '/^\[Ordinal\/Name Pointer\] Table/,/^$/s/^[[:space:]]*\[ *[0-9]*\] //p' >"$work/mingw.names"
"$readobj" --coff-exports "$msvc_dll" | sed -n 's/^[[:space:]]*Name: //p' >"$work/msvc.names"
for side in mingw msvc; do
  if [ ! -s "$work/$side.names" ]; then
    echo "export-parity.sh: no exports found in the $side DLL" >&2
    exit 1
  fi
done

# Demangled forms, one a line in the order of the names. A name that is not C++ passes unchanged.
# A stdcall C++ name carries @N, which c++filt does not read.
sed "s/^\(_Z.*\)@[0-9]*$/\1/" "$work/mingw.names" | "$cxxfilt" -n >"$work/mingw.demangled"
while IFS= read -r name; do
  case "$name" in
    \?*) "$undname" "$name" | sed -n 2p ;;
    *) printf '%s\n' "$name" ;;
  esac
done <"$work/msvc.names" >"$work/msvc.demangled"

# One form for both. The Microsoft form puts access, return type and calling convention before the
# name: what precedes the calling convention outside any () or <> goes, and so does the type of a
# data export. A C name loses a stdcall decoration (_Name@8).
normalise() {
  awk '
    function top_level_cut(s,    i, c, depth, rest) {
      depth = 0
      for (i = 1; i <= length(s); i++) {
        c = substr(s, i, 1)
        if (c == "(" || c == "<") depth++
        else if (c == ")" || c == ">") depth--
        else if (depth == 0 && c == "_") {
          rest = substr(s, i)
          if (match(rest, /^__(cdecl|stdcall|thiscall|fastcall|vectorcall) /))
            return substr(rest, RLENGTH + 1)
        }
      }
      return ""
    }
    function tight(s) {   # no space around punctuation, single spaces elsewhere
      gsub(/  +/, " ", s)
      gsub(/ *\* */, "*", s); gsub(/ *& */, "\\&", s); gsub(/ *, */, ",", s)
      gsub(/ *\( */, "(", s); gsub(/ *\) */, ")", s); gsub(/ *< */, "<", s); gsub(/ *> */, ">", s)
      sub(/^ /, "", s); sub(/ $/, "", s)
      return s
    }
    {
      s = $0
      if (s !~ /[(<: ]/) {                       # a C name
        sub(/^_/, "", s); sub(/@[0-9]+$/, "", s)
        print s; next
      }
      cut = top_level_cut(s)
      if (cut != "") s = cut
      else if (s !~ /\(/) { n = split(s, w, " "); s = w[n] }   # data: its name only
      gsub(/__(cdecl|stdcall|thiscall|fastcall|vectorcall|ptr32)/, "", s)
      gsub(/__int64/, "long long", s)
      s = tight(s)
      # The convention of a callback parameter comes as a bare word: "(stdcall*)".
      gsub(/\((cdecl|stdcall|thiscall|fastcall)\*/, "(*", s)
      while (match(s, /(^|[^A-Za-z0-9_])(class|struct|union|enum) /)) {
        keep = substr(s, RSTART, 1)
        if (keep ~ /[a-z]/) keep = ""
        s = substr(s, 1, RSTART - 1) keep substr(s, RSTART + RLENGTH)
      }
      gsub(/\(void\)/, "()", s)
      print s
    }'
}
normalise <"$work/mingw.demangled" | LC_ALL=C sort -u >"$work/mingw.sigs"
normalise <"$work/msvc.demangled" | LC_ALL=C sort -u >"$work/msvc.sigs"

only_mingw=$(LC_ALL=C comm -23 "$work/mingw.sigs" "$work/msvc.sigs")
only_msvc=$(LC_ALL=C comm -13 "$work/mingw.sigs" "$work/msvc.sigs")
if [ -z "$only_mingw" ] && [ -z "$only_msvc" ]; then
  echo "export parity: both builds export the same $(wc -l <"$work/mingw.sigs") functions"
  exit 0
fi
echo "export parity: the two builds of TavoCommon.dll export different functions"
if [ -n "$only_mingw" ]; then
  echo "only in the MinGW build ($mingw_dll):"
  sed 's/^/  /' <<<"$only_mingw"
fi
if [ -n "$only_msvc" ]; then
  echo "only in the Microsoft-ABI build ($msvc_dll):"
  sed 's/^/  /' <<<"$only_msvc"
fi
exit 1
