// Run-time functions that ucrtbase.dll exports and Microsoft's headers declare, but Wine's C run-time
// headers do not. Forced into every source of the Microsoft-ABI build, so the library's code needs no
// per-compiler branches.
#pragma once

#include <time.h>

extern "C" {
__declspec(dllimport) __time64_t __cdecl _mkgmtime64(struct tm* ptm);
__declspec(dllimport) errno_t __cdecl _gmtime64_s(struct tm* ptm, const __time64_t* ptime);
}
