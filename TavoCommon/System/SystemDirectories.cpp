// What the operating system says about itself - its Windows, system, WOW64 system and temporary
// directories and the computer's names - as cached strings that need no buffer in the caller.
#include "Cache.h"
#include "Check.h"

#include <stdlib.h>

namespace Tavo {
namespace {

// Room for the 15 characters of a NetBIOS name and the terminator.
const int kComputerNameChars = 16;
const int kTempPathChars = 520;
const DWORD kComputerNameExChars = 520;

wchar_t s_szWindowsDirectoryW[MAX_PATH], s_szSystemDirectoryW[MAX_PATH], s_szSystemWow64DirectoryW[MAX_PATH];
char s_szWindowsDirectoryA[MAX_PATH], s_szSystemDirectoryA[MAX_PATH], s_szSystemWow64DirectoryA[MAX_PATH];
wchar_t s_szTempPathW[kTempPathChars];
char s_szTempPathA[kTempPathChars];
wchar_t s_szComputerNameW[kComputerNameChars];
char s_szComputerNameA[kComputerNameChars];
TCachedMap<wchar_t> s_computerNamesExW;
TCachedMap<char> s_computerNamesExA;

// A failed call leaves the zeroed array empty, so the next call asks again. A directory that does
// not fit gives its needed size, not 0: no line, and the array stays as the platform left it.
template <typename XCHAR, int N, typename Compute>
const XCHAR* CachedText(XCHAR (&sz)[N], Compute compute)
{
    return CachedInArray(sz, [&](XCHAR (&szArray)[N], int) {
        compute(szArray);
        return true;
    });
}

template <typename XCHAR>
const XCHAR* CachedComputerNameEx(TCachedMap<XCHAR>& map, COMPUTER_NAME_FORMAT eFormat,
                                  BOOL(WINAPI* pfnGetComputerNameEx)(COMPUTER_NAME_FORMAT, XCHAR*, LPDWORD),
                                  const char* const tavoFunctionName_)
{
    static const XCHAR szEmpty[1] = {0};
    const XCHAR* szName = CachedByKey(map, static_cast<int>(eFormat), [&](CStringT<XCHAR>& strName) {
        XCHAR szBuffer[kComputerNameExChars] = {0};
        DWORD dwSize = kComputerNameExChars;
        if (!pfnGetComputerNameEx(eFormat, szBuffer, &dwSize)) {
            TAVO_TRACE(TRACE_ERROR, "GetComputerNameEx failed, GetLastError = %ld", static_cast<long>(::GetLastError()));
            return false;
        }
        szBuffer[kComputerNameExChars - 1] = 0;
        strName = szBuffer;
        return true;
    });
    // A refused format is not stored: the next call asks the platform again.
    return szName ? szName : szEmpty;
}

} // namespace

const wchar_t* GetWindowsDirectoryW()
{
    TAVO_FUNCTION("Tavo::GetWindowsDirectoryW");
    return CachedText(s_szWindowsDirectoryW, [&](wchar_t (&szDirectory)[MAX_PATH]) {
        VERIFY_WIN32(::GetWindowsDirectoryW(szDirectory, _countof(szDirectory)));
    });
}

const char* GetWindowsDirectoryA()
{
    TAVO_FUNCTION("Tavo::GetWindowsDirectoryA");
    return CachedText(s_szWindowsDirectoryA, [&](char (&szDirectory)[MAX_PATH]) {
        VERIFY_WIN32(::GetWindowsDirectoryA(szDirectory, _countof(szDirectory)));
    });
}

const wchar_t* GetSystemDirectoryW()
{
    TAVO_FUNCTION("Tavo::GetSystemDirectoryW");
    return CachedText(s_szSystemDirectoryW, [&](wchar_t (&szDirectory)[MAX_PATH]) {
        VERIFY_WIN32(::GetSystemDirectoryW(szDirectory, _countof(szDirectory)));
    });
}

const char* GetSystemDirectoryA()
{
    TAVO_FUNCTION("Tavo::GetSystemDirectoryA");
    return CachedText(s_szSystemDirectoryA, [&](char (&szDirectory)[MAX_PATH]) {
        VERIFY_WIN32(::GetSystemDirectoryA(szDirectory, _countof(szDirectory)));
    });
}

// On 32-bit Windows the platform's call fails; the 32-bit system files are then in the system
// directory, so callers get the same meaning on both kinds of system.
const wchar_t* GetSystemWow64DirectoryW()
{
    TAVO_FUNCTION("Tavo::GetSystemWow64DirectoryW");
    return CachedText(s_szSystemWow64DirectoryW, [&](wchar_t (&szDirectory)[MAX_PATH]) {
        if (Is64BitWindows())
            VERIFY_WIN32(::GetSystemWow64DirectoryW(szDirectory, _countof(szDirectory)));
        else
            VERIFY_WIN32(::GetSystemDirectoryW(szDirectory, _countof(szDirectory)));
    });
}

const char* GetSystemWow64DirectoryA()
{
    TAVO_FUNCTION("Tavo::GetSystemWow64DirectoryA");
    return CachedText(s_szSystemWow64DirectoryA, [&](char (&szDirectory)[MAX_PATH]) {
        if (Is64BitWindows())
            VERIFY_WIN32(::GetSystemWow64DirectoryA(szDirectory, _countof(szDirectory)));
        else
            VERIFY_WIN32(::GetSystemDirectoryA(szDirectory, _countof(szDirectory)));
    });
}

const wchar_t* GetTempPathW()
{
    TAVO_FUNCTION("Tavo::GetTempPathW");
    return CachedText(s_szTempPathW, [&](wchar_t (&szPath)[kTempPathChars]) {
        VERIFY_WIN32(::GetTempPathW(_countof(szPath), szPath));
    });
}

const char* GetTempPathA()
{
    TAVO_FUNCTION("Tavo::GetTempPathA");
    return CachedText(s_szTempPathA, [&](char (&szPath)[kTempPathChars]) {
        VERIFY_WIN32(::GetTempPathA(_countof(szPath), szPath));
    });
}

const wchar_t* GetComputerNameW()
{
    TAVO_FUNCTION("Tavo::GetComputerNameW");
    return CachedText(s_szComputerNameW, [&](wchar_t (&szName)[kComputerNameChars]) {
        DWORD dwName = _countof(szName);
        VERIFY_WIN32(::GetComputerNameW(szName, &dwName));
    });
}

const char* GetComputerNameA()
{
    TAVO_FUNCTION("Tavo::GetComputerNameA");
    return CachedText(s_szComputerNameA, [&](char (&szName)[kComputerNameChars]) {
        DWORD dwName = _countof(szName);
        VERIFY_WIN32(::GetComputerNameA(szName, &dwName));
    });
}

const wchar_t* GetComputerNameExW(COMPUTER_NAME_FORMAT eFormat)
{
    return CachedComputerNameEx(s_computerNamesExW, eFormat, &::GetComputerNameExW, "Tavo::GetComputerNameExW");
}

const char* GetComputerNameExA(COMPUTER_NAME_FORMAT eFormat)
{
    return CachedComputerNameEx(s_computerNamesExA, eFormat, &::GetComputerNameExA, "Tavo::GetComputerNameExA");
}

// A new empty file each call; the caller owns and deletes it. The lock is held only while the
// temporary directory is read.
CStringW GetTempFileNameW()
{
    wchar_t szFile[kTempPathChars] = {0};
    ::GetTempFileNameW(GetTempPathW(), L"bmr", 0, szFile);
    return CStringW(szFile);
}

CStringA GetTempFileNameA()
{
    char szFile[kTempPathChars] = {0};
    ::GetTempFileNameA(GetTempPathA(), "bmr", 0, szFile);
    return CStringA(szFile);
}

} // namespace Tavo
