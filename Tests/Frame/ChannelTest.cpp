// The diagnostic channel as the library runs it: one load attempt, one lookup, a sibling that is
// missing, incomplete, throwing, faulting or unloaded behind the library's back. Each case runs in a
// fresh process, since the channel's state lasts as long as the loaded library.
#include <TavoCommon.h>

#include <gtest/gtest.h>

#include <string>

#include "ChildProcess.h"
#include "ImportPatch.h"
#include "Recorder.h"

using tavo::test::ChildReport;
using tavo::test::ChildResult;
using tavo::test::ScopedImportPatch;
using tavo::test::ScratchInstall;

namespace {

HMODULE Library() { return GetModuleHandleW(L"TavoCommon.dll"); }

// One line on the channel per call, and the function's ordinary (empty) result.
bool TraceOneLine()
{
    return Tavo::GetModuleFileNameW(reinterpret_cast<HINSTANCE>(static_cast<INT_PTR>(0x10000))).IsEmpty();
}

int s_loads;
int s_handleQueries;
int s_lookups;
decltype(&LoadLibraryA) s_realLoadLibraryA;
decltype(&GetModuleHandleA) s_realGetModuleHandleA;
decltype(&GetProcAddress) s_realGetProcAddress;

HMODULE WINAPI CountingLoadLibraryA(LPCSTR szName)
{
    if (lstrcmpiA(szName, "CorvDebug.dll") == 0) ++s_loads;
    return s_realLoadLibraryA(szName);
}
HMODULE WINAPI CountingGetModuleHandleA(LPCSTR szName)
{
    if (szName && lstrcmpiA(szName, "CorvDebug.dll") == 0) ++s_handleQueries;
    return s_realGetModuleHandleA(szName);
}
FARPROC WINAPI CountingGetProcAddress(HMODULE hModule, LPCSTR szName)
{
    if (reinterpret_cast<UINT_PTR>(szName) > 0xFFFF && strcmp(szName, "OutputA") == 0) ++s_lookups;
    return s_realGetProcAddress(hModule, szName);
}

// Counts what the library asks of the platform for its channel, for the life of the child.
struct ChannelCounters {
    ScopedImportPatch load{Library(), "KERNEL32.dll", "LoadLibraryA", reinterpret_cast<const void*>(&CountingLoadLibraryA)};
    ScopedImportPatch handle{Library(), "KERNEL32.dll", "GetModuleHandleA", reinterpret_cast<const void*>(&CountingGetModuleHandleA)};
    ScopedImportPatch lookup{Library(), "KERNEL32.dll", "GetProcAddress", reinterpret_cast<const void*>(&CountingGetProcAddress)};
    ChannelCounters()
    {
        s_realLoadLibraryA = load.Original<decltype(&LoadLibraryA)>();
        s_realGetModuleHandleA = handle.Original<decltype(&GetModuleHandleA)>();
        s_realGetProcAddress = lookup.Original<decltype(&GetProcAddress)>();
    }
    void Report() const
    {
        ChildReport("loads", s_loads);
        ChildReport("handleQueries", s_handleQueries);
        ChildReport("lookups", s_lookups);
    }
};

// The count a test sink keeps of the calls it took.
int SinkCalls()
{
    HMODULE hSink = GetModuleHandleA("CorvDebug.dll");
    auto pfnCount = hSink ? reinterpret_cast<int (*)()>(reinterpret_cast<void*>(GetProcAddress(hSink, "CorvRecorderCount")))
                          : nullptr;
    return pfnCount ? pfnCount() : -1;
}

// Three lines through whatever sink the scratch directory holds; every call must return normally.
int TraceThreeLinesAndReport()
{
    ChannelCounters counters;
    int nOrdinary = 0;
    for (int i = 0; i < 3; ++i) nOrdinary += TraceOneLine();
    ChildReport("ordinary", nOrdinary);
    ChildReport("sinkCalls", SinkCalls());
    counters.Report();
    return 0;
}

} // namespace

TAVO_CHILD_CASE(ChannelThreeLines) { return TraceThreeLinesAndReport(); }

// Three lines through each kind of sibling: every call returns its ordinary result, and the library
// loads once, asks for the handle at every line while it holds one, and looks the entry up once.
TEST(Channel, EachKindOfSiblingSeesOneLoadAndOneLookup)
{
    struct Row {
        const char* sink;  // installed as CorvDebug.dll; null: none
        const char* handleQueries;
        const char* lookups;
        const char* sinkCalls;  // -1: no sink loaded to ask
    };
    const Row rows[] = {
        {nullptr, "0", "0", "-1"},
        {"CorvDebugNoOutput.dll", "3", "1", "-1"},  // silent: no entry to call
        {"CorvDebugThrows.dll", "3", "1", "3"},     // each exception swallowed, the next line went out
        {"CorvDebugFaults.dll", "3", "1", "3"},     // each access violation caught likewise
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.sink ? row.sink : "no sink");
        ScratchInstall install;
        if (row.sink) {
            install.UseSink(row.sink);
        } else {
            install.WithoutSink();
        }
        ChildResult result = install.Run("ChannelThreeLines");
        ASSERT_EQ(0u, result.exitCode) << result.output;
        EXPECT_EQ("3", result.Value("ordinary"));
        EXPECT_EQ("1", result.Value("loads"));
        EXPECT_EQ(row.handleQueries, result.Value("handleQueries"));
        EXPECT_EQ(row.lookups, result.Value("lookups"));
        EXPECT_EQ(row.sinkCalls, result.Value("sinkCalls"));
    }
}

TAVO_CHILD_CASE(ChannelSinkUnloaded)
{
    TraceOneLine();
    ChildReport("beforeUnload", SinkCalls());
    HMODULE hSink = GetModuleHandleA("CorvDebug.dll");
    if (!hSink) return 10;
    FreeLibrary(hSink);  // the library's one reference
    ChildReport("gone", GetModuleHandleA("CorvDebug.dll") == nullptr ? 1 : 0);

    ChannelCounters counters;
    TraceOneLine();  // finds it gone: off for good
    TraceOneLine();
    if (!LoadLibraryA("CorvDebug.dll")) return 11;  // a new sibling, possibly at the old address
    TraceOneLine();
    ChildReport("afterReload", SinkCalls());
    counters.Report();
    return 0;
}

TEST(Channel, ASinkUnloadedBehindTheLibrarysBackIsNeverCalledAgain)
{
    ScratchInstall install;
    ChildResult result = install.Run("ChannelSinkUnloaded");
    ASSERT_EQ(0u, result.exitCode) << result.output;
    EXPECT_EQ("1", result.Value("beforeUnload"));
    EXPECT_EQ("1", result.Value("gone"));
    EXPECT_EQ("0", result.Value("afterReload"));
    EXPECT_EQ("1", result.Value("handleQueries")) << "after finding it gone the library asks nothing more";
    EXPECT_EQ("0", result.Value("loads")) << "no second load attempt";
    EXPECT_EQ("0", result.Value("lookups"));
}

TAVO_CHILD_CASE(ChannelLookupOverridden)
{
    // The entry is bound at run time: answer "not found" through the GetProcAddress stand-in.
    tavo::test::ScopedProcAddressOverride noOutput(Library(), "OutputA", nullptr);
    TraceOneLine();
    TraceOneLine();
    ChildReport("recorded", SinkCalls());
    return 0;
}

TEST(Channel, AMissingEntryMeansSilenceEvenWithARecorderPresent)
{
    ScratchInstall install;
    ChildResult result = install.Run("ChannelLookupOverridden");
    ASSERT_EQ(0u, result.exitCode) << result.output;
    EXPECT_EQ("0", result.Value("recorded"));
}

TEST(Channel, LinesCarryTheLibrarysPathThroughOneBuffer)
{
    tavo::test::ClearRecordedLines();
    TraceOneLine();
    TraceOneLine();
    std::vector<tavo::test::RecordedLine> lines = tavo::test::RecordedLines();
    ASSERT_EQ(2u, lines.size());
    char szLibrary[MAX_PATH], szExe[MAX_PATH];
    GetModuleFileNameA(Library(), szLibrary, MAX_PATH);
    GetModuleFileNameA(nullptr, szExe, MAX_PATH);
    EXPECT_EQ(szLibrary, lines[0].module);
    EXPECT_NE(szExe, lines[0].module);
    EXPECT_EQ(lines[0].modulePointer, lines[1].modulePointer);
    EXPECT_EQ(24u, lines[0].stamp.size()) << "a build stamp such as \"Mon Nov 23 12:00:00 2026\": " << lines[0].stamp;
}
