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
            TAVO_TRACE(TRACE_ERROR, "GetComputerNameEx failed, GetLastError = %ld",
                       static_cast<long>(::GetLastError()));
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

// Each width's getters, over arrays of their own. The lines show the platform calls by their own
// names. LITERAL is the prefix of the width's literals.
#define TAVO_SYSTEM_NAMES(XCHAR, AW, LITERAL)                                                         \
    static XCHAR s_szWindowsDirectory##AW[MAX_PATH], s_szSystemDirectory##AW[MAX_PATH];               \
    static XCHAR s_szSystemWow64Directory##AW[MAX_PATH];                                              \
    static XCHAR s_szTempPath##AW[kTempPathChars];                                                    \
    static XCHAR s_szComputerName##AW[kComputerNameChars];                                            \
    static TCachedMap<XCHAR> s_computerNamesEx##AW;                                                   \
    const XCHAR* GetWindowsDirectory##AW()                                                            \
    {                                                                                                 \
        TAVO_FUNCTION("Tavo::GetWindowsDirectory" #AW);                                               \
        return CachedText(s_szWindowsDirectory##AW, [&](XCHAR (&szDirectory)[MAX_PATH]) {             \
            VERIFY_WIN32(::GetWindowsDirectory##AW(szDirectory, _countof(szDirectory)));              \
        });                                                                                           \
    }                                                                                                 \
    const XCHAR* GetSystemDirectory##AW()                                                             \
    {                                                                                                 \
        TAVO_FUNCTION("Tavo::GetSystemDirectory" #AW);                                                \
        return CachedText(s_szSystemDirectory##AW, [&](XCHAR (&szDirectory)[MAX_PATH]) {              \
            VERIFY_WIN32(::GetSystemDirectory##AW(szDirectory, _countof(szDirectory)));               \
        });                                                                                           \
    }                                                                                                 \
    /* On 32-bit Windows the platform's call fails; the 32-bit system files are then in the system */ \
    /* directory, so callers get the same meaning on both kinds of system. */                         \
    const XCHAR* GetSystemWow64Directory##AW()                                                        \
    {                                                                                                 \
        TAVO_FUNCTION("Tavo::GetSystemWow64Directory" #AW);                                           \
        return CachedText(s_szSystemWow64Directory##AW, [&](XCHAR (&szDirectory)[MAX_PATH]) {         \
            if (Is64BitWindows())                                                                     \
                VERIFY_WIN32(::GetSystemWow64Directory##AW(szDirectory, _countof(szDirectory)));      \
            else                                                                                      \
                VERIFY_WIN32(::GetSystemDirectory##AW(szDirectory, _countof(szDirectory)));           \
        });                                                                                           \
    }                                                                                                 \
    const XCHAR* GetTempPath##AW()                                                                    \
    {                                                                                                 \
        TAVO_FUNCTION("Tavo::GetTempPath" #AW);                                                       \
        return CachedText(s_szTempPath##AW, [&](XCHAR (&szPath)[kTempPathChars]) {                    \
            VERIFY_WIN32(::GetTempPath##AW(_countof(szPath), szPath));                                \
        });                                                                                           \
    }                                                                                                 \
    const XCHAR* GetComputerName##AW()                                                                \
    {                                                                                                 \
        TAVO_FUNCTION("Tavo::GetComputerName" #AW);                                                   \
        return CachedText(s_szComputerName##AW, [&](XCHAR (&szName)[kComputerNameChars]) {            \
            DWORD dwName = _countof(szName);                                                          \
            VERIFY_WIN32(::GetComputerName##AW(szName, &dwName));                                     \
        });                                                                                           \
    }                                                                                                 \
    const XCHAR* GetComputerNameEx##AW(COMPUTER_NAME_FORMAT eFormat)                                  \
    {                                                                                                 \
        return CachedComputerNameEx(s_computerNamesEx##AW, eFormat, &::GetComputerNameEx##AW,         \
                                    "Tavo::GetComputerNameEx" #AW);                                   \
    }                                                                                                 \
    /* A new empty file each call; the caller owns and deletes it. The lock is held only while the */ \
    /* temporary directory is read. */                                                                \
    CStringT<XCHAR> GetTempFileName##AW()                                                             \
    {                                                                                                 \
        XCHAR szFile[kTempPathChars] = {0};                                                           \
        ::GetTempFileName##AW(GetTempPath##AW(), LITERAL##"bmr", 0, szFile);                          \
        return CStringT<XCHAR>(szFile);                                                               \
    }

TAVO_SYSTEM_NAMES(wchar_t, W, L)
TAVO_SYSTEM_NAMES(char, A, )

#undef TAVO_SYSTEM_NAMES

} // namespace Tavo
