// What depends on being the DLL: its own module and version, the cache of a loaded library, and
// what unloading does.
#include <CorvDebug.h>
#include <TavoCommon.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "ChildProcess.h"
#include "ImportPatch.h"
#include "Recorder.h"

using Tavo::CStringA;
using Tavo::CStringW;
using tavo::test::ChildReport;
using tavo::test::ScopedImportPatch;

namespace {

HMODULE Library() { return GetModuleHandleW(L"TavoCommon.dll"); }

std::wstring ExpectedVersion()
{
    wchar_t szPath[MAX_PATH];
    GetModuleFileNameW(Library(), szPath, MAX_PATH);
    DWORD dwHandle = 0;
    std::vector<BYTE> block(GetFileVersionInfoSizeW(szPath, &dwHandle));
    VS_FIXEDFILEINFO* pInfo = nullptr;
    UINT cb = 0;
    if (block.empty() || !GetFileVersionInfoW(szPath, 0, static_cast<DWORD>(block.size()), block.data()) ||
        !VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&pInfo), &cb)) {
        return L"(no version resource)";
    }
    return std::to_wstring(HIWORD(pInfo->dwFileVersionMS)) + L"." + std::to_wstring(LOWORD(pInfo->dwFileVersionMS)) +
           L"." + std::to_wstring(HIWORD(pInfo->dwFileVersionLS)) + L"." + std::to_wstring(LOWORD(pInfo->dwFileVersionLS));
}

std::string Hex(const void* p)
{
    char sz[20];
    snprintf(sz, sizeof(sz), "%p", p);
    return sz;
}

} // namespace

// ---- The version getter, a cached string of the loaded library --------------------------------

TEST(LibraryVersion, MatchesTheVersionResourceAndKeepsItsPointer)
{
    const wchar_t* pW = Tavo::GetLibraryVersionW();
    EXPECT_EQ(ExpectedVersion(), pW);
    EXPECT_EQ(pW, Tavo::GetLibraryVersionW());

    const char* pA = Tavo::GetLibraryVersionA();
    EXPECT_EQ(CStringA(pW), CStringA(pA));
    EXPECT_EQ(pA, Tavo::GetLibraryVersionA());
    EXPECT_NE(static_cast<const void*>(pW), static_cast<const void*>(pA));
}

namespace {
std::atomic<int> s_allocations{0};
std::atomic<int> s_lockEntries{0};
decltype(&EnterCriticalSection) s_realEnter;
LPVOID WINAPI NoHeapAlloc(HANDLE, DWORD, SIZE_T) { ++s_allocations; return nullptr; }
LPVOID WINAPI NoHeapReAlloc(HANDLE, DWORD, LPVOID, SIZE_T) { ++s_allocations; return nullptr; }
void WINAPI CountingEnter(LPCRITICAL_SECTION pcs) { ++s_lockEntries; s_realEnter(pcs); }
} // namespace

TEST(LibraryVersion, AfterTheFirstCallOneLockAndNoAllocation)
{
    Tavo::GetLibraryVersionW();
    Tavo::GetLibraryVersionA();
    ScopedImportPatch alloc(Library(), "KERNEL32.dll", "HeapAlloc", reinterpret_cast<const void*>(&NoHeapAlloc));
    ScopedImportPatch realloc(Library(), "KERNEL32.dll", "HeapReAlloc", reinterpret_cast<const void*>(&NoHeapReAlloc));
    ScopedImportPatch enter(Library(), "KERNEL32.dll", "EnterCriticalSection", reinterpret_cast<const void*>(&CountingEnter));
    ASSERT_TRUE(alloc.Patched() && realloc.Patched() && enter.Patched());
    s_realEnter = enter.Original<decltype(&EnterCriticalSection)>();
    s_allocations = s_lockEntries = 0;
    for (int i = 0; i < 1000; ++i) {
        ASSERT_NE(L'\0', *Tavo::GetLibraryVersionW());
        ASSERT_NE('\0', *Tavo::GetLibraryVersionA());
    }
    EXPECT_EQ(0, s_allocations.load());
    EXPECT_EQ(2000, s_lockEntries.load());
}

namespace {
std::atomic<int> s_lookups{0};
bool s_slowLookups;
decltype(&FindResourceW) s_realFindResourceW;
HRSRC WINAPI CountingFindResourceW(HMODULE hModule, LPCWSTR szName, LPCWSTR szType)
{
    ++s_lookups;
    if (s_slowLookups) Sleep(100);  // the other threads arrive while the first computes
    return s_realFindResourceW(hModule, szName, szType);
}
} // namespace

TAVO_CHILD_CASE(VersionRace)
{
    ScopedImportPatch find(Library(), "KERNEL32.dll", "FindResourceW", reinterpret_cast<const void*>(&CountingFindResourceW));
    s_realFindResourceW = find.Original<decltype(&FindResourceW)>();
    s_slowLookups = true;
    const int kThreads = 4;
    std::atomic<int> ready{0};
    std::atomic<bool> go{false};
    std::vector<const wchar_t*> results(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            ++ready;
            while (!go) Sleep(0);
            results[i] = Tavo::GetLibraryVersionW();
        });
    }
    while (ready < kThreads) Sleep(0);
    go = true;
    for (auto& t : threads) t.join();
    ChildReport("computations", s_lookups.load());
    int nSame = 0;
    for (const wchar_t* p : results) nSame += p == results[0];
    ChildReport("same", nSame);
    return 0;
}

TEST(LibraryVersion, ThreadsRacingTheFirstCallComputeOnce)
{
    tavo::test::ScratchInstall install;
    tavo::test::ChildResult result = install.Run("VersionRace");
    ASSERT_EQ(0u, result.exitCode) << result.output;
    EXPECT_EQ("1", result.Value("computations"));
    EXPECT_EQ("4", result.Value("same"));
}

TAVO_CHILD_CASE(VersionAllocationFailure)
{
    ScopedImportPatch find(Library(), "KERNEL32.dll", "FindResourceW", reinterpret_cast<const void*>(&CountingFindResourceW));
    s_realFindResourceW = find.Original<decltype(&FindResourceW)>();
    {
        ScopedImportPatch alloc(Library(), "KERNEL32.dll", "HeapAlloc", reinterpret_cast<const void*>(&NoHeapAlloc));
        try {
            Tavo::GetLibraryVersionW();
            ChildReport("first", "no exception");
        } catch (const Tavo::CAtlException& e) {
            ChildReport("first", Hex(reinterpret_cast<const void*>(static_cast<INT_PTR>(e.m_hr))));
        }
    }
    ChildReport("second", CStringA(Tavo::GetLibraryVersionW()).GetString());
    ChildReport("computations", s_lookups.load());
    return 0;
}

TEST(LibraryVersion, AllocationFailureReachesTheCallerAndTheNextCallComputesAgain)
{
    tavo::test::ScratchInstall install;
    tavo::test::ChildResult result = install.Run("VersionAllocationFailure");
    ASSERT_EQ(0u, result.exitCode) << result.output;
    EXPECT_EQ(Hex(reinterpret_cast<const void*>(static_cast<INT_PTR>(E_OUTOFMEMORY))), result.Value("first"));
    EXPECT_EQ(std::string(CStringA(ExpectedVersion().c_str())), result.Value("second"));
    EXPECT_EQ("2", result.Value("computations"));
}

// ---- Unload ---------------------------------------------------------------------------------------

namespace {
std::vector<std::pair<char, const void*>> s_events;  // 'F' HeapFree, 'D' DeleteCriticalSection
const void* s_lock;
decltype(&HeapFree) s_realHeapFree;
decltype(&DeleteCriticalSection) s_realDelete;
BOOL WINAPI RecordingHeapFree(HANDLE hHeap, DWORD dwFlags, LPVOID pv)
{
    s_events.emplace_back('F', pv);
    return s_realHeapFree(hHeap, dwFlags, pv);
}
void WINAPI RecordingDelete(LPCRITICAL_SECTION pcs)
{
    s_events.emplace_back('D', pcs);
    s_realDelete(pcs);
}
// The first lock a cached getter takes is the library's own; the run-time takes others later.
void WINAPI RememberingEnter(LPCRITICAL_SECTION pcs)
{
    if (!s_lock) s_lock = pcs;
    s_realEnter(pcs);
}

int Position(char kind, const void* p)
{
    for (size_t i = 0; i < s_events.size(); ++i)
        if (s_events[i].first == kind && s_events[i].second == p) return static_cast<int>(i);
    return -1;
}
} // namespace

TAVO_CHILD_CASE(UnloadOrder)
{
    // A second copy of the library, which this program does not import, so that it really unloads.
    HMODULE hCopy = LoadLibraryW(L"TavoUnload.dll");
    if (!hCopy) return 10;
    auto pfnW = reinterpret_cast<const wchar_t* (*)()>(
        reinterpret_cast<void*>(GetProcAddress(hCopy, "_ZN4Tavo18GetLibraryVersionWEv")));
    auto pfnA = reinterpret_cast<const char* (*)()>(
        reinterpret_cast<void*>(GetProcAddress(hCopy, "_ZN4Tavo18GetLibraryVersionAEv")));
    if (!pfnW || !pfnA) return 11;
    // Left in place on purpose: the module is gone when a restore would run.
    auto* enter = new ScopedImportPatch(hCopy, "KERNEL32.dll", "EnterCriticalSection", reinterpret_cast<const void*>(&RememberingEnter));
    s_realEnter = enter->Original<decltype(&EnterCriticalSection)>();
    const char* pA = pfnA();  // computes the wide value first, then the narrow one
    const wchar_t* pW = pfnW();
    const void* pBlockW = reinterpret_cast<const Tavo::CStringData*>(pW) - 1;
    const void* pBlockA = reinterpret_cast<const Tavo::CStringData*>(pA) - 1;
    auto* free = new ScopedImportPatch(hCopy, "KERNEL32.dll", "HeapFree", reinterpret_cast<const void*>(&RecordingHeapFree));
    auto* del = new ScopedImportPatch(hCopy, "KERNEL32.dll", "DeleteCriticalSection", reinterpret_cast<const void*>(&RecordingDelete));
    s_realHeapFree = free->Original<decltype(&HeapFree)>();
    s_realDelete = del->Original<decltype(&DeleteCriticalSection)>();
    s_events.reserve(1000);
    FreeLibrary(hCopy);
    ChildReport("unloaded", GetModuleHandleW(L"TavoUnload.dll") == nullptr ? 1 : 0);
    ChildReport("narrow", Position('F', pBlockA));
    ChildReport("wide", Position('F', pBlockW));
    ChildReport("lock", Position('D', s_lock));
    ChildReport("events", static_cast<int>(s_events.size()));
    return 0;
}

TEST(Unload, FreesCachedValuesLastComputedFirstAndDeletesTheLockLast)
{
    tavo::test::ScratchInstall install;
    install.CopyFile("TavoCommon.dll", "TavoUnload.dll");
    tavo::test::ChildResult result = install.Run("UnloadOrder");
    ASSERT_EQ(0u, result.exitCode) << result.output;
    EXPECT_EQ("1", result.Value("unloaded"));
    const int nNarrow = std::stoi(result.Value("narrow"));
    const int nWide = std::stoi(result.Value("wide"));
    const int nLock = std::stoi(result.Value("lock"));
    EXPECT_GE(nNarrow, 0) << result.output;
    EXPECT_GT(nWide, nNarrow) << "the narrow value was computed last, so it goes first";
    EXPECT_GT(nLock, nWide) << "the lock is deleted last of all";
}

// ---- Module file names ------------------------------------------------------------------------

TEST(ModuleFileName, NamesTheModuleAndItsDirectory)
{
    wchar_t szExe[MAX_PATH], szLibrary[MAX_PATH];
    GetModuleFileNameW(nullptr, szExe, MAX_PATH);
    GetModuleFileNameW(Library(), szLibrary, MAX_PATH);

    EXPECT_STREQ(szExe, Tavo::GetModuleFileNameW(nullptr));
    EXPECT_STREQ(szLibrary, Tavo::GetModuleFileNameW(Library()));
    EXPECT_EQ(CStringA(szLibrary), Tavo::GetModuleFileNameA(Library()));

    std::wstring directory(szExe);
    directory.resize(directory.rfind(L'\\'));
    EXPECT_EQ(directory, std::wstring(Tavo::GetModulePathNameW(nullptr)));
    EXPECT_EQ(CStringA(directory.c_str()), Tavo::GetModulePathNameA(nullptr));
}

TEST(ModuleFileName, AHandleThatNamesNoModuleGivesEmptyAndOneErrorLine)
{
    tavo::test::ClearRecordedLines();
    HINSTANCE hNothing = reinterpret_cast<HINSTANCE>(static_cast<INT_PTR>(0x10000));
    SetLastError(0);
    wchar_t sz[4];
    GetModuleFileNameW(hNothing, sz, 4);
    const DWORD dwError = GetLastError();

    EXPECT_TRUE(Tavo::GetModuleFileNameW(hNothing).IsEmpty());
    EXPECT_TRUE(Tavo::GetModulePathNameA(hNothing).IsEmpty());
    std::vector<tavo::test::RecordedLine> lines = tavo::test::RecordedLines();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(TRACE_ERROR, lines[0].level);
    EXPECT_EQ("ModuleFileName.cpp", lines[0].file);
    EXPECT_EQ("Tavo::GetModuleFileNameW", lines[0].function);
    EXPECT_EQ("Tavo::GetModulePathNameW", lines[1].function);
    EXPECT_EQ("GetModuleFileName failed, GetLastError = %ld", lines[0].format);
    EXPECT_EQ("GetModuleFileName failed, GetLastError = " + std::to_string(dwError), lines[0].text);
}

TEST(StringLayer, ValuesMadeInTheLibraryLiveOnTheProcessHeap)
{
    CStringW s = Tavo::GetModuleFileNameW(nullptr);
    const void* pBlock = reinterpret_cast<const Tavo::CStringData*>(s.GetString()) - 1;
    EXPECT_TRUE(HeapValidate(GetProcessHeap(), 0, pBlock));
    s += L" - changed and freed by the caller";
}

TEST(StringLayer, ExceptionsThrownInsideTheLibraryReachTheCaller)
{
    try {
        CStringW s(L"abc", -1);
        FAIL() << "no exception";
    } catch (const Tavo::CAtlException& e) {
        EXPECT_EQ(E_INVALIDARG, e.m_hr);
    }
}
