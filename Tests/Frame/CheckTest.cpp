// The check forms, the last-error rule, the bounded copy and print, and the argument conversion.
#include "Argument.h"
#include "Check.h"
#include "StrSafe.h"

#include <gtest/gtest.h>

#include <string>

#include "ImportPatch.h"
#include "Recorder.h"
#include "TavoTest.h"

using tavo::test::RecordedLine;
using tavo::test::RecordedLines;

namespace {

const DWORD kSentinel = 0xDEADBEEF;

// Each case reads back the lines its own calls wrote.
class Check : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(tavo::test::RecorderLoaded() || (Tavo::TraceOutput(TRACE_INFO, "", "", 0, "", "load"),
                                                      tavo::test::RecorderLoaded()))
            << "the recorder CorvDebug.dll must be beside the test program";
        tavo::test::ClearRecordedLines();
    }

    static RecordedLine OnlyLine()
    {
        std::vector<RecordedLine> lines = RecordedLines();
        EXPECT_EQ(1u, lines.size());
        return lines.empty() ? RecordedLine{} : lines[0];
    }
};

int s_evaluations;

BOOL FailWith(DWORD dwError)
{
    ++s_evaluations;
    SetLastError(dwError);
    return FALSE;
}

long CheckWin32(DWORD dwError, int* pnLine)
{
    TAVO_FUNCTION("Tavo::CheckWin32");
    *pnLine = __LINE__ + 1;
    CHECK_WIN32(FailWith(dwError));
    return S_OK;
}

long CheckHResult(HRESULT hr)
{
    TAVO_FUNCTION("Tavo::CheckHResult");
    ++s_evaluations;
    CHECK_HRESULT(hr);
    return 1;
}

long CheckArguments(const wchar_t* szName, const void* pv)
{
    TAVO_FUNCTION("Tavo::CheckArguments");
    CHECK_STRING(szName);
    CHECK_POINTER(pv);
    return S_OK;
}

int VerifyBoth(DWORD dwError, HRESULT hr)
{
    TAVO_FUNCTION("Tavo::VerifyBoth");
    int nReached = 0;
    VERIFY_WIN32(FailWith(dwError));
    ++nReached;
    VERIFY_HRESULT(hr);
    ++nReached;
    return nReached;
}

} // namespace

TEST_F(Check, Win32FailureBecomesAnHResultAndOneLine)
{
    struct Row { DWORD dwError; HRESULT hrExpected; unsigned long ulShown; };
    const Row rows[] = {
        {0, static_cast<HRESULT>(0x8007001F), 31},  // a failure never reads as success
        {5, static_cast<HRESULT>(0x80070005), 5},
        {ERROR_MOD_NOT_FOUND, static_cast<HRESULT>(0x8007007E), 126},
        {0x12345, static_cast<HRESULT>(0x80072345), 0x12345},  // only the low word survives
        {0xC0000022, static_cast<HRESULT>(0xC0000022), 0xC0000022},  // an NTSTATUS passes unchanged
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << "last error " << row.dwError);
        tavo::test::ClearRecordedLines();
        s_evaluations = 0;
        int nLine = 0;
        EXPECT_EQ(row.hrExpected, CheckWin32(row.dwError, &nLine));
        EXPECT_EQ(1, s_evaluations);
        RecordedLine line = OnlyLine();
        EXPECT_EQ(TRACE_ERROR, line.level);
        EXPECT_EQ("CheckTest.cpp", line.file);
        EXPECT_EQ("Tavo::CheckWin32", line.function);
        EXPECT_EQ(nLine, line.line);
        EXPECT_EQ(__TIMESTAMP__, line.stamp);
        EXPECT_EQ("FAILED: %s - GetLastError = %lu", line.format);
        EXPECT_EQ("FAILED: FailWith(dwError) - GetLastError = " + std::to_string(row.ulShown), line.text);
    }
}

TEST_F(Check, ConversionRuleOnItsOwn)
{
    EXPECT_EQ(S_OK, Tavo::HResultFromWin32(0));
    EXPECT_EQ(static_cast<HRESULT>(0x80070005), Tavo::HResultFromWin32(5));
    EXPECT_EQ(static_cast<HRESULT>(0xC0000022), Tavo::HResultFromWin32(0xC0000022));
    EXPECT_EQ(static_cast<HRESULT>(0x80004005), Tavo::HResultFromWin32(0x80004005));
    EXPECT_EQ(31u, Tavo::ReportedError(0));
    EXPECT_EQ(5u, Tavo::ReportedError(5));
}

TEST_F(Check, LastErrorIsReadBeforeTheChannelRuns)
{
    // The recorder sets its own last error in every line it takes.
    SetEnvironmentVariableA("CORVDEBUG_RECORDER_LASTERROR", "1234");
    int nLine = 0;
    const HRESULT hr = CheckWin32(5, &nLine);
    SetEnvironmentVariableA("CORVDEBUG_RECORDER_LASTERROR", nullptr);
    EXPECT_EQ(static_cast<HRESULT>(0x80070005), hr);
    EXPECT_EQ("FAILED: FailWith(dwError) - GetLastError = 5", OnlyLine().text);
}

TEST_F(Check, HResultFailureReturnsItUnchanged)
{
    s_evaluations = 0;
    EXPECT_EQ(E_ACCESSDENIED, CheckHResult(E_ACCESSDENIED));
    RecordedLine line = OnlyLine();
    EXPECT_EQ(TRACE_ERROR, line.level);
    EXPECT_EQ("FAILURE: %s - %#08lx", line.format);
    EXPECT_EQ("FAILURE: hr - 0x80070005", line.text);

    tavo::test::ClearRecordedLines();
    EXPECT_EQ(1, CheckHResult(S_FALSE)) << "a positive HRESULT is no failure";
    EXPECT_TRUE(RecordedLines().empty());
    EXPECT_EQ(2, s_evaluations);
}

TEST_F(Check, ArgumentChecksRunInParameterOrder)
{
    int n = 0;
    EXPECT_EQ(E_POINTER, CheckArguments(nullptr, nullptr));
    EXPECT_EQ("Invalid null pointer: szName", OnlyLine().text);

    tavo::test::ClearRecordedLines();
    EXPECT_EQ(E_INVALIDARG, CheckArguments(L"", &n));
    RecordedLine line = OnlyLine();
    EXPECT_EQ("Invalid string argument: %s", line.format);
    EXPECT_EQ("Invalid string argument: szName", line.text);
    EXPECT_EQ(TRACE_ERROR, line.level);

    tavo::test::ClearRecordedLines();
    EXPECT_EQ(E_POINTER, CheckArguments(L"x", nullptr));
    EXPECT_EQ("Invalid null pointer: pv", OnlyLine().text);

    tavo::test::ClearRecordedLines();
    EXPECT_EQ(S_OK, CheckArguments(L"x", &n));
    EXPECT_TRUE(RecordedLines().empty());
}

TEST_F(Check, VerifyFormsReportAndGoOn)
{
    s_evaluations = 0;
    EXPECT_EQ(2, VerifyBoth(0, E_FAIL));
    EXPECT_EQ(1, s_evaluations);
    std::vector<RecordedLine> lines = RecordedLines();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(TRACE_VERIFY, lines[0].level);
    EXPECT_EQ("FailWith(dwError) - 0", lines[0].text) << "the last error goes out as it is, 0 included";
    EXPECT_EQ(TRACE_VERIFY_HR, lines[1].level);
    EXPECT_EQ("hr - 0x80004005", lines[1].text);
    EXPECT_EQ("Tavo::VerifyBoth", lines[1].function);
}

// ---- Bounded copy and print -------------------------------------------------------------------

template <typename XCHAR> struct Text;
template <> struct Text<wchar_t> {
    static const wchar_t* Hello() { return L"hello"; }
    static HRESULT Copy(wchar_t* p, size_t cch, const wchar_t* s) { return ::StringCchCopyW(p, cch, s); }
    static HRESULT Print(wchar_t* p, size_t cch) { return ::StringCchPrintfW(p, cch, L"%s", L"hello"); }
};
template <> struct Text<char> {
    static const char* Hello() { return "hello"; }
    static HRESULT Copy(char* p, size_t cch, const char* s) { return ::StringCchCopyA(p, cch, s); }
    static HRESULT Print(char* p, size_t cch) { return ::StringCchPrintfA(p, cch, "%s", "hello"); }
};

template <typename XCHAR>
class BoundedCopy : public ::testing::Test {};
typedef ::testing::Types<wchar_t, char> CharTypes;
TYPED_TEST_SUITE(BoundedCopy, CharTypes);

TYPED_TEST(BoundedCopy, ProbedAtEverySize)
{
    typedef TypeParam X;
    struct Row { size_t cch; HRESULT hr; const char* expected; };
    const Row rows[] = {
        {0, E_INVALIDARG, nullptr},  // untouched
        {static_cast<size_t>(0x80000000u), E_INVALIDARG, nullptr},
        {static_cast<size_t>(-1), E_INVALIDARG, nullptr},  // a negative int size
        {1, STRSAFE_E_INSUFFICIENT_BUFFER, ""},
        {5, STRSAFE_E_INSUFFICIENT_BUFFER, "hell"},  // one short
        {6, S_OK, "hello"},                          // exact
        {32, S_OK, "hello"},
    };
    for (int form = 0; form < 2; ++form) {
        for (const Row& row : rows) {
            SCOPED_TRACE(testing::Message() << (form ? "print" : "copy") << " size " << row.cch);
            X buffer[40];
            for (X& ch : buffer) ch = static_cast<X>('#');
            // The size is what is probed; the buffer behind it is always large enough.
            const HRESULT hr = form ? Text<X>::Print(buffer, row.cch) : Text<X>::Copy(buffer, row.cch, Text<X>::Hello());
            EXPECT_EQ(row.hr, hr);
            if (!row.expected) {
                EXPECT_EQ(static_cast<X>('#'), buffer[0]);
                continue;
            }
            std::basic_string<X> expected(row.expected, row.expected + strlen(row.expected));
            EXPECT_TRUE(std::basic_string<X>(buffer) == expected);
            EXPECT_EQ(static_cast<X>('#'), buffer[row.cch]) << "nothing is written past the size";
        }
    }
}

TEST(BoundedCopy, NullSourceCopiesAsEmpty)
{
    wchar_t sz[4] = {L'x', L'x', 0, 0};
    EXPECT_EQ(S_OK, ::StringCchCopyW(sz, 4, nullptr));
    EXPECT_EQ(L'\0', sz[0]);
}

// ---- Argument conversion ----------------------------------------------------------------------

namespace {

int s_heapAllocations;
LPVOID WINAPI CountingHeapAlloc(HANDLE, DWORD, SIZE_T)
{
    ++s_heapAllocations;
    return nullptr;
}

std::wstring Converted(const char* sz)
{
    TAVO_WIDE_ARGUMENT(wsz, sz);
    return wsz ? std::wstring(wsz) : std::wstring(L"(null)");
}

} // namespace

TEST(Argument, ConvertsOnTheStackInTheThreadsCodePage)
{
    EXPECT_EQ(L"(null)", Converted(nullptr));
    EXPECT_EQ(L"", Converted(""));

    s_heapAllocations = 0;
    {
        tavo::test::ScopedImportPatch patch(GetModuleHandleW(nullptr), "KERNEL32.dll", "HeapAlloc",
                                            reinterpret_cast<const void*>(&CountingHeapAlloc));
        ASSERT_TRUE(patch.Patched());
        EXPECT_EQ(L"drive C:", Converted("drive C:"));
        EXPECT_EQ(std::wstring(2000, L'a'), Converted(std::string(2000, 'a').c_str()));
    }
    EXPECT_EQ(0, s_heapAllocations);

    // The code page is read at each conversion.
    using tavo::test::WithThreadLocale;
    EXPECT_EQ(L"\x0439", WithThreadLocale(tavo::test::kRussianLocale, [] { return Converted("\xE9"); }));
    EXPECT_EQ(L"\x00E9", WithThreadLocale(tavo::test::kEnglishLocale, [] { return Converted("\xE9"); }));
}

namespace {
int WINAPI FailingMultiByteToWideChar(UINT, DWORD, LPCCH, int, LPWSTR, int)
{
    SetLastError(ERROR_NO_UNICODE_TRANSLATION);
    return 0;
}
} // namespace

TEST(Argument, AFailedConversionGivesNull)
{
    tavo::test::ScopedImportPatch patch(GetModuleHandleW(nullptr), "KERNEL32.dll", "MultiByteToWideChar",
                                        &FailingMultiByteToWideChar);
    ASSERT_TRUE(patch.Patched());
    EXPECT_EQ(L"(null)", Converted("text"));
}

TEST(Argument, VeryLongArgumentLeavesTheStackAlone)
{
    const std::string text(Tavo::CWideArgument::kMaxStackChars * 3, 'z');
    EXPECT_EQ(std::wstring(text.size(), L'z'), Converted(text.c_str()));
}
