// The look-ups the library makes for itself: where its configuration file lies, which language it
// speaks and where that language's file lies.
#include "Global.h"

#include "Cache.h"
#include "Check.h"
#include "Module.h"
#include "StrSafe.h"

#include <shlwapi.h>
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

enum { kLanguageCodeChars = 32, kLanguageFileChars = 520, kSectionChars = 520 };

wchar_t s_szLanguageCodeW[kLanguageCodeChars];
char s_szLanguageCodeA[kLanguageCodeChars];
wchar_t s_szLanguageFileW[kLanguageFileChars];
char s_szLanguageFileA[kLanguageFileChars];

// A failed query leaves the array empty, so the next call asks the platform again.
bool ComputeLanguageCodeW(wchar_t (&szCode)[kLanguageCodeChars], int)
{
    TAVO_FUNCTION("Tavo::GetLanguageCodeW");
    VERIFY_WIN32(GetLocaleInfoW(GetThreadLocale(), LOCALE_SISO639LANGNAME, szCode, _countof(szCode)));
    szCode[kLanguageCodeChars - 1] = 0;
    return szCode[0] != 0;
}

bool ComputeLanguageCodeA(char (&szCode)[kLanguageCodeChars], int)
{
    TAVO_FUNCTION("Tavo::GetLanguageCodeA");
    VERIFY_WIN32(GetLocaleInfoA(GetThreadLocale(), LOCALE_SISO639LANGNAME, szCode, _countof(szCode)));
    szCode[kLanguageCodeChars - 1] = 0;
    return szCode[0] != 0;
}

// The path is kept whether the file exists or not, also when built from an empty code: loads test
// the file's existence themselves, so one that appears later is still used.
bool ComputeLanguageFileW(wchar_t (&szFile)[kLanguageFileChars], int)
{
    TAVO_FUNCTION("Tavo::GetLanguageFileW");
    VERIFY_HRESULT(StringCchPrintfW(szFile, _countof(szFile), L"%ls\\Language.%ls.lng", Tavo::GetInstallDirectoryW(), GetLanguageCodeW()));
    TAVO_TRACE(TRACE_INFO, "The language file is \"%ls\"", szFile);
    if (::GetFileAttributesW(szFile) == INVALID_FILE_ATTRIBUTES) TAVO_TRACE(TRACE_INFO, "The language file doesn't exit");
    return true;
}

bool ComputeLanguageFileA(char (&szFile)[kLanguageFileChars], int)
{
    TAVO_FUNCTION("Tavo::GetLanguageFileA");
    VERIFY_HRESULT(StringCchPrintfA(szFile, _countof(szFile), "%hs\\Language.%hs.lng", Tavo::GetInstallDirectoryA(), GetLanguageCodeA()));
    TAVO_TRACE(TRACE_INFO, "The language file is \"%hs\"", szFile);
    if (::GetFileAttributesA(szFile) == INVALID_FILE_ATTRIBUTES) TAVO_TRACE(TRACE_INFO, "The language file doesn't exit");
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

const wchar_t* GetLanguageCodeW()
{
    return CachedInArray(s_szLanguageCodeW, &ComputeLanguageCodeW);
}

const char* GetLanguageCodeA()
{
    return CachedInArray(s_szLanguageCodeA, &ComputeLanguageCodeA);
}

const wchar_t* GetLanguageFileW()
{
    return CachedInArray(s_szLanguageFileW, &ComputeLanguageFileW);
}

const char* GetLanguageFileA()
{
    return CachedInArray(s_szLanguageFileA, &ComputeLanguageFileA);
}

// A handle with no file name gives the empty section, silently. The last character is cleared
// because a platform that cuts a long name need not terminate it.
CStringW GetLanguageSectionW(HINSTANCE hInstance)
{
    wchar_t szFile[kSectionChars] = {};
    ::GetModuleFileNameW(hInstance, szFile, kSectionChars);
    szFile[kSectionChars - 1] = 0;
    return CStringW(::PathFindFileNameW(szFile));
}

CStringA GetLanguageSectionA(HINSTANCE hInstance)
{
    char szFile[kSectionChars] = {};
    ::GetModuleFileNameA(hInstance, szFile, kSectionChars);
    szFile[kSectionChars - 1] = 0;
    return CStringA(::PathFindFileNameA(szFile));
}

} // namespace Tavo
