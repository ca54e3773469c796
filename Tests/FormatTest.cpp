// The general formatters: which dialect a format goes down, the message dialect's refusal, and the
// text of an error number in both forms.
#include <CorvDebug.h>
#include <TavoCommon.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "ImportPatch.h"
#include "Recorder.h"
#include "TavoTest.h"

using Tavo::CStringA;
using Tavo::CStringW;
using tavo::test::RecordedLine;
using tavo::test::RecordedLines;

namespace {

const HRESULT kInsufficientBuffer = static_cast<HRESULT>(0x8007007A);

HMODULE Library() { return GetModuleHandleW(L"TavoCommon.dll"); }

std::string Narrow(const wchar_t* sz) { return std::string(CStringA(sz).GetString()); }

// The system's own text for a number, as the formatter asks for it; empty when there is none.
std::wstring SystemText(DWORD dwError)
{
    wchar_t* p = nullptr;
    ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_ALLOCATE_BUFFER, nullptr, dwError,
                     MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<LPWSTR>(&p), 0, nullptr);
    std::wstring text = p ? p : L"";
    LocalFree(p);
    return text;
}

} // namespace

// Rows name the dialect they expect; a format that would give another result in the other dialect
// shows that the choice was made on the format alone.
TEST(FormatString, TheFormatAloneChoosesTheDialect)
{
    struct Row {
        const char* name;
        std::function<CStringW()> wide;
        std::function<CStringA()> narrow;
        const char* expected;
    };
    const Row rows[] = {
        {"no directive, printf way", [] { return Tavo::FormatStringW(L"plain text"); },
         [] { return Tavo::FormatStringA("plain text"); }, "plain text"},
        {"printf string", [] { return Tavo::FormatStringW(L"%s bytes", L"12"); },
         [] { return Tavo::FormatStringA("%s bytes", "12"); }, "12 bytes"},
        {"message string", [] { return Tavo::FormatStringW(L"%1 bytes", L"12"); },
         [] { return Tavo::FormatStringA("%1 bytes", "12"); }, "12 bytes"},
        {"the other width", [] { return Tavo::FormatStringW(L"%hs/%d%%", "narrow", 50); },
         [] { return Tavo::FormatStringA("%ls/%d%%", L"wide", 50); }, nullptr},
        {"%10d reads as insert 10",
         [] { return Tavo::FormatStringW(L"%10d", L"a", L"b", L"c", L"d", L"e", L"f", L"g", L"h", L"i", L"j"); },
         [] { return Tavo::FormatStringA("%10d", "a", "b", "c", "d", "e", "f", "g", "h", "i", "j"); }, "jd"},
        {"an argument holding %1 is only text", [] { return Tavo::FormatStringW(L"<%s>", L"%1"); },
         [] { return Tavo::FormatStringA("<%s>", "%1"); }, "<%1>"},
        {"empty", [] { return Tavo::FormatStringW(L""); }, [] { return Tavo::FormatStringA(""); }, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        tavo::test::ClearRecordedLines();
        if (row.expected) {
            EXPECT_EQ(row.expected, Narrow(row.wide()));
            EXPECT_EQ(row.expected, std::string(row.narrow()));
        } else {
            EXPECT_EQ("narrow/50%", Narrow(row.wide()));
            EXPECT_EQ("wide/50%", std::string(row.narrow()));
        }
        EXPECT_TRUE(RecordedLines().empty());
    }
}

TEST(FormatString, AFormatThatGivesNoCountThrows)
{
    // No format fails to count on demand, so the count is refused. The narrow count is MinGW's
    // own wrapper, not an import, and cannot be reached this way.
    struct Refuse {
        static int __cdecl Count(const wchar_t*, va_list) { return -1; }
    };
    tavo::test::ScopedImportPatch count(Library(), "msvcrt.dll", "_vscwprintf", &Refuse::Count);
    EXPECT_EQ(E_FAIL, tavo::test::ThrownBy([] { Tavo::FormatStringW(L"%d", 1); }));
    EXPECT_EQ(S_OK, tavo::test::ThrownBy([] { Tavo::FormatStringW(L"%1", L"x"); })) << "the message way counts nothing";
}

// The message dialect alone: no "%1" needed, and a format the platform refuses gives the empty
// string and one soft-check line naming the call.
TEST(MessageFormat, InsertsWithoutAChoiceAndRefusalsReported)
{
    struct Row {
        const char* name;
        std::function<CStringW()> wide;
        std::function<CStringA()> narrow;
        const char* expected;
        bool refused;
    };
    const Row rows[] = {
        {"no directive", [] { return Tavo::FormatMessageW(L"plain text"); },
         [] { return Tavo::FormatMessageA("plain text"); }, "plain text", false},
        {"no %1, still inserts", [] { return Tavo::FormatMessageW(L"%2 then %3!d!", L"x", L"y", 7); },
         [] { return Tavo::FormatMessageA("%2 then %3!d!", "x", "y", 7); }, "y then 7", false},
        {"unterminated type", [] { return Tavo::FormatMessageW(L"%1!d", 7); },
         [] { return Tavo::FormatMessageA("%1!d", 7); }, "", true},
        {"through FormatString", [] { return Tavo::FormatStringW(L"%1!d", 7); },
         [] { return Tavo::FormatStringA("%1!d", 7); }, "", true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        tavo::test::ClearRecordedLines();
        EXPECT_EQ(row.expected, Narrow(row.wide()));
        EXPECT_EQ(row.expected, std::string(row.narrow()));
        const std::vector<RecordedLine> lines = RecordedLines();
        if (!row.refused) {
            EXPECT_TRUE(lines.empty());
            continue;
        }
        ASSERT_EQ(2u, lines.size());
        const char* const texts[] = {
            "::FormatMessageW(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ALLOCATE_BUFFER, szFormat, 0, 0, (LPWSTR)&p, 0, &args) - ",
            "::FormatMessageA(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ALLOCATE_BUFFER, szFormat, 0, 0, (LPSTR)&p, 0, &args) - ",
        };
        const char* const functions[] = {"Tavo::FormatMessageVW", "Tavo::FormatMessageVA"};
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(TRACE_VERIFY, lines[i].level);
            EXPECT_EQ("Format.cpp", lines[i].file);
            EXPECT_EQ(functions[i], lines[i].function);
            EXPECT_EQ("%s - %lu", lines[i].format);
            EXPECT_EQ(texts[i] + std::to_string(ERROR_INVALID_PARAMETER), lines[i].text);
        }
    }
}

TEST(FormatError, DigitsThenTheSystemsTextWithItsLineEnd)
{
    struct Row {
        DWORD dwError;
        const char* digits;
        bool known;
    };
    const Row rows[] = {
        {ERROR_ACCESS_DENIED, "5", true},
        {ERROR_FILE_NOT_FOUND, "2", true},
        {0x2000ABCD, "2000ABCD", false},  // the customer bit: no system text
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.digits);
        const std::wstring system = SystemText(row.dwError);
        ASSERT_EQ(row.known, !system.empty());
        const std::string expected = row.known ? std::string(row.digits) + " - " + Narrow(system.c_str()) : row.digits;
        const CStringW wide = Tavo::FormatErrorW(row.dwError);
        EXPECT_EQ(expected, Narrow(wide));
        EXPECT_EQ(expected, std::string(Tavo::FormatErrorA(row.dwError)));
        if (row.known) {
            ASSERT_GE(wide.GetLength(), 2);
            EXPECT_EQ(L'\r', wide[wide.GetLength() - 2]) << "the line end is kept";
            EXPECT_EQ(L'\n', wide[wide.GetLength() - 1]);
        }
    }
}

// Size 0, one short, exact and roomy, in both twins: the cut text stays, and the failed copy is the
// one line.
TEST(FormatError, BufferFormCopiesBoundedAndReportsTheCut)
{
    const std::string text(Tavo::FormatErrorA(ERROR_ACCESS_DENIED));
    const int cchText = static_cast<int>(text.size());
    struct Row {
        int cch;
        HRESULT hr;
        std::string content;  // "#" : untouched
    };
    const Row rows[] = {
        {200, S_OK, text},
        {cchText + 1, S_OK, text},
        {cchText, kInsufficientBuffer, text.substr(0, cchText - 1)},
        {1, kInsufficientBuffer, ""},
        {0, E_INVALIDARG, "#"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.cch);
        wchar_t szWide[256];
        char szNarrow[256];
        wmemset(szWide, L'#', 256);
        memset(szNarrow, '#', 256);
        szWide[255] = 0;
        szNarrow[255] = 0;
        tavo::test::ClearRecordedLines();
        EXPECT_EQ(row.hr, Tavo::FormatErrorW(ERROR_ACCESS_DENIED, szWide, row.cch));
        EXPECT_EQ(row.hr, Tavo::FormatErrorA(ERROR_ACCESS_DENIED, szNarrow, row.cch));
        if (row.content == "#") {
            EXPECT_EQ(L'#', szWide[0]);
            EXPECT_EQ('#', szNarrow[0]);
        } else {
            EXPECT_EQ(row.content, Narrow(szWide));
            EXPECT_EQ(row.content, std::string(szNarrow));
            EXPECT_EQ(L'#', szWide[row.cch]) << "nothing written past the size";
            EXPECT_EQ('#', szNarrow[row.cch]);
        }
        const std::vector<RecordedLine> lines = RecordedLines();
        if (SUCCEEDED(row.hr)) {
            EXPECT_TRUE(lines.empty());
            continue;
        }
        ASSERT_EQ(2u, lines.size());
        char szHr[16];
        snprintf(szHr, sizeof(szHr), "%#08lx", static_cast<unsigned long>(row.hr));
        const char* const functions[] = {"Tavo::FormatErrorW", "Tavo::FormatErrorA"};
        const std::string texts[] = {
            "FAILURE: ::StringCchCopyW(szBuffer, cchBufferMax, Tavo::FormatErrorW(dwError)) - " + std::string(szHr),
            "FAILURE: ::StringCchCopyA(szBuffer, cchBufferMax, Tavo::FormatErrorA(dwError)) - " + std::string(szHr),
        };
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(TRACE_ERROR, lines[i].level);
            EXPECT_EQ("Format.cpp", lines[i].file);
            EXPECT_EQ(functions[i], lines[i].function);
            EXPECT_EQ("FAILURE: %s - %#08lx", lines[i].format);
            EXPECT_EQ(texts[i], lines[i].text);
        }
    }
}
