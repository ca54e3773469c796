// The building blocks, linked in: check forms, THandle, the structured guard, the cache shapes (shape 1's race and
// cost are shown on the library's own getter, ModuleTest.cpp), strings, the bounded copy and argument conversion.
#include <TavoHandles.h>
#include "Argument.h"
#include "Cache.h"
#include "Check.h"
#include "StrSafe.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "ImportPatch.h"
#include "Recorder.h"
#include "TavoTest.h"

using namespace tavo::test;
using Tavo::CStringA;
using Tavo::CStringW;

namespace {

std::string Lines()  // "level|function|text" of each line recorded since the last call; loads the recorder first
{
    if (!RecorderLoaded()) Tavo::TraceOutput(TRACE_INFO, "", "", 0, "", "");
    std::string s;
    for (const RecordedLine& l : RecordedLines()) s += Brief(l) + "\n";
    return ClearRecordedLines(), s;
}
template <typename T> std::string Hex(T n) { return (testing::Message() << std::hex << std::showbase << n).GetString(); }

int s_evaluations, s_nLine;
BOOL FailWith(DWORD dwError) { return ++s_evaluations, SetLastError(dwError), FALSE; }
HRESULT Counted(HRESULT hr) { return ++s_evaluations, hr; }
long CheckWin32(DWORD dwError) { TAVO_FUNCTION("Tavo::CheckWin32"); s_nLine = __LINE__; CHECK_WIN32(FailWith(dwError)); return S_OK; }
long CheckHResult(HRESULT hr) { TAVO_FUNCTION("Tavo::CheckHResult"); CHECK_HRESULT(Counted(hr)); return 1; }
long CheckArguments(const wchar_t* szName, const void* pv) { TAVO_FUNCTION("Tavo::CheckArguments"); CHECK_STRING(szName); CHECK_POINTER(pv); return S_OK; }
long Verify(DWORD dwError, HRESULT hr) { TAVO_FUNCTION("Tavo::Verify"); VERIFY_WIN32(FailWith(dwError)); VERIFY_HRESULT(Counted(hr)); return 2; }

int s_closes, s_frees;
decltype(&CloseHandle) s_realClose;
decltype(&FreeLibrary) s_realFree;
BOOL WINAPI CountingCloseHandle(HANDLE h) { return ++s_closes, s_realClose(h); }
BOOL WINAPI CountingFreeLibrary(HMODULE h) { return ++s_frees, s_realFree(h); }
HANDLE NewEvent() { return CreateEventW(nullptr, TRUE, FALSE, nullptr); }
long OpenThenFail(HANDLE hEvent)  // the failing check leaves the function; the owner closes
{
    TAVO_FUNCTION("Tavo::OpenThenFail");
    Tavo::THandle<HANDLE, 0> h;
    CHECK_WIN32(h = hEvent);
    SetLastError(ERROR_NOT_READY);
    CHECK_WIN32(!h);
    return S_OK;
}

void Completes(void* pv) { *static_cast<DWORD*>(pv) = 7; }
void WritesThroughNull(void*) { *static_cast<volatile int*>(nullptr) = 1; }
void Raises(void* pv) { RaiseException(*static_cast<DWORD*>(pv), 0, 0, nullptr), *static_cast<DWORD*>(pv) = 1; }  // 1: went on
void FaultsTwoLevelsDown(void* pv) { *static_cast<DWORD*>(pv) = Tavo::CallWithStructuredGuard(&WritesThroughNull, nullptr), WritesThroughNull(nullptr); }
// A frame of someone else's between the guard and the fault, as a sink's own __try would leave.
struct Registration { Registration* pNext; void* pfnHandler; };
int s_searches, s_unwinds;
EXCEPTION_DISPOSITION __cdecl PassingHandler(EXCEPTION_RECORD* pRecord, void*, CONTEXT*, void*)
{
    return ++(pRecord->ExceptionFlags & (EXCEPTION_UNWINDING | EXCEPTION_EXIT_UNWIND) ? s_unwinds : s_searches), ExceptionContinueSearch;
}
Registration* FrameChain() { Registration* p; __asm__ __volatile__("movl %%fs:0, %0" : "=r"(p)); return p; }
void FaultsUnderAForeignFrame(void*)
{
    Registration frame = {FrameChain(), reinterpret_cast<void*>(&PassingHandler)};
    __asm__ __volatile__("movl %0, %%fs:0" : : "r"(&frame) : "memory");
    WritesThroughNull(nullptr);
}
// What was dispatched, before any frame: a write through null may fault otherwise than on Windows under an emulator.
DWORD s_dispatched;
LONG CALLBACK RecordsDispatch(EXCEPTION_POINTERS* pInfo) { return s_dispatched = pInfo->ExceptionRecord->ExceptionCode, EXCEPTION_CONTINUE_SEARCH; }

// The shapes of a cached string.
int s_computed;
const wchar_t* s_found;
Tavo::TCachedString<wchar_t> s_whileEmpty;
wchar_t s_array[16];
Tavo::TCachedMap<wchar_t> s_map;
const wchar_t* WhileEmpty() { return Tavo::CachedWhileEmpty(s_whileEmpty, [](CStringW& v) { ++s_computed, v = s_found; }); }
// Fails but for a drive path, leaving behind what a failing platform call may leave.
const wchar_t* InArray() { return Tavo::CachedInArray(s_array, [](wchar_t* sz, int cch) { return ++s_computed, wcsncpy(sz, s_found, cch), wcschr(sz, L':'); }); }
const wchar_t* ByKey(int nKey) { return Tavo::CachedByKey(s_map, nKey, [nKey](CStringW& v) { return ++s_computed, v.Format(L"value %d", nKey), nKey >= 0; }); }

SIZE_T s_cbAsked;  // what the library linked into this program last asked of the heap, which then fails
LPVOID WINAPI FailingHeapAlloc(HANDLE, DWORD, SIZE_T cb) { return s_cbAsked = cb, nullptr; }
} // namespace

// Each form evaluates its expression once, returns its HRESULT (a verify form goes on to return 2), writes its line.
TEST(Check, EachFormReturnsItsResultAndWritesItsLine)
{
    Lines();
    // The recorder now ends every line with a last error of its own: a form must read the caller's before.
    SetEnvironmentVariableA(CORV_RECORDER_LASTERROR_VARIABLE, "1234");
    const std::string win32 = "128|Tavo::CheckWin32|FAILED: FailWith(dwError) - GetLastError = ", arguments = "128|Tavo::CheckArguments|";
    const struct { std::function<long()> call; const char* result; int evaluations; std::string lines; } rows[] = {
        {[] { return CheckWin32(0); }, "0x8007001f", 1, win32 + "31\n"},  // a failure never reads as success
        {[] { return CheckWin32(0x12345); }, "0x80072345", 1, win32 + "74565\n"},            // the low word only
        {[] { return CheckWin32(0xC0000022); }, "0xc0000022", 1, win32 + "3221225506\n"},  // an NTSTATUS as it is
        {[] { return CheckHResult(E_ACCESSDENIED); }, "0x80070005", 1, "128|Tavo::CheckHResult|FAILURE: Counted(hr) - 0x80070005\n"},
        {[] { return CheckHResult(S_FALSE); }, "0x1", 1, ""},
        {[] { return CheckArguments(nullptr, nullptr); }, "0x80004003", 0, arguments + "Invalid null pointer: szName\n"},
        {[] { return CheckArguments(L"", nullptr); }, "0x80070057", 0, arguments + "Invalid string argument: szName\n"},
        {[] { return CheckArguments(L"x", nullptr); }, "0x80004003", 0, arguments + "Invalid null pointer: pv\n"},
        {[] { return CheckArguments(L"x", L""); }, "0", 0, ""},
        {[] { return Verify(0, E_FAIL); }, "0x2", 2, "1|Tavo::Verify|FailWith(dwError) - 0\n4|Tavo::Verify|Counted(hr) - 0x80004005\n"},
        {[] { return Verify(5, S_FALSE); }, "0x2", 2, "1|Tavo::Verify|FailWith(dwError) - 5\n"},
    };
    for (const auto& row : rows) {
        const long result = (s_evaluations = 0, row.call());
        EXPECT_EQ(row.result + (" " + std::to_string(row.evaluations)) + "\n" + row.lines, Hex(result) + " " + std::to_string(s_evaluations) + "\n" + Lines());
    }
    CheckWin32(5);
    SetEnvironmentVariableA(CORV_RECORDER_LASTERROR_VARIABLE, nullptr);
    const RecordedLine line = RecordedLines().at(0);  // its site, and its template unformatted
    EXPECT_EQ("FrameTest.cpp:" + std::to_string(s_nLine) + " " + __TIMESTAMP__ + " FAILED: %s - GetLastError = %lu",
              line.file + ":" + std::to_string(line.line) + " " + line.stamp + " " + line.format);
    EXPECT_EQ(S_OK, Tavo::HResultFromWin32(0));
}

// THandle: each rule by what it leaves behind.
TEST(Handle, OwnsClosesOnceAndReportsMisuse)
{
    TAVO_PATCH_IMPORT(close, GetModuleHandleW(nullptr), "KERNEL32.dll", CloseHandle, CountingCloseHandle);
    TAVO_PATCH_IMPORT(free, GetModuleHandleW(nullptr), "KERNEL32.dll", FreeLibrary, CountingFreeLibrary);
    s_realClose = close.Original<decltype(&CloseHandle)>(), s_realFree = free.Original<decltype(&FreeLibrary)>();
    const HANDLE hFirst = NewEvent(), hSecond = NewEvent();
    Lines();
    {
        Tavo::THandle<HANDLE, 0> h;
        h = INVALID_HANDLE_VALUE;  // stored as empty: nothing to close, and no misuse to report below
        h.Close(), h = hFirst;
        SetLastError(0xDEADBEEF), h = hSecond;  // misuse: the held handle is overwritten, not closed
        SetLastError(5), (void)&h;
        EXPECT_EQ("TavoHandles.h", RecordedLines().at(0).file);
        EXPECT_EQ("1|Tavo::THandle<void *,0>::operator =|NULL == m_h - 3735928559\n1|Tavo::THandle<void *,0>::operator &|NULL == m_h - 5\n", Lines());
        h.Close(), h.Close();
        *&h = NewEvent();  // an empty owner gives its address silently
        EXPECT_EQ("1 ", std::to_string(s_closes) + " " + Lines());
    }
    EXPECT_EQ(2, s_closes) << "the end of the scope closes";
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_NOT_READY), OpenThenFail(NewEvent()));
    EXPECT_EQ("3 128|Tavo::OpenThenFail|FAILED: !h - GetLastError = 21\n", std::to_string(s_closes) + " " + Lines()) << "closed once";
    { Tavo::THandle<HINSTANCE, 0> h; h = LoadLibraryW(L"shlwapi.dll"), SetLastError(7), (void)&h; }
    EXPECT_EQ("1 3 1|Tavo::THandle<struct HINSTANCE__ *,0>::operator &|NULL == m_h - 7\n", std::to_string(s_frees) + " " + std::to_string(s_closes) + " " + Lines());
    s_realClose(hFirst);
}

// The structured guard: a fault ends the guarded call, every frame above it unwound.
TEST(StructuredGuard, EndsTheCallAtAFaultAndUnwindsEveryFrameAboveIt)
{
    void* hHandler = AddVectoredExceptionHandler(1, &RecordsDispatch);
    const DWORD dwCaught = Tavo::CallWithStructuredGuard(&WritesThroughNull, nullptr), dwFault = s_dispatched;
    EXPECT_EQ(Hex(dwFault) + " 0xc0000000", Hex(dwCaught) + " " + Hex(dwFault & 0xF0000000u)) << "a fault's code, returned";
    const Tavo::GuardFilter kHandle = Tavo::GUARD_EXECUTE_HANDLER;
    const struct { void (*pfn)(void*); DWORD dwIn; Tavo::GuardFilter filter; DWORD dwResult, dwOut; } rows[] = {
        {&Completes, 0, kHandle, 0, 7}, {&WritesThroughNull, 0, kHandle, dwFault, 0},  // caught again and again
        {&Raises, 0xE0001234, kHandle, 0xE0001234, 0xE0001234}, {&Raises, 0, kHandle, 0x80000000, 0},  // not 0: it ended
        {&Raises, 0x406D1388, Tavo::GUARD_CONTINUE_EXECUTION, 0, 1},  // goes on behind the raise
        {&FaultsTwoLevelsDown, 0, kHandle, dwFault, dwFault},  // nested guards each catch their own
        {&FaultsUnderAForeignFrame, 0, kHandle, dwFault, 0},
    };
    Registration* pBefore = FrameChain();
    for (const auto& row : rows) {
        DWORD dw = row.dwIn;
        const DWORD dwResult = Tavo::CallWithStructuredGuard(row.pfn, &dw, row.filter);
        EXPECT_EQ(Hex(row.dwResult) + " " + Hex(row.dwOut), Hex(dwResult) + " " + Hex(dw));
        EXPECT_EQ(pBefore, FrameChain()) << "no dead frame is left on the chain";
    }
    EXPECT_EQ("1 1", std::to_string(s_searches) + " " + std::to_string(s_unwinds)) << "the foreign frame is searched, then unwound";
    RemoveVectoredExceptionHandler(hHandler);
}

TEST(Cache, EachShapeComputesAsOftenAsItPromises)
{
    for (const wchar_t* szFound : {L"", L"half", L"C:\\Data", L"D:\\Other"}) s_found = szFound, WhileEmpty(), InArray();
    EXPECT_EQ(CStringW(L"half"), WhileEmpty()) << "shape 2 computes while the value is empty, then keeps it";
    EXPECT_EQ(CStringW(L"C:\\Data"), InArray()) << "shape 3 computes until it succeeds, emptied after each failure";
    EXPECT_EQ(5, s_computed);
    const wchar_t* p5 = (s_computed = 0, ByKey(-1), ByKey(-1), ByKey(5));
    for (int key = 0; key < 300; ++key) ByKey(key);  // the table grows; its nodes stay where they are
    EXPECT_TRUE(s_map.nBuckets > 17 && p5 == ByKey(5) && !ByKey(-1) && CStringW(L"value 299") == ByKey(299) && CStringW(L"value 5") == p5);
    EXPECT_EQ(303, s_computed) << "shape 4 asks a failed key again, a stored one never";
}

TEST(String, RefusesSharesEditsFormatsAndConvertsInTheCallingThreadsCodePage)
{
    const struct { const char* what; HRESULT hr; void (*call)(); } rows[] = {
        {"negative length", E_INVALIDARG, [] { CStringW s(L"abc", -1); }},
        {"null source with a length", E_INVALIDARG, [] { CStringA s(static_cast<const char*>(nullptr), 2); }},
        {"[] on the terminator", S_OK, [] { (void)CStringW(L"abc")[3]; }}, {"GetAt on the terminator", E_INVALIDARG, [] { CStringW(L"abc").GetAt(3); }},
        {"[] past the terminator", E_INVALIDARG, [] { (void)CStringW(L"abc")[4]; }},
        {"release past the room", E_INVALIDARG, [] { CStringW s; s.GetBuffer(4); s.ReleaseBuffer(100); }},
        {"reallocate null", E_INVALIDARG, [] { Tavo::StringReallocate(nullptr, 4, 2); }},
        {"array index", E_INVALIDARG, [] { Tavo::CAtlArray<int> array; array.Add(1); array.GetAt(1); }},
    };
    for (const auto& row : rows) EXPECT_EQ(row.hr, ThrownBy(row.call)) << row.what;

    CStringW s(L" \tpath\\to\\file.txt\r\n"), copy = s, twice(L"0123456789");
    std::vector<std::thread> threads;  // reference counts are atomic
    for (int t = 0; t < 4; ++t) threads.emplace_back([&s] { for (int i = 0; i < 20000; ++i) CStringW(CStringW(s)); });
    for (auto& t : threads) t.join();
    EXPECT_TRUE(s.GetString() == copy.GetString() && (reinterpret_cast<const Tavo::CStringData*>(copy.GetString()) - 1)->nRefs == 2);
    EXPECT_EQ(2 + 1, s.Trim().Replace(L'\\', L'/') + s.Replace(L"file.txt", L"other"));  // copy on write
    EXPECT_EQ(L"path/to/other|7|to|other||\\\\dir| \tpath\\to\\file.txt\r\n", s + L"|" + std::to_wstring(s.ReverseFind(L'/')).c_str() + L"|" +
                  s.Mid(5, 2) + L"|" + s.Right(5) + L"|" + s.Mid(100) + L"|" + CStringW(L"\\\\dir\\\\").TrimRight(L'\\') + L"|" + copy);
    for (int i = 0; i < 6; ++i) twice += twice;  // its own text, across reallocations
    ASSERT_EQ(640, twice.GetLength());
    for (int i = 0; i < 640; ++i) ASSERT_EQ(L'0' + i % 10, twice[i]) << i;
    CStringA a;
    a.Format("%s|%ls|%#08lx|%0300d", "narrow", L"wide", 0x80070005ul, 7);  // the platform run-time's dialect
    EXPECT_EQ("narrow|wide|0x80070005|" + std::string(299, '0') + "7", a.GetString());
    memcpy(a.GetBuffer(10), "abc\0def", 8);
    a.ReleaseBuffer();  // the length runs to the first zero
    EXPECT_EQ(3, a.GetLength());
    // The short i (U+0439) is 0xE9 in 1251, and missing from 1252.
    EXPECT_EQ(CStringA("\xE9|?"), WithThreadLocale(kRussianLocale, [] { return CStringA(L"\x0439"); }) + "|" +
                                      WithThreadLocale(kEnglishLocale, [] { return CStringA(L"\x0439"); }));
    EXPECT_EQ(CStringW(L"\x0439"), WithThreadLocale(kRussianLocale, [] { return CStringW("\xE9"); }));
    Tavo::CAtlArray<CStringW> array;  // each even element added from the block, which moves when it is full
    for (int i = 0; i < 65; ++i) i && i % 2 == 0 ? array.Add(array[i - 1]) : array.Add(CStringW(std::to_wstring(i).c_str()));
    EXPECT_EQ(L"65: 49 7 63", std::to_wstring(array.GetCount()) + L": " + array[49].GetString() + L" " + array[8].GetString() + L" " + array[64].GetString());
}

// A block is header, room (rounded up to 8 below 0x3FFFFFF0) and terminator. The longest string a width allows is
// asked of the heap; one character more is refused without asking.
TEST(String, AllocationFailsWithOutOfMemoryAndBlocksStopAtTheLongestString)
{
    CStringW kept(L"kept");
    const CStringW sharer = kept;  // so that writing to `kept` needs a block
    TAVO_PATCH_IMPORT(heap, GetModuleHandleW(nullptr), "KERNEL32.dll", HeapAlloc, FailingHeapAlloc);
    EXPECT_EQ(E_OUTOFMEMORY, ThrownBy([&] { kept += L" and more"; }));
    EXPECT_STREQ(L"kept", kept) << "a failed append leaves the value as it was";
    const SIZE_T cbHeader = sizeof(Tavo::CStringData);
    const struct { int nChars, cbChar; HRESULT hr; SIZE_T cbAsked; } rows[] = {  // cbAsked 0: not asked
        {5, 2, E_OUTOFMEMORY, cbHeader + 9 * 2}, {0x3FFFFFF0, 2, E_OUTOFMEMORY, cbHeader + 0x3FFFFFF1 * 2},
        {0x3FFFFFF8, 2, E_OUTOFMEMORY, cbHeader + 0x3FFFFFF9 * 2}, {0x3FFFFFF9, 2, E_OUTOFMEMORY, 0},
        {0x7FFFFFF2, 1, E_OUTOFMEMORY, cbHeader + 0x7FFFFFF3}, {0x7FFFFFF3, 1, E_OUTOFMEMORY, 0},
        {-1, 2, E_INVALIDARG, 0}, {4, 3, E_INVALIDARG, 0},
    };
    for (const auto& row : rows) {
        const HRESULT hr = (s_cbAsked = 0, ThrownBy([&] { Tavo::StringAllocate(row.nChars, row.cbChar); }));
        EXPECT_EQ(Hex(row.hr) + " " + Hex(row.cbAsked), Hex(hr) + " " + Hex(s_cbAsked)) << Hex(row.nChars) << " of " << row.cbChar;
    }
}

template <typename X> void ProbeBoundedForms(HRESULT (*copy)(X*, size_t, const X*), HRESULT (*print)(X*, size_t, const X*, ...), const X* szPercentS)
{
    const struct { const char* text; size_t cch; HRESULT hr; const char* result; } rows[] = {  // result null: untouched
        {"hello", 0, E_INVALIDARG, nullptr}, {"hello", 0x80000000u, E_INVALIDARG, nullptr},
        {"hello", static_cast<size_t>(-1), E_INVALIDARG, nullptr}, {"hello", 1, STRSAFE_E_INSUFFICIENT_BUFFER, ""},
        {"hello", 5, STRSAFE_E_INSUFFICIENT_BUFFER, "hell"}, {"hello", 6, S_OK, "hello"},
        {"hello", 32, S_OK, "hello"}, {"", 1, S_OK, ""},  // an empty result fits the smallest buffer
    };
    for (int form = 0; form < 2; ++form) {
        for (const auto& row : rows) {
            SCOPED_TRACE(testing::Message() << (form ? "print" : "copy") << " \"" << row.text << "\" size " << row.cch);
            const std::basic_string<X> text(row.text, row.text + strlen(row.text)), marks(39, '#');
            std::basic_string<X> buffer = marks;  // the size is what is probed; the buffer is always large enough
            EXPECT_EQ(row.hr, form ? print(&buffer[0], row.cch, szPercentS, text.c_str()) : copy(&buffer[0], row.cch, text.c_str()));
            EXPECT_EQ(row.result ? std::basic_string<X>(row.result, row.result + strlen(row.result)) : marks, buffer.c_str());
            EXPECT_EQ(static_cast<X>('#'), buffer[row.result ? row.cch : 0]) << "nothing is written past the size";
        }
    }
    X sz[4] = {'x', 'x', 'x', 0};
    EXPECT_TRUE(copy(sz, 4, nullptr) == S_OK && sz[0] == 0) << "a null source copies as empty";
    EXPECT_TRUE((sz[0] = 'x', print(sz, 4, nullptr)) == E_INVALIDARG && sz[0] == 0) << "a null format leaves the empty string";
}

TEST(BoundedCopy, ProbedAtEverySizeInBothWidths)
{
    ProbeBoundedForms<wchar_t>(&::StringCchCopyW, &::StringCchPrintfW, L"%s");
    ProbeBoundedForms<char>(&::StringCchCopyA, &::StringCchPrintfA, "%s");
}

// Argument conversion: on the stack up to kMaxStackChars characters with the terminator, beyond on the heap.
TEST(Argument, ConvertsInTheThreadsCodePageOnTheStackOrTheHeap)
{
    auto converted = [](const char* sz) { TAVO_WIDE_ARGUMENT(wsz, sz); return wsz ? std::wstring(wsz) : std::wstring(L"(null)"); };
    for (int nChars : {0, Tavo::CWideArgument::kMaxStackChars - 1, Tavo::CWideArgument::kMaxStackChars * 3})
        EXPECT_EQ(std::wstring(nChars, L'z'), converted(std::string(nChars, 'z').c_str())) << nChars;
    EXPECT_EQ(L"(null)|\x0439", converted(nullptr) + L"|" + WithThreadLocale(kRussianLocale, [&] { return converted("\xE9"); }));
}
