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

enum { kConfigFileChars = 520, kLanguageCodeChars = 32, kLanguageFileChars = 520, kSectionChars = 520 };

// What the two widths differ in: the platform calls, the literals and the texts of the lines.
// LITERAL is the prefix of the width's literals; the texts spell the file's name as the code once
// did, by its macro.
template <typename XCHAR> struct TGlobal;

#define TAVO_GLOBAL_TRAITS(XCHAR, AW, LITERAL, STRING, CONFIG_NAME)                                    \
    template <> struct TGlobal<XCHAR> {                                                                \
        static constexpr const char* kConfigFunction = "Tavo::GetConfigFile" #AW;                      \
        static constexpr const char* kConfigText = "StringCchCopy" #AW "(szFile, _countof(szFile), Tavo::PathCombine" \
                                                   #AW "(Tavo::GetModulePathName" #AW "(), " CONFIG_NAME "))"; \
        static constexpr const char* kConfigLine = "The config file is \"%" #STRING "\"";              \
        static constexpr const char* kCodeFunction = "Tavo::GetLanguageCode" #AW;                      \
        static constexpr const char* kCodeText =                                                       \
            "GetLocaleInfo" #AW "(GetThreadLocale(), LOCALE_SISO639LANGNAME, szCode, _countof(szCode))"; \
        static constexpr const char* kFileFunction = "Tavo::GetLanguageFile" #AW;                      \
        static constexpr const char* kFileText =                                                       \
            "StringCchPrintf" #AW "(szFile, _countof(szFile), " #LITERAL "\"%" #STRING "\\\\Language.%" #STRING \
            ".lng\", Tavo::GetInstallDirectory" #AW "(), GetLanguageCode" #AW "())";                     \
        static constexpr const char* kFileLine = "The language file is \"%" #STRING "\"";              \
        static constexpr const XCHAR* kConfigFile = LITERAL##"Product.cfg";                            \
        static constexpr const XCHAR* kLanguageFile = LITERAL##"%" #STRING "\\Language.%" #STRING ".lng"; \
        static CStringT<XCHAR> ModulePath() { return GetModulePathName##AW(); }                        \
        static CStringT<XCHAR> Combine(const XCHAR* szPath, const XCHAR* szFile)                       \
        {                                                                                              \
            return PathCombine##AW(szPath, szFile);                                                    \
        }                                                                                              \
        static int LocaleInfo(XCHAR* sz, int cch)                                                      \
        {                                                                                              \
            return ::GetLocaleInfo##AW(::GetThreadLocale(), LOCALE_SISO639LANGNAME, sz, cch);          \
        }                                                                                              \
        static const XCHAR* InstallDirectory() { return GetInstallDirectory##AW(); }                   \
        static const XCHAR* LanguageCode() { return GetLanguageCode##AW(); }                           \
        static bool Exists(const XCHAR* szFile) { return ::GetFileAttributes##AW(szFile) != INVALID_FILE_ATTRIBUTES; } \
        static DWORD ModuleFileName(HINSTANCE hInstance, XCHAR* sz, DWORD cch)                         \
        {                                                                                              \
            return ::GetModuleFileName##AW(hInstance, sz, cch);                                        \
        }                                                                                              \
        static const XCHAR* FileName(const XCHAR* szPath) { return ::PathFindFileName##AW(szPath); }   \
        static HRESULT Copy(XCHAR* sz, size_t cch, const XCHAR* szText) { return StringCchCopy##AW(sz, cch, szText); } \
        static constexpr HRESULT (*Print)(XCHAR*, size_t, const XCHAR*, ...) = StringCchPrintf##AW;    \
    };

TAVO_GLOBAL_TRAITS(wchar_t, W, L, ls, "_W(CONFIG_FILE)")
TAVO_GLOBAL_TRAITS(char, A, , hs, "CONFIG_FILE")

#undef TAVO_GLOBAL_TRAITS

// A path cut to the array stays: the array is no longer empty, so it is not computed again.
template <typename XCHAR>
bool ComputeConfigFile(XCHAR (&szFile)[kConfigFileChars], int)
{
    typedef TGlobal<XCHAR> T;
    TAVO_FUNCTION(T::kConfigFunction);
    VERIFY_HRESULT_AS(T::Copy(szFile, _countof(szFile), T::Combine(T::ModulePath(), T::kConfigFile)), T::kConfigText);
    TAVO_TRACE(TRACE_INFO, T::kConfigLine, szFile);
    return true;
}

// A failed query leaves the array empty, so the next call asks the platform again.
template <typename XCHAR>
bool ComputeLanguageCode(XCHAR (&szCode)[kLanguageCodeChars], int)
{
    typedef TGlobal<XCHAR> T;
    TAVO_FUNCTION(T::kCodeFunction);
    VERIFY_WIN32_AS(T::LocaleInfo(szCode, _countof(szCode)), T::kCodeText);
    szCode[kLanguageCodeChars - 1] = 0;
    return szCode[0] != 0;
}

// The path is kept whether the file exists or not, also when built from an empty code: loads test
// the file's existence themselves, so one that appears later is still used.
template <typename XCHAR>
bool ComputeLanguageFile(XCHAR (&szFile)[kLanguageFileChars], int)
{
    typedef TGlobal<XCHAR> T;
    TAVO_FUNCTION(T::kFileFunction);
    VERIFY_HRESULT_AS(T::Print(szFile, _countof(szFile), T::kLanguageFile, T::InstallDirectory(), T::LanguageCode()),
                      T::kFileText);
    TAVO_TRACE(TRACE_INFO, T::kFileLine, szFile);
    if (!T::Exists(szFile)) TAVO_TRACE(TRACE_INFO, "The language file doesn't exit");
    return true;
}

// A handle with no file name gives the empty section, silently. The last character is cleared
// because a platform that cuts a long name need not terminate it.
template <typename XCHAR>
CStringT<XCHAR> LanguageSection(HINSTANCE hInstance)
{
    XCHAR szFile[kSectionChars] = {};
    TGlobal<XCHAR>::ModuleFileName(hInstance, szFile, kSectionChars);
    szFile[kSectionChars - 1] = 0;
    return CStringT<XCHAR>(TGlobal<XCHAR>::FileName(szFile));
}

} // namespace

#define TAVO_GLOBAL_MEMBERS(XCHAR, AW)                                                                 \
    static XCHAR s_szConfigFile##AW[kConfigFileChars];                                                 \
    static XCHAR s_szLanguageCode##AW[kLanguageCodeChars];                                             \
    static XCHAR s_szLanguageFile##AW[kLanguageFileChars];                                             \
    CStringT<XCHAR> GetModulePathName##AW() { return GetModulePathName##AW(g_module.m_hInstance); }    \
    const XCHAR* GetConfigFile##AW() { return CachedInArray(s_szConfigFile##AW, &ComputeConfigFile<XCHAR>); } \
    const XCHAR* GetLanguageCode##AW() { return CachedInArray(s_szLanguageCode##AW, &ComputeLanguageCode<XCHAR>); } \
    const XCHAR* GetLanguageFile##AW() { return CachedInArray(s_szLanguageFile##AW, &ComputeLanguageFile<XCHAR>); } \
    CStringT<XCHAR> GetLanguageSection##AW(HINSTANCE hInstance) { return LanguageSection<XCHAR>(hInstance); }

TAVO_GLOBAL_MEMBERS(wchar_t, W)
TAVO_GLOBAL_MEMBERS(char, A)

#undef TAVO_GLOBAL_MEMBERS

} // namespace Tavo
