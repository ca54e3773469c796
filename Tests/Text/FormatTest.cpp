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

namespace {

std::string Narrow(const wchar_t* sz) { return std::string(CStringA(sz).GetString()); }

// "level|file|function|format|text" of every recorded line, in order.
std::vector<std::string> Lines()
{
    std::vector<std::string> lines;
    for (const tavo::test::RecordedLine& l : tavo::test::RecordedLines())
        lines.push_back(std::to_string(l.level) + "|" + l.file + "|" + l.function + "|" + l.format + "|" + l.text);
    return lines;
}

} // namespace

// FormatString chooses on the format alone; FormatMessage is the message dialect without a choice.
// A refused message format gives the empty string and one soft-check line per width.
TEST(FormatString, TheFormatAloneChoosesTheDialectAndRefusalsAreReported)
{
    struct Row { const char* name; std::function<CStringW()> wide; std::function<CStringA()> narrow; const char* expected; bool refused; };
    const Row rows[] = {
        {"no directive, printf way", [] { return Tavo::FormatStringW(L"plain text"); },
         [] { return Tavo::FormatStringA("plain text"); }, "plain text", false},
        {"empty", [] { return Tavo::FormatStringW(L""); }, [] { return Tavo::FormatStringA(""); }, "", false},
        {"printf string", [] { return Tavo::FormatStringW(L"%s bytes", L"12"); },
         [] { return Tavo::FormatStringA("%s bytes", "12"); }, "12 bytes", false},
        {"message string", [] { return Tavo::FormatStringW(L"%1 bytes", L"12"); },
         [] { return Tavo::FormatStringA("%1 bytes", "12"); }, "12 bytes", false},
        {"the other width", [] { return Tavo::FormatStringW(L"%hs/%d%%", "mixed", 50); },
         [] { return Tavo::FormatStringA("%ls/%d%%", L"mixed", 50); }, "mixed/50%", false},
        {"%10d reads as insert 10",
         [] { return Tavo::FormatStringW(L"%10d", L"a", L"b", L"c", L"d", L"e", L"f", L"g", L"h", L"i", L"j"); },
         [] { return Tavo::FormatStringA("%10d", "a", "b", "c", "d", "e", "f", "g", "h", "i", "j"); }, "jd", false},
        {"an argument holding %1 is only text", [] { return Tavo::FormatStringW(L"<%s>", L"%1"); },
         [] { return Tavo::FormatStringA("<%s>", "%1"); }, "<%1>", false},
        {"message, no directive", [] { return Tavo::FormatMessageW(L"plain text"); },
         [] { return Tavo::FormatMessageA("plain text"); }, "plain text", false},
        {"message, no %1, still inserts", [] { return Tavo::FormatMessageW(L"%2 then %3!d!", L"x", L"y", 7); },
         [] { return Tavo::FormatMessageA("%2 then %3!d!", "x", "y", 7); }, "y then 7", false},
        {"message, unterminated type", [] { return Tavo::FormatMessageW(L"%1!d", 7); },
         [] { return Tavo::FormatMessageA("%1!d", 7); }, "", true},
        {"unterminated type through FormatString", [] { return Tavo::FormatStringW(L"%1!d", 7); },
         [] { return Tavo::FormatStringA("%1!d", 7); }, "", true},
    };
    const std::string verify = std::to_string(TRACE_VERIFY) + "|Format.cpp|";
    const std::string error = ", 0, &args) - " + std::to_string(ERROR_INVALID_PARAMETER);
    const std::vector<std::string> refusal = {
        verify + "Tavo::FormatMessageVW|%s - %lu|::FormatMessageW(FORMAT_MESSAGE_FROM_STRING | "
                 "FORMAT_MESSAGE_ALLOCATE_BUFFER, szFormat, 0, 0, (LPWSTR)&p" + error,
        verify + "Tavo::FormatMessageVA|%s - %lu|::FormatMessageA(FORMAT_MESSAGE_FROM_STRING | "
                 "FORMAT_MESSAGE_ALLOCATE_BUFFER, szFormat, 0, 0, (LPSTR)&p" + error,
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        tavo::test::ClearRecordedLines();
        EXPECT_EQ(row.expected, Narrow(row.wide()));
        EXPECT_EQ(row.expected, std::string(row.narrow()));
        EXPECT_EQ(row.refused ? refusal : std::vector<std::string>(), Lines());
    }
}

// Nothing makes the count fail on demand, so it is refused through the import. The narrow count is
// MinGW's own wrapper, not an import, and cannot be reached this way.
TEST(FormatString, AFormatThatGivesNoCountThrows)
{
    struct Refuse {
        static int __cdecl Count(const wchar_t*, va_list) { return -1; }
    };
    tavo::test::ScopedImportPatch count(GetModuleHandleW(L"TavoCommon.dll"), "msvcrt.dll", "_vscwprintf", &Refuse::Count);
    EXPECT_EQ(E_FAIL, tavo::test::ThrownBy([] { Tavo::FormatStringW(L"%d", 1); }));
    EXPECT_EQ(S_OK, tavo::test::ThrownBy([] { Tavo::FormatStringW(L"%1", L"x"); })) << "the message way counts nothing";
}

TEST(FormatError, DigitsThenTheSystemsTextWithItsLineEnd)
{
    for (const DWORD dwError : {static_cast<DWORD>(ERROR_ACCESS_DENIED), static_cast<DWORD>(0x2000ABCD)}) {
        SCOPED_TRACE(dwError);
        wchar_t* p = nullptr;  // the customer bit of 0x2000ABCD: no system text
        ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_ALLOCATE_BUFFER, nullptr, dwError,
                         MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<LPWSTR>(&p), 0, nullptr);
        const std::string system = p ? Narrow(p) : "";
        LocalFree(p);
        const bool bKnown = dwError == ERROR_ACCESS_DENIED;
        ASSERT_EQ(bKnown, !system.empty());
        const std::string expected = bKnown ? "5 - " + system : "2000ABCD";
        EXPECT_EQ(expected, Narrow(Tavo::FormatErrorW(dwError)));
        EXPECT_EQ(expected, std::string(Tavo::FormatErrorA(dwError)));
        if (bKnown) {
            EXPECT_EQ("\r\n", expected.substr(expected.size() - 2)) << "the line end is kept";
        }
    }
}

// Size 0, one short, exact and roomy, in both twins: the cut text stays, and the failed copy is the
// one line.
TEST(FormatError, BufferFormCopiesBoundedAndReportsTheCut)
{
    const std::string text(Tavo::FormatErrorA(ERROR_ACCESS_DENIED));
    const int cchText = static_cast<int>(text.size());
    struct Row { int cch; HRESULT hr; std::string content; };
    const Row rows[] = {
        {200, S_OK, text},
        {cchText + 1, S_OK, text},
        {cchText, static_cast<HRESULT>(0x8007007A), text.substr(0, cchText - 1)},
        {0, E_INVALIDARG, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.cch);
        std::wstring wide(256, L'#');
        std::string narrow(256, '#');
        tavo::test::ClearRecordedLines();
        EXPECT_EQ(row.hr, Tavo::FormatErrorW(ERROR_ACCESS_DENIED, wide.data(), row.cch));
        EXPECT_EQ(row.hr, Tavo::FormatErrorA(ERROR_ACCESS_DENIED, narrow.data(), row.cch));
        EXPECT_EQ(row.content, Narrow(wide.substr(0, row.cch).c_str())) << "terminated within the size";
        EXPECT_EQ(row.content, narrow.substr(0, row.cch).c_str());
        EXPECT_EQ(L'#', wide[row.cch]) << "nothing written past the size";
        EXPECT_EQ('#', narrow[row.cch]);
        char szHr[16];
        snprintf(szHr, sizeof(szHr), "%#08lx", static_cast<unsigned long>(row.hr));
        const std::string failure = std::to_string(TRACE_ERROR) + "|Format.cpp|Tavo::FormatError";
        std::vector<std::string> expected;
        if (FAILED(row.hr))
            expected = {failure + "W|FAILURE: %s - %#08lx|FAILURE: ::StringCchCopyW(szBuffer, cchBufferMax, "
                                  "Tavo::FormatErrorW(dwError)) - " + szHr,
                        failure + "A|FAILURE: %s - %#08lx|FAILURE: ::StringCchCopyA(szBuffer, cchBufferMax, "
                                  "Tavo::FormatErrorA(dwError)) - " + szHr};
        EXPECT_EQ(expected, Lines());
    }
}
