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

// ---- Formatting: strings, messages, errors ---------------------------------------------------

// The formatter every family uses. A format that contains "%1" anywhere is a message format (the
// platform's FormatMessage inserts %1, %2, %1!d!); any other is a printf format in the platform
// run-time's dialect (in a wide format %s is wide and %hs narrow; in a narrow one %s is narrow and
// %ls wide). szFormat must not be null. A printf format that gives no character count throws
// CAtlException(E_FAIL).
TAVO_API CStringW __cdecl FormatStringW(const wchar_t* szFormat, ...);
TAVO_API CStringA __cdecl FormatStringA(const char* szFormat, ...);
TAVO_API CStringW FormatStringVW(const wchar_t* szFormat, va_list args);
TAVO_API CStringA FormatStringVA(const char* szFormat, va_list args);
// The message dialect alone; empty, with a soft-check line, when the platform refuses the format.
TAVO_API CStringW __cdecl FormatMessageW(const wchar_t* szFormat, ...);
TAVO_API CStringA __cdecl FormatMessageA(const char* szFormat, ...);
TAVO_API CStringW FormatMessageVW(const wchar_t* szFormat, va_list args);
TAVO_API CStringA FormatMessageVA(const char* szFormat, va_list args);
// "80070057 - <the system's text, line end included>", or the hexadecimal number alone when the
// system has no text for it. The buffer form copies that text with the bounded copy.
TAVO_API CStringW FormatErrorW(unsigned long dwError);
TAVO_API CStringA FormatErrorA(unsigned long dwError);
TAVO_API long FormatErrorW(unsigned long dwError, wchar_t* szBuffer, int cchBufferMax);
TAVO_API long FormatErrorA(unsigned long dwError, char* szBuffer, int cchBufferMax);

// ---- Paths and directories ----------------------------------------------------------------------

// Plain string work with the backslash as the only separator; never touches the disk.
// Joins with exactly one backslash; an empty or null piece gives the other one.
TAVO_API CStringW PathCombineW(const wchar_t* szPath, const wchar_t* szFile);
TAVO_API CStringA PathCombineA(const char* szPath, const char* szFile);
// Cuts at the last dot of the whole string and appends the extension, given with or without its dot;
// a null or empty extension removes it.
TAVO_API CStringW PathRenameExtensionW(const wchar_t* szFile, const wchar_t* szExtension);
TAVO_API CStringA PathRenameExtensionA(const char* szFile, const char* szExtension);
// "\Program Files (x86)" and "\SysWOW64" replaced by their native names, case exact.
TAVO_API CStringW ConvertWow64Path(const wchar_t* szPath);
TAVO_API CStringA ConvertWow64Path(const char* szPath);
// Creates every missing directory of an absolute path. S_OK when the path is a directory at the
// end; E_INVALIDARG for an empty or null path; otherwise the failed step's error as an HRESULT.
TAVO_API long CreateDirectoryW(const wchar_t* szPath);
TAVO_API long CreateDirectoryA(const char* szPath);

// ---- Tokens, GUIDs, registry keys ---------------------------------------------------------------

// Appends the tokens between runs of delimiters (any character of the set) to aTokens, which is
// never cleared; runs give no empty tokens. E_INVALIDARG for a null string or a null or empty
// delimiter set (the character 0 is an empty set). The narrow form keeps a double-byte character
// whole in the run-time's multi-byte code page.
TAVO_API long SplitString(const char* szString, const char* szDelimiters, CAtlArray<CStringA>& aTokens);
TAVO_API long SplitString(const char* szString, char cDelimiter, CAtlArray<CStringA>& aTokens);
TAVO_API long SplitString(const wchar_t* szString, const wchar_t* szDelimiters, CAtlArray<CStringW>& aTokens);
TAVO_API long SplitString(const wchar_t* szString, wchar_t cDelimiter, CAtlArray<CStringW>& aTokens);
// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}", upper case.
TAVO_API CStringW StringFromGuidW(const GUID& guid);
TAVO_API CStringA StringFromGuidA(const GUID& guid);
// Parses the braced form or the same without braces; the all-zero GUID on failure.
TAVO_API GUID GuidFromString(const wchar_t* szGuid);
TAVO_API GUID GuidFromString(const char* szGuid);
// The key's native full name ("\REGISTRY\MACHINE\..."), asked of ntdll's ZwQueryKey at each call;
// empty on failure. A predefined root such as HKEY_CURRENT_USER is no open key and fails.
TAVO_API CStringW StringFromHKEYW(HKEY hKey);
TAVO_API CStringA StringFromHKEYA(HKEY hKey);

// ---- Configuration: Product.cfg beside the library -----------------------------------------------

// Any key of any INI file, however long its value. The file comes first, unlike the platform's
// function; a null default gives the empty string for an absent key.
TAVO_API CStringW GetPrivateProfileStringW(const wchar_t* szFile, const wchar_t* szSection, const wchar_t* szKey,
                                           const wchar_t* szDefault);
TAVO_API CStringA GetPrivateProfileStringA(const char* szFile, const char* szSection, const char* szKey,
                                           const char* szDefault);
// Typed readers of Product.cfg; a null or empty section means "Config". Every key has its default,
// so no file at all is no error. A present but empty value gives the empty string here...
TAVO_API CStringW GetConfigString(const wchar_t* szKey, const wchar_t* szDefault, const wchar_t* szSection = NULL);
TAVO_API CStringA GetConfigString(const char* szKey, const char* szDefault, const char* szSection = NULL);
// ...and the default here. 0/1, false/true, off/on, no/yes in any case; anything else is reported.
TAVO_API BOOL GetConfigBOOL(const wchar_t* szKey, BOOL bDefault, const wchar_t* szSection = NULL);
TAVO_API BOOL GetConfigBOOL(const char* szKey, BOOL bDefault, const char* szSection = NULL);
// A decimal number from 0 to 2147483646; anything else is reported and gives the default.
TAVO_API DWORD GetConfigDWORD(const wchar_t* szKey, DWORD dwDefault, const wchar_t* szSection = NULL);
TAVO_API DWORD GetConfigDWORD(const char* szKey, DWORD dwDefault, const char* szSection = NULL);
// The default applies to an absent key only; a present, malformed value gives the all-zero GUID.
TAVO_API GUID GetConfigGuid(const wchar_t* szKey, GUID guidDefault, const wchar_t* szSection = NULL);
TAVO_API GUID GetConfigGuid(const char* szKey, GUID guidDefault, const char* szSection = NULL);

// ---- Identity and locations ---------------------------------------------------------------------

// Every getter below is cached: computed at its first call, the same pointer afterwards, owned by
// the library until it unloads, never null, never freed by the caller. A narrow form converts the
// wide value in the code page of the thread that called it first. A later change to Product.cfg is
// seen only by a new process.

// The company's and the product's names from Product.cfg ([Config] Company, CompanyName, Product,
// ProductName, ShortcutName), each with its own built-in default; a present but empty key gives "".
TAVO_API const wchar_t* GetCompanyW();
TAVO_API const char* GetCompanyA();
TAVO_API const wchar_t* GetCompanyNameW();
TAVO_API const char* GetCompanyNameA();
TAVO_API const wchar_t* GetProductW();
TAVO_API const char* GetProductA();
TAVO_API const wchar_t* GetProductNameW();
TAVO_API const char* GetProductNameA();
TAVO_API const wchar_t* GetShortcutNameW();
TAVO_API const char* GetShortcutNameA();

// The directory of TavoCommon.dll, whatever program loaded it.
TAVO_API const wchar_t* GetInstallDirectoryW();
TAVO_API const char* GetInstallDirectoryA();
// Data directories, created at the first call. Normally the user's and the machine's application
// data folders joined with AppDataPath (default Company\Product); with IsPortable=yes in Product.cfg
// AppDataPath alone (relative to the current directory if relative) and its subdirectory UserData.
// The shared one is the machine's folder joined with InterAppDataPath (default Company\Common),
// portable or not. A directory that cannot be made is reported and returned all the same.
TAVO_API const wchar_t* GetUserDataDirectoryW();
TAVO_API const char* GetUserDataDirectoryA();
TAVO_API const wchar_t* GetAppDataDirectoryW();
TAVO_API const char* GetAppDataDirectoryA();
TAVO_API const wchar_t* GetInterAppDataDirectoryW();
TAVO_API const char* GetInterAppDataDirectoryA();
// The install directory joined with HelpFile (default Product.chm).
TAVO_API const wchar_t* GetHelpFilePathW();
TAVO_API const char* GetHelpFilePathA();
// MainExe (default Product.exe), and the install directory joined with it.
TAVO_API const wchar_t* GetMainExeFileW();
TAVO_API const char* GetMainExeFileA();
TAVO_API const wchar_t* GetMainExePathW();
TAVO_API const char* GetMainExePathA();
// "Software\" followed by RegKey (default Company\Product), without a root key.
TAVO_API const wchar_t* GetMainRegistryKeyW();
TAVO_API const char* GetMainRegistryKeyA();
// A shell folder by CSIDL_ id (hWnd: owner of any window the shell shows), created if missing and
// kept per id. Null, with an error line, when the shell refuses; the next call asks again.
TAVO_API const wchar_t* GetSpecialFolderW(int nFolder, HWND hWnd);
TAVO_API const char* GetSpecialFolderA(int nFolder, HWND hWnd);

// ---- Language and localised text ------------------------------------------------------------------

// String number uID of module hInstance; a null hInstance names the module of the code that calls.
// The language file comes first: Language.<code>.lng in the install directory, <code> the ISO 639
// language of the locale of the thread that called the library first, section the module's file
// name with its extension ([Foo.dll]), key the number in decimal; a non-empty value there is
// returned as it stands. Otherwise the module's string table, with %PRODUCT% and %COMPANY% replaced
// by GetProductNameW and GetCompanyNameW and, for the pseudo-language "xx", every letter outside
// a printf directive masked to X or x. Empty when neither has it (a missing table also gives an
// error line). The narrow forms read the file and the table through the platform's narrow calls.
TAVO_API CStringW LoadStringW(UINT uID, HINSTANCE hInstance);
TAVO_API CStringA LoadStringA(UINT uID, HINSTANCE hInstance);
// The same text copied into szBuffer, cut to cchBufferMax - 1 characters and terminated, with an
// error line when it does not fit; returns the text's full length, fitted or not.
TAVO_API int LoadStringW(HINSTANCE hInstance, UINT uID, wchar_t* szBuffer, int cchBufferMax);
TAVO_API int LoadStringA(HINSTANCE hInstance, UINT uID, char* szBuffer, int cchBufferMax);

// ---- Re-texting windows and menus ------------------------------------------------------------------

// A window and every window below it (depth first, each before its children), or a menu and all its
// submenus, given the texts of the current language. A control's or an item's identifier is its
// string number in hInstance (null: the calling module), loaded as LoadStringA loads it, language file
// first. A window whose identifier has no string keeps its own text with %PRODUCT% and %COMPANY%
// filled in (under the language "xx" masked instead) and is set only when that text is not empty. A
// menu item with no string keeps its text untouched; separators and other typed items, identifier 0
// and the caption of a submenu are passed over. Narrow only: text goes through the active code page.
// S_OK when all was done. The first failure ends the walk, what was done stays, and its HRESULT comes
// back: an invalid handle gives the last error's (0x8007001F for none).
TAVO_API long ResetText(HWND hWnd, HINSTANCE hInstance);
TAVO_API long ResetText(HMENU hMenu, HINSTANCE hInstance);

// ---- Time: the library's time value and its conversions -----------------------------------------

// No function here reports failure except through its result: a Time of -1, an all-zero FILETIME or
// SYSTEMTIME, and a line on the diagnostic channel. A Time has no zone mark; it is read one of three
// ways, and the caller must know which one it holds:
// - universal: true seconds since 1970 UTC;
// - local: the local wall clock encoded as though it were UTC (differs by the zone's offset);
// - unshifted: the calendar fields that went in, with no zone arithmetic (the input's reading).
// Milliseconds are dropped on the way in and zero on the way out.

// Now, universal (_time64).
TAVO_API Time GetUniversalTime();
// Now, local reading.
TAVO_API Time GetLocalTime();
// Midnight starting the current day: the local date in the local reading when bLocal, else midnight
// UTC. Always a multiple of 86400.
TAVO_API Time GetToday(bool bLocal);
// Fields to Time, unshifted. Out-of-range fields write a line each (year below 1900, month, day,
// hour, minute, second) and are still normalised (31 February is early March, hour 24 the next
// day); wDayOfWeek and wMilliseconds are not read. -1 outside 1970 to the end of 3000.
TAVO_API Time SystemTimeToTime(const SYSTEMTIME& st);
// UTC breakdown of time with no zone arithmetic; wMilliseconds 0. A value outside the run-time's
// range gives wYear 1899, wMonth 0 and 0xFFFF in the other time fields, with no line.
TAVO_API SYSTEMTIME TimeToSystemTime(Time time);
// Ticks to Time, unshifted, sub-second ticks dropped. A zero FILETIME gives 0 with no line.
TAVO_API Time FileTimeToTime(const FILETIME& ft);
// time * 10000000 + 116444736000000000 ticks, unchecked: -1 gives one second before 1970.
TAVO_API FILETIME TimeToFileTime(Time time);
// The platform conversions, returning the value: all zero, with a line, for an impossible date or a
// FILETIME with its top bit set.
TAVO_API FILETIME SystemTimeToFileTime(const SYSTEMTIME& st);
TAVO_API SYSTEMTIME FileTimeToSystemTime(const FILETIME& ft);
// Fields to Time, unshifted; nMonth counts from 1. The same range lines as SystemTimeToTime.
TAVO_API Time MakeTime(int nYear, int nMonth, int nDay, int nHour, int nMin, int nSec);
// OLE Automation date (days since 1899-12-30) to Time, unshifted.
TAVO_API Time OleDateToTime(double dtSrc);
// DOS date word (day, month, year - 1980) and time word (seconds / 2, minutes, hours), unchecked
// and unshifted: zero words normalise to 1979-11-30.
TAVO_API Time DosTimeToTime(unsigned short wDosDate, unsigned short wDosTime);
// Universal to local and back. The Time and SYSTEMTIME forms apply the zone's offset at the date of
// the value; the FILETIME forms apply the offset in force now, whatever the date.
TAVO_API Time UniversalToLocalTime(Time time);
TAVO_API Time LocalToUniversalTime(Time time);
TAVO_API FILETIME UniversalToLocalTime(const FILETIME& ft);
TAVO_API FILETIME LocalToUniversalTime(const FILETIME& ft);
TAVO_API SYSTEMTIME UniversalToLocalTime(const SYSTEMTIME& st);
TAVO_API SYSTEMTIME LocalToUniversalTime(const SYSTEMTIME& st);


// ---- Time strings, comparison and today ------------------------------------------------------------

// Text read as local wall-clock time, giving a universal Time; -1, with a line, when the run-time
// refuses the fields. TIME_FORMAT_MDY reads "%d/%d/%d" (month/day/year), TIME_FORMAT_ISO8601
// "%d-%d-%dT%d:%d:%d"; the year has four digits. Fields not scanned stay 0 and are normalised (a
// missing day is the last of the month before); nothing behind the last field is read, so no zone
// is taken from the text. Null, empty or unreadable text and any other format give -1.
TAVO_API Time StringToTime(const wchar_t* szTime, TIME_FORMAT format);
TAVO_API Time StringToTime(const char* szTime, TIME_FORMAT format);
// TimeToFileTime and TimeToSystemTime (UTC fields) of StringToTime, whose -1 is passed on unseen.
TAVO_API FILETIME StringToFileTime(const wchar_t* szTime, TIME_FORMAT format);
TAVO_API FILETIME StringToFileTime(const char* szTime, TIME_FORMAT format);
TAVO_API SYSTEMTIME StringToSystemTime(const wchar_t* szTime, TIME_FORMAT format);
TAVO_API SYSTEMTIME StringToSystemTime(const char* szTime, TIME_FORMAT format);
// -1, 0 or 1 as CompareFileTime gives for the two values, counting only the fields whose bit is set
// in uMask: 0x01 wMilliseconds, 0x02 wSecond, 0x04 wMinute, 0x08 wHour, 0x10 wDay, 0x20 wMonth,
// 0x40 wYear (0x70 dates, 0x0F times of day, 0 nothing). A cleared field becomes 0, or 1 for day
// and month, 1900 for the year; a copy that is then no valid date (29 February without the year
// bit) writes a line and sorts before every valid date. wDayOfWeek never counts.
TAVO_API long CompareSystemTime(SYSTEMTIME st1, SYSTEMTIME st2, unsigned int uMask);
// Whether the value falls on the current UTC date. No zone arithmetic: the argument is taken as UTC,
// so a local reading is compared with the UTC date too.
TAVO_API bool IsToday(const SYSTEMTIME& st);
TAVO_API bool IsToday(const FILETIME& ft);
TAVO_API bool IsToday(Time time);


// ---- Number formatting -----------------------------------------------------------------------------

// A number in the user's regional form (LOCALE_USER_DEFAULT, read afresh at each call): decimal and
// thousands separators, grouping, leading zero and negative form. The value is printed as plain
// digits ("%I64d", "%I64u"; a double or float with nPrecision places, rounded by the run-time's
// %f and always with "." as its point, whatever the run-time's locale) and handed to
// GetNumberFormat with NumDigits the printed places, so the platform never rounds. The narrow forms
// use the narrow platform calls throughout.
// Buffer forms: S_OK, or the platform's error as an HRESULT with an error line (0x8007007A for a
// buffer too small; a NaN or an infinity is refused as invalid, except at 0 places, where msvcrt
// prints it as "1" or "-1"). cchBufferMax 0 gives S_OK and writes nothing; neither szBuffer nor
// cchBufferMax is checked by the library.
// Value forms: the text, or the empty string with the lines when it fails or needs over 127
// characters.
TAVO_API CStringW FormatNumberW(int n);
TAVO_API CStringW FormatNumberW(unsigned int n);
TAVO_API CStringW FormatNumberW(unsigned long n);
TAVO_API CStringW FormatNumberW(__int64 n);
TAVO_API CStringW FormatNumberW(unsigned __int64 n);
TAVO_API CStringW FormatNumberW(double d, unsigned short nPrecision);
TAVO_API CStringW FormatNumberW(float f, unsigned short nPrecision);
TAVO_API CStringA FormatNumberA(int n);
TAVO_API CStringA FormatNumberA(unsigned int n);
TAVO_API CStringA FormatNumberA(unsigned long n);
TAVO_API CStringA FormatNumberA(__int64 n);
TAVO_API CStringA FormatNumberA(unsigned __int64 n);
TAVO_API CStringA FormatNumberA(double d, unsigned short nPrecision);
TAVO_API CStringA FormatNumberA(float f, unsigned short nPrecision);
TAVO_API long FormatNumberW(int n, wchar_t* szBuffer, int cchBufferMax);
TAVO_API long FormatNumberW(unsigned int n, wchar_t* szBuffer, int cchBufferMax);
TAVO_API long FormatNumberW(unsigned long n, wchar_t* szBuffer, int cchBufferMax);
TAVO_API long FormatNumberW(__int64 n, wchar_t* szBuffer, int cchBufferMax);
TAVO_API long FormatNumberW(unsigned __int64 n, wchar_t* szBuffer, int cchBufferMax);
TAVO_API long FormatNumberW(double d, wchar_t* szBuffer, int cchBufferMax, unsigned short nPrecision);
TAVO_API long FormatNumberW(float f, wchar_t* szBuffer, int cchBufferMax, unsigned short nPrecision);
TAVO_API long FormatNumberA(int n, char* szBuffer, int cchBufferMax);
TAVO_API long FormatNumberA(unsigned int n, char* szBuffer, int cchBufferMax);
TAVO_API long FormatNumberA(unsigned long n, char* szBuffer, int cchBufferMax);
TAVO_API long FormatNumberA(__int64 n, char* szBuffer, int cchBufferMax);
TAVO_API long FormatNumberA(unsigned __int64 n, char* szBuffer, int cchBufferMax);
TAVO_API long FormatNumberA(double d, char* szBuffer, int cchBufferMax, unsigned short nPrecision);
TAVO_API long FormatNumberA(float f, char* szBuffer, int cchBufferMax, unsigned short nPrecision);

// ---- Byte-size and version formatting --------------------------------------------------------------

// A size in the largest unit it reaches, counted in 1024s up to TB: "1,023 bytes", "1.50 KB",
// "16,777,216.00 TB". The number is FormatNumberW with 2 places (0 for bytes); the unit is string
// 101-105 of the library ("%s bytes" ... "%s TB"), which a language file may replace in either format
// dialect. The unit is chosen on the exact count, so 1048575 gives "1,024.00 KB". A missing unit
// string gives the empty string, a failed number the unit alone (" KB"). The narrow value form
// converts the wide text in the thread's code page.
// Buffer forms: szBuffer null gives E_POINTER; otherwise the bounded copy's result with an error line
// when it fails (E_INVALIDARG for cchBufferMax 0, 0x8007007A with the text cut and terminated).
TAVO_API CStringW FormatBytesW(unsigned __int64 lBytes);
TAVO_API CStringA FormatBytesA(unsigned __int64 lBytes);
TAVO_API long FormatBytesW(unsigned __int64 lBytes, wchar_t* szBuffer, int cchBufferMax);
TAVO_API long FormatBytesA(unsigned __int64 lBytes, char* szBuffer, int cchBufferMax);
// The first min(nPrecision, 4) 16-bit fields of lVersion, most significant first, as plain decimals
// joined by ".": 0x0001000200030004 with 2 gives "1.2"; 0 fields give the empty string. No locale.
// Buffer forms: szBuffer null gives E_POINTER; cchBufferMax 0 gives the last error as an HRESULT
// (0x8007001F when there is none) with an error line; a text too long is cut and terminated and gives
// 0x8007007A with an error line.
TAVO_API CStringW FormatVersionW(unsigned __int64 lVersion, unsigned short nPrecision);
TAVO_API CStringA FormatVersionA(unsigned __int64 lVersion, unsigned short nPrecision);
TAVO_API long FormatVersionW(unsigned __int64 lVersion, wchar_t* szBuffer, int cchBufferMax, unsigned short nPrecision);
TAVO_API long FormatVersionA(unsigned __int64 lVersion, char* szBuffer, int cchBufferMax, unsigned short nPrecision);

// ---- Date and time formatting ----------------------------------------------------------------------

// A moment in the current user's regional patterns (GetDateFormat, GetTimeFormat with
// LOCALE_USER_DEFAULT, read afresh at each call). No zone arithmetic: a SYSTEMTIME shows its fields,
// a FILETIME or Time the UTC fields of FileTimeToSystemTime / TimeToSystemTime; convert with
// UniversalToLocalTime first for the local clock. wDayOfWeek is never read. A Time of -1 is not
// recognised as failure. The narrow forms call the platform's narrow functions themselves.
//
// Date: the long pattern when bLong, else the short one. Time: seconds shown when bSeconds.
// Buffer forms: S_OK, or the platform's error as an HRESULT (0x8007007A for a buffer too small,
// content then left as the platform left it), with an error line; cchBufferMax 0 gives S_OK and
// writes nothing. szBuffer may be null only with cchBufferMax 0.
// Value forms: the text, or the empty string with a line when it fails or needs over 127 characters.
TAVO_API long FormatDateW(const SYSTEMTIME& st, wchar_t* szBuffer, int cchBufferMax, bool bLong);
TAVO_API long FormatDateW(const FILETIME& ft, wchar_t* szBuffer, int cchBufferMax, bool bLong);
TAVO_API long FormatDateW(Time time, wchar_t* szBuffer, int cchBufferMax, bool bLong);
TAVO_API long FormatDateA(const SYSTEMTIME& st, char* szBuffer, int cchBufferMax, bool bLong);
TAVO_API long FormatDateA(const FILETIME& ft, char* szBuffer, int cchBufferMax, bool bLong);
TAVO_API long FormatDateA(Time time, char* szBuffer, int cchBufferMax, bool bLong);
TAVO_API CStringW FormatDateW(const SYSTEMTIME& st, bool bLong);
TAVO_API CStringW FormatDateW(const FILETIME& ft, bool bLong);
TAVO_API CStringW FormatDateW(Time time, bool bLong);
TAVO_API CStringA FormatDateA(const SYSTEMTIME& st, bool bLong);
TAVO_API CStringA FormatDateA(const FILETIME& ft, bool bLong);
TAVO_API CStringA FormatDateA(Time time, bool bLong);
TAVO_API long FormatTimeW(const SYSTEMTIME& st, wchar_t* szBuffer, int cchBufferMax, bool bSeconds);
TAVO_API long FormatTimeW(const FILETIME& ft, wchar_t* szBuffer, int cchBufferMax, bool bSeconds);
TAVO_API long FormatTimeW(Time time, wchar_t* szBuffer, int cchBufferMax, bool bSeconds);
TAVO_API long FormatTimeA(const SYSTEMTIME& st, char* szBuffer, int cchBufferMax, bool bSeconds);
TAVO_API long FormatTimeA(const FILETIME& ft, char* szBuffer, int cchBufferMax, bool bSeconds);
TAVO_API long FormatTimeA(Time time, char* szBuffer, int cchBufferMax, bool bSeconds);
TAVO_API CStringW FormatTimeW(const SYSTEMTIME& st, bool bSeconds);
TAVO_API CStringW FormatTimeW(const FILETIME& ft, bool bSeconds);
TAVO_API CStringW FormatTimeW(Time time, bool bSeconds);
TAVO_API CStringA FormatTimeA(const SYSTEMTIME& st, bool bSeconds);
TAVO_API CStringA FormatTimeA(const FILETIME& ft, bool bSeconds);
TAVO_API CStringA FormatTimeA(Time time, bool bSeconds);
// "<short date> <time>", one fixed blank. Never fails as a whole: a part that fails is left empty
// (only the blank when both fail). The buffer forms copy that text with the bounded copy and return
// its result with no line: E_INVALIDARG for cchBufferMax 0, 0x8007007A with the text cut and
// terminated. szBuffer must not be null. The narrow FILETIME and Time buffer forms convert the wide
// text in the thread's code page, which can differ from the narrow platform text.
TAVO_API CStringW FormatDateTimeW(const SYSTEMTIME& st, bool bSeconds);
TAVO_API CStringW FormatDateTimeW(const FILETIME& ft, bool bSeconds);
TAVO_API CStringW FormatDateTimeW(Time time, bool bSeconds);
TAVO_API CStringA FormatDateTimeA(const SYSTEMTIME& st, bool bSeconds);
TAVO_API CStringA FormatDateTimeA(const FILETIME& ft, bool bSeconds);
TAVO_API CStringA FormatDateTimeA(Time time, bool bSeconds);
TAVO_API long FormatDateTimeW(const SYSTEMTIME& st, wchar_t* szBuffer, int cchBufferMax, bool bSeconds);
TAVO_API long FormatDateTimeW(const FILETIME& ft, wchar_t* szBuffer, int cchBufferMax, bool bSeconds);
TAVO_API long FormatDateTimeW(Time time, wchar_t* szBuffer, int cchBufferMax, bool bSeconds);
TAVO_API long FormatDateTimeA(const SYSTEMTIME& st, char* szBuffer, int cchBufferMax, bool bSeconds);
TAVO_API long FormatDateTimeA(const FILETIME& ft, char* szBuffer, int cchBufferMax, bool bSeconds);
TAVO_API long FormatDateTimeA(Time time, char* szBuffer, int cchBufferMax, bool bSeconds);

// ---- Operating system: identification, WOW64, system directories, file search ---------------

// The OS code (OS_OTHER ... OS_NEWER_THAN_WIN8) from GetVersionExA, computed once per process. A
// server edition has the code of its client; 10.0 as reported gives OS_OTHER. pnServicePack, when
// not null, receives the service pack's major number, -1 on a platform that is not NT.
TAVO_API int GetOS(int* pnServicePack);
TAVO_API int GetOS();
TAVO_API bool IsXP();
TAVO_API bool IsWinXPOrNewer();
TAVO_API bool IsVista();
TAVO_API bool IsWinVistaOrNewer();
TAVO_API bool IsWin7();
TAVO_API bool IsWin7OrNewer();
TAVO_API bool IsWin8();
TAVO_API bool IsWin8OrNewer();

// WOW64. The platform's entries are looked up at every call, so the library loads where they are
// missing: then the two-argument IsWow64Process warns and returns 0, the redirection calls return 0.
TAVO_API bool Is64BitWindows();
TAVO_API bool IsWow64Process();
TAVO_API bool IsWow64Process(void* hProcess);
TAVO_API int IsWow64Process(void* hProcess, int* Wow64Process);
TAVO_API int Wow64DisableWow64FsRedirection(void** OldValue);
TAVO_API int Wow64RevertWow64FsRedirection(void* OldValue);

// The system's directories and the computer's NetBIOS name, asked once and kept until the library
// unloads: never null, the empty string while the platform fails (asked again at the next call). The
// library neither adds nor removes a final backslash. GetSystemWow64Directory gives the directory of
// 32-bit system files on either kind of Windows: the system directory on 32-bit Windows.
TAVO_API const wchar_t* GetWindowsDirectoryW();
TAVO_API const char* GetWindowsDirectoryA();
TAVO_API const wchar_t* GetSystemDirectoryW();
TAVO_API const char* GetSystemDirectoryA();
TAVO_API const wchar_t* GetSystemWow64DirectoryW();
TAVO_API const char* GetSystemWow64DirectoryA();
TAVO_API const wchar_t* GetTempPathW();
TAVO_API const char* GetTempPathA();
TAVO_API const wchar_t* GetComputerNameW();
TAVO_API const char* GetComputerNameA();
// The computer's name in one format, kept per format once the platform gives it; a refused format
// gives the empty string (never null) and is asked again next time.
TAVO_API const wchar_t* GetComputerNameExW(COMPUTER_NAME_FORMAT eFormat);
TAVO_API const char* GetComputerNameExA(COMPUTER_NAME_FORMAT eFormat);
// A new, empty, uniquely named file ("bmr....tmp") in the temporary directory, made at each call; the
// caller owns it and deletes it. Empty on failure.
TAVO_API CStringW GetTempFileNameW();
TAVO_API CStringA GetTempFileNameA();

// FindFirstFileEx with basic information and large fetches from Windows 7 on (decided at the first
// call). The platform's handle, INVALID_HANDLE_VALUE on failure with its last error; nothing is
// reported. Go on with the platform's FindNextFile and FindClose.
TAVO_API void* FindFirstFileW(const wchar_t* szPath, WIN32_FIND_DATAW* pData);
TAVO_API void* FindFirstFileA(const char* szPath, WIN32_FIND_DATAA* pData);

// ---- System inspection: SSD detection and WMI queries ---------------------------------------

// Whether a drive stands on a solid-state disk: S_OK (0) for an SSD, S_FALSE (1) for a rotating disk
// or when nothing could tell (so compare with S_OK, not SUCCEEDED), a failure HRESULT when the volume
// or its disk cannot be opened (read and write rights needed) or the volume's extents are refused.
// A string names its drive by its first character, "C:\\data" as well as "C"; null or empty gives
// E_POINTER or E_INVALIDARG. Nothing is cached.
TAVO_API long IsDriveSSDW(wchar_t cDrive);
TAVO_API long IsDriveSSDA(char cDrive);
TAVO_API long IsDriveSSDW(const wchar_t* szDrive);
TAVO_API long IsDriveSSDA(const char* szDrive);

// One property (szItem) of a WQL query in szNamespace (e.g. "ROOT\\CIMV2"; no default), every row's
// value joined by "|" (a null value adds the bar alone; a null first value fails with 0x800710D2).
// Starts and ends COM on the calling thread itself. On 64-bit Windows a failed query is asked again
// of the 64-bit provider. Value forms: the wide one returns szDefault with the rows appended behind
// it (after a failure, whatever was appended before it); the narrow one returns the rows alone, or
// szDefault after a failure. Buffer forms: S_OK, the failure's HRESULT, or 0x8007007A with the text
// cut to cchBufferMax - 1 characters.
TAVO_API CStringW QueryWMI(const wchar_t* szQuery, const wchar_t* szItem, const wchar_t* szNamespace,
                           const wchar_t* szDefault);
TAVO_API CStringA QueryWMI(const char* szQuery, const char* szItem, const char* szNamespace, const char* szDefault);
TAVO_API long QueryWMI(const wchar_t* szQuery, const wchar_t* szItem, wchar_t* szBuffer, int cchBufferMax,
                       const wchar_t* szNamespace);
TAVO_API long QueryWMI(const char* szQuery, const char* szItem, char* szBuffer, int cchBufferMax, const char* szNamespace);

// The system's display name (Win32_OperatingSystem's Caption), asked once per process under the
// library's lock and kept, also when the query failed (then empty). Owned by the library.
TAVO_API const wchar_t* GetWindowsPlatformW();
TAVO_API const char* GetWindowsPlatformA();

// ---- Launching in the user's session, process presence, toasts -------------------------------

// Starts a program as the user logged on to this machine, on that user's desktop, from any account.
// The token comes from the first of: the console session, the first active session, this process's
// session (two ways), the desktop shell's process. The command line is "lpApplicationName" and a
// blank, then lpCommandLineArguments; without a program the arguments alone. Returns true when a
// process was created (also when it was terminated with exit code 0 at the time-out), false when
// there was nothing to start or no process. ExitCode_DWORD is 0 unless the process was waited for
// and ended in time. Numbered steps are traced (text cut at 2,048 bytes); a composed command line of
// 2,048 bytes or more is refused (false, no process), since a cut one would run something else.
TAVO_API bool RunAsLoggedOnUser_2012(unsigned long& ExitCode_DWORD, const char* lpApplicationName,
                                     const char* lpCommandLineArguments, const char* lpCurrentDirectory,
                                     unsigned long dwTimeout, int bWait);

// 1 if a process of that file name (with extension, any case) runs and this caller may open it,
// else 0; only the first 1,024 process ids are looked at. A null name gives 0.
TAVO_API int IsProgramRunningW(const wchar_t* szFileName);
TAVO_API int IsProgramRunningA(const char* szFileName);

// Runs szApplication with szArguments as the logged-on user through RunAsLoggedOnUser_2012, with the
// install directory as working directory, and returns the exit code: 0 also when nothing started,
// bWait was 0 or the process was terminated. Text passes through the thread's ANSI code page. An
// application, arguments or install directory of 512 bytes or more (narrow, terminator included)
// starts nothing: 0.
TAVO_API unsigned long UseImpersonateToExecuteProcessAndWaitW(const wchar_t* szApplication, const wchar_t* szArguments,
                                                              unsigned long dwTimeout, int bWait);
TAVO_API unsigned long UseImpersonateToExecuteProcessAndWaitA(const char* szApplication, const char* szArguments,
                                                              unsigned long dwTimeout, int bWait);

// The exit codes of MetroToast.exe; the library itself gives the four named here.
enum METRO_TOAST_APP_EXIT_CODES_ENUM {
    METRO_TOAST_OK = 0,          // the tool was started, or another toast is up and this one was dropped
    METRO_TOAST_NO_TYPE = 6,     // szType was null
    METRO_TOAST_NO_LINE1 = 8,    // szLine1 was null
    METRO_TOAST_OS_TOO_OLD = 12, // older than Windows 8
};

// Shows a toast in the logged-on user's session by starting MetroToast.exe of the install directory
// without waiting. nDuration 1 is long, anything else short; szType and szLine1 are required (null
// only counts as missing), the others optional. bAllowConcurrent 0 drops the toast while the tool
// runs. Program path and arguments are each limited to 511 narrow bytes (longer: nothing starts, 0).
TAVO_API METRO_TOAST_APP_EXIT_CODES_ENUM ShowMetroToastIfWin8orNewerW(int nDuration, const wchar_t* szType,
                                                                      const wchar_t* szImage, const wchar_t* szLine1,
                                                                      const wchar_t* szLine2, const wchar_t* szLine3,
                                                                      int bAllowConcurrent);
TAVO_API METRO_TOAST_APP_EXIT_CODES_ENUM ShowMetroToastIfWin8orNewerA(int nDuration, const char* szType,
                                                                      const char* szImage, const char* szLine1,
                                                                      const char* szLine2, const char* szLine3,
                                                                      int bAllowConcurrent);

// ---- Shutdown, network drives, windows and named threads ---------------------------------------

// Shuts down, restarts or logs off as the platform's ExitWindowsEx(uFlags, dwReason) does, after
// enabling the shutdown privilege in the process token where it can (best effort: each failed step
// is told and the platform call runs anyway; the privilege stays enabled). 0, or the HRESULT of the
// platform's last error when the platform refuses.
TAVO_API long ExitWindowsEx(unsigned int uFlags, unsigned long dwReason);
// Reconnects the mapped network drives A: to Z: without user interface, one line per drive with
// its answer. 0 whatever the drives answer; the HRESULT of the error when mpr.dll or its
// WNetRestoreSingleConnectionW cannot be had (then no drive is tried).
TAVO_API long NetRestoreAllConnections();
// Convert a whole rectangle (both corners) between client and screen coordinates of hWnd. 1 on
// success, 0 on failure; a failure at the second corner leaves the first one converted.
TAVO_API int ClientToScreen(HWND hWnd, RECT* pRect);
TAVO_API int ScreenToClient(HWND hWnd, RECT* pRect);
// The suite's main window: the first top-level window whose class name contains "HwndWrapper" and
// that answers the registered message "Tavo::WM_ISMAINAPPWINDOW" with a non-zero result; null if
// none does. No other window is sent anything. The send has no time-out: a hung window holds the
// caller up.
TAVO_API HWND GetMainAppWindow();

// Starts a thread through the run-time library (_beginthreadex) and, when szThreadName is neither
// null nor empty, names it for the debugger. The handle, which the caller owns and closes, or null
// after a failure (then *pdwThreadId, when given, is 0). The short form: no attributes, default
// stack, no flags.
TAVO_API HANDLE CreateThread(SECURITY_ATTRIBUTES* pThreadAttributes, unsigned long dwStackSize,
                             LPTHREAD_START_ROUTINE pfnStartAddress, void* pvParameter,
                             unsigned long dwCreationFlags, unsigned long* pdwThreadId, const char* szThreadName);
TAVO_API HANDLE CreateThread(const char* szThreadName, LPTHREAD_START_ROUTINE pfnStartAddress, void* pvParameter);
// Names a thread for a debugger through the debuggers' naming exception; without a debugger nothing
// changes. The name is read during the call only.
TAVO_API void SetThreadName(unsigned long dwThreadId, const char* szThreadName);

// ---- COM objects from private DLLs ----------------------------------------------------------------

// A COM object straight from a DLL that nobody registered: its DllGetClassObject, then the class
// factory's CreateInstance; the system's class registration takes no part. The short forms use riid
// as both the class id and the interface id. 0 on success (also for a positive success code of the
// DLL), otherwise the failed step's HRESULT. The factory is released before the call returns.
TAVO_API long CoCreateInstance(HINSTANCE hModule, const GUID& rclsid, const GUID& riid, void** ppv);
TAVO_API long CoCreateInstance(HINSTANCE hModule, const GUID& riid, void** ppv);
// The same from a DLL file. A bare file name means the copy in the install directory when there is
// one (else a warning line, and the platform's search); the DLL loads with its own directory as the
// current directory, which is process-wide meanwhile and put back afterwards; failing that, once
// more by szModule as given, from the caller's current directory. The module handle in *pModule
// belongs to the caller, also when creating the object failed: keep it loaded for as long as the
// object lives, then FreeLibrary it. It is null afterwards only when the load failed. A null or empty
// szModule (E_POINTER / E_INVALIDARG) or a null pModule or ppv (E_POINTER) leaves everything alone.
TAVO_API long CoCreateInstance(const wchar_t* szModule, const GUID& rclsid, const GUID& riid, HINSTANCE* pModule,
                               void** ppv);
TAVO_API long CoCreateInstance(const char* szModule, const GUID& rclsid, const GUID& riid, HINSTANCE* pModule,
                               void** ppv);
TAVO_API long CoCreateInstance(const wchar_t* szModule, const GUID& riid, HINSTANCE* pModule, void** ppv);
TAVO_API long CoCreateInstance(const char* szModule, const GUID& riid, HINSTANCE* pModule, void** ppv);

} // namespace Tavo

// ---- Help (a plain export, outside the namespace) -------------------------------------------------

// The help address used when Product.cfg has no [URL] Help: "%PRODUCT%" becomes GetProductA() and
// "%HELPID%" the topic in decimal, every occurrence of each.
#define TAVO_DEFAULT_HELP_ADDRESS "http://help.tavo.example/help/%PRODUCT%/topics.php?topic_id=%HELPID%"

// Opens the help for topic nTopic as Product.cfg says (UseOnlineHelp, default yes). Online: the
// [URL] Help address in the user's browser; the same topic asked again within a second (or with the
// clock set back) is dropped with E_ABORT, an empty address gives E_FAIL, a browser that fails to
// start the shell's error as an HRESULT (a shell result of 0 reads as success). Offline: the help
// file (GetHelpFilePathA) in the system's HTML help control, its table of contents for topic 0 or a
// topic the file lacks; E_FAIL when nothing was shown, and for good once the control could not be
// loaded. 0 once the help was started. No lock: callable from any thread.
extern "C" TAVO_API long LaunchHelp(int nTopic);

#endif
