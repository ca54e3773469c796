// Dates and times in the user's patterns: the patterns come from the user's settings at each call,
// the three shapes agree, a failing part of FormatDateTime is left empty, and the buffer sizes.
#include <CorvDebug.h>
#include <TavoCommon.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Recorder.h"

using Tavo::CStringA;
using Tavo::CStringW;

namespace {

std::string Narrow(const wchar_t* sz) { return std::string(CStringA(sz).GetString()); }

// Sets one regional value of the user for a scope and puts the old one back. Through SetLocaleInfoW,
// which writes HKCU\Control Panel\International: Wine 8 reads that key once per process and keeps
// its copy, so a plain registry write is not seen by a running program (measured).
class ScopedRegionalValue {
public:
    ScopedRegionalValue(LCTYPE type, const wchar_t* name, const wchar_t* value) : type_(type), name_(name)
    {
        DWORD cb = 0;
        present_ = RegGetValueW(HKEY_CURRENT_USER, kKey, name, RRF_RT_REG_SZ, nullptr, nullptr, &cb) == ERROR_SUCCESS;
        GetLocaleInfoW(LOCALE_USER_DEFAULT, type, old_, 128);
        set_ = SetLocaleInfoW(LOCALE_USER_DEFAULT, type, value) != FALSE;
    }
    ~ScopedRegionalValue()
    {
        SetLocaleInfoW(LOCALE_USER_DEFAULT, type_, old_);
        if (!present_) RegDeleteKeyValueW(HKEY_CURRENT_USER, kKey, name_);
    }
    bool set_;

private:
    static constexpr const wchar_t* kKey = L"Control Panel\\International";
    LCTYPE type_;
    const wchar_t* name_;
    bool present_;
    wchar_t old_[128] = {};
};

struct Patterns {
    ScopedRegionalValue shortDate, longDate, time;
    Patterns(const wchar_t* szShort, const wchar_t* szLong, const wchar_t* szTime)
        : shortDate(LOCALE_SSHORTDATE, L"sShortDate", szShort), longDate(LOCALE_SLONGDATE, L"sLongDate", szLong),
          time(LOCALE_STIMEFORMAT, L"sTimeFormat", szTime)
    {
        EXPECT_TRUE(shortDate.set_ && longDate.set_ && time.set_);
    }
};

// 13 January 2012, 15:41:52, a Friday; wDayOfWeek says Tuesday, which the platform must not read.
const SYSTEMTIME kMoment = {2012, 1, 2, 13, 15, 41, 52, 0};

// "file|function|text" of the lines this family wrote, in order.
std::vector<std::string> OwnLines()
{
    std::vector<std::string> lines;
    for (const tavo::test::RecordedLine& l : tavo::test::RecordedLines())
        if (l.file == "DateTime.cpp") lines.push_back(l.function + "|" + l.text);
    return lines;
}

} // namespace

// Two pattern sets one after the other in one process: nothing is kept between calls.
TEST(DateTime, PatternsComeFromTheUsersSettingsAtEachCall)
{
    struct Row { const wchar_t *shortDate, *longDate, *time; const char *date, *dateLong, *seconds, *minutes; };
    const Row rows[] = {
        {L"M/d/yyyy", L"dddd, MMMM dd, yyyy", L"h:mm:ss tt", "1/13/2012", "Friday, January 13, 2012", "3:41:52 PM", "3:41 PM"},
        {L"yyyy-MM-dd", L"d. MMMM yyyy (ddd)", L"HH.mm.ss", "2012-01-13", "13. January 2012 (Fri)", "15.41.52", "15.41"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.date);
        Patterns patterns(row.shortDate, row.longDate, row.time);
        EXPECT_EQ(row.date, Narrow(Tavo::FormatDateW(kMoment, false)));
        EXPECT_EQ(row.date, std::string(Tavo::FormatDateA(kMoment, false)));
        EXPECT_EQ(row.dateLong, Narrow(Tavo::FormatDateW(kMoment, true)));
        EXPECT_EQ(row.dateLong, std::string(Tavo::FormatDateA(kMoment, true)));
        EXPECT_EQ(row.seconds, Narrow(Tavo::FormatTimeW(kMoment, true)));
        EXPECT_EQ(row.minutes, std::string(Tavo::FormatTimeA(kMoment, false)));
        EXPECT_EQ(std::string(row.date) + " " + row.seconds, Narrow(Tavo::FormatDateTimeW(kMoment, true)));
        EXPECT_EQ(std::string(row.date) + " " + row.minutes, std::string(Tavo::FormatDateTimeA(kMoment, false)));
    }
}

// Every form of a family gives one text for one moment, UTC fields for a Time and a FILETIME.
TEST(DateTime, TheThreeShapesAgree)
{
    Patterns patterns(L"M/d/yyyy", L"dddd, MMMM dd, yyyy", L"h:mm:ss tt");
    for (const Tavo::Time t : {Tavo::Time(0), Tavo::MakeTime(2012, 1, 13, 15, 41, 52), Tavo::Time(32535215999)}) {
        SCOPED_TRACE(t);
        const SYSTEMTIME st = Tavo::TimeToSystemTime(t);
        const FILETIME ft = Tavo::TimeToFileTime(t);
        for (const bool b : {false, true}) {
            SCOPED_TRACE(b);
            using Forms = std::vector<std::function<std::string()>>;
            const auto wide = [](CStringW s) { return Narrow(s); };
            const auto buffer = [](const std::function<long(wchar_t*, int)>& f) {
                wchar_t sz[128] = {};
                EXPECT_EQ(S_OK, f(sz, 128));
                return Narrow(sz);
            };
            const Forms families[] = {
                {[&] { return wide(Tavo::FormatDateW(st, b)); }, [&] { return wide(Tavo::FormatDateW(ft, b)); },
                 [&] { return wide(Tavo::FormatDateW(t, b)); }, [&] { return std::string(Tavo::FormatDateA(ft, b)); },
                 [&] { return std::string(Tavo::FormatDateA(t, b)); },
                 [&] { return buffer([&](wchar_t* sz, int n) { return Tavo::FormatDateW(t, sz, n, b); }); }},
                {[&] { return wide(Tavo::FormatTimeW(st, b)); }, [&] { return wide(Tavo::FormatTimeW(ft, b)); },
                 [&] { return wide(Tavo::FormatTimeW(t, b)); }, [&] { return std::string(Tavo::FormatTimeA(ft, b)); },
                 [&] { return std::string(Tavo::FormatTimeA(t, b)); },
                 [&] { return buffer([&](wchar_t* sz, int n) { return Tavo::FormatTimeW(ft, sz, n, b); }); }},
                {[&] { return wide(Tavo::FormatDateTimeW(st, b)); }, [&] { return wide(Tavo::FormatDateTimeW(ft, b)); },
                 [&] { return wide(Tavo::FormatDateTimeW(t, b)); }, [&] { return std::string(Tavo::FormatDateTimeA(ft, b)); },
                 [&] { return std::string(Tavo::FormatDateTimeA(t, b)); },
                 [&] { return buffer([&](wchar_t* sz, int n) { return Tavo::FormatDateTimeW(ft, sz, n, b); }); },
                 [&] { char sz[128] = {}; EXPECT_EQ(S_OK, Tavo::FormatDateTimeA(t, sz, 128, b)); return std::string(sz); }},
            };
            for (const Forms& forms : families) {
                const std::string first = forms[0]();
                EXPECT_FALSE(first.empty());
                for (size_t i = 1; i < forms.size(); ++i) EXPECT_EQ(first, forms[i]()) << "form " << i;
            }
        }
    }
    EXPECT_EQ("1/13/2012 3:41:52 PM", Narrow(Tavo::FormatDateTimeW(Tavo::MakeTime(2012, 1, 13, 15, 41, 52), true)))
        << "UTC fields, no zone arithmetic";
}

// A failed part is empty and the blank stays; the core and the Time form of FormatTime report.
TEST(DateTime, AFailingPartIsLeftEmptyAndReported)
{
    Patterns patterns(L"M/d/yyyy", L"dddd, MMMM dd, yyyy", L"h:mm:ss tt");
    SYSTEMTIME badMonth = kMoment, badHour = kMoment;
    badMonth.wMonth = 13;
    badHour.wHour = 24;
    const std::string dateCore = "Tavo::FormatDateW|FAILED: ::GetDateFormatW(LOCALE_USER_DEFAULT, bLong ? "
                                 "DATE_LONGDATE : DATE_SHORTDATE, &st, NULL, szBuffer, cchBufferMax) - GetLastError = 87";
    const std::string timeCore = "Tavo::FormatTimeW|FAILED: ::GetTimeFormatW(LOCALE_USER_DEFAULT, bSeconds ? 0 : "
                                 "TIME_NOSECONDS, &st, NULL, szBuffer, cchBufferMax) - GetLastError = 87";
    struct Row { const char* name; std::function<std::string()> call; std::string expected; std::vector<std::string> lines; };
    const Row rows[] = {
        {"date fails", [&] { return Narrow(Tavo::FormatDateTimeW(badMonth, true)); }, " 3:41:52 PM",
         {dateCore, "Tavo::FormatDateW|Tavo::FormatDateW(st, szBuffer, _countof(szBuffer), bLong) - 0x80070057"}},
        {"time fails", [&] { return std::string(Tavo::FormatDateTimeA(badHour, false)); }, "1/13/2012 ",
         {"Tavo::FormatTimeA|FAILED: ::GetTimeFormatA(LOCALE_USER_DEFAULT, bSeconds ? 0 : TIME_NOSECONDS, &st, NULL, "
          "szBuffer, cchBufferMax) - GetLastError = 87",
          "Tavo::FormatTimeA|Tavo::FormatTimeA(st, szBuffer, _countof(szBuffer), bSeconds) - 0x80070057"}},
        {"both fail: a Time of -1 is not recognised", [&] { return Narrow(Tavo::FormatDateTimeW(Tavo::Time(-1), true)); }, " ",
         {timeCore, "Tavo::FormatTimeW|Tavo::FormatTimeW(Tavo::TimeToSystemTime(time), szBuffer, cchBufferMax, bSeconds) - 0x80070057",
          "Tavo::FormatTimeW|Tavo::FormatTimeW(time, szBuffer, _countof(szBuffer), bSeconds) - 0x80070057",
          dateCore, "Tavo::FormatDateW|Tavo::FormatDateW(time, szBuffer, _countof(szBuffer), bLong) - 0x80070057"}},
        {"FILETIME with the top bit set", [&] { return Narrow(Tavo::FormatDateW(FILETIME{0, 0x80000000}, false)); }, "",
         {dateCore, "Tavo::FormatDateW|Tavo::FormatDateW(ft, szBuffer, _countof(szBuffer), bLong) - 0x80070057"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        tavo::test::ClearRecordedLines();
        EXPECT_EQ(row.expected, row.call());
        EXPECT_EQ(row.lines, OwnLines());
    }
}

// Size 0, one short, exact: FormatDate and FormatTime leave it to the platform; FormatDateTime is the
// bounded copy, silent, with a cut and terminated text.
TEST(DateTime, BufferSizesDifferBetweenTheFamilies)
{
    Patterns patterns(L"M/d/yyyy", L"dddd, MMMM dd, yyyy", L"h:mm:ss tt");
    const FILETIME ft = Tavo::SystemTimeToFileTime(kMoment);
    struct Row { const char* name; std::function<long(char*, int)> call; std::string text; bool copy; size_t refusalLines; };
    const Row rows[] = {
        {"date", [&](char* sz, int n) { return Tavo::FormatDateA(kMoment, sz, n, true); }, "Friday, January 13, 2012", false, 1},
        {"time", [&](char* sz, int n) { return Tavo::FormatTimeA(ft, sz, n, true); }, "3:41:52 PM", false, 2},
        {"date and time", [&](char* sz, int n) { return Tavo::FormatDateTimeA(kMoment, sz, n, false); }, "1/13/2012 3:41 PM", true, 0},
        {"date and time, converted", [&](char* sz, int n) { return Tavo::FormatDateTimeA(ft, sz, n, false); }, "1/13/2012 3:41 PM", true, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const int cch = static_cast<int>(row.text.size());
        for (const int n : {0, cch, cch + 1}) {
            SCOPED_TRACE(n);
            char sz[64];
            memset(sz, '#', sizeof(sz));
            tavo::test::ClearRecordedLines();
            const long hr = row.call(sz, n);
            EXPECT_EQ('#', sz[n + 1]) << "nothing past the size";
            if (n == 0) {
                EXPECT_EQ(row.copy ? E_INVALIDARG : S_OK, hr);
                EXPECT_EQ('#', sz[0]);
            } else if (n == cch) {
                EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER), hr);
                if (row.copy) {
                    EXPECT_EQ(row.text.substr(0, cch - 1), std::string(sz));
                }
            } else {
                EXPECT_EQ(S_OK, hr);
                EXPECT_EQ(row.text, std::string(sz));
            }
            EXPECT_EQ(n == cch ? row.refusalLines : 0u, OwnLines().size()) << "only the platform's refusal is reported";
        }
    }
}

// The value forms render into 128 characters: 127 fit, 128 fail as a whole. A pattern holds at most
// 79 characters, so twelve month names ("September", 9) joined by commas make up the length.
TEST(DateTime, ValueFormsHoldAHundredAndTwentySevenCharacters)
{
    SYSTEMTIME st = kMoment;
    st.wMonth = 9;
    for (const int cch : {127, 128}) {
        SCOPED_TRACE(cch);
        std::wstring pattern = L"MMMM";
        for (int i = 1; i < 12; ++i) pattern += L",MMMM";
        pattern += std::wstring(cch - 119, L',');
        Patterns patterns(L"M/d/yyyy", pattern.c_str(), L"h:mm:ss tt");
        wchar_t sz[200] = {};
        ASSERT_EQ(S_OK, Tavo::FormatDateW(st, sz, 200, true));
        ASSERT_EQ(static_cast<size_t>(cch), wcslen(sz));
        EXPECT_EQ(cch == 127 ? Narrow(sz) : "", Narrow(Tavo::FormatDateW(st, true)));
        EXPECT_EQ(cch == 127 ? Narrow(sz) : "", std::string(Tavo::FormatDateA(st, true)));
    }
}
