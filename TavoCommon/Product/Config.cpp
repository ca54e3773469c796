// The product configuration, Product.cfg beside the library: the general profile reader and the
// typed readers over it. Nothing is cached here but the file's path; every read goes to the file.
#include "Argument.h"
#include "Check.h"
#include "Global.h"

#include <mbstring.h>
#include <stdlib.h>

namespace Tavo {
namespace {

const wchar_t kDefaultSectionW[] = L"Config";
const char kDefaultSectionA[] = "Config";

const wchar_t* SectionOrDefault(const wchar_t* szSection) { return szSection && *szSection ? szSection : kDefaultSectionW; }
const char* SectionOrDefault(const char* szSection) { return szSection && *szSection ? szSection : kDefaultSectionA; }

bool EqualsNoCase(const wchar_t* sz, const wchar_t* szWord) { return _wcsicmp(sz, szWord) == 0; }
bool EqualsNoCase(const char* sz, const char* szWord)
{
    return _mbsicmp(reinterpret_cast<const unsigned char*>(sz), reinterpret_cast<const unsigned char*>(szWord)) == 0;
}

long ToLong(const wchar_t* sz) { return _wtol(sz); }
long ToLong(const char* sz) { return atol(sz); }

// The platform's reader cuts a value that does not fit to the size minus 1 and says so only by that
// count, so a result that reaches it is read again in a buffer of twice the size.
template <typename XCHAR, typename Read>
CStringT<XCHAR> ReadWholeValue(Read read)
{
    CStringT<XCHAR> strValue;
    for (DWORD nSize = 256;; nSize *= 2) {
        const DWORD nCopied = read(strValue.GetBuffer(static_cast<int>(nSize)), nSize);
        if (nCopied < nSize - 1) break;
    }
    strValue.ReleaseBuffer();
    return strValue;
}

// A recognised word gives 0 or 1; any other text -1.
template <typename XCHAR>
int BoolFromText(const CStringT<XCHAR>& strValue, const XCHAR* const (&aszFalse)[4], const XCHAR* const (&aszTrue)[4])
{
    if (strValue == aszFalse[0]) return 0;
    if (strValue == aszTrue[0]) return 1;
    for (int i = 1; i < 4; ++i) {
        if (EqualsNoCase(strValue, aszFalse[i])) return 0;
        if (EqualsNoCase(strValue, aszTrue[i])) return 1;
    }
    return -1;
}

// A number from 1 to 0x7FFFFFFE, or exactly "0"; otherwise false.
template <typename XCHAR>
bool DwordFromText(const CStringT<XCHAR>& strValue, const XCHAR* szZero, DWORD& dwValue)
{
    const long nValue = ToLong(strValue);
    if (nValue == 0) {
        dwValue = 0;
        return strValue == szZero;
    }
    if (nValue == 0x7FFFFFFF || nValue < 0) return false;
    dwValue = static_cast<DWORD>(nValue);
    return true;
}

const wchar_t* const kFalseW[4] = {L"0", L"false", L"off", L"no"};
const wchar_t* const kTrueW[4] = {L"1", L"true", L"on", L"yes"};
const char* const kFalseA[4] = {"0", "false", "off", "no"};
const char* const kTrueA[4] = {"1", "true", "on", "yes"};

} // namespace

CStringW GetPrivateProfileStringW(const wchar_t* szFile, const wchar_t* szSection, const wchar_t* szKey,
                                  const wchar_t* szDefault)
{
    return ReadWholeValue<wchar_t>([&](wchar_t* szBuffer, DWORD nSize) {
        return ::GetPrivateProfileStringW(szSection, szKey, szDefault, szBuffer, nSize, szFile);
    });
}

CStringA GetPrivateProfileStringA(const char* szFile, const char* szSection, const char* szKey, const char* szDefault)
{
    return ReadWholeValue<char>([&](char* szBuffer, DWORD nSize) {
        return ::GetPrivateProfileStringA(szSection, szKey, szDefault, szBuffer, nSize, szFile);
    });
}

CStringW GetConfigString(const wchar_t* szKey, const wchar_t* szDefault, const wchar_t* szSection)
{
    return GetPrivateProfileStringW(GetConfigFileW(), SectionOrDefault(szSection), szKey, szDefault);
}

CStringA GetConfigString(const char* szKey, const char* szDefault, const char* szSection)
{
    return GetPrivateProfileStringA(GetConfigFileA(), SectionOrDefault(szSection), szKey, szDefault);
}

BOOL GetConfigBOOL(const wchar_t* szKey, BOOL bDefault, const wchar_t* szSection)
{
    TAVO_FUNCTION("Tavo::GetConfigBOOL");
    const CStringW strValue = GetConfigString(szKey, nullptr, szSection);
    if (strValue.IsEmpty()) return bDefault;
    const int nValue = BoolFromText(strValue, kFalseW, kTrueW);
    if (nValue >= 0) return nValue;
    TAVO_TRACE(TRACE_ERROR, "Invalid BOOL value %ls = %ls", szKey, strValue.GetString());
    return bDefault;
}

BOOL GetConfigBOOL(const char* szKey, BOOL bDefault, const char* szSection)
{
    TAVO_FUNCTION("Tavo::GetConfigBOOL");
    const CStringA strValue = GetConfigString(szKey, nullptr, szSection);
    if (strValue.IsEmpty()) return bDefault;
    const int nValue = BoolFromText(strValue, kFalseA, kTrueA);
    if (nValue >= 0) return nValue;
    TAVO_TRACE(TRACE_ERROR, "Invalid BOOL value %hs = %hs", szKey, strValue.GetString());
    return bDefault;
}

DWORD GetConfigDWORD(const wchar_t* szKey, DWORD dwDefault, const wchar_t* szSection)
{
    TAVO_FUNCTION("Tavo::GetConfigDWORD");
    const CStringW strValue = GetConfigString(szKey, nullptr, szSection);
    if (strValue.IsEmpty()) return dwDefault;
    DWORD dwValue = 0;
    if (DwordFromText(strValue, L"0", dwValue)) return dwValue;
    TAVO_TRACE(TRACE_ERROR, "Invalid DWORD value %ls = %ls", szKey, strValue.GetString());
    return dwDefault;
}

DWORD GetConfigDWORD(const char* szKey, DWORD dwDefault, const char* szSection)
{
    TAVO_FUNCTION("Tavo::GetConfigDWORD");
    const CStringA strValue = GetConfigString(szKey, nullptr, szSection);
    if (strValue.IsEmpty()) return dwDefault;
    DWORD dwValue = 0;
    if (DwordFromText(strValue, "0", dwValue)) return dwValue;
    TAVO_TRACE(TRACE_ERROR, "Invalid DWORD value %hs = %hs", szKey, strValue.GetString());
    return dwDefault;
}

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
