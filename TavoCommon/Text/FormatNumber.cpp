// Numbers for the user in the user's regional form. Every member prints a plain digit string and
// hands it to one core per width, which reads the settings afresh and calls the platform's number
// formatter. The narrow core asks the narrow platform calls, so separators arrive narrow as they are.
#include "Check.h"
#include "StrSafe.h"
#include "TavoCommon.h"

#include <stdlib.h>
#include <wchar.h>

namespace Tavo {
namespace {

// The lines spell LOCALE_USER_DEFAULT, the item numbers and _countof as the platform's headers expand
// them: the texts the channel has always shown for these calls.
#define TAVO_USER_LOCALE_CALL(AW)                                                                      \
    "::GetLocaleInfo" AW "((((DWORD)((((DWORD)((WORD )(0x0))) << 16) | ((DWORD)((WORD )((((((WORD )(0x01)) " \
    "<< 10) | (WORD )(0x00))))))))), "
#define TAVO_NUMBER_TEXTS(AW, LPTSTR)                                                                    \
    {TAVO_USER_LOCALE_CALL(AW) "0x00000012 | 0x20000000, (" LPTSTR ")&fmt.LeadingZero, sizeof(fmt.LeadingZero))", \
     TAVO_USER_LOCALE_CALL(AW) "0x00001010 | 0x20000000, (" LPTSTR ")&fmt.NegativeOrder, "                      \
                               "sizeof(fmt.NegativeOrder))",                                                   \
     TAVO_USER_LOCALE_CALL(AW) "0x0000000E, szDecimalSep, sizeof(*__countof_helper(szDecimalSep)))",          \
     TAVO_USER_LOCALE_CALL(AW) "0x0000000F, szThousandSep, sizeof(*__countof_helper(szThousandSep)))",        \
     TAVO_USER_LOCALE_CALL(AW) "0x00000010, strGrouping.GetBuffer(32), 32)",                                 \
     "::GetNumberFormat" AW "(LOCALE_USER_DEFAULT, 0, szNumber, &fmt, szBuffer, cchBufferMax)",              \
     "Tavo::FormatNumber" AW "(szNumber, strNumber.GetBuffer(128), 128)"}

enum { kLeadingZero, kNegativeOrder, kDecimalSep, kThousandSep, kGrouping, kFormat, kValueForm };

// The two widths differ in the platform calls, the literals and the texts of their lines.
template <typename XCHAR> struct TNumber;

// LITERAL is the prefix of the width's literals (L or nothing), READ the run-time's number reader.
#define TAVO_NUMBER_TRAITS(XCHAR, AW, LITERAL, LPTSTR, READ)                                           \
    template <> struct TNumber<XCHAR> {                                                                \
        typedef NUMBERFMT##AW Format;                                                                  \
        static constexpr const char* kFunction = "Tavo::FormatNumber" #AW;                             \
        static constexpr const char* kTexts[] = TAVO_NUMBER_TEXTS(#AW, #LPTSTR);                       \
        static constexpr const XCHAR* kSigned = LITERAL##"%I64d";                                      \
        static constexpr const XCHAR* kUnsigned = LITERAL##"%I64u";                                    \
        static constexpr const XCHAR* kPrecision = LITERAL##"%%.%huf";                                 \
        static int LocaleInfo(LCTYPE type, XCHAR* sz, int cch)                                         \
        {                                                                                              \
            return ::GetLocaleInfo##AW(LOCALE_USER_DEFAULT, type, sz, cch);                            \
        }                                                                                              \
        static int NumberFormat(const XCHAR* szNumber, const Format* pFormat, XCHAR* szBuffer, int cch) \
        {                                                                                              \
            return ::GetNumberFormat##AW(LOCALE_USER_DEFAULT, 0, szNumber, pFormat, szBuffer, cch);    \
        }                                                                                              \
        static unsigned long ReadUnsigned(const XCHAR* sz) { return READ(sz, nullptr, 10); }           \
        static constexpr HRESULT (*Print)(XCHAR*, size_t, const XCHAR*, ...) = StringCchPrintf##AW;    \
    };

TAVO_NUMBER_TRAITS(wchar_t, W, L, LPWSTR, wcstoul)
TAVO_NUMBER_TRAITS(char, A, , LPSTR, strtoul)

#undef TAVO_NUMBER_TRAITS
#undef TAVO_NUMBER_TEXTS
#undef TAVO_USER_LOCALE_CALL

// The grouping as the locale writes it, in at most 32 characters, with room behind for the "0" the
// conversion may append.
enum { kGroupingChars = 32, kGroupingRoom = kGroupingChars + 2 };

// "3;2;0" as the locale writes it to 32 as NUMBERFMT wants it, in place: a closing 0 there means
// "repeat the last group", while a last digit other than 0 here means just that.
template <typename XCHAR>
UINT GroupingOf(XCHAR (&szGrouping)[kGroupingRoom])
{
    int nLength = 0;
    for (const XCHAR* pch = szGrouping; *pch && pch < szGrouping + kGroupingChars; ++pch)
        if (*pch != ';') szGrouping[nLength++] = *pch;
    if (nLength && szGrouping[nLength - 1] == '0')
        --nLength;
    else
        szGrouping[nLength++] = '0';
    szGrouping[nLength] = 0;
    return TNumber<XCHAR>::ReadUnsigned(szGrouping);
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

// An integer's digit string, on the stack: a sign and at most 20 digits. A number costs no heap
// block but its result.
template <typename XCHAR>
struct TIntegerDigits {
    XCHAR sz[24];
    const XCHAR* GetString() const { return sz; }
};

template <typename XCHAR>
TIntegerDigits<XCHAR> Digits(__int64 n)
{
    TIntegerDigits<XCHAR> digits;
    TNumber<XCHAR>::Print(digits.sz, _countof(digits.sz), TNumber<XCHAR>::kSigned, n);
    return digits;
}

template <typename XCHAR>
TIntegerDigits<XCHAR> Digits(unsigned __int64 n)
{
    TIntegerDigits<XCHAR> digits;
    TNumber<XCHAR>::Print(digits.sz, _countof(digits.sz), TNumber<XCHAR>::kUnsigned, n);
    return digits;
}

// The run-time prints its own locale's point; the platform's formatter takes only ".". The format
// of nPrecision places ("%.65535f" at most) is on the stack.
template <typename XCHAR>
CStringT<XCHAR> Digits(double d, unsigned short nPrecision)
{
    XCHAR szFormat[16];
    TNumber<XCHAR>::Print(szFormat, _countof(szFormat), TNumber<XCHAR>::kPrecision, nPrecision);
    CStringT<XCHAR> str;
    str.Format(szFormat, d);
    const int nLength = str.GetLength();
    if (nPrecision > 0 && nLength >= nPrecision + 1) str.SetAt(nLength - nPrecision - 1, '.');
    return str;
}

// ---- The core: a digit string in the user's form ------------------------------------------------

template <typename XCHAR>
long FormatDigits(const XCHAR* szNumber, XCHAR* szBuffer, int cchBufferMax)
{
    typedef TNumber<XCHAR> T;
    TAVO_FUNCTION(T::kFunction);
    typename T::Format fmt = {};
    XCHAR szDecimalSep[8] = {};
    XCHAR szThousandSep[8] = {};
    XCHAR szGrouping[kGroupingRoom] = {};
    fmt.NumDigits = DigitsBehindPoint(szNumber);
    CHECK_WIN32_AS(T::LocaleInfo(LOCALE_ILZERO | LOCALE_RETURN_NUMBER, reinterpret_cast<XCHAR*>(&fmt.LeadingZero),
                                 sizeof(fmt.LeadingZero)),
                   T::kTexts[kLeadingZero]);
    CHECK_WIN32_AS(T::LocaleInfo(LOCALE_INEGNUMBER | LOCALE_RETURN_NUMBER, reinterpret_cast<XCHAR*>(&fmt.NegativeOrder),
                                 sizeof(fmt.NegativeOrder)),
                   T::kTexts[kNegativeOrder]);
    CHECK_WIN32_AS(T::LocaleInfo(LOCALE_SDECIMAL, szDecimalSep, _countof(szDecimalSep)), T::kTexts[kDecimalSep]);
    CHECK_WIN32_AS(T::LocaleInfo(LOCALE_STHOUSAND, szThousandSep, _countof(szThousandSep)), T::kTexts[kThousandSep]);
    CHECK_WIN32_AS(T::LocaleInfo(LOCALE_SGROUPING, szGrouping, kGroupingChars), T::kTexts[kGrouping]);
    fmt.Grouping = GroupingOf(szGrouping);
    fmt.lpDecimalSep = szDecimalSep;
    fmt.lpThousandSep = szThousandSep;
    CHECK_WIN32_AS(T::NumberFormat(szNumber, &fmt, szBuffer, cchBufferMax), T::kTexts[kFormat]);
    return S_OK;
}

// The formatter may leave its output unterminated when it refuses, so a failure empties the result.
template <typename XCHAR, typename DigitString>
CStringT<XCHAR> FormatDigits(const DigitString& digits)
{
    typedef TNumber<XCHAR> T;
    TAVO_FUNCTION(T::kFunction);
    CStringT<XCHAR> strNumber;
    const HRESULT hr = FormatDigits(digits.GetString(), strNumber.GetBuffer(128), 128);
    VERIFY_HRESULT_AS(hr, T::kTexts[kValueForm]);
    strNumber.ReleaseBuffer(SUCCEEDED(hr) ? -1 : 0);
    return strNumber;
}

} // namespace

// ---- The family: every member prints its digits and formats them -----------------------------

#define TAVO_NUMBER_MEMBERS(XCHAR, AW)                                                                              \
    CStringT<XCHAR> FormatNumber##AW(int n) { return FormatDigits<XCHAR>(Digits<XCHAR>(static_cast<__int64>(n))); } \
    CStringT<XCHAR> FormatNumber##AW(unsigned int n)                                                                \
    {                                                                                                               \
        return FormatDigits<XCHAR>(Digits<XCHAR>(static_cast<unsigned __int64>(n)));                                \
    }                                                                                                               \
    CStringT<XCHAR> FormatNumber##AW(unsigned long n)                                                               \
    {                                                                                                               \
        return FormatDigits<XCHAR>(Digits<XCHAR>(static_cast<unsigned __int64>(n)));                                \
    }                                                                                                               \
    CStringT<XCHAR> FormatNumber##AW(__int64 n) { return FormatDigits<XCHAR>(Digits<XCHAR>(n)); }                   \
    CStringT<XCHAR> FormatNumber##AW(unsigned __int64 n) { return FormatDigits<XCHAR>(Digits<XCHAR>(n)); }          \
    CStringT<XCHAR> FormatNumber##AW(double d, unsigned short nPrecision)                                           \
    {                                                                                                               \
        return FormatDigits<XCHAR>(Digits<XCHAR>(d, nPrecision));                                                   \
    }                                                                                                               \
    CStringT<XCHAR> FormatNumber##AW(float f, unsigned short nPrecision)                                            \
    {                                                                                                               \
        return FormatDigits<XCHAR>(Digits<XCHAR>(static_cast<double>(f), nPrecision));                              \
    }                                                                                                               \
    long FormatNumber##AW(int n, XCHAR* szBuffer, int cchBufferMax)                                                 \
    {                                                                                                               \
        return FormatDigits<XCHAR>(Digits<XCHAR>(static_cast<__int64>(n)).GetString(), szBuffer, cchBufferMax);     \
    }                                                                                                               \
    long FormatNumber##AW(unsigned int n, XCHAR* szBuffer, int cchBufferMax)                                        \
    {                                                                                                               \
        return FormatDigits<XCHAR>(Digits<XCHAR>(static_cast<unsigned __int64>(n)).GetString(), szBuffer,           \
                                   cchBufferMax);                                                                   \
    }                                                                                                               \
    long FormatNumber##AW(unsigned long n, XCHAR* szBuffer, int cchBufferMax)                                       \
    {                                                                                                               \
        return FormatDigits<XCHAR>(Digits<XCHAR>(static_cast<unsigned __int64>(n)).GetString(), szBuffer,           \
                                   cchBufferMax);                                                                   \
    }                                                                                                               \
    long FormatNumber##AW(__int64 n, XCHAR* szBuffer, int cchBufferMax)                                             \
    {                                                                                                               \
        return FormatDigits<XCHAR>(Digits<XCHAR>(n).GetString(), szBuffer, cchBufferMax);                           \
    }                                                                                                               \
    long FormatNumber##AW(unsigned __int64 n, XCHAR* szBuffer, int cchBufferMax)                                    \
    {                                                                                                               \
        return FormatDigits<XCHAR>(Digits<XCHAR>(n).GetString(), szBuffer, cchBufferMax);                           \
    }                                                                                                               \
    long FormatNumber##AW(double d, XCHAR* szBuffer, int cchBufferMax, unsigned short nPrecision)                   \
    {                                                                                                               \
        return FormatDigits<XCHAR>(Digits<XCHAR>(d, nPrecision).GetString(), szBuffer, cchBufferMax);               \
    }                                                                                                               \
    long FormatNumber##AW(float f, XCHAR* szBuffer, int cchBufferMax, unsigned short nPrecision)                    \
    {                                                                                                               \
        return FormatDigits<XCHAR>(Digits<XCHAR>(static_cast<double>(f), nPrecision).GetString(), szBuffer,         \
                                   cchBufferMax);                                                                   \
    }

TAVO_NUMBER_MEMBERS(wchar_t, W)
TAVO_NUMBER_MEMBERS(char, A)

#undef TAVO_NUMBER_MEMBERS

} // namespace Tavo
