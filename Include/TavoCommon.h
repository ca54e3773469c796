// TavoCommon: the common functions of the suite. A program includes this one header and links
// TavoCommon.dll (libTavoCommon.dll.a with MinGW: link libgcc shared, -shared-libgcc, so that a
// CAtlException thrown inside the library reaches your catch).
//
// Conventions of every export:
// - Text functions come as wide and narrow twins (suffix W / A, or one name overloaded). Narrow text
//   is in the calling thread's ANSI code page.
// - A string value (CStringW, CStringA) belongs to the caller. A const pointer from a cached getter
//   belongs to the library and stays valid until the library unloads; never free it.
// - Failures give an HRESULT (long) where the function returns one, an empty value otherwise, and a
//   line on the diagnostic channel (CorvDebug.dll, when present) in any case.
// - Only resource exhaustion and misuse of the string layer throw: CAtlException, never caught by
//   the library.
// - Any thread may call any function at any time.
#ifndef TAVO_COMMON_H
#define TAVO_COMMON_H

#include "TavoStrings.h"

namespace Tavo {

// Whole seconds since 1970-01-01 00:00:00; -1 stands for failure.
typedef __int64 Time;

// Shapes of a time string.
enum TIME_FORMAT {
    TIME_FORMAT_MDY = 0,       // month/day/year
    TIME_FORMAT_ISO8601 = 1,   // year-month-dayThour:minute:second
};

// Operating-system codes, in the order of the releases.
enum {
    OS_OTHER = 0,
    OS_WIN2000 = 1,
    OS_WINXP = 2,
    OS_VISTA = 3,
    OS_WIN7 = 4,
    OS_WIN8 = 5,
    OS_NEWER_THAN_WIN8 = 6,
};

// ---- Library --------------------------------------------------------------------------------

// The library's own file version as "major.minor.build.revision", from its version resource.
// Cached: computed at the first call, the same pointer afterwards. Empty if the resource cannot be
// read. The narrow form converts the wide text in the code page of the thread that called first.
TAVO_API const wchar_t* GetLibraryVersionW();
TAVO_API const char* GetLibraryVersionA();

// ---- Module file names ----------------------------------------------------------------------

// Full path of a loaded module; null names the process's executable. A new value at each call;
// empty, with an error line, when the platform gives no name (GetModuleFileNameW, 520 characters).
TAVO_API CStringW GetModuleFileNameW(HINSTANCE hModule);
TAVO_API CStringA GetModuleFileNameA(HINSTANCE hModule);
// The directory of that module: no final backslash unless it is a root directory.
TAVO_API CStringW GetModulePathNameW(HINSTANCE hModule);
TAVO_API CStringA GetModulePathNameA(HINSTANCE hModule);

} // namespace Tavo

#endif
