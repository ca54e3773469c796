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

// ---- Time strings, comparison and today ------------------------------------------------------------

// ---- Number formatting -----------------------------------------------------------------------------

// ---- Byte-size and version formatting --------------------------------------------------------------

// ---- Date and time formatting ----------------------------------------------------------------------

} // namespace Tavo

#endif
