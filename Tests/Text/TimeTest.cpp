// The time value and its conversions, time strings, the masked comparison and today. Zone answers
// come from the platform's own conversions, or are injected, so the cases hold in any zone.
#include <CorvDebug.h>
#include <TavoCommon.h>

#include <gtest/gtest.h>

#include <stdlib.h>
#include <time.h>

#include <functional>
#include <string>
#include <vector>

#include "ImportPatch.h"
#include "Recorder.h"

using Tavo::Time;

namespace {

typedef std::vector<std::string> Lines;

// "function|expression" of each line (the last error cut off), "function|!text" for error lines.
Lines Recorded()
{
    Lines lines;
    for (const tavo::test::RecordedLine& l : tavo::test::RecordedLines()) {
        EXPECT_EQ("Time.cpp", l.file);
        if (l.level == TRACE_VERIFY && l.format == "%s - %lu")
            lines.push_back(l.function + "|" + l.text.substr(0, l.text.rfind(" - ")));
        else
            lines.push_back(l.function + (l.level == TRACE_ERROR ? "|!" : "|?") + l.text);
    }
    return lines;
}

unsigned __int64 Ticks(const FILETIME& ft) { return (static_cast<unsigned __int64>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime; }

std::vector<WORD> Fields(const SYSTEMTIME& st)
{
    return {st.wYear, st.wMonth, st.wDayOfWeek, st.wDay, st.wHour, st.wMinute, st.wSecond, st.wMilliseconds};
}

// The platform's own field-to-seconds conversion, with no zone arithmetic.
Time Seconds(WORD y, WORD mo, WORD d, WORD h = 0, WORD mi = 0, WORD s = 0)
{
    const SYSTEMTIME st = {y, mo, 0, d, h, mi, s, 0};
    FILETIME ft;
    EXPECT_TRUE(::SystemTimeToFileTime(&st, &ft));
    return static_cast<Time>((Ticks(ft) - 116444736000000000ULL) / 10000000);
}

// Local wall-clock fields as true UTC seconds, by the platform's zone rules at that date.
Time LocalSeconds(WORD y, WORD mo, WORD d, WORD h = 0, WORD mi = 0, WORD s = 0)
{
    const SYSTEMTIME local = {y, mo, 0, d, h, mi, s, 0};
    SYSTEMTIME utc;
    EXPECT_TRUE(::TzSpecificLocalTimeToSystemTime(nullptr, &local, &utc));
    return Seconds(utc.wYear, utc.wMonth, utc.wDay, utc.wHour, utc.wMinute, utc.wSecond);
}

const std::string kTm = "Tavo::TmStructToTime|-1 != tResult";
const std::string kSt = "Tavo::SystemTimeToTime|st.";
const FILETIME kTopBit = {0, 0x80000000};

} // namespace

TEST(Time, ConversionsOfTheValueAndTheirSoftChecks)
{
    struct Row { const char* name; std::function<Time()> f; Time expected; Lines lines; };
    const Row rows[] = {
        {"MakeTime", [] { return Tavo::MakeTime(2012, 1, 13, 15, 41, 52); }, 1326469312, {}},
        {"DOS words", [] { return Tavo::DosTimeToTime(0x402D, 0x7D3A); }, 1326469312, {}},
        {"ticks back", [] { return Tavo::FileTimeToTime(Tavo::TimeToFileTime(1326469312)); }, 1326469312, {}},
        {"zero DOS words", [] { return Tavo::DosTimeToTime(0, 0); }, 312768000, {}},
        {"DOS seconds 31", [] { return Tavo::DosTimeToTime(0x402D, 0x7D3F); }, Seconds(2012, 1, 13, 15, 42, 2), {}},
        {"epoch", [] { return Tavo::SystemTimeToTime({1970, 1, 0, 1, 0, 0, 0, 0}); }, 0, {}},
        {"ms and weekday unread", [] { return Tavo::SystemTimeToTime({2012, 1, 6, 13, 15, 41, 52, 999}); }, 1326469312, {}},
        {"31 February", [] { return Tavo::SystemTimeToTime({2011, 2, 0, 31, 8, 0, 0, 0}); }, Seconds(2011, 3, 3, 8), {}},
        {"hour 24", [] { return Tavo::SystemTimeToTime({2012, 1, 0, 13, 24, 5, 0, 0}); }, Seconds(2012, 1, 14, 0, 5),
         {kSt + "wHour >= 0 && st.wHour <= 23"}},
        {"year 1969", [] { return Tavo::SystemTimeToTime({1969, 12, 0, 31, 23, 59, 59, 0}); }, -1, {kTm}},
        {"year 1900", [] { return Tavo::SystemTimeToTime({1900, 1, 0, 1, 0, 0, 0, 0}); }, -1, {kTm}},
        {"year 1899", [] { return Tavo::SystemTimeToTime({1899, 1, 0, 1, 0, 0, 0, 0}); }, -1,
         {kSt + "wYear >= 1900", kTm}},
        {"every field out, in order", [] { return Tavo::SystemTimeToTime({1800, 13, 0, 32, 24, 60, 60, 0}); }, -1,
         {kSt + "wYear >= 1900", kSt + "wMonth >= 1 && st.wMonth <= 12", kSt + "wDay >= 1 && st.wDay <= 31",
          kSt + "wHour >= 0 && st.wHour <= 23", kSt + "wMinute >= 0 && st.wMinute <= 59",
          kSt + "wSecond >= 0 && st.wSecond <= 59", kTm}},
        {"MakeTime, every field out", [] { return Tavo::MakeTime(1899, 0, 0, -1, 60, -1); }, -1,
         {"Tavo::MakeTime|nYear >= 1900", "Tavo::MakeTime|nMonth >= 1 && nMonth <= 12",
          "Tavo::MakeTime|nDay >= 1 && nDay <= 31", "Tavo::MakeTime|nHour >= 0 && nHour <= 23",
          "Tavo::MakeTime|nMin >= 0 && nMin <= 59", "Tavo::MakeTime|nSec >= 0 && nSec <= 59", kTm}},
        {"zero FILETIME", [] { return Tavo::FileTimeToTime({0, 0}); }, 0, {}},
        {"top-bit FILETIME", [] { return Tavo::FileTimeToTime(kTopBit); }, -1,
         {"Tavo::FileTimeToSystemTime|::FileTimeToSystemTime(&ft, &st)", kSt + "wYear >= 1900",
          kSt + "wMonth >= 1 && st.wMonth <= 12", kSt + "wDay >= 1 && st.wDay <= 31", kTm}},
        {"OLE date", [] { return Tavo::OleDateToTime(40921.5); }, (40921 - 25569) * 86400LL + 43200, {}},
        {"OLE date refused", [] { return Tavo::OleDateToTime(1e10); }, -1,
         {"Tavo::OleDateToTime|bResult", kSt + "wYear >= 1900", kSt + "wMonth >= 1 && st.wMonth <= 12",
          kSt + "wDay >= 1 && st.wDay <= 31", kTm, "Tavo::OleDateToTime|-1 != tResult"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        tavo::test::ClearRecordedLines();
        EXPECT_EQ(row.expected, row.f());
        EXPECT_EQ(row.lines, Recorded());
    }
}

TEST(Time, TicksAndFieldsOutWithoutALine)
{
    const struct { Time time; unsigned __int64 ticks; } ticks[] = {
        {1326469312, 129709429120000000ULL}, {0, 116444736000000000ULL},
        {-1, 116444735990000000ULL}, {32535215999LL, 441796895990000000ULL}};
    tavo::test::ClearRecordedLines();
    for (const auto& row : ticks) {
        SCOPED_TRACE(row.time);
        EXPECT_EQ(row.ticks, Ticks(Tavo::TimeToFileTime(row.time)));
    }
    EXPECT_EQ((std::vector<WORD>{2012, 1, 5, 13, 15, 41, 52, 0}), Fields(Tavo::TimeToSystemTime(1326469312)));
    EXPECT_EQ((std::vector<WORD>{1899, 0, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0}), Fields(Tavo::TimeToSystemTime(-1)));
    EXPECT_EQ(Lines(), Recorded());
}

// The platform shapes: the platform's own answer, or all zero with the line of the failed call.
TEST(Time, PlatformShapesGiveZeroAndALineOnFailure)
{
    const SYSTEMTIME badSt = {2012, 13, 0, 1, 0, 0, 0, 0};
    const SYSTEMTIME st = {2012, 7, 0, 13, 15, 41, 52, 0};
    const FILETIME ft = Tavo::TimeToFileTime(1326469312);
    FILETIME expectedFt;
    SYSTEMTIME expectedSt;
    tavo::test::ClearRecordedLines();
    ASSERT_TRUE(::FileTimeToLocalFileTime(&ft, &expectedFt));
    EXPECT_EQ(Ticks(expectedFt), Ticks(Tavo::UniversalToLocalTime(ft)));
    ASSERT_TRUE(::LocalFileTimeToFileTime(&ft, &expectedFt));
    EXPECT_EQ(Ticks(expectedFt), Ticks(Tavo::LocalToUniversalTime(ft)));
    ASSERT_TRUE(::SystemTimeToTzSpecificLocalTime(nullptr, &st, &expectedSt));
    EXPECT_EQ(Fields(expectedSt), Fields(Tavo::UniversalToLocalTime(st)));
    ASSERT_TRUE(::TzSpecificLocalTimeToSystemTime(nullptr, &st, &expectedSt));
    EXPECT_EQ(Fields(expectedSt), Fields(Tavo::LocalToUniversalTime(st)));
    EXPECT_EQ(Lines(), Recorded());

    const SYSTEMTIME zeroSt = {};
    EXPECT_EQ(0u, Ticks(Tavo::SystemTimeToFileTime(badSt)));
    EXPECT_EQ(Fields(zeroSt), Fields(Tavo::FileTimeToSystemTime(kTopBit)));
    EXPECT_EQ(Fields(zeroSt), Fields(Tavo::UniversalToLocalTime(badSt)));
    EXPECT_EQ(Fields(zeroSt), Fields(Tavo::LocalToUniversalTime(badSt)));
    EXPECT_EQ((Lines{"Tavo::SystemTimeToFileTime|::SystemTimeToFileTime(&st, &ft)",
                     "Tavo::FileTimeToSystemTime|::FileTimeToSystemTime(&ft, &st)",
                     "Tavo::UniversalToLocalTime|::SystemTimeToTzSpecificLocalTime(NULL, &st, &_st)",
                     "Tavo::LocalToUniversalTime|::TzSpecificLocalTimeToSystemTime(NULL, &st, &_st)"}),
              Recorded());
}

// The zone comes from the run-time; a place two hours east is injected in its place.
TEST(Time, LocalReadingFollowsTheRunTimesZone)
{
    for (const Time t : {Time(1326469312), Time(1341000000)}) {
        SCOPED_TRACE(t);
        const SYSTEMTIME utc = Tavo::TimeToSystemTime(t);
        SYSTEMTIME local;
        ASSERT_TRUE(::SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local));
        const Time expected = Seconds(local.wYear, local.wMonth, local.wDay, local.wHour, local.wMinute, local.wSecond);
        EXPECT_EQ(expected, Tavo::UniversalToLocalTime(t));
        EXPECT_EQ(t, Tavo::LocalToUniversalTime(expected));
    }
    // A place two hours east, through the run-time's own zone variable (the library and this program
    // share msvcrt.dll); the zone is put back for the cases that follow.
    ASSERT_EQ(0, _putenv("TZ=XXX-2"));
    _tzset();
    const Time east = Tavo::UniversalToLocalTime(1326469312);
    const Time back = Tavo::LocalToUniversalTime(1326469312 + 7200);
    const Time text = Tavo::StringToTime(L"2012-01-13T15:41:52", Tavo::TIME_FORMAT_ISO8601);
    _putenv("TZ=");
    _tzset();
    EXPECT_EQ(1326469312 + 7200, east);
    EXPECT_EQ(1326469312, back);
    EXPECT_EQ(Tavo::MakeTime(2012, 1, 13, 15, 41, 52) - 7200, text);

    tavo::test::ClearRecordedLines();
    Tavo::UniversalToLocalTime(-2);
    Tavo::LocalToUniversalTime(-2);
    EXPECT_EQ((Lines{"Tavo::UniversalToLocalTime|0 == err", "Tavo::LocalToUniversalTime|0 == err"}), Recorded());
}

TEST(TimeString, TextIsLocalWallClockAndFailuresGiveMinusOne)
{
    struct Row { const char* text; int format; Time expected; };
    const Row rows[] = {
        {"12/25/2011", Tavo::TIME_FORMAT_MDY, LocalSeconds(2011, 12, 25)},
        {"2012-01-13T15:41:52", Tavo::TIME_FORMAT_ISO8601, LocalSeconds(2012, 1, 13, 15, 41, 52)},
        {"2012-01-13T15:41:52Z", Tavo::TIME_FORMAT_ISO8601, LocalSeconds(2012, 1, 13, 15, 41, 52)},
        {"2012-01-13T15:41:52+02:00", Tavo::TIME_FORMAT_ISO8601, LocalSeconds(2012, 1, 13, 15, 41, 52)},
        {"2012-01-13", Tavo::TIME_FORMAT_ISO8601, LocalSeconds(2012, 1, 13)},
        {"2012-01", Tavo::TIME_FORMAT_ISO8601, LocalSeconds(2011, 12, 31)},
        {"13/45/2012", Tavo::TIME_FORMAT_MDY, LocalSeconds(2013, 2, 14)},
        {"1/2/12", Tavo::TIME_FORMAT_MDY, -1},
        {nullptr, Tavo::TIME_FORMAT_MDY, -1},
        {"", Tavo::TIME_FORMAT_ISO8601, -1},
        {"x2012-01-13", Tavo::TIME_FORMAT_ISO8601, -1},
        {"12/25/2011", 2, -1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text ? row.text : "(null)");
        const std::wstring wide = row.text ? std::wstring(row.text, row.text + strlen(row.text)) : L"";
        const wchar_t* const szWide = row.text ? wide.c_str() : nullptr;
        const auto format = static_cast<Tavo::TIME_FORMAT>(row.format);
        const Lines lines = row.expected == -1 ? Lines{"Tavo::StringToTime|-1 != tResult"} : Lines();
        tavo::test::ClearRecordedLines();
        EXPECT_EQ(row.expected, Tavo::StringToTime(szWide, format));
        EXPECT_EQ(lines, Recorded());
        EXPECT_EQ(row.expected, Tavo::StringToTime(row.text, format));
        EXPECT_EQ(Ticks(Tavo::TimeToFileTime(row.expected)), Ticks(Tavo::StringToFileTime(szWide, format)));
        EXPECT_EQ(Ticks(Tavo::TimeToFileTime(row.expected)), Ticks(Tavo::StringToFileTime(row.text, format)));
        const SYSTEMTIME st = Tavo::TimeToSystemTime(row.expected);
        EXPECT_EQ(Fields(st), Fields(Tavo::StringToSystemTime(szWide, format)));
        EXPECT_EQ(Fields(st), Fields(Tavo::StringToSystemTime(row.text, format)));
    }
}

// Both scan routines are imports; one that throws shows the catch-all.
TEST(TimeString, AnExceptionInTheScanIsCaughtAndReported)
{
    struct Throw {
        static int __cdecl Wide(const wchar_t*, const wchar_t*, ...) { throw 1; }
        static int __cdecl Narrow(const char*, const char*, ...) { throw 1; }
    };
    const HMODULE dll = tavo::test::LoadedModule("TavoCommon.dll");
    tavo::test::ScopedImportPatch wide(dll, "msvcrt.dll", "swscanf_s", &Throw::Wide);
    tavo::test::ScopedImportPatch narrow(dll, "msvcrt.dll", "sscanf_s", &Throw::Narrow);
    tavo::test::ClearRecordedLines();
    EXPECT_EQ(-1, Tavo::StringToTime(L"12/25/2011", Tavo::TIME_FORMAT_MDY));
    EXPECT_EQ(-1, Tavo::StringToTime("12/25/2011", Tavo::TIME_FORMAT_MDY));
    EXPECT_EQ((Lines{"Tavo::StringToTmStructW|!Exception caught", "Tavo::StringToTime|-1 != tResult",
                     "Tavo::StringToTmStructA|!Exception caught", "Tavo::StringToTime|-1 != tResult"}),
              Recorded());
}

namespace {
// Windows refuses 29 February of a year that has none; Wine 8 accepts it, so Windows's answer is injected.
BOOL WINAPI LeapAwareSystemTimeToFileTime(const SYSTEMTIME* pst, LPFILETIME pft)
{
    const WORD y = pst->wYear;
    if (pst->wMonth == 2 && pst->wDay == 29 && !(y % 4 == 0 && (y % 100 != 0 || y % 400 == 0))) {
        ::SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return ::SystemTimeToFileTime(pst, pft);
}
} // namespace

TEST(CompareSystemTime, OnlyTheMaskedFieldsCount)
{
    TAVO_PATCH_IMPORT(patch, tavo::test::LoadedModule("TavoCommon.dll"), "kernel32.dll", SystemTimeToFileTime,
                      LeapAwareSystemTimeToFileTime);
    const SYSTEMTIME morning = {2012, 1, 5, 13, 9, 30, 15, 500}, evening = {2012, 1, 5, 13, 21, 5, 0, 0},
                     nextDay = {2012, 1, 6, 14, 8, 0, 0, 0}, leapDay = {2012, 2, 3, 29, 12, 0, 0, 0},
                     march = {2011, 3, 2, 1, 0, 0, 0, 0};
    struct Row { const char* name; SYSTEMTIME a, b; unsigned mask; long expected; size_t lines; };
    const Row rows[] = {
        {"all, itself", morning, morning, 0x7F, 0, 0}, {"all, earlier", morning, evening, 0x7F, -1, 0},
        {"all, swapped", evening, morning, 0x7F, 1, 0}, {"nothing", morning, nextDay, 0, 0, 0},
        {"high bits only", morning, nextDay, ~0x7Fu, 0, 0}, {"dates, same day", morning, evening, 0x70, 0, 0},
        {"dates, next day", evening, nextDay, 0x70, -1, 0}, {"times of day", evening, nextDay, 0x0F, 1, 0},
        {"milliseconds alone", morning, evening, 0x01, 1, 0},
        {"29 February without the year", leapDay, march, 0x3F, -1, 1},
        {"29 February with the year", leapDay, march, 0x7F, 1, 0},
        {"two invalid copies", leapDay, leapDay, 0x30, 0, 2},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        tavo::test::ClearRecordedLines();
        EXPECT_EQ(row.expected, Tavo::CompareSystemTime(row.a, row.b, row.mask));
        EXPECT_EQ(Lines(row.lines, "Tavo::SystemTimeToFileTime|::SystemTimeToFileTime(&st, &ft)"), Recorded());
    }
}

TEST(Today, MidnightAndTheUtcDate)
{
    SYSTEMTIME localNow, utcNow;
    ::GetLocalTime(&localNow);
    ::GetSystemTime(&utcNow);
    const Time today = Tavo::GetToday(true), todayUtc = Tavo::GetToday(false);
    EXPECT_EQ(Seconds(localNow.wYear, localNow.wMonth, localNow.wDay), today);
    EXPECT_EQ(Seconds(utcNow.wYear, utcNow.wMonth, utcNow.wDay), todayUtc);
    EXPECT_EQ(0, todayUtc % 86400);

    tavo::test::ClearRecordedLines();
    EXPECT_TRUE(Tavo::IsToday(Tavo::GetUniversalTime()));
    EXPECT_TRUE(Tavo::IsToday(utcNow));
    EXPECT_TRUE(Tavo::IsToday(Tavo::TimeToFileTime(todayUtc + 86399)));
    EXPECT_FALSE(Tavo::IsToday(todayUtc - 1));
    EXPECT_FALSE(Tavo::IsToday(todayUtc + 86400));
    const bool bSameDate = localNow.wDay == utcNow.wDay && localNow.wMonth == utcNow.wMonth;
    EXPECT_EQ(bSameDate, Tavo::IsToday(Tavo::GetLocalTime()));
    EXPECT_EQ(Lines(), Recorded());
    EXPECT_FALSE(Tavo::IsToday(kTopBit));
    EXPECT_EQ((Lines{"Tavo::FileTimeToSystemTime|::FileTimeToSystemTime(&ft, &st)"}), Recorded());
}
