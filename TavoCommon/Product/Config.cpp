// The product configuration, Product.cfg beside the library: the general profile reader and the
// typed readers over it. Nothing is cached here but the file's path; every read goes to the file.
#include "Argument.h"
#include "Check.h"
#include "Global.h"

#include <mbstring.h>
#include <stdlib.h>

namespace Tavo {
namespace {

// What the two widths differ in: the run-time's comparison and number reader, the platform's
// reader, the literals and the texts of the lines. LITERAL is the prefix of the width's literals.
template <typename XCHAR> struct TConfig;

#define TAVO_CONFIG_TRAITS(XCHAR, AW, LITERAL, STRING)                                                 \
    template <> struct TConfig<XCHAR> {                                                                \
        static constexpr const XCHAR* kDefaultSection = LITERAL##"Config";                             \
        static constexpr const XCHAR* kZero = LITERAL##"0";                                            \
        static constexpr const XCHAR* kFalse[4] = {LITERAL##"0", LITERAL##"false", LITERAL##"off", LITERAL##"no"}; \
        static constexpr const XCHAR* kTrue[4] = {LITERAL##"1", LITERAL##"true", LITERAL##"on", LITERAL##"yes"}; \
        static constexpr const char* kInvalidBool = "Invalid BOOL value %" #STRING " = %" #STRING;     \
        static constexpr const char* kInvalidDword = "Invalid DWORD value %" #STRING " = %" #STRING;   \
        static const XCHAR* ConfigFile() { return GetConfigFile##AW(); }                               \
        static CStringT<XCHAR> Read(const XCHAR* szFile, const XCHAR* szSection, const XCHAR* szKey,   \
                                    const XCHAR* szDefault)                                            \
        {                                                                                              \
            return GetPrivateProfileString##AW(szFile, szSection, szKey, szDefault);                   \
        }                                                                                              \
        static DWORD ReadPlatform(const XCHAR* szFile, const XCHAR* szSection, const XCHAR* szKey,     \
                                  const XCHAR* szDefault, XCHAR* szBuffer, DWORD nSize)                \
        {                                                                                              \
            return ::GetPrivateProfileString##AW(szSection, szKey, szDefault, szBuffer, nSize, szFile); \
        }                                                                                              \
        static bool EqualsNoCase(const XCHAR* sz, const XCHAR* szWord);                                \
        static long ToLong(const XCHAR* sz);                                                           \
    };

TAVO_CONFIG_TRAITS(wchar_t, W, L, ls)
TAVO_CONFIG_TRAITS(char, A, , hs)

#undef TAVO_CONFIG_TRAITS

bool TConfig<wchar_t>::EqualsNoCase(const wchar_t* sz, const wchar_t* szWord) { return _wcsicmp(sz, szWord) == 0; }
bool TConfig<char>::EqualsNoCase(const char* sz, const char* szWord)
{
    return _mbsicmp(reinterpret_cast<const unsigned char*>(sz), reinterpret_cast<const unsigned char*>(szWord)) == 0;
}
long TConfig<wchar_t>::ToLong(const wchar_t* sz) { return _wtol(sz); }
long TConfig<char>::ToLong(const char* sz) { return atol(sz); }

template <typename XCHAR>
const XCHAR* SectionOrDefault(const XCHAR* szSection)
{
    return szSection && *szSection ? szSection : TConfig<XCHAR>::kDefaultSection;
}

// The platform's reader cuts a value that does not fit to the size minus 1 and says so only by that
// count, so a result that reaches it is read again in a buffer of twice the size.
template <typename XCHAR>
CStringT<XCHAR> ReadWholeValue(const XCHAR* szFile, const XCHAR* szSection, const XCHAR* szKey, const XCHAR* szDefault)
{
    CStringT<XCHAR> strValue;
    for (DWORD nSize = 256;; nSize *= 2) {
        const DWORD nCopied = TConfig<XCHAR>::ReadPlatform(szFile, szSection, szKey, szDefault,
                                                           strValue.GetBuffer(static_cast<int>(nSize)), nSize);
        if (nCopied < nSize - 1) break;
    }
    strValue.ReleaseBuffer();
    return strValue;
}

template <typename XCHAR>
CStringT<XCHAR> ConfigString(const XCHAR* szKey, const XCHAR* szDefault, const XCHAR* szSection)
{
    return TConfig<XCHAR>::Read(TConfig<XCHAR>::ConfigFile(), SectionOrDefault(szSection), szKey, szDefault);
}

// A recognised word gives 0 or 1; any other text -1.
template <typename XCHAR>
int BoolFromText(const CStringT<XCHAR>& strValue)
{
    typedef TConfig<XCHAR> T;
    if (strValue == T::kFalse[0]) return 0;
    if (strValue == T::kTrue[0]) return 1;
    for (int i = 1; i < 4; ++i) {
        if (T::EqualsNoCase(strValue, T::kFalse[i])) return 0;
        if (T::EqualsNoCase(strValue, T::kTrue[i])) return 1;
    }
    return -1;
}

// A number from 1 to 0x7FFFFFFE, or exactly "0"; otherwise false.
template <typename XCHAR>
bool DwordFromText(const CStringT<XCHAR>& strValue, DWORD& dwValue)
{
    const long nValue = TConfig<XCHAR>::ToLong(strValue);
    if (nValue == 0) {
        dwValue = 0;
        return strValue == TConfig<XCHAR>::kZero;
    }
    if (nValue == 0x7FFFFFFF || nValue < 0) return false;
    dwValue = static_cast<DWORD>(nValue);
    return true;
}

// A typed value: an absent or empty key gives the default, a malformed one the default and a line.
template <typename XCHAR, typename Value, typename Parse>
Value ConfigValue(const XCHAR* szKey, Value valueDefault, const XCHAR* szSection, Parse parse,
                  const char* const tavoFunctionName_, const char* szInvalid)
{
    const CStringT<XCHAR> strValue = ConfigString<XCHAR>(szKey, nullptr, szSection);
    if (strValue.IsEmpty()) return valueDefault;
    Value value = valueDefault;
    if (parse(strValue, value)) return value;
    TAVO_TRACE(TRACE_ERROR, szInvalid, szKey, strValue.GetString());
    return valueDefault;
}

template <typename XCHAR>
BOOL ConfigBool(const XCHAR* szKey, BOOL bDefault, const XCHAR* szSection)
{
    const auto parse = [](const CStringT<XCHAR>& strValue, BOOL& bValue) {
        const int nValue = BoolFromText(strValue);
        bValue = nValue;
        return nValue >= 0;
    };
    return ConfigValue(szKey, bDefault, szSection, parse, "Tavo::GetConfigBOOL", TConfig<XCHAR>::kInvalidBool);
}

template <typename XCHAR>
DWORD ConfigDword(const XCHAR* szKey, DWORD dwDefault, const XCHAR* szSection)
{
    const auto parse = [](const CStringT<XCHAR>& strValue, DWORD& dwValue) { return DwordFromText(strValue, dwValue); };
    return ConfigValue(szKey, dwDefault, szSection, parse, "Tavo::GetConfigDWORD", TConfig<XCHAR>::kInvalidDword);
}

} // namespace

#define TAVO_CONFIG_MEMBERS(XCHAR, AW)                                                                 \
    CStringT<XCHAR> GetPrivateProfileString##AW(const XCHAR* szFile, const XCHAR* szSection, const XCHAR* szKey, \
                                                const XCHAR* szDefault)                                \
    {                                                                                                  \
        return ReadWholeValue(szFile, szSection, szKey, szDefault);                                    \
    }                                                                                                  \
    CStringT<XCHAR> GetConfigString(const XCHAR* szKey, const XCHAR* szDefault, const XCHAR* szSection) \
    {                                                                                                  \
        return ConfigString(szKey, szDefault, szSection);                                              \
    }                                                                                                  \
    BOOL GetConfigBOOL(const XCHAR* szKey, BOOL bDefault, const XCHAR* szSection)                      \
    {                                                                                                  \
        return ConfigBool(szKey, bDefault, szSection);                                                 \
    }                                                                                                  \
    DWORD GetConfigDWORD(const XCHAR* szKey, DWORD dwDefault, const XCHAR* szSection)                  \
    {                                                                                                  \
        return ConfigDword(szKey, dwDefault, szSection);                                               \
    }

TAVO_CONFIG_MEMBERS(wchar_t, W)
TAVO_CONFIG_MEMBERS(char, A)

#undef TAVO_CONFIG_MEMBERS

// The default travels as text, so it applies to an absent key only: a present but empty or
// malformed value is parsed as it is and gives the zero GUID.
GUID GetConfigGuid(const wchar_t* szKey, GUID guidDefault, const wchar_t* szSection)
{
    return GuidFromString(GetConfigString(szKey, StringFromGuidW(guidDefault), szSection).GetString());
}

GUID GetConfigGuid(const char* szKey, GUID guidDefault, const char* szSection)
{
    TAVO_WIDE_ARGUMENT(wszKey, szKey);
    TAVO_WIDE_ARGUMENT(wszSection, szSection);
    return GetConfigGuid(static_cast<const wchar_t*>(wszKey), guidDefault, static_cast<const wchar_t*>(wszSection));
}

} // namespace Tavo
