// Dates and times for the user, in the patterns of the user's regional settings. Two cores, one
// platform call each; every other form converts its moment and calls them. No zone arithmetic here:
// a caller that wants the local clock converts first. Both widths and the three kinds of moment run
// the same templates; the traits below hold what differs, the texts of the lines included.
#include "Check.h"
#include "Join.h"
#include "StrSafe.h"
#include "TavoCommon.h"

#include <stdlib.h>

namespace Tavo {
namespace {

// The moments a form takes, turned into the fields the platform formats, and the name the lines
// give the argument.
template <typename Moment> struct TMoment;

template <> struct TMoment<SYSTEMTIME> {
    static constexpr int kIndex = 0;
    static const SYSTEMTIME& Fields(const SYSTEMTIME& st) { return st; }
};

template <> struct TMoment<FILETIME> {
    static constexpr int kIndex = 1;
    static SYSTEMTIME Fields(const FILETIME& ft) { return FileTimeToSystemTime(ft); }
};

template <> struct TMoment<Time> {
    static constexpr int kIndex = 2;
    static SYSTEMTIME Fields(Time time) { return TimeToSystemTime(time); }
};

// For each moment, in TMoment's order: the value forms' calls of their buffer forms, and the time
// buffer forms' calls of the core after the conversion (none for SYSTEMTIME, which needs none).
#define TAVO_VALUE_TEXTS(NAME, FLAG)                                                                   \
    {NAME "(st, szBuffer, _countof(szBuffer), " FLAG ")", NAME "(ft, szBuffer, _countof(szBuffer), " FLAG ")", \
     NAME "(time, szBuffer, _countof(szBuffer), " FLAG ")"}
#define TAVO_CONVERTED_TEXTS(NAME)                                                                     \
    {nullptr, NAME "(Tavo::FileTimeToSystemTime(ft), szBuffer, cchBufferMax, bSeconds)",                \
     NAME "(Tavo::TimeToSystemTime(time), szBuffer, cchBufferMax, bSeconds)"}

// What the two widths differ in: the platform calls, the names and the texts of the lines.
template <typename XCHAR> struct TDateTime;

#define TAVO_DATE_TIME_TRAITS(XCHAR, AW)                                                               \
    template <> struct TDateTime<XCHAR> {                                                              \
        static constexpr const char* kDate = "Tavo::FormatDate" #AW;                                   \
        static constexpr const char* kTime = "Tavo::FormatTime" #AW;                                   \
        static constexpr const char* kDateCore = "::GetDateFormat" #AW "(LOCALE_USER_DEFAULT, bLong ? " \
                                                 "DATE_LONGDATE : DATE_SHORTDATE, &st, NULL, szBuffer, cchBufferMax)"; \
        static constexpr const char* kTimeCore = "::GetTimeFormat" #AW "(LOCALE_USER_DEFAULT, bSeconds ? 0 : " \
                                                 "TIME_NOSECONDS, &st, NULL, szBuffer, cchBufferMax)";  \
        static constexpr const char* kDateValue[] = TAVO_VALUE_TEXTS("Tavo::FormatDate" #AW, "bLong");  \
        static constexpr const char* kTimeValue[] = TAVO_VALUE_TEXTS("Tavo::FormatTime" #AW, "bSeconds"); \
        static constexpr const char* kTimeConverted[] = TAVO_CONVERTED_TEXTS("Tavo::FormatTime" #AW);  \
        static int DateFormat(DWORD dwFlags, const SYSTEMTIME& st, XCHAR* sz, int cch)                 \
        {                                                                                              \
            return ::GetDateFormat##AW(LOCALE_USER_DEFAULT, dwFlags, &st, NULL, sz, cch);              \
        }                                                                                              \
        static int TimeFormat(DWORD dwFlags, const SYSTEMTIME& st, XCHAR* sz, int cch)                 \
        {                                                                                              \
            return ::GetTimeFormat##AW(LOCALE_USER_DEFAULT, dwFlags, &st, NULL, sz, cch);              \
        }                                                                                              \
        static HRESULT Copy(XCHAR* sz, int cch, const XCHAR* szText) { return StringCchCopy##AW(sz, cch, szText); } \
    };

TAVO_DATE_TIME_TRAITS(wchar_t, W)
TAVO_DATE_TIME_TRAITS(char, A)

#undef TAVO_DATE_TIME_TRAITS
#undef TAVO_CONVERTED_TEXTS
#undef TAVO_VALUE_TEXTS

// ---- The cores and the buffer forms ------------------------------------------------------------

template <typename XCHAR>
long DateBuffer(const SYSTEMTIME& st, XCHAR* szBuffer, int cchBufferMax, bool bLong)
{
    typedef TDateTime<XCHAR> T;
    TAVO_FUNCTION(T::kDate);
    CHECK_WIN32_AS(T::DateFormat(bLong ? DATE_LONGDATE : DATE_SHORTDATE, st, szBuffer, cchBufferMax), T::kDateCore);
    return S_OK;
}

template <typename XCHAR, typename Moment>
long DateBuffer(const Moment& moment, XCHAR* szBuffer, int cchBufferMax, bool bLong)
{
    return DateBuffer(TMoment<Moment>::Fields(moment), szBuffer, cchBufferMax, bLong);
}

template <typename XCHAR>
long TimeBuffer(const SYSTEMTIME& st, XCHAR* szBuffer, int cchBufferMax, bool bSeconds)
{
    typedef TDateTime<XCHAR> T;
    TAVO_FUNCTION(T::kTime);
    CHECK_WIN32_AS(T::TimeFormat(bSeconds ? 0 : TIME_NOSECONDS, st, szBuffer, cchBufferMax), T::kTimeCore);
    return S_OK;
}

// Unlike the date's, the converting time forms report a failed core once more as their own.
template <typename XCHAR, typename Moment>
long TimeBuffer(const Moment& moment, XCHAR* szBuffer, int cchBufferMax, bool bSeconds)
{
    typedef TDateTime<XCHAR> T;
    TAVO_FUNCTION(T::kTime);
    const HRESULT hr = TimeBuffer(TMoment<Moment>::Fields(moment), szBuffer, cchBufferMax, bSeconds);
    VERIFY_HRESULT_AS(hr, T::kTimeConverted[TMoment<Moment>::kIndex]);
    return hr;
}

// ---- The value forms: the text in 128 characters of the caller's, zeroed first -----------------

template <typename XCHAR, typename Fill>
const XCHAR* ValueText(XCHAR (&szBuffer)[128], Fill fill, const char* const tavoFunctionName_, const char* szText)
{
    return Check::BufferFormText(szBuffer, fill(szBuffer, static_cast<int>(_countof(szBuffer))), TAVO_SITE, szText);
}

template <typename XCHAR, typename Moment>
const XCHAR* DateText(const Moment& moment, bool bLong, XCHAR (&szBuffer)[128])
{
    const auto fill = [&](XCHAR* sz, int cch) { return DateBuffer(moment, sz, cch, bLong); };
    return ValueText(szBuffer, fill, TDateTime<XCHAR>::kDate, TDateTime<XCHAR>::kDateValue[TMoment<Moment>::kIndex]);
}

template <typename XCHAR, typename Moment>
const XCHAR* TimeText(const Moment& moment, bool bSeconds, XCHAR (&szBuffer)[128])
{
    const auto fill = [&](XCHAR* sz, int cch) { return TimeBuffer(moment, sz, cch, bSeconds); };
    return ValueText(szBuffer, fill, TDateTime<XCHAR>::kTime, TDateTime<XCHAR>::kTimeValue[TMoment<Moment>::kIndex]);
}

template <typename XCHAR, typename Moment>
CStringT<XCHAR> DateValue(const Moment& moment, bool bLong)
{
    XCHAR szBuffer[128] = {};
    return DateText(moment, bLong, szBuffer);
}

template <typename XCHAR, typename Moment>
CStringT<XCHAR> TimeValue(const Moment& moment, bool bSeconds)
{
    XCHAR szBuffer[128] = {};
    return TimeText(moment, bSeconds, szBuffer);
}

// ---- FormatDateTime ----------------------------------------------------------------------------
// Always the short date, and one fixed blank whatever the locale. Each part gets the moment
// unconverted; a part that fails is just empty. The time is asked first. The two texts stay on the
// stack: the result is the one heap block.

template <typename XCHAR, typename Moment>
CStringT<XCHAR> DateTimeValue(const Moment& moment, bool bSeconds)
{
    XCHAR szTime[128] = {}, szDate[128] = {};
    TimeText(moment, bSeconds, szTime);
    DateText(moment, false, szDate);
    return JoinText(szDate, TStringTraits<XCHAR>::Length(szDate), static_cast<XCHAR>(' '), szTime,
                    TStringTraits<XCHAR>::Length(szTime));
}

// The copy's own result is the answer; nothing is reported. A narrow text of a FILETIME or a Time
// comes from the wide one, in the thread's code page.
template <typename XCHAR, typename Moment>
long DateTimeBuffer(const Moment& moment, XCHAR* szBuffer, int cchBufferMax, bool bSeconds)
{
    if constexpr (sizeof(XCHAR) == 1 && TMoment<Moment>::kIndex != 0)
        return StringCchCopyA(szBuffer, cchBufferMax, CStringA(DateTimeValue<wchar_t>(moment, bSeconds)));
    else
        return TDateTime<XCHAR>::Copy(szBuffer, cchBufferMax, DateTimeValue<XCHAR>(moment, bSeconds));
}

} // namespace

// ---- The family: every form of each width and moment -------------------------------------------

#define TAVO_DATE_TIME_MEMBERS(XCHAR, AW, MOMENT)                                                      \
    long FormatDate##AW(MOMENT moment, XCHAR* szBuffer, int cchBufferMax, bool bLong)                  \
    {                                                                                                  \
        return DateBuffer(moment, szBuffer, cchBufferMax, bLong);                                      \
    }                                                                                                  \
    CStringT<XCHAR> FormatDate##AW(MOMENT moment, bool bLong) { return DateValue<XCHAR>(moment, bLong); } \
    long FormatTime##AW(MOMENT moment, XCHAR* szBuffer, int cchBufferMax, bool bSeconds)               \
    {                                                                                                  \
        return TimeBuffer(moment, szBuffer, cchBufferMax, bSeconds);                                   \
    }                                                                                                  \
    CStringT<XCHAR> FormatTime##AW(MOMENT moment, bool bSeconds) { return TimeValue<XCHAR>(moment, bSeconds); } \
    CStringT<XCHAR> FormatDateTime##AW(MOMENT moment, bool bSeconds)                                   \
    {                                                                                                  \
        return DateTimeValue<XCHAR>(moment, bSeconds);                                                 \
    }                                                                                                  \
    long FormatDateTime##AW(MOMENT moment, XCHAR* szBuffer, int cchBufferMax, bool bSeconds)           \
    {                                                                                                  \
        return DateTimeBuffer(moment, szBuffer, cchBufferMax, bSeconds);                               \
    }

TAVO_DATE_TIME_MEMBERS(wchar_t, W, const SYSTEMTIME&)
TAVO_DATE_TIME_MEMBERS(wchar_t, W, const FILETIME&)
TAVO_DATE_TIME_MEMBERS(wchar_t, W, Time)
TAVO_DATE_TIME_MEMBERS(char, A, const SYSTEMTIME&)
TAVO_DATE_TIME_MEMBERS(char, A, const FILETIME&)
TAVO_DATE_TIME_MEMBERS(char, A, Time)

#undef TAVO_DATE_TIME_MEMBERS

} // namespace Tavo
