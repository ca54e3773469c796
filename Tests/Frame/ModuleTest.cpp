// What depends on being the DLL: its cached version, unloading, module names and the diagnostic channel with each
// kind of sibling. Caches and the channel's state last as long as the loaded library, hence the fresh processes.
#include <TavoCommon.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "ChildProcess.h"
#include "ImportPatch.h"
#include "Recorder.h"
#include "TavoTest.h"

using namespace tavo::test;
using Tavo::CStringA;
using Tavo::CStringW;

namespace {

const HINSTANCE kNoModule = reinterpret_cast<HINSTANCE>(static_cast<INT_PTR>(0x10000));
template <typename F> F Export(HMODULE h, const char* sz) { return reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(h, sz))); }

// What a child case reported, "exit=code key=value ..." in key order.
std::string Reported(const ScratchInstall& install, const char* szCase)
{
    const ChildResult result = install.Run(szCase);
    std::string s = "exit=" + std::to_string(result.exitCode);  // and the output, when not 0
    for (const auto& [key, value] : result.values) s += " " + key + "=" + value;
    return result.exitCode ? s + "\n" + result.output : s;
}

std::string ExpectedVersion()  // as the platform reads the version resource
{
    char szPath[MAX_PATH], sz[64] = "(no version resource)";
    static BYTE block[16384];
    VS_FIXEDFILEINFO* p = nullptr;
    UINT cb;
    if (GetModuleFileNameA(Library(), szPath, MAX_PATH) && GetFileVersionInfoA(szPath, 0, sizeof(block), block) && VerQueryValueA(block, "\\", reinterpret_cast<void**>(&p), &cb))
        snprintf(sz, sizeof(sz), "%u.%u.%u.%u", HIWORD(p->dwFileVersionMS), LOWORD(p->dwFileVersionMS), HIWORD(p->dwFileVersionLS), LOWORD(p->dwFileVersionLS));
    return sz;
}

std::atomic<int> s_allocations{0}, s_lockEntries{0}, s_versionLookups{0};
decltype(&EnterCriticalSection) s_realEnter;
decltype(&FindResourceW) s_realFindResourceW;
LPVOID WINAPI NoHeapAlloc(HANDLE, DWORD, SIZE_T) { return ++s_allocations, nullptr; }
void WINAPI CountingEnter(LPCRITICAL_SECTION pcs) { ++s_lockEntries, s_realEnter(pcs); }
// Slow, so that the other threads arrive while the first computes.
HRSRC WINAPI SlowFindResourceW(HMODULE h, LPCWSTR szName, LPCWSTR szType) { return ++s_versionLookups, Sleep(100), s_realFindResourceW(h, szName, szType); }
const void *s_pBlockA, *s_pBlockW;
std::string s_freed;  // the cached values freed, in order: A the narrow one, W the wide one
decltype(&HeapFree) s_realHeapFree;
BOOL WINAPI RecordingHeapFree(HANDLE h, DWORD dw, LPVOID pv) { return s_freed += pv == s_pBlockA ? "A" : pv == s_pBlockW ? "W" : "", s_realHeapFree(h, dw, pv); }
// Never restored: the module goes first.
template <typename F> F Patch(HMODULE h, const char* szFunction, F pfn) { return (new ScopedImportPatch(h, "KERNEL32.dll", szFunction, pfn))->Original<F>(); }

// One line on the channel per call, and the function's ordinary (empty) result.
bool TraceOneLine() { return Tavo::GetModuleFileNameW(kNoModule).IsEmpty(); }

// Counts the library's attempts to load its sibling while it lives, then reports them.
int s_loads;
decltype(&LoadLibraryA) s_realLoad;
HMODULE WINAPI CountingLoadLibraryA(LPCSTR sz) { return s_loads += lstrcmpiA(sz, "CorvDebug.dll") == 0, s_realLoad(sz); }
struct LoadCounter {
    ScopedImportPatch patch{Library(), "KERNEL32.dll", "LoadLibraryA", &CountingLoadLibraryA};
    LoadCounter() { s_realLoad = patch.Original<decltype(&LoadLibraryA)>(); }
    ~LoadCounter() { ChildReport("loads", s_loads); }
};

// The count a test sink keeps of the calls it took; -1 when there is none to ask.
int SinkCalls()
{
    HMODULE hSink = GetModuleHandleA("CorvDebug.dll");
    auto pfnCount = hSink ? Export<PFN_CORV_RECORDER_COUNT>(hSink, "CorvRecorderCount") : nullptr;
    return pfnCount ? pfnCount() : -1;
}
} // namespace

TEST(LibraryVersion, AfterTheFirstCallOneLockAndNoAllocation)
{
    const char* pA = Tavo::GetLibraryVersionA();
    const wchar_t* pW = Tavo::GetLibraryVersionW();
    TAVO_PATCH_IMPORT(alloc, Library(), "KERNEL32.dll", HeapAlloc, NoHeapAlloc);
    TAVO_PATCH_IMPORT(enter, Library(), "KERNEL32.dll", EnterCriticalSection, CountingEnter);
    s_realEnter = enter.Original<decltype(&EnterCriticalSection)>();
    s_allocations = s_lockEntries = 0;
    for (int i = 0; i < 1000; ++i) ASSERT_TRUE(pW == Tavo::GetLibraryVersionW() && pA == Tavo::GetLibraryVersionA());
    EXPECT_EQ("0 allocations, 2000 locks", std::to_string(s_allocations) + " allocations, " + std::to_string(s_lockEntries) + " locks");
}

// On a second copy of the library, which this program does not import, so that it really unloads.
TAVO_CHILD_CASE(VersionFirstCallsAndUnload)
{
    HMODULE hCopy = LoadLibraryW(L"TavoUnload.dll");
    auto pfnW = Export<const wchar_t* (*)()>(hCopy, "_ZN4Tavo18GetLibraryVersionWEv");
    auto pfnA = Export<const char* (*)()>(hCopy, "_ZN4Tavo18GetLibraryVersionAEv");
    if (!pfnW || !pfnA) return 10;
    s_realFindResourceW = Patch(hCopy, "FindResourceW", &SlowFindResourceW);
    {
        TAVO_PATCH_IMPORT(alloc, hCopy, "KERNEL32.dll", HeapAlloc, NoHeapAlloc);
        char szHr[16];
        ChildReport("failed", std::string(szHr, snprintf(szHr, sizeof(szHr), "0x%08lx", ThrownBy(pfnW))));
    }
    std::vector<const wchar_t*> results(4);
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) threads.emplace_back([&, i] { for (++ready; ready < 4;) Sleep(0); results[i] = pfnW(); });
    for (auto& t : threads) t.join();
    ChildReport("computations", s_versionLookups.load());
    ChildReport("same", static_cast<int>(std::count(results.begin(), results.end(), results[0])));
    ChildReport("version", std::string(CStringA(results[0])) + " " + pfnA());
    s_pBlockW = reinterpret_cast<const Tavo::CStringData*>(results[0]) - 1;
    s_pBlockA = reinterpret_cast<const Tavo::CStringData*>(pfnA()) - 1;
    s_realHeapFree = Patch(hCopy, "HeapFree", &RecordingHeapFree);
    FreeLibrary(hCopy);
    ChildReport("unloaded", GetModuleHandleW(L"TavoUnload.dll") == nullptr);
    ChildReport("freed", s_freed);
    return 0;
}

// E_OUTOFMEMORY reaches the caller; four racing next calls compute once; unloading frees the last computed first.
TEST(LibraryVersion, AFailedFirstCallIsRetriedRacingFirstCallsComputeOnceUnloadFreesAll)
{
    ScratchInstall install;
    install.CopyFile("TavoCommon.dll", "TavoUnload.dll");
    const std::string version = ExpectedVersion();
    EXPECT_EQ("exit=0 computations=2 failed=0x8007000e freed=AW same=4 unloaded=true version=" + version + " " + version,
              Reported(install, "VersionFirstCallsAndUnload"));
}

// A module's name or directory, or nothing and one error line: the library's path in one buffer, a 24-character stamp.
TEST(ModuleFileName, NamesTheModuleOrGivesEmptyAndOneLine)
{
    char szLibrary[MAX_PATH], sz[4];
    const std::string error = std::to_string((SetLastError(0), GetModuleFileNameA(kNoModule, sz, 4), GetLastError()));
    ClearRecordedLines();
    CStringW s = Tavo::GetModuleFileNameW(Library()) + L" changed";
    EXPECT_EQ(CStringW((GetModuleFileNameA(Library(), szLibrary, MAX_PATH), szLibrary)) + L" changed", s);
    EXPECT_TRUE(HeapValidate(GetProcessHeap(), 0, reinterpret_cast<const Tavo::CStringData*>(s.GetString()) - 1)) << "the caller's to change";
    EXPECT_EQ(std::string(szLibrary, strrchr(szLibrary, '\\')), Tavo::GetModulePathNameA(Library()).GetString());
    EXPECT_TRUE(Tavo::GetModuleFileNameW(kNoModule).IsEmpty() && Tavo::GetModulePathNameA(kNoModule).IsEmpty());
    const std::vector<RecordedLine> lines = RecordedLines();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("128|ModuleFileName.cpp|Tavo::GetModuleFileNameW|GetModuleFileName failed, GetLastError = " + error + "|" + szLibrary + "|24",
              std::to_string(lines[0].level) + "|" + lines[0].file + "|" + lines[0].function + "|" + lines[0].text + "|" + lines[0].module + "|" + std::to_string(lines[0].stamp.size()));
    EXPECT_EQ(lines[0].modulePointer, lines[1].modulePointer);
}

// Three lines through the install's sibling; it is unloaded behind the library's back; two lines (the first finds
// it gone); a new sibling, possibly at the old address; a last line.
TAVO_CHILD_CASE(ChannelLines)
{
    LoadCounter counter;
    ChildReport("ordinary", TraceOneLine() + TraceOneLine() + TraceOneLine());
    ChildReport("sinkCalls", SinkCalls());
    FreeLibrary(GetModuleHandleA("CorvDebug.dll"));  // the library's one reference
    ChildReport("gone", GetModuleHandleA("CorvDebug.dll") == nullptr);
    TraceOneLine(), TraceOneLine(), LoadLibraryA("CorvDebug.dll");
    ChildReport("afterReload", (TraceOneLine(), SinkCalls()));
    return 0;
}

// Every call returns its ordinary result whatever the sibling; one load attempt; none called after it was gone.
TEST(Channel, EachKindOfSiblingIsLoadedOnceAndNeverFailsTheCaller)
{
    const struct { const char* sink; const char* reported; } rows[] = {
        {"CorvDebug.dll", "afterReload=0 gone=true loads=1 ordinary=3 sinkCalls=3"},  // the recorder
        {nullptr, "afterReload=-1 gone=true loads=1 ordinary=3 sinkCalls=-1"},        // none: off after the failed load
        {"CorvDebugNoOutput.dll", "afterReload=-1 gone=true loads=1 ordinary=3 sinkCalls=-1"},  // no entry to call
        {"CorvDebugThrows.dll", "afterReload=0 gone=true loads=1 ordinary=3 sinkCalls=3"},  // each exception swallowed
        {"CorvDebugFaults.dll", "afterReload=0 gone=true loads=1 ordinary=3 sinkCalls=3"},  // each fault caught
    };
    for (const auto& row : rows) {
        ScratchInstall install;
        row.sink ? install.UseSink(row.sink) : install.WithoutSink();
        EXPECT_EQ("exit=0 " + std::string(row.reported), Reported(install, "ChannelLines")) << (row.sink ? row.sink : "no sink");
    }
}
