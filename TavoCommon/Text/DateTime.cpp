// Dates and times for the user, in the patterns of the user's regional settings. Two cores, one
// platform call each; every other form converts its moment and calls them. No zone arithmetic here:
// a caller that wants the local clock converts first.
#include "Check.h"
#include "StrSafe.h"
#include "TavoCommon.h"

#include <stdlib.h>


namespace Tavo {

// ---- FormatDate -----------------------------------------------------------------------------

long FormatDateW(const SYSTEMTIME& st, wchar_t* szBuffer, int cchBufferMax, bool bLong)
{
    TAVO_FUNCTION("Tavo::FormatDateW");
    CHECK_WIN32(::GetDateFormatW(LOCALE_USER_DEFAULT, bLong ? DATE_LONGDATE : DATE_SHORTDATE, &st, NULL, szBuffer, cchBufferMax));
    return S_OK;
}

long FormatDateA(const SYSTEMTIME& st, char* szBuffer, int cchBufferMax, bool bLong)
{
    TAVO_FUNCTION("Tavo::FormatDateA");
    CHECK_WIN32(::GetDateFormatA(LOCALE_USER_DEFAULT, bLong ? DATE_LONGDATE : DATE_SHORTDATE, &st, NULL, szBuffer, cchBufferMax));
    return S_OK;
}

long FormatDateW(const FILETIME& ft, wchar_t* szBuffer, int cchBufferMax, bool bLong)
{
    return Tavo::FormatDateW(Tavo::FileTimeToSystemTime(ft), szBuffer, cchBufferMax, bLong);
}

long FormatDateA(const FILETIME& ft, char* szBuffer, int cchBufferMax, bool bLong)
{
    return Tavo::FormatDateA(Tavo::FileTimeToSystemTime(ft), szBuffer, cchBufferMax, bLong);
}

long FormatDateW(Time time, wchar_t* szBuffer, int cchBufferMax, bool bLong)
{
    return Tavo::FormatDateW(Tavo::TimeToSystemTime(time), szBuffer, cchBufferMax, bLong);
}

long FormatDateA(Time time, char* szBuffer, int cchBufferMax, bool bLong)
{
    return Tavo::FormatDateA(Tavo::TimeToSystemTime(time), szBuffer, cchBufferMax, bLong);
}

CStringW FormatDateW(const SYSTEMTIME& st, bool bLong)
{
    TAVO_FUNCTION("Tavo::FormatDateW");
    TAVO_RETURN_BUFFER_FORM_VALUE(wchar_t, Tavo::FormatDateW(st, szBuffer, _countof(szBuffer), bLong));
}

CStringA FormatDateA(const SYSTEMTIME& st, bool bLong)
{
    TAVO_FUNCTION("Tavo::FormatDateA");
    TAVO_RETURN_BUFFER_FORM_VALUE(char, Tavo::FormatDateA(st, szBuffer, _countof(szBuffer), bLong));
}

CStringW FormatDateW(const FILETIME& ft, bool bLong)
{
    TAVO_FUNCTION("Tavo::FormatDateW");
    TAVO_RETURN_BUFFER_FORM_VALUE(wchar_t, Tavo::FormatDateW(ft, szBuffer, _countof(szBuffer), bLong));
}

CStringA FormatDateA(const FILETIME& ft, bool bLong)
{
    TAVO_FUNCTION("Tavo::FormatDateA");
    TAVO_RETURN_BUFFER_FORM_VALUE(char, Tavo::FormatDateA(ft, szBuffer, _countof(szBuffer), bLong));
}

CStringW FormatDateW(Time time, bool bLong)
{
    TAVO_FUNCTION("Tavo::FormatDateW");
    TAVO_RETURN_BUFFER_FORM_VALUE(wchar_t, Tavo::FormatDateW(time, szBuffer, _countof(szBuffer), bLong));
}

CStringA FormatDateA(Time time, bool bLong)
{
    TAVO_FUNCTION("Tavo::FormatDateA");
    TAVO_RETURN_BUFFER_FORM_VALUE(char, Tavo::FormatDateA(time, szBuffer, _countof(szBuffer), bLong));
}

// ---- FormatTime -----------------------------------------------------------------------------

long FormatTimeW(const SYSTEMTIME& st, wchar_t* szBuffer, int cchBufferMax, bool bSeconds)
{
    TAVO_FUNCTION("Tavo::FormatTimeW");
    CHECK_WIN32(::GetTimeFormatW(LOCALE_USER_DEFAULT, bSeconds ? 0 : TIME_NOSECONDS, &st, NULL, szBuffer, cchBufferMax));
    return S_OK;
}

long FormatTimeA(const SYSTEMTIME& st, char* szBuffer, int cchBufferMax, bool bSeconds)
{
    TAVO_FUNCTION("Tavo::FormatTimeA");
    CHECK_WIN32(::GetTimeFormatA(LOCALE_USER_DEFAULT, bSeconds ? 0 : TIME_NOSECONDS, &st, NULL, szBuffer, cchBufferMax));
    return S_OK;
}

long FormatTimeW(const FILETIME& ft, wchar_t* szBuffer, int cchBufferMax, bool bSeconds)
{
    TAVO_FUNCTION("Tavo::FormatTimeW");
    long hr;
    VERIFY_HRESULT_KEEP(hr, Tavo::FormatTimeW(Tavo::FileTimeToSystemTime(ft), szBuffer, cchBufferMax, bSeconds));
    return hr;
}

long FormatTimeA(const FILETIME& ft, char* szBuffer, int cchBufferMax, bool bSeconds)
{
    TAVO_FUNCTION("Tavo::FormatTimeA");
    long hr;
    VERIFY_HRESULT_KEEP(hr, Tavo::FormatTimeA(Tavo::FileTimeToSystemTime(ft), szBuffer, cchBufferMax, bSeconds));
    return hr;
}

long FormatTimeW(Time time, wchar_t* szBuffer, int cchBufferMax, bool bSeconds)
{
    TAVO_FUNCTION("Tavo::FormatTimeW");
    long hr;
    VERIFY_HRESULT_KEEP(hr, Tavo::FormatTimeW(Tavo::TimeToSystemTime(time), szBuffer, cchBufferMax, bSeconds));
    return hr;
}

long FormatTimeA(Time time, char* szBuffer, int cchBufferMax, bool bSeconds)
{
    TAVO_FUNCTION("Tavo::FormatTimeA");
    long hr;
    VERIFY_HRESULT_KEEP(hr, Tavo::FormatTimeA(Tavo::TimeToSystemTime(time), szBuffer, cchBufferMax, bSeconds));
    return hr;
}

CStringW FormatTimeW(const SYSTEMTIME& st, bool bSeconds)
{
    TAVO_FUNCTION("Tavo::FormatTimeW");
    TAVO_RETURN_BUFFER_FORM_VALUE(wchar_t, Tavo::FormatTimeW(st, szBuffer, _countof(szBuffer), bSeconds));
}

CStringA FormatTimeA(const SYSTEMTIME& st, bool bSeconds)
{
    TAVO_FUNCTION("Tavo::FormatTimeA");
    TAVO_RETURN_BUFFER_FORM_VALUE(char, Tavo::FormatTimeA(st, szBuffer, _countof(szBuffer), bSeconds));
}

CStringW FormatTimeW(const FILETIME& ft, bool bSeconds)
{
    TAVO_FUNCTION("Tavo::FormatTimeW");
    TAVO_RETURN_BUFFER_FORM_VALUE(wchar_t, Tavo::FormatTimeW(ft, szBuffer, _countof(szBuffer), bSeconds));
}

CStringA FormatTimeA(const FILETIME& ft, bool bSeconds)
{
    TAVO_FUNCTION("Tavo::FormatTimeA");
    TAVO_RETURN_BUFFER_FORM_VALUE(char, Tavo::FormatTimeA(ft, szBuffer, _countof(szBuffer), bSeconds));
}

CStringW FormatTimeW(Time time, bool bSeconds)
{
    TAVO_FUNCTION("Tavo::FormatTimeW");
    TAVO_RETURN_BUFFER_FORM_VALUE(wchar_t, Tavo::FormatTimeW(time, szBuffer, _countof(szBuffer), bSeconds));
}

CStringA FormatTimeA(Time time, bool bSeconds)
{
    TAVO_FUNCTION("Tavo::FormatTimeA");
    TAVO_RETURN_BUFFER_FORM_VALUE(char, Tavo::FormatTimeA(time, szBuffer, _countof(szBuffer), bSeconds));
}

// ---- FormatDateTime -------------------------------------------------------------------------
// Always the short date, and one fixed blank whatever the locale. Each part gets the moment
// unconverted; a part that fails is just empty.

namespace {

// Appended in place: one allocation fewer than a chain of temporaries.
template <typename CString>
CString JoinDateTime(CString strDate, const CString& strTime)
{
    strDate += static_cast<typename CString::XCHAR_T>(' ');
    strDate += strTime;
    return strDate;
}

} // namespace

CStringW FormatDateTimeW(const SYSTEMTIME& st, bool bSeconds)
{
    const CStringW strTime = Tavo::FormatTimeW(st, bSeconds);
    return JoinDateTime(Tavo::FormatDateW(st, false), strTime);
}

CStringA FormatDateTimeA(const SYSTEMTIME& st, bool bSeconds)
{
    const CStringA strTime = Tavo::FormatTimeA(st, bSeconds);
    return JoinDateTime(Tavo::FormatDateA(st, false), strTime);
}

CStringW FormatDateTimeW(const FILETIME& ft, bool bSeconds)
{
    const CStringW strTime = Tavo::FormatTimeW(ft, bSeconds);
    return JoinDateTime(Tavo::FormatDateW(ft, false), strTime);
}

CStringA FormatDateTimeA(const FILETIME& ft, bool bSeconds)
{
    const CStringA strTime = Tavo::FormatTimeA(ft, bSeconds);
    return JoinDateTime(Tavo::FormatDateA(ft, false), strTime);
}

CStringW FormatDateTimeW(Time time, bool bSeconds)
{
    const CStringW strTime = Tavo::FormatTimeW(time, bSeconds);
    return JoinDateTime(Tavo::FormatDateW(time, false), strTime);
}

CStringA FormatDateTimeA(Time time, bool bSeconds)
{
    const CStringA strTime = Tavo::FormatTimeA(time, bSeconds);
    return JoinDateTime(Tavo::FormatDateA(time, false), strTime);
}

// The copy's own result is the answer; nothing is reported.
long FormatDateTimeW(const SYSTEMTIME& st, wchar_t* szBuffer, int cchBufferMax, bool bSeconds)
{
    return ::StringCchCopyW(szBuffer, cchBufferMax, Tavo::FormatDateTimeW(st, bSeconds));
}

long FormatDateTimeA(const SYSTEMTIME& st, char* szBuffer, int cchBufferMax, bool bSeconds)
{
    return ::StringCchCopyA(szBuffer, cchBufferMax, Tavo::FormatDateTimeA(st, bSeconds));
}

long FormatDateTimeW(const FILETIME& ft, wchar_t* szBuffer, int cchBufferMax, bool bSeconds)
{
    return ::StringCchCopyW(szBuffer, cchBufferMax, Tavo::FormatDateTimeW(ft, bSeconds));
}

// The narrow text comes from the wide one, in the thread's code page.
long FormatDateTimeA(const FILETIME& ft, char* szBuffer, int cchBufferMax, bool bSeconds)
{
    return ::StringCchCopyA(szBuffer, cchBufferMax, CStringA(Tavo::FormatDateTimeW(ft, bSeconds)));
}

long FormatDateTimeW(Time time, wchar_t* szBuffer, int cchBufferMax, bool bSeconds)
{
    return ::StringCchCopyW(szBuffer, cchBufferMax, Tavo::FormatDateTimeW(time, bSeconds));
}

long FormatDateTimeA(Time time, char* szBuffer, int cchBufferMax, bool bSeconds)
{
    return ::StringCchCopyA(szBuffer, cchBufferMax, CStringA(Tavo::FormatDateTimeW(time, bSeconds)));
}

} // namespace Tavo
