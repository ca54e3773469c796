// Splitting a text into the tokens between delimiters, empty tokens dropped.
#include "Check.h"
#include "TavoCommon.h"

#include <mbstring.h>
#include <wchar.h>

namespace Tavo {

// Both twins run the same steps; the set is searched with the run-time's multi-byte routines so that
// a trail byte equal to a delimiter does not split its character.
long SplitString(const char* szString, const char* szDelimiters, CAtlArray<CStringA>& aTokens)
{
    TAVO_FUNCTION("Tavo::SplitString");
    if (!szString || !szDelimiters || !*szDelimiters) CHECK_HRESULT(E_INVALIDARG);
    const CStringA str(szString);
    const unsigned char* pch = reinterpret_cast<const unsigned char*>(str.GetString());
    const unsigned char* pchDelimiters = reinterpret_cast<const unsigned char*>(szDelimiters);
    for (;;) {
        pch += _mbsspn(pch, pchDelimiters);
        if (!*pch) break;
        const size_t cch = _mbscspn(pch, pchDelimiters);
        aTokens.Add(CStringA(reinterpret_cast<const char*>(pch), static_cast<int>(cch)));
        pch += cch;
    }
    return S_OK;
}

long SplitString(const char* szString, char cDelimiter, CAtlArray<CStringA>& aTokens)
{
    return SplitString(szString, FormatStringA("%c", cDelimiter).GetString(), aTokens);
}

long SplitString(const wchar_t* szString, const wchar_t* szDelimiters, CAtlArray<CStringW>& aTokens)
{
    TAVO_FUNCTION("Tavo::SplitString");
    if (!szString || !szDelimiters || !*szDelimiters) CHECK_HRESULT(E_INVALIDARG);
    const CStringW str(szString);
    const wchar_t* pch = str.GetString();
    for (;;) {
        pch += wcsspn(pch, szDelimiters);
        if (!*pch) break;
        const size_t cch = wcscspn(pch, szDelimiters);
        aTokens.Add(CStringW(pch, static_cast<int>(cch)));
        pch += cch;
    }
    return S_OK;
}

long SplitString(const wchar_t* szString, wchar_t cDelimiter, CAtlArray<CStringW>& aTokens)
{
    return SplitString(szString, FormatStringW(L"%c", cDelimiter).GetString(), aTokens);
}

} // namespace Tavo
