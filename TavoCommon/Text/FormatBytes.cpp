// Sizes in the largest binary unit they reach, and packed versions as dotted fields. The unit words
// come from the library's own string table, so a language file can reword them in either format
// dialect.
#include "Check.h"
#include "Module.h"
#include "StrSafe.h"
#include "TavoCommon.h"

namespace Tavo {

// The unit is chosen on the exact count, never after rounding: 1048575 stays 1,024.00 KB.
CStringW FormatBytesW(unsigned __int64 lBytes)
{
    struct Unit {
        unsigned __int64 lStart;
        UINT uID;
    };
    static const Unit kUnits[] = {{1ull << 40, 105}, {1ull << 30, 104}, {1ull << 20, 103}, {1ull << 10, 102}};
    for (const Unit& unit : kUnits) {
        if (lBytes >= unit.lStart) {
            const CStringW strUnit = Tavo::LoadStringW(unit.uID, g_module.m_hInstance);
            const CStringW strNumber = Tavo::FormatNumberW(static_cast<double>(lBytes) / static_cast<double>(unit.lStart), 2);
            return FormatStringW(strUnit, strNumber.GetString());
        }
    }
    const CStringW strUnit = Tavo::LoadStringW(101, g_module.m_hInstance);
    const CStringW strNumber = Tavo::FormatNumberW(static_cast<double>(lBytes), 0);
    return FormatStringW(strUnit, strNumber.GetString());
}

CStringA FormatBytesA(unsigned __int64 lBytes) { return CStringA(Tavo::FormatBytesW(lBytes)); }

long FormatBytesW(unsigned __int64 lBytes, wchar_t* szBuffer, int cchBufferMax)
{
    TAVO_FUNCTION("Tavo::FormatBytesW");
    CHECK_POINTER(szBuffer);
    CHECK_HRESULT(StringCchCopyW(szBuffer, cchBufferMax, Tavo::FormatBytesW(lBytes)));
    return S_OK;
}

long FormatBytesA(unsigned __int64 lBytes, char* szBuffer, int cchBufferMax)
{
    TAVO_FUNCTION("Tavo::FormatBytesA");
    CHECK_POINTER(szBuffer);
    CHECK_HRESULT(StringCchCopyA(szBuffer, cchBufferMax, Tavo::FormatBytesA(lBytes)));
    return S_OK;
}

// Plain decimal fields, never grouped: a version is no quantity.
CStringW FormatVersionW(unsigned __int64 lVersion, unsigned short nPrecision)
{
    const unsigned short aFields[4] = {static_cast<unsigned short>(lVersion >> 48), static_cast<unsigned short>(lVersion >> 32),
                                       static_cast<unsigned short>(lVersion >> 16), static_cast<unsigned short>(lVersion)};
    CStringW str;
    for (int iField = 0; iField < nPrecision && iField < 4; ++iField) str += FormatStringW(L"%hu.", aFields[iField]);
    str.TrimRight(L'.');
    return str;
}

CStringA FormatVersionA(unsigned __int64 lVersion, unsigned short nPrecision)
{
    return CStringA(Tavo::FormatVersionW(lVersion, nPrecision));
}

long FormatVersionW(unsigned __int64 lVersion, wchar_t* szBuffer, int cchBufferMax, unsigned short nPrecision)
{
    TAVO_FUNCTION("Tavo::FormatVersionW");
    CHECK_POINTER(szBuffer);
    CHECK_WIN32(cchBufferMax);
    CHECK_HRESULT(::StringCchCopyW(szBuffer, cchBufferMax, Tavo::FormatVersionW(lVersion, nPrecision)));
    return S_OK;
}

long FormatVersionA(unsigned __int64 lVersion, char* szBuffer, int cchBufferMax, unsigned short nPrecision)
{
    TAVO_FUNCTION("Tavo::FormatVersionA");
    CHECK_POINTER(szBuffer);
    CHECK_WIN32(cchBufferMax);
    CHECK_HRESULT(::StringCchCopyA(szBuffer, cchBufferMax, Tavo::FormatVersionA(lVersion, nPrecision)));
    return S_OK;
}

} // namespace Tavo
