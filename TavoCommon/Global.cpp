// The look-ups the library makes for itself: where its configuration file lies.
#include "Global.h"

#include "Cache.h"
#include "Check.h"
#include "Module.h"
#include "StrSafe.h"

#include <stdlib.h>

namespace Tavo {
namespace {

enum { kConfigFileChars = 520 };

wchar_t s_szConfigFileW[kConfigFileChars];
char s_szConfigFileA[kConfigFileChars];

// A path cut to the array stays: the array is no longer empty, so it is not computed again.
bool ComputeConfigFileW(wchar_t (&szFile)[kConfigFileChars], int)
{
    TAVO_FUNCTION("Tavo::GetConfigFileW");
    VERIFY_HRESULT(StringCchCopyW(szFile, _countof(szFile), Tavo::PathCombineW(Tavo::GetModulePathNameW(), _W(CONFIG_FILE))));
    TAVO_TRACE(TRACE_INFO, "The config file is \"%ls\"", szFile);
    return true;
}

bool ComputeConfigFileA(char (&szFile)[kConfigFileChars], int)
{
    TAVO_FUNCTION("Tavo::GetConfigFileA");
    VERIFY_HRESULT(StringCchCopyA(szFile, _countof(szFile), Tavo::PathCombineA(Tavo::GetModulePathNameA(), CONFIG_FILE)));
    TAVO_TRACE(TRACE_INFO, "The config file is \"%hs\"", szFile);
    return true;
}

} // namespace

CStringW GetModulePathNameW()
{
    return GetModulePathNameW(g_module.m_hInstance);
}

CStringA GetModulePathNameA()
{
    return GetModulePathNameA(g_module.m_hInstance);
}

const wchar_t* GetConfigFileW()
{
    return CachedInArray(s_szConfigFileW, &ComputeConfigFileW);
}

const char* GetConfigFileA()
{
    return CachedInArray(s_szConfigFileA, &ComputeConfigFileA);
}

} // namespace Tavo
