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

namespace {

// The buffer forms of both widths: what differs is the value form they copy and the texts.
template <typename XCHAR> struct TSizeText;

#define TAVO_SIZE_TEXT_TRAITS(XCHAR, AW)                                                               \
    template <> struct TSizeText<XCHAR> {                                                              \
        static constexpr const char* kBytes = "Tavo::FormatBytes" #AW;                                 \
        static constexpr const char* kBytesCopy =                                                      \
            "StringCchCopy" #AW "(szBuffer, cchBufferMax, Tavo::FormatBytes" #AW "(lBytes))";          \
        static constexpr const char* kVersion = "Tavo::FormatVersion" #AW;                             \
        static constexpr const char* kVersionCopy =                                                    \
            "::StringCchCopy" #AW "(szBuffer, cchBufferMax, Tavo::FormatVersion" #AW "(lVersion, nPrecision))"; \
        static CStringT<XCHAR> Bytes(unsigned __int64 lBytes) { return FormatBytes##AW(lBytes); }      \
        static CStringT<XCHAR> Version(unsigned __int64 lVersion, unsigned short nPrecision)           \
        {                                                                                              \
            return FormatVersion##AW(lVersion, nPrecision);                                            \
        }                                                                                              \
        static HRESULT Copy(XCHAR* sz, int cch, const XCHAR* szText) { return StringCchCopy##AW(sz, cch, szText); } \
    };

TAVO_SIZE_TEXT_TRAITS(wchar_t, W)
TAVO_SIZE_TEXT_TRAITS(char, A)

#undef TAVO_SIZE_TEXT_TRAITS

template <typename XCHAR>
long BytesBuffer(unsigned __int64 lBytes, XCHAR* szBuffer, int cchBufferMax)
{
    typedef TSizeText<XCHAR> T;
    TAVO_FUNCTION(T::kBytes);
    CHECK_POINTER(szBuffer);
    CHECK_HRESULT_AS(T::Copy(szBuffer, cchBufferMax, T::Bytes(lBytes)), T::kBytesCopy);
    return S_OK;
}

// A zero size is refused before the copy, with the last error as the thread has it.
template <typename XCHAR>
long VersionBuffer(unsigned __int64 lVersion, XCHAR* szBuffer, int cchBufferMax, unsigned short nPrecision)
{
    typedef TSizeText<XCHAR> T;
    TAVO_FUNCTION(T::kVersion);
    CHECK_POINTER(szBuffer);
    CHECK_WIN32(cchBufferMax);
    CHECK_HRESULT_AS(T::Copy(szBuffer, cchBufferMax, T::Version(lVersion, nPrecision)), T::kVersionCopy);
    return S_OK;
}

} // namespace

long FormatBytesW(unsigned __int64 lBytes, wchar_t* szBuffer, int cchBufferMax)
{
    return BytesBuffer(lBytes, szBuffer, cchBufferMax);
}

long FormatBytesA(unsigned __int64 lBytes, char* szBuffer, int cchBufferMax)
{
    return BytesBuffer(lBytes, szBuffer, cchBufferMax);
}

long FormatVersionW(unsigned __int64 lVersion, wchar_t* szBuffer, int cchBufferMax, unsigned short nPrecision)
{
    return VersionBuffer(lVersion, szBuffer, cchBufferMax, nPrecision);
}

long FormatVersionA(unsigned __int64 lVersion, char* szBuffer, int cchBufferMax, unsigned short nPrecision)
{
    return VersionBuffer(lVersion, szBuffer, cchBufferMax, nPrecision);
}

} // namespace Tavo
