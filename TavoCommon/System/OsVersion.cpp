// The version of Windows reduced to one small code, and the predicates callers ask instead of looking
// at version numbers. Asked once per process.
#include "Cache.h"
#include "Check.h"

namespace Tavo {

// Internal: the computation behind GetOS's cache.
int _GetOS(int* pnServicePack);

namespace {

// -1: not computed yet. The service pack stays -1 on a platform that is not NT.
int s_nOS = -1;
int s_nServicePack = -1;

} // namespace

int _GetOS(int* pnServicePack)
{
    TAVO_FUNCTION("Tavo::_GetOS");
    VERIFY_WIN32(pnServicePack);

    OSVERSIONINFOEXA ovi;
    ZeroMemory(&ovi, sizeof(ovi));
    ovi.dwOSVersionInfoSize = 0x9C;
    // The narrow call, as the line shows it; after a failure the zeros go on and give OS_OTHER.
    static_assert(sizeof(OSVERSIONINFO) == sizeof(OSVERSIONINFOA), "GetVersionEx must be the narrow form");
    VERIFY_WIN32(::GetVersionEx((LPOSVERSIONINFO)&ovi));
    if (ovi.dwPlatformId != VER_PLATFORM_WIN32_NT) return OS_OTHER;
    if (pnServicePack) *pnServicePack = ovi.wServicePackMajor;

    const DWORD dwMajor = ovi.dwMajorVersion, dwMinor = ovi.dwMinorVersion;
    // Both numbers: 10.0 is not "6.3 and beyond" here, and callers rely on that.
    if (dwMajor >= 6 && dwMinor >= 3) return OS_NEWER_THAN_WIN8;
    if (dwMajor == 6 && dwMinor == 2) return OS_WIN8;
    if (dwMajor == 6 && dwMinor == 1) return OS_WIN7;
    if (dwMajor == 6 && dwMinor == 0) return OS_VISTA;
    if (dwMajor == 5 && dwMinor >= 1) return OS_WINXP;
    if (dwMajor == 5 && dwMinor == 0) return OS_WIN2000;
    return OS_OTHER;
}

int GetOS(int* pnServicePack)
{
    CGlobalLock lock;
    if (s_nOS == -1) s_nOS = _GetOS(&s_nServicePack);
    if (pnServicePack) *pnServicePack = s_nServicePack;
    return s_nOS;
}

int GetOS() { return GetOS(nullptr); }

bool IsXP() { return GetOS() == OS_WINXP; }
bool IsWinXPOrNewer() { return GetOS() >= OS_WINXP; }
bool IsVista() { return GetOS() == OS_VISTA; }
bool IsWinVistaOrNewer() { return GetOS() >= OS_VISTA; }
bool IsWin7() { return GetOS() == OS_WIN7; }
bool IsWin7OrNewer() { return GetOS() >= OS_WIN7; }
bool IsWin8() { return GetOS() == OS_WIN8; }
bool IsWin8OrNewer() { return GetOS() >= OS_WIN8; }

} // namespace Tavo
