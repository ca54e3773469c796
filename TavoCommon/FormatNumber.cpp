// Numbers for the user in the user's regional form. Every member prints a plain digit string and
// hands it to one core per width, which reads the settings afresh and calls the platform's number
// formatter. The narrow core asks the narrow platform calls, so separators arrive narrow as they are.
#include "Check.h"
#include "TavoCommon.h"

#include <stdlib.h>
#include <string.h>
#include <wchar.h>


namespace Tavo {
namespace {

// The element count of an array as a constant expression; the reports spell the size argument as
// the platform's _countof expands, so the core writes it out the same way.
template <typename T, size_t N> char (*__countof_helper(T (&)[N]))[N];

unsigned long ReadUnsigned(const wchar_t* sz) { return wcstoul(sz, nullptr, 10); }
unsigned long ReadUnsigned(const char* sz) { return strtoul(sz, nullptr, 10); }

// "3;2;0" as the locale writes it to 32 as NUMBERFMT wants it: a closing 0 there means "repeat the
// last group", while a last digit other than 0 here means just that.
template <typename XCHAR>
UINT GroupingOf(CStringT<XCHAR>& strGrouping)
{
    const XCHAR szSemicolon[] = {';', 0};
    const XCHAR szNothing[] = {0};
    strGrouping.Replace(szSemicolon, szNothing);
    const int nLength = strGrouping.GetLength();
    if (nLength && strGrouping[nLength - 1] == '0')
        strGrouping.Truncate(nLength - 1);
    else
        strGrouping += static_cast<XCHAR>('0');
    return ReadUnsigned(strGrouping.GetString());
}

template <typename XCHAR>
UINT DigitsBehindPoint(const XCHAR* szNumber)
{
    const XCHAR* pchEnd = szNumber;
    while (*pchEnd) ++pchEnd;
    for (const XCHAR* pch = pchEnd; pch != szNumber;)
        if (*--pch == '.') return static_cast<UINT>(pchEnd - pch - 1);
    return 0;
}

// The run-time prints its own locale's point; the platform's formatter takes only ".".
template <typename XCHAR>
CStringT<XCHAR> PutPoint(CStringT<XCHAR> str, unsigned short nPrecision)
{
    const int nLength = str.GetLength();
    if (nPrecision > 0 && nLength >= nPrecision + 1) str.SetAt(nLength - nPrecision - 1, '.');
    return str;
}

CStringW DigitsW(__int64 n) { return FormatStringW(L"%I64d", n); }
CStringW DigitsW(unsigned __int64 n) { return FormatStringW(L"%I64u", n); }
CStringW DigitsW(double d, unsigned short nPrecision)
{
    return PutPoint(FormatStringW(FormatStringW(L"%%.%huf", nPrecision), d), nPrecision);
}
CStringA DigitsA(__int64 n) { return FormatStringA("%I64d", n); }
CStringA DigitsA(unsigned __int64 n) { return FormatStringA("%I64u", n); }
CStringA DigitsA(double d, unsigned short nPrecision)
{
    return PutPoint(FormatStringA(FormatStringA("%%.%huf", nPrecision), d), nPrecision);
}

} // namespace

// ---- The core: a digit string in the user's form ------------------------------------------------

static long FormatNumberW(const wchar_t* szNumber, wchar_t* szBuffer, int cchBufferMax)
{
    TAVO_FUNCTION("Tavo::FormatNumberW");
    NUMBERFMTW fmt = {};
    wchar_t szDecimalSep[8] = {};
    wchar_t szThousandSep[8] = {};
    CStringW strGrouping;
    fmt.NumDigits = DigitsBehindPoint(szNumber);
    CHECK_WIN32(::GetLocaleInfoW((((DWORD)((((DWORD)((WORD )(0x0))) << 16) | ((DWORD)((WORD )((((((WORD )(0x01)) << 10) | (WORD )(0x00))))))))), 0x00000012 | 0x20000000, (LPWSTR)&fmt.LeadingZero, sizeof(fmt.LeadingZero)));
    CHECK_WIN32(::GetLocaleInfoW((((DWORD)((((DWORD)((WORD )(0x0))) << 16) | ((DWORD)((WORD )((((((WORD )(0x01)) << 10) | (WORD )(0x00))))))))), 0x00001010 | 0x20000000, (LPWSTR)&fmt.NegativeOrder, sizeof(fmt.NegativeOrder)));
    CHECK_WIN32(::GetLocaleInfoW((((DWORD)((((DWORD)((WORD )(0x0))) << 16) | ((DWORD)((WORD )((((((WORD )(0x01)) << 10) | (WORD )(0x00))))))))), 0x0000000E, szDecimalSep, sizeof(*__countof_helper(szDecimalSep))));
    CHECK_WIN32(::GetLocaleInfoW((((DWORD)((((DWORD)((WORD )(0x0))) << 16) | ((DWORD)((WORD )((((((WORD )(0x01)) << 10) | (WORD )(0x00))))))))), 0x0000000F, szThousandSep, sizeof(*__countof_helper(szThousandSep))));
    CHECK_WIN32(::GetLocaleInfoW((((DWORD)((((DWORD)((WORD )(0x0))) << 16) | ((DWORD)((WORD )((((((WORD )(0x01)) << 10) | (WORD )(0x00))))))))), 0x00000010, strGrouping.GetBuffer(32), 32));
    strGrouping.ReleaseBuffer();
    fmt.Grouping = GroupingOf(strGrouping);
    fmt.lpDecimalSep = szDecimalSep;
    fmt.lpThousandSep = szThousandSep;
    CHECK_WIN32(::GetNumberFormatW(LOCALE_USER_DEFAULT, 0, szNumber, &fmt, szBuffer, cchBufferMax));
    return S_OK;
}

static long FormatNumberA(const char* szNumber, char* szBuffer, int cchBufferMax)
{
    TAVO_FUNCTION("Tavo::FormatNumberA");
    NUMBERFMTA fmt = {};
    char szDecimalSep[8] = {};
    char szThousandSep[8] = {};
    CStringA strGrouping;
    fmt.NumDigits = DigitsBehindPoint(szNumber);
    CHECK_WIN32(::GetLocaleInfoA((((DWORD)((((DWORD)((WORD )(0x0))) << 16) | ((DWORD)((WORD )((((((WORD )(0x01)) << 10) | (WORD )(0x00))))))))), 0x00000012 | 0x20000000, (LPSTR)&fmt.LeadingZero, sizeof(fmt.LeadingZero)));
    CHECK_WIN32(::GetLocaleInfoA((((DWORD)((((DWORD)((WORD )(0x0))) << 16) | ((DWORD)((WORD )((((((WORD )(0x01)) << 10) | (WORD )(0x00))))))))), 0x00001010 | 0x20000000, (LPSTR)&fmt.NegativeOrder, sizeof(fmt.NegativeOrder)));
    CHECK_WIN32(::GetLocaleInfoA((((DWORD)((((DWORD)((WORD )(0x0))) << 16) | ((DWORD)((WORD )((((((WORD )(0x01)) << 10) | (WORD )(0x00))))))))), 0x0000000E, szDecimalSep, sizeof(*__countof_helper(szDecimalSep))));
    CHECK_WIN32(::GetLocaleInfoA((((DWORD)((((DWORD)((WORD )(0x0))) << 16) | ((DWORD)((WORD )((((((WORD )(0x01)) << 10) | (WORD )(0x00))))))))), 0x0000000F, szThousandSep, sizeof(*__countof_helper(szThousandSep))));
    CHECK_WIN32(::GetLocaleInfoA((((DWORD)((((DWORD)((WORD )(0x0))) << 16) | ((DWORD)((WORD )((((((WORD )(0x01)) << 10) | (WORD )(0x00))))))))), 0x00000010, strGrouping.GetBuffer(32), 32));
    strGrouping.ReleaseBuffer();
    fmt.Grouping = GroupingOf(strGrouping);
    fmt.lpDecimalSep = szDecimalSep;
    fmt.lpThousandSep = szThousandSep;
    CHECK_WIN32(::GetNumberFormatA(LOCALE_USER_DEFAULT, 0, szNumber, &fmt, szBuffer, cchBufferMax));
    return S_OK;
}

// The formatter may leave its output unterminated when it refuses, so a failure empties the result.
static CStringW FormatNumberW(const wchar_t* szNumber)
{
    TAVO_FUNCTION("Tavo::FormatNumberW");
    CStringW strNumber;
    HRESULT hr;
    VERIFY_HRESULT_KEEP(hr, Tavo::FormatNumberW(szNumber, strNumber.GetBuffer(128), 128));
    strNumber.ReleaseBuffer(SUCCEEDED(hr) ? -1 : 0);
    return strNumber;
}

static CStringA FormatNumberA(const char* szNumber)
{
    TAVO_FUNCTION("Tavo::FormatNumberA");
    CStringA strNumber;
    HRESULT hr;
    VERIFY_HRESULT_KEEP(hr, Tavo::FormatNumberA(szNumber, strNumber.GetBuffer(128), 128));
    strNumber.ReleaseBuffer(SUCCEEDED(hr) ? -1 : 0);
    return strNumber;
}

// ---- The family ------------------------------------------------------------------------------

CStringW FormatNumberW(int n) { return Tavo::FormatNumberW(DigitsW(static_cast<__int64>(n))); }
CStringW FormatNumberW(unsigned int n) { return Tavo::FormatNumberW(DigitsW(static_cast<unsigned __int64>(n))); }
CStringW FormatNumberW(unsigned long n) { return Tavo::FormatNumberW(DigitsW(static_cast<unsigned __int64>(n))); }
CStringW FormatNumberW(__int64 n) { return Tavo::FormatNumberW(DigitsW(n)); }
CStringW FormatNumberW(unsigned __int64 n) { return Tavo::FormatNumberW(DigitsW(n)); }
CStringW FormatNumberW(double d, unsigned short nPrecision) { return Tavo::FormatNumberW(DigitsW(d, nPrecision)); }
CStringW FormatNumberW(float f, unsigned short nPrecision)
{
    return Tavo::FormatNumberW(DigitsW(static_cast<double>(f), nPrecision));
}

CStringA FormatNumberA(int n) { return Tavo::FormatNumberA(DigitsA(static_cast<__int64>(n))); }
CStringA FormatNumberA(unsigned int n) { return Tavo::FormatNumberA(DigitsA(static_cast<unsigned __int64>(n))); }
CStringA FormatNumberA(unsigned long n) { return Tavo::FormatNumberA(DigitsA(static_cast<unsigned __int64>(n))); }
CStringA FormatNumberA(__int64 n) { return Tavo::FormatNumberA(DigitsA(n)); }
CStringA FormatNumberA(unsigned __int64 n) { return Tavo::FormatNumberA(DigitsA(n)); }
CStringA FormatNumberA(double d, unsigned short nPrecision) { return Tavo::FormatNumberA(DigitsA(d, nPrecision)); }
CStringA FormatNumberA(float f, unsigned short nPrecision)
{
    return Tavo::FormatNumberA(DigitsA(static_cast<double>(f), nPrecision));
}

long FormatNumberW(int n, wchar_t* szBuffer, int cchBufferMax)
{
    return Tavo::FormatNumberW(DigitsW(static_cast<__int64>(n)), szBuffer, cchBufferMax);
}
long FormatNumberW(unsigned int n, wchar_t* szBuffer, int cchBufferMax)
{
    return Tavo::FormatNumberW(DigitsW(static_cast<unsigned __int64>(n)), szBuffer, cchBufferMax);
}
long FormatNumberW(unsigned long n, wchar_t* szBuffer, int cchBufferMax)
{
    return Tavo::FormatNumberW(DigitsW(static_cast<unsigned __int64>(n)), szBuffer, cchBufferMax);
}
long FormatNumberW(__int64 n, wchar_t* szBuffer, int cchBufferMax)
{
    return Tavo::FormatNumberW(DigitsW(n), szBuffer, cchBufferMax);
}
long FormatNumberW(unsigned __int64 n, wchar_t* szBuffer, int cchBufferMax)
{
    return Tavo::FormatNumberW(DigitsW(n), szBuffer, cchBufferMax);
}
long FormatNumberW(double d, wchar_t* szBuffer, int cchBufferMax, unsigned short nPrecision)
{
    return Tavo::FormatNumberW(DigitsW(d, nPrecision), szBuffer, cchBufferMax);
}
long FormatNumberW(float f, wchar_t* szBuffer, int cchBufferMax, unsigned short nPrecision)
{
    return Tavo::FormatNumberW(DigitsW(static_cast<double>(f), nPrecision), szBuffer, cchBufferMax);
}

long FormatNumberA(int n, char* szBuffer, int cchBufferMax)
{
    return Tavo::FormatNumberA(DigitsA(static_cast<__int64>(n)), szBuffer, cchBufferMax);
}
long FormatNumberA(unsigned int n, char* szBuffer, int cchBufferMax)
{
    return Tavo::FormatNumberA(DigitsA(static_cast<unsigned __int64>(n)), szBuffer, cchBufferMax);
}
long FormatNumberA(unsigned long n, char* szBuffer, int cchBufferMax)
{
    return Tavo::FormatNumberA(DigitsA(static_cast<unsigned __int64>(n)), szBuffer, cchBufferMax);
}
long FormatNumberA(__int64 n, char* szBuffer, int cchBufferMax)
{
    return Tavo::FormatNumberA(DigitsA(n), szBuffer, cchBufferMax);
}
long FormatNumberA(unsigned __int64 n, char* szBuffer, int cchBufferMax)
{
    return Tavo::FormatNumberA(DigitsA(n), szBuffer, cchBufferMax);
}
long FormatNumberA(double d, char* szBuffer, int cchBufferMax, unsigned short nPrecision)
{
    return Tavo::FormatNumberA(DigitsA(d, nPrecision), szBuffer, cchBufferMax);
}
long FormatNumberA(float f, char* szBuffer, int cchBufferMax, unsigned short nPrecision)
{
    return Tavo::FormatNumberA(DigitsA(static_cast<double>(f), nPrecision), szBuffer, cchBufferMax);
}

} // namespace Tavo
