// Threads started for callers and their names. The naming exception is observed through
// RaiseException patched in the library's imports, and raised for real to show that the thread
// carries on.
#include <CorvDebug.h>
#include <TavoCommon.h>

#include <gtest/gtest.h>

#include <process.h>

#include <vector>

#include "ImportPatch.h"
#include "Recorder.h"

namespace {

HMODULE Library() { return tavo::test::LoadedModule("TavoCommon.dll"); }

// Each raise as code, flags, count and the words of the record.
std::vector<std::vector<ULONG_PTR>> g_raised;

void WINAPI RecordingRaiseException(DWORD code, DWORD flags, DWORD count, const ULONG_PTR* args)
{
    g_raised.push_back({code, flags, count});
    if (args) g_raised.back().insert(g_raised.back().end(), args, args + count);
}

volatile DWORD g_ranOn;

// Ends with its argument as its code.
DWORD WINAPI Work(void* pv)
{
    g_ranOn = GetCurrentThreadId();
    return static_cast<DWORD>(reinterpret_cast<uintptr_t>(pv));
}

void* const kSeven = reinterpret_cast<void*>(7);

DWORD WINAPI NamesItselfThenWorks(void* pv)
{
    Tavo::SetThreadName(GetCurrentThreadId(), "Self-named");
    return Work(pv);
}

// Waits for the thread, checks that it ran to its end, and closes its handle.
void Finish(HANDLE hThread)
{
    ASSERT_NE(nullptr, hThread);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hThread, 10000));
    DWORD dwExit = 0;
    EXPECT_TRUE(GetExitCodeThread(hThread, &dwExit) && dwExit == 7) << dwExit;
    EXPECT_EQ(GetThreadId(hThread), g_ranOn);
    CloseHandle(hThread);
}

uintptr_t __cdecl FailingBeginThreadEx(void*, unsigned, unsigned(__stdcall*)(void*), void*, unsigned, unsigned*)
{
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return 0;
}

decltype(&::RaiseException) g_realRaiseException;
bool g_resumed;

// Raises for real in the naming exception's place (Wine keeps that code itself from the thread's
// frames): the code behind the raise runs only if the frame continues execution.
void WINAPI RaisingRaiseException(DWORD, DWORD, DWORD, const ULONG_PTR*)
{
    g_realRaiseException(0xE0001388, 0, 0, nullptr);
    g_resumed = true;
}

} // namespace

TEST(Thread, OnlyNamedThreadsAreAnnouncedToTheDebugger)
{
    TAVO_PATCH_IMPORT(raise, Library(), "KERNEL32.dll", RaiseException, RecordingRaiseException);
    const char szName[] = "Indexer";
    for (const char* szThreadName : {szName, "", static_cast<const char*>(nullptr)}) {
        SCOPED_TRACE(szThreadName ? szThreadName : "(null)");
        g_raised.clear();
        HANDLE hThread = Tavo::CreateThread(szThreadName, &Work, kSeven);
        const DWORD dwShortId = GetThreadId(hThread);
        Finish(hThread);
        // Suspended, the thread is named before it runs.
        unsigned long dwId = 0xDEADBEEF;
        g_ranOn = 0;
        hThread = Tavo::CreateThread(nullptr, 0, &Work, kSeven, CREATE_SUSPENDED, &dwId, szThreadName);
        EXPECT_EQ(GetThreadId(hThread), dwId);
        EXPECT_EQ(0u, g_ranOn);
        if (szThreadName == szName) {
            // The name is the caller's, not a copy.
            const ULONG_PTR name = reinterpret_cast<ULONG_PTR>(szName);
            EXPECT_EQ(std::vector<std::vector<ULONG_PTR>>({{0x406D1388, 0, 4, 0x1000, name, dwShortId, 0},
                                                          {0x406D1388, 0, 4, 0x1000, name, dwId, 0}}),
                      g_raised);
        } else {
            EXPECT_TRUE(g_raised.empty());
        }
        ResumeThread(hThread);
        Finish(hThread);
    }
}

TEST(Thread, FailedCreationGivesNullAndIdZero)
{
    TAVO_PATCH_IMPORT(raise, Library(), "KERNEL32.dll", RaiseException, RecordingRaiseException);
    TAVO_PATCH_IMPORT(begin, Library(), "msvcrt.dll", _beginthreadex, FailingBeginThreadEx);
    g_raised.clear();
    tavo::test::ClearRecordedLines();
    unsigned long dwId = 0xDEADBEEF;
    EXPECT_EQ(nullptr, Tavo::CreateThread(nullptr, 0, &Work, nullptr, 0, &dwId, "Never"));
    EXPECT_EQ(0u, dwId);
    EXPECT_EQ(nullptr, Tavo::CreateThread("Never", &Work, nullptr));
    EXPECT_TRUE(g_raised.empty());
    const std::vector<tavo::test::RecordedLine> lines = tavo::test::RecordedLines();
    ASSERT_EQ(2u, lines.size());
    for (const tavo::test::RecordedLine& l : lines)
        EXPECT_EQ("1|Thread.cpp|Tavo::CreateThread|hThread - 8",
                  std::to_string(l.level) + "|" + l.file + "|" + l.function + "|" + l.text);
}

TEST(Thread, SetThreadNameLetsTheThreadCarryOn)
{
    // For real, with no debugger: in the creating thread and in the new one, which then does its work.
    Finish(Tavo::CreateThread("Named twice", &NamesItselfThenWorks, kSeven));

    TAVO_PATCH_IMPORT(raise, Library(), "KERNEL32.dll", RaiseException, RaisingRaiseException);
    g_realRaiseException = raise.Original<decltype(&::RaiseException)>();
    g_resumed = false;
    Tavo::SetThreadName(GetCurrentThreadId(), "Resumed");
    EXPECT_TRUE(g_resumed) << "execution goes on right behind the raise";
}
