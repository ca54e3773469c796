// The time value, its conversions and strings, and dates and times in the user's patterns.
#include "TextTest.h"

using Tavo::Time;

namespace {

// The lines without the soft checks' last error, which is whatever the run-time's calls left.
Lines TimeLines()
{
    Lines lines = Recorded();
    for (std::string& line : lines) line = line.compare(0, 2, "1|") ? line : line.substr(0, line.rfind(" - "));
    return lines;
}

const FILETIME kTopBit = {0, 0x80000000};  // beyond what the platform converts
const std::string kTm = "1|Tavo::TmStructToTime|-1 != tResult", kFt = "1|Tavo::FileTimeToSystemTime|::FileTimeToSystemTime(&ft, &st)";

// Windows refuses 29 February of a year that has none; Wine 8 accepts it, so Windows's answer is injected.
BOOL WINAPI LeapAwareSystemTimeToFileTime(const SYSTEMTIME* pst, LPFILETIME pft)
{
    const WORD y = pst->wYear;
    if (pst->wMonth != 2 || pst->wDay != 29 || (y % 4 == 0 && (y % 100 != 0 || y % 400 == 0))) return ::SystemTimeToFileTime(pst, pft);
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
}

// 13 January 2012, 15:41:52, a Friday; wDayOfWeek says Tuesday, which the platform must not read.
const SYSTEMTIME kMoment = {2012, 1, 2, 13, 15, 41, 52, 0};
const FILETIME kFileTime = {0xDEB76000, 0x01CCD209};  // the same moment

// The value forms of one family: the three moments in both widths.
#define SIX_FORMS(NAME, FLAG)                                                                                                                  \
    Join({Tavo::NAME##W(kMoment, FLAG), Tavo::NAME##W(kFileTime, FLAG), Tavo::NAME##W(Time(1326469312), FLAG), Tavo::NAME##A(kMoment, FLAG), \
          Tavo::NAME##A(kFileTime, FLAG), Tavo::NAME##A(Time(1326469312), FLAG)})
std::string Six(const std::string& s) { return Join({s, s, s, s, s, s}); }

} // namespace

// The soft checks of the field ranges come in order; the run-time then normalises or gives -1.
TEST(Time, ConversionsTheirSoftChecksAndTheMaskedComparison)
{
    const std::string m = "1|Tavo::MakeTime|n", s = "1|Tavo::SystemTimeToTime|st.w";
    const Lines make = {m + "Year >= 1900", m + "Month >= 1 && nMonth <= 12", m + "Day >= 1 && nDay <= 31", m + "Hour >= 0 && nHour <= 23",
                        m + "Min >= 0 && nMin <= 59", m + "Sec >= 0 && nSec <= 59", kTm};
    const Lines st = {s + "Year >= 1900", s + "Month >= 1 && st.wMonth <= 12", s + "Day >= 1 && st.wDay <= 31", s + "Hour >= 0 && st.wHour <= 23",
                      s + "Minute >= 0 && st.wMinute <= 59", s + "Second >= 0 && st.wSecond <= 59", kTm};
    ExpectCases({
        {"lowest; weekday, ms unread", TEXT_OF(Tavo::MakeTime(1970, 1, 1, 0, 0, 0), Tavo::SystemTimeToTime({1970, 1, 6, 1, 0, 0, 0, 9})), "0 0", {}},
        {"highest", TEXT_OF(Tavo::MakeTime(2012, 12, 31, 23, 59, 59), Tavo::SystemTimeToTime({2012, 12, 0, 31, 23, 59, 59, 0})), "1356998399 1356998399", {}},
        {"below", TEXT_OF(Tavo::MakeTime(1899, 0, 0, -1, -1, -1)), "-1", make},
        {"above: 2013-02-02 01:01", TEXT_OF(Tavo::MakeTime(2012, 13, 32, 24, 60, 60), Tavo::SystemTimeToTime({2012, 13, 0, 32, 24, 60, 60, 0})),
         "1359766860 1359766860", {make[1], make[2], make[3], make[4], make[5], st[1], st[2], st[3], st[4], st[5]}},
        {"years 1899, 1900", TEXT_OF(Tavo::SystemTimeToTime({1899, 1, 0, 1, 0, 0, 0, 0}), Tavo::SystemTimeToTime({1900, 1, 0, 1, 0, 0, 0, 0})), "-1 -1",
         {st[0], kTm, kTm}},
        {"DOS words, ticks", TEXT_OF(Tavo::DosTimeToTime(0x402D, 0x7D3A), Tavo::FileTimeToTime(Tavo::TimeToFileTime(1326469312)), Tavo::FileTimeToTime({0, 0})),
         "1326469312 1326469312 0", {}},
        {"ticks refused", TEXT_OF(Tavo::FileTimeToTime(kTopBit)), "-1", {kFt, st[0], st[1], st[2], kTm}},
        {"OLE date, refused", TEXT_OF(Tavo::OleDateToTime(40921.5), Tavo::OleDateToTime(1e10)), "1326456000 -1",
         {"1|Tavo::OleDateToTime|bResult", st[0], st[1], st[2], kTm, "1|Tavo::OleDateToTime|-1 != tResult"}},
        {"zone forms refused: zeros", TEXT_OF(Tavo::UniversalToLocalTime(SYSTEMTIME{2012, 13, 0, 1, 0, 0, 0, 0}).wMonth,
                                              Tavo::LocalToUniversalTime(SYSTEMTIME{2012, 13, 0, 1, 0, 0, 0, 0}).wMonth), "0 0",
         {"1|Tavo::UniversalToLocalTime|::SystemTimeToTzSpecificLocalTime(NULL, &st, &_st)", "1|Tavo::LocalToUniversalTime|::TzSpecificLocalTimeToSystemTime(NULL, &st, &_st)"}},
    }, TimeLines);
    // Fields outside the mask take neutral values (day and month 1, year 1900), which may be refused.
    TAVO_PATCH_IMPORT(patch, Library(), "kernel32.dll", SystemTimeToFileTime, LeapAwareSystemTimeToFileTime);
    const SYSTEMTIME morning = {2012, 1, 5, 13, 9, 30, 15, 500}, evening = {2012, 1, 5, 13, 21, 5, 0, 0}, nextDay = {2012, 1, 6, 14, 8, 0, 0, 0},
                     leapDay = {2012, 2, 3, 29, 12, 0, 0, 0}, march = {2011, 3, 2, 1, 0, 0, 0, 0};
    ExpectCases({
        {"all, earlier or later; ms", TEXT_OF(Tavo::CompareSystemTime(morning, evening, 0x7F), Tavo::CompareSystemTime(evening, morning, 0x7F),
                                              Tavo::CompareSystemTime(morning, evening, 0x01)), "-1 1 1", {}},
        {"nothing, bits above", TEXT_OF(Tavo::CompareSystemTime(morning, nextDay, 0), Tavo::CompareSystemTime(morning, nextDay, ~0x7Fu)), "0 0", {}},
        {"dates, times of day", TEXT_OF(Tavo::CompareSystemTime(morning, evening, 0x70), Tavo::CompareSystemTime(evening, nextDay, 0x0F)), "0 1", {}},
        {"29 February in 2012, in 1900", TEXT_OF(Tavo::CompareSystemTime(leapDay, march, 0x7F), Tavo::CompareSystemTime(leapDay, march, 0x3F)), "1 -1",
         {"1|Tavo::SystemTimeToFileTime|::SystemTimeToFileTime(&st, &ft)"}},
    }, TimeLines);
}

// Local time is the run-time's, here two hours east through its TZ (the library and this program
// share msvcrt.dll); text is read as the local wall clock.
TEST(Time, LocalTimeAndTimeStrings)
{
    ASSERT_EQ(0, _putenv("TZ=XXX-2"));
    _tzset();
    const auto both = [](const char* sz, Tavo::TIME_FORMAT format) {
        return [=] { return Join({Tavo::StringToTime(sz ? CStringW(sz).GetString() : nullptr, format), Tavo::StringToTime(sz, format)}); };
    };
    const Lines two(2, "1|Tavo::StringToTime|-1 != tResult");
    ExpectCases({
        {"zone", TEXT_OF(Tavo::UniversalToLocalTime(1326469312), Tavo::LocalToUniversalTime(1326469312)), "1326476512 1326462112", {}},
        {"month/day/year", both("12/25/2011", Tavo::TIME_FORMAT_MDY), "1324764000 1324764000", {}},
        {"year alone: 30 November 2011", both("2012", Tavo::TIME_FORMAT_ISO8601), "1322604000 1322604000", {}},
        {"year 0 is no missing date", both("841/0/0", Tavo::TIME_FORMAT_MDY), "-1 -1", two},  // 841 months on from year 0 is still before 1970
        {"null", both(nullptr, Tavo::TIME_FORMAT_MDY), "-1 -1", two},
        {"today, in all three forms; a day before or after is not", TEXT_OF(Tavo::IsToday(Tavo::GetUniversalTime()),
             Tavo::IsToday(Tavo::TimeToFileTime(Tavo::GetUniversalTime())), Tavo::IsToday(Tavo::GetUniversalTime() - 86400),
             Tavo::IsToday(Tavo::TimeToSystemTime(Tavo::GetUniversalTime() + 86400))), "1 1 0 0", {}},
        {"unknown format", both("12/25/2011", static_cast<Tavo::TIME_FORMAT>(2)), "-1 -1", two},
    }, TimeLines);
    // Today's midnight, universal and local, in a zone whose date differs from the universal one now.
    const time_t now = time(nullptr);
    const bool east = now % 86400 >= 43200;
    ASSERT_EQ(0, _putenv(east ? "TZ=XXX-12" : "TZ=XXX+12"));
    _tzset();
    EXPECT_EQ(Join({now / 86400 * 86400, (now + (east ? 43200 : -43200)) / 86400 * 86400}), Join({Tavo::GetToday(false), Tavo::GetToday(true)}));
    _putenv("TZ=");  // back to the platform's zone
    _tzset();
}

// The patterns are read at each call (two sets in one process). A failed part of FormatDateTime is
// left empty; FormatDate leaves the buffer size to the platform, FormatDateTime is a silent copy.
TEST(DateTime, TheUsersPatternsInEveryFormFailuresAndBufferBounds)
{
    const struct { const wchar_t *shortDate, *longDate, *time; std::string date, dateLong, seconds, minutes; } rows[] = {
        {L"yyyy-MM-dd", L"d. MMMM yyyy (ddd)", L"HH.mm.ss", "2012-01-13", "13. January 2012 (Fri)", "15.41.52", "15.41"},
        {L"M/d/yyyy", L"dddd, MMMM dd, yyyy", L"h:mm:ss tt", "1/13/2012", "Friday, January 13, 2012", "3:41:52 PM", "3:41 PM"},
    };
    for (const auto& row : rows) {
        const ScopedRegionalValue patterns[] = {{LOCALE_SSHORTDATE, row.shortDate}, {LOCALE_SLONGDATE, row.longDate}, {LOCALE_STIMEFORMAT, row.time}};
        EXPECT_EQ(Join({Six(row.date), Six(row.dateLong)}), Join({SIX_FORMS(FormatDate, false), SIX_FORMS(FormatDate, true)}));
        EXPECT_EQ(Join({Six(row.seconds), Six(row.minutes)}), Join({SIX_FORMS(FormatTime, true), SIX_FORMS(FormatTime, false)}));
        EXPECT_EQ(Join({Six(row.date + " " + row.seconds), Six(row.date + " " + row.minutes)}),
                  Join({SIX_FORMS(FormatDateTime, true), SIX_FORMS(FormatDateTime, false)}));
    }
    const ScopedRegionalValue patterns[] = {{LOCALE_SSHORTDATE, L"M/d/yyyy"}, {LOCALE_SLONGDATE, L"dddd, MMMM dd, yyyy"}, {LOCALE_STIMEFORMAT, L"h:mm:ss tt"}};
    const std::string core = "(LOCALE_USER_DEFAULT, bLong ? DATE_LONGDATE : DATE_SHORTDATE, &st, NULL, szBuffer, cchBufferMax) - GetLastError = ";
    const auto date = [](char* sz, int n) { return Tavo::FormatDateA(kMoment, sz, n, true); };  // 24 characters
    const auto both = [](char* sz, int n) { return Tavo::FormatDateTimeA(kMoment, sz, n, false); };
    const auto bothW = [](wchar_t* sz, int n) { return Tavo::FormatDateTimeW(kFileTime, sz, n, false); };
    ExpectCases({
        {"both fail: a Time of -1", TEXT_OF(Tavo::FormatDateTimeW(Time(-1), true)), " ",
         {"128|Tavo::FormatTimeW|FAILED: ::GetTimeFormatW(LOCALE_USER_DEFAULT, bSeconds ? 0 : TIME_NOSECONDS, &st, NULL, szBuffer, cchBufferMax) - GetLastError = 87",
          "4|Tavo::FormatTimeW|Tavo::FormatTimeW(Tavo::TimeToSystemTime(time), szBuffer, cchBufferMax, bSeconds) - 0x80070057",
          "4|Tavo::FormatTimeW|Tavo::FormatTimeW(time, szBuffer, _countof(szBuffer), bSeconds) - 0x80070057", "128|Tavo::FormatDateW|FAILED: ::GetDateFormatW" + core + "87",
          "4|Tavo::FormatDateW|Tavo::FormatDateW(time, szBuffer, _countof(szBuffer), bLong) - 0x80070057"}},
        {"date buffer", TEXT_OF(Probe<char>(0, date), Hex(date(&std::string(24, '#')[0], 24)), Probe<char>(25, date)), "0x00000000 # 0x8007007A 0x00000000 Friday, January 13, 2012|#",
         {"128|Tavo::FormatDateA|FAILED: ::GetDateFormatA" + core + "122"}},
        {"date and time buffer", TEXT_OF(Probe<char>(0, both), Probe<char>(17, both), Probe<wchar_t>(18, bothW)),
         "0x80070057 # 0x8007007A 1/13/2012 3:41 P|# 0x00000000 1/13/2012 3:41 PM|#", {}},
    });
}
