// The bounded copy and print, both widths over one template each.
#include "StrSafe.h"

#include <stdio.h>
#include <wchar.h>

namespace {

template <typename XCHAR>
HRESULT BoundedCopy(XCHAR* pszDest, size_t cchDest, const XCHAR* pszSrc)
{
    if (cchDest == 0 || cchDest > STRSAFE_MAX_CCH) return E_INVALIDARG;
    if (!pszSrc) pszSrc = reinterpret_cast<const XCHAR*>(L"");
    size_t i = 0;
    for (; i < cchDest; ++i) {
        pszDest[i] = pszSrc[i];
        if (pszSrc[i] == 0) return S_OK;
    }
    pszDest[cchDest - 1] = 0;
    return STRSAFE_E_INSUFFICIENT_BUFFER;
}

int PrintBounded(wchar_t* psz, size_t cch, const wchar_t* pszFormat, va_list args)
{
    return _vsnwprintf(psz, cch, pszFormat, args);
}

int PrintBounded(char* psz, size_t cch, const char* pszFormat, va_list args)
{
    return _vsnprintf(psz, cch, pszFormat, args);
}

template <typename XCHAR>
HRESULT BoundedPrint(XCHAR* pszDest, size_t cchDest, const XCHAR* pszFormat, va_list args)
{
    if (cchDest == 0 || cchDest > STRSAFE_MAX_CCH) return E_INVALIDARG;
    if (!pszFormat) {
        pszDest[0] = 0;
        return E_INVALIDARG;
    }
    const size_t cchMax = cchDest - 1;
    // The whole buffer: ucrtbase's wide form keeps its last character for a terminator, msvcrt's
    // does not, so only thus do both fit the same texts. msvcrt leaves a full buffer unterminated.
    const int nWritten = PrintBounded(pszDest, cchDest, pszFormat, args);
    pszDest[cchMax] = 0;
    if (nWritten < 0 || static_cast<size_t>(nWritten) > cchMax) return STRSAFE_E_INSUFFICIENT_BUFFER;
    return S_OK;
}

} // namespace

HRESULT StringCchCopyW(wchar_t* pszDest, size_t cchDest, const wchar_t* pszSrc)
{
    return BoundedCopy(pszDest, cchDest, pszSrc);
}

HRESULT StringCchCopyA(char* pszDest, size_t cchDest, const char* pszSrc)
{
    return BoundedCopy(pszDest, cchDest, pszSrc);
}

HRESULT StringCchVPrintfW(wchar_t* pszDest, size_t cchDest, const wchar_t* pszFormat, va_list args)
{
    return BoundedPrint(pszDest, cchDest, pszFormat, args);
}

HRESULT StringCchVPrintfA(char* pszDest, size_t cchDest, const char* pszFormat, va_list args)
{
    return BoundedPrint(pszDest, cchDest, pszFormat, args);
}

// The variadic entries hand their arguments on as a va_list.
#define TAVO_BOUNDED_PRINT(XCHAR, AW)                                                                  \
    HRESULT StringCchPrintf##AW(XCHAR* pszDest, size_t cchDest, const XCHAR* pszFormat, ...)           \
    {                                                                                                  \
        va_list args;                                                                                  \
        va_start(args, pszFormat);                                                                     \
        HRESULT hr = BoundedPrint(pszDest, cchDest, pszFormat, args);                                  \
        va_end(args);                                                                                  \
        return hr;                                                                                     \
    }

TAVO_BOUNDED_PRINT(wchar_t, W)
TAVO_BOUNDED_PRINT(char, A)

#undef TAVO_BOUNDED_PRINT
