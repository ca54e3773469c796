// The library's time value, its conversions to and from the platform's shapes, time strings,
// comparison under a mask and the test for today.
#include "Time.h"
#include "Check.h"
#include "TavoCommon.h"

#include <oleauto.h>

#include <stdio.h>
#include <time.h>
#include <wchar.h>

namespace Tavo {
namespace {

const __int64 kTicksPerSecond = 10000000;
const __int64 kTicksTo1970 = 116444736000000000;
const Time kSecondsPerDay = 86400;

// The two widths differ only in the scan routine and the literal of each pattern.
template <class XCHAR>
struct TScan;

template <>
struct TScan<wchar_t> {
    static const wchar_t* Mdy() { return L"%d/%d/%d"; }
    static const wchar_t* Iso8601() { return L"%d-%d-%dT%d:%d:%d"; }
    template <class... Fields>
    static void Scan(const wchar_t* sz, const wchar_t* szFormat, Fields... fields)
    {
        swscanf_s(sz, szFormat, fields...);
    }
};

template <>
struct TScan<char> {
    static const char* Mdy() { return "%d/%d/%d"; }
    static const char* Iso8601() { return "%d-%d-%dT%d:%d:%d"; }
    template <class... Fields>
    static void Scan(const char* sz, const char* szFormat, Fields... fields)
    {
        sscanf_s(sz, szFormat, fields...);
    }
};

template <class XCHAR>
struct tm StringToTmStructT(const XCHAR* szTime, TIME_FORMAT format, const char* const tavoFunctionName_)
{
    struct tm tm = {};
    if (szTime == nullptr || szTime[0] == 0) return tm;
    try {
        // The scan's count is not used: a field it never reached stays 0 and is normalised later.
        switch (format) {
        case TIME_FORMAT_MDY:
            TScan<XCHAR>::Scan(szTime, TScan<XCHAR>::Mdy(), &tm.tm_mon, &tm.tm_mday, &tm.tm_year);
            break;
        case TIME_FORMAT_ISO8601:
            TScan<XCHAR>::Scan(szTime, TScan<XCHAR>::Iso8601(), &tm.tm_year, &tm.tm_mon, &tm.tm_mday,
                               &tm.tm_hour, &tm.tm_min, &tm.tm_sec);
            break;
        default:
            break;
        }
    } catch (...) {
        TAVO_TRACE(TRACE_ERROR, "Exception caught");
        return tm;
    }
    // No date at all is left as zeros, which the run-time then refuses.
    if (tm.tm_mon == 0 && tm.tm_mday == 0 && tm.tm_year == 0) return tm;
    tm.tm_mon -= 1;
    tm.tm_year -= 1900;
    tm.tm_isdst = -1;
    return tm;
}

template <class XCHAR>
Time StringToTimeT(const XCHAR* szTime, TIME_FORMAT format, struct tm (*pfnFields)(const XCHAR*, TIME_FORMAT))
{
    TAVO_FUNCTION("Tavo::StringToTime");
    struct tm tm = pfnFields(szTime, format);
    // The text is local wall-clock time.
    const Time tResult = _mktime64(&tm);
    VERIFY_WIN32(-1 != tResult);
    return tResult;
}

// The range lines name the unsigned fields as they name the signed ones, so ">= 0" stays.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wtype-limits"
void CheckSystemTimeFields(const SYSTEMTIME& st)
{
    TAVO_FUNCTION("Tavo::SystemTimeToTime");
    VERIFY_WIN32(st.wYear >= 1900);
    VERIFY_WIN32(st.wMonth >= 1 && st.wMonth <= 12);
    VERIFY_WIN32(st.wDay >= 1 && st.wDay <= 31);
    VERIFY_WIN32(st.wHour >= 0 && st.wHour <= 23);
    VERIFY_WIN32(st.wMinute >= 0 && st.wMinute <= 59);
    VERIFY_WIN32(st.wSecond >= 0 && st.wSecond <= 59);
}
#pragma GCC diagnostic pop

} // namespace

// ---- Internal building blocks --------------------------------------------------------------------

Time TmStructToTime(struct tm* ptm)
{
    TAVO_FUNCTION("Tavo::TmStructToTime");
    const Time tResult = _mkgmtime64(ptm);
    VERIFY_WIN32(-1 != tResult);
    return tResult;
}

SYSTEMTIME TmStructToSystemTime(const struct tm& tm)
{
    SYSTEMTIME st;
    st.wYear = static_cast<WORD>(tm.tm_year + 1900);
    st.wMonth = static_cast<WORD>(tm.tm_mon + 1);
    st.wDayOfWeek = static_cast<WORD>(tm.tm_wday);
    st.wDay = static_cast<WORD>(tm.tm_mday);
    st.wHour = static_cast<WORD>(tm.tm_hour);
    st.wMinute = static_cast<WORD>(tm.tm_min);
    st.wSecond = static_cast<WORD>(tm.tm_sec);
    st.wMilliseconds = 0;
    return st;
}

struct tm StringToTmStructW(const wchar_t* szTime, TIME_FORMAT format)
{
    TAVO_FUNCTION("Tavo::StringToTmStructW");
    return StringToTmStructT(szTime, format, tavoFunctionName_);
}

struct tm StringToTmStructA(const char* szTime, TIME_FORMAT format)
{
    TAVO_FUNCTION("Tavo::StringToTmStructA");
    return StringToTmStructT(szTime, format, tavoFunctionName_);
}

// ---- Time and its conversions ----------------------------------------------------------------------

Time GetUniversalTime() { return _time64(nullptr); }

Time GetLocalTime() { return UniversalToLocalTime(_time64(nullptr)); }

Time GetToday(bool bLocal)
{
    const Time t = bLocal ? GetLocalTime() : GetUniversalTime();
    return t - (t % kSecondsPerDay);
}

Time SystemTimeToTime(const SYSTEMTIME& st)
{
    CheckSystemTimeFields(st);
    struct tm tm = {};
    tm.tm_sec = st.wSecond;
    tm.tm_min = st.wMinute;
    tm.tm_hour = st.wHour;
    tm.tm_mday = st.wDay;
    tm.tm_mon = st.wMonth - 1;
    tm.tm_year = st.wYear - 1900;
    return TmStructToTime(&tm);
}

SYSTEMTIME TimeToSystemTime(Time time)
{
    // A refused value leaves -1 in every field, which is passed on as it is.
    struct tm tm = {};
    (void)_gmtime64_s(&tm, &time);
    return TmStructToSystemTime(tm);
}

Time FileTimeToTime(const FILETIME& ft)
{
    if (ft.dwLowDateTime == 0 && ft.dwHighDateTime == 0) return 0;
    return SystemTimeToTime(FileTimeToSystemTime(ft));
}

namespace {

// A platform conversion of one shape into another, into zeroes: a failure leaves the zeroes and a
// soft-check line under the exported form's name and text.
template <typename To, typename From, typename Convert>
To ConvertedOrZero(const From& from, Convert convert, const char* const tavoFunctionName_, const char* szText)
{
    To to = {};
    VERIFY_WIN32_AS(convert(&from, &to), szText);
    return to;
}

// A moment split into fields by one clock and encoded again by the other; a failed split is
// reported and its zeroed fields encoded.
template <typename Split, typename Encode>
Time Reread(Time time, Split split, Encode encode, const char* const tavoFunctionName_)
{
    struct tm tm = {};
    const errno_t err = split(&tm, &time);
    VERIFY_WIN32(0 == err);
    tm.tm_isdst = -1;
    return encode(&tm);
}

} // namespace

FILETIME TimeToFileTime(Time time)
{
    // Unsigned arithmetic: the same bits as the signed sum, without overflow being undefined.
    const unsigned __int64 ticks = static_cast<unsigned __int64>(time) * kTicksPerSecond + kTicksTo1970;
    FILETIME ft;
    ft.dwLowDateTime = static_cast<DWORD>(ticks);
    ft.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return ft;
}

FILETIME SystemTimeToFileTime(const SYSTEMTIME& st)
{
    return ConvertedOrZero<FILETIME>(st, &::SystemTimeToFileTime, "Tavo::SystemTimeToFileTime",
                                     "::SystemTimeToFileTime(&st, &ft)");
}

SYSTEMTIME FileTimeToSystemTime(const FILETIME& ft)
{
    return ConvertedOrZero<SYSTEMTIME>(ft, &::FileTimeToSystemTime, "Tavo::FileTimeToSystemTime",
                                       "::FileTimeToSystemTime(&ft, &st)");
}

Time MakeTime(int nYear, int nMonth, int nDay, int nHour, int nMin, int nSec)
{
    TAVO_FUNCTION("Tavo::MakeTime");
    VERIFY_WIN32(nYear >= 1900);
    VERIFY_WIN32(nMonth >= 1 && nMonth <= 12);
    VERIFY_WIN32(nDay >= 1 && nDay <= 31);
    VERIFY_WIN32(nHour >= 0 && nHour <= 23);
    VERIFY_WIN32(nMin >= 0 && nMin <= 59);
    VERIFY_WIN32(nSec >= 0 && nSec <= 59);
    struct tm tm = {};
    tm.tm_sec = nSec;
    tm.tm_min = nMin;
    tm.tm_hour = nHour;
    tm.tm_mday = nDay;
    tm.tm_mon = nMonth - 1;
    tm.tm_year = nYear - 1900;
    return TmStructToTime(&tm);
}

Time OleDateToTime(double dtSrc)
{
    TAVO_FUNCTION("Tavo::OleDateToTime");
    SYSTEMTIME st = {};
    const INT bResult = ::VariantTimeToSystemTime(dtSrc, &st);
    VERIFY_WIN32(bResult);
    const Time tResult = SystemTimeToTime(st);
    VERIFY_WIN32(-1 != tResult);
    return tResult;
}

Time DosTimeToTime(unsigned short wDosDate, unsigned short wDosTime)
{
    struct tm tm = {};
    tm.tm_sec = (wDosTime & 0x1F) * 2;
    tm.tm_min = (wDosTime >> 5) & 0x3F;
    tm.tm_hour = wDosTime >> 11;
    tm.tm_mday = wDosDate & 0x1F;
    tm.tm_mon = ((wDosDate >> 5) & 0x0F) - 1;
    tm.tm_year = (wDosDate >> 9) + 80;
    return TmStructToTime(&tm);
}

Time UniversalToLocalTime(Time time)
{
    // The local wall clock encoded as though it were UTC.
    const auto split = [](struct tm* ptm, const Time* ptime) { return _localtime64_s(ptm, ptime); };
    const auto encode = [](struct tm* ptm) { return _mkgmtime64(ptm); };
    return Reread(time, split, encode, "Tavo::UniversalToLocalTime");
}

Time LocalToUniversalTime(Time time)
{
    const auto split = [](struct tm* ptm, const Time* ptime) { return _gmtime64_s(ptm, ptime); };
    const auto encode = [](struct tm* ptm) { return _mktime64(ptm); };
    return Reread(time, split, encode, "Tavo::LocalToUniversalTime");
}

FILETIME UniversalToLocalTime(const FILETIME& ft)
{
    return ConvertedOrZero<FILETIME>(ft, &::FileTimeToLocalFileTime, "Tavo::UniversalToLocalTime",
                                     "::FileTimeToLocalFileTime(&ft, &_ft)");
}

FILETIME LocalToUniversalTime(const FILETIME& ft)
{
    return ConvertedOrZero<FILETIME>(ft, &::LocalFileTimeToFileTime, "Tavo::LocalToUniversalTime",
                                     "LocalFileTimeToFileTime(&ft, &_ft)");
}

SYSTEMTIME UniversalToLocalTime(const SYSTEMTIME& st)
{
    const auto toLocal = [](const SYSTEMTIME* pst, SYSTEMTIME* pstLocal) {
        return ::SystemTimeToTzSpecificLocalTime(NULL, pst, pstLocal);
    };
    return ConvertedOrZero<SYSTEMTIME>(st, toLocal, "Tavo::UniversalToLocalTime",
                                       "::SystemTimeToTzSpecificLocalTime(NULL, &st, &_st)");
}

SYSTEMTIME LocalToUniversalTime(const SYSTEMTIME& st)
{
    const auto toUniversal = [](const SYSTEMTIME* pst, SYSTEMTIME* pstUniversal) {
        return ::TzSpecificLocalTimeToSystemTime(NULL, pst, pstUniversal);
    };
    return ConvertedOrZero<SYSTEMTIME>(st, toUniversal, "Tavo::LocalToUniversalTime",
                                       "::TzSpecificLocalTimeToSystemTime(NULL, &st, &_st)");
}

// ---- Time strings, comparison and today ------------------------------------------------------------

Time StringToTime(const wchar_t* szTime, TIME_FORMAT format)
{
    return StringToTimeT(szTime, format, &StringToTmStructW);
}

Time StringToTime(const char* szTime, TIME_FORMAT format)
{
    return StringToTimeT(szTime, format, &StringToTmStructA);
}

FILETIME StringToFileTime(const wchar_t* szTime, TIME_FORMAT format)
{
    return TimeToFileTime(StringToTime(szTime, format));
}

FILETIME StringToFileTime(const char* szTime, TIME_FORMAT format)
{
    return TimeToFileTime(StringToTime(szTime, format));
}

SYSTEMTIME StringToSystemTime(const wchar_t* szTime, TIME_FORMAT format)
{
    return TimeToSystemTime(StringToTime(szTime, format));
}

SYSTEMTIME StringToSystemTime(const char* szTime, TIME_FORMAT format)
{
    return TimeToSystemTime(StringToTime(szTime, format));
}

long CompareSystemTime(SYSTEMTIME st1, SYSTEMTIME st2, unsigned int uMask)
{
    struct Field {
        unsigned int uBit;
        WORD SYSTEMTIME::*pw;
        WORD wNeutral;
    };
    static const Field fields[] = {
        {0x01, &SYSTEMTIME::wMilliseconds, 0}, {0x02, &SYSTEMTIME::wSecond, 0},
        {0x04, &SYSTEMTIME::wMinute, 0},       {0x08, &SYSTEMTIME::wHour, 0},
        {0x10, &SYSTEMTIME::wDay, 1},          {0x20, &SYSTEMTIME::wMonth, 1},
        {0x40, &SYSTEMTIME::wYear, 1900},
    };
    for (const Field& field : fields) {
        if ((uMask & field.uBit) == 0) st1.*field.pw = st2.*field.pw = field.wNeutral;
    }
    const FILETIME ft1 = SystemTimeToFileTime(st1);
    const FILETIME ft2 = SystemTimeToFileTime(st2);
    return ::CompareFileTime(&ft1, &ft2);
}

bool IsToday(const SYSTEMTIME& st)
{
    SYSTEMTIME now;
    ::GetSystemTime(&now);
    return st.wYear == now.wYear && st.wMonth == now.wMonth && st.wDay == now.wDay;
}

bool IsToday(const FILETIME& ft) { return IsToday(FileTimeToSystemTime(ft)); }

bool IsToday(Time time) { return IsToday(TimeToSystemTime(time)); }

} // namespace Tavo
