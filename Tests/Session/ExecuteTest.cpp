// The launcher, process presence and impersonated execution. The session services are injected:
// Wine's WTSQueryUserToken hands out the caller's own token for any session id, so only injection
// makes each way fail in turn. Process creation is either recorded without starting anything or
// starts the ExitAfter.exe stand-in.
#include <TavoCommon.h>

#include <psapi.h>
#include <wtsapi32.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "ImportPatch.h"
#include "Recorder.h"

using tavo::test::LoadedModule;
using tavo::test::ScopedProcAddressOverride;

namespace {

HMODULE Library() { return LoadedModule("TavoCommon.dll"); }

// What the injected platform answers, and what it saw.
struct Platform {
    std::set<ULONG> tokenSessions;  // WTSQueryUserToken succeeds for these
    bool enumerates = true;
    std::vector<WTS_SESSION_INFOA> sessions;
    bool knowsOwnSession = true;    // WTSQuerySessionInformationA
    bool processSession = true;     // ProcessIdToSessionId
    bool shellRunning = false;      // an "Explorer.EXE" in the process list
    bool shellToken = true;         // OpenProcessToken
    bool startReal = false;         // CreateProcessAsUserA really starts, or fails with error 5
    int allocations = 0;            // WTS buffers handed out and not freed
    std::set<HANDLE> tokens;        // tokens handed out and not closed
    std::map<HMODULE, int> modules; // LoadLibraryA handles not freed
    std::vector<std::string> loads; // LoadLibraryA names
    struct Creation {
        std::string commandLine;
        DWORD flags;
        bool environment;
        std::string directory;  // "(null)" for null
        std::string desktop;
        DWORD processId;
    };
    std::vector<Creation> creations;
};
Platform* g_platform;

HANDLE OwnToken()
{
    HANDLE h = nullptr;
    EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &h));
    g_platform->tokens.insert(h);
    return h;
}

DWORD WINAPI FakeConsoleSession() { return 7; }
BOOL WINAPI FakeQueryUserToken(ULONG ulSession, PHANDLE phToken)
{
    if (!g_platform->tokenSessions.count(ulSession)) return SetLastError(ERROR_NO_TOKEN), FALSE;
    *phToken = OwnToken();
    return TRUE;
}
BOOL WINAPI FakeEnumerateSessions(HANDLE, DWORD, DWORD, PWTS_SESSION_INFOA* ppInfo, DWORD* pnCount)
{
    if (!g_platform->enumerates) return FALSE;
    const auto& s = g_platform->sessions;
    *ppInfo = static_cast<PWTS_SESSION_INFOA>(HeapAlloc(GetProcessHeap(), 0, (s.size() + 1) * sizeof(s[0])));
    std::copy(s.begin(), s.end(), *ppInfo);
    *pnCount = static_cast<DWORD>(s.size());
    ++g_platform->allocations;
    return TRUE;
}
BOOL WINAPI FakeQuerySessionInformation(HANDLE, DWORD dwSession, WTS_INFO_CLASS infoClass, LPSTR* ppBuffer,
                                        DWORD* pcb)
{
    if (!g_platform->knowsOwnSession || dwSession != WTS_CURRENT_SESSION || infoClass != WTSSessionId) return FALSE;
    *ppBuffer = static_cast<LPSTR>(HeapAlloc(GetProcessHeap(), 0, sizeof(ULONG)));
    *reinterpret_cast<ULONG*>(*ppBuffer) = 5;
    *pcb = sizeof(ULONG);
    ++g_platform->allocations;
    return TRUE;
}
void WINAPI FakeFreeMemory(PVOID pv)
{
    --g_platform->allocations;
    HeapFree(GetProcessHeap(), 0, pv);
}
BOOL WINAPI FakeProcessIdToSessionId(DWORD dwProcessId, DWORD* pdwSession)
{
    if (!g_platform->processSession || dwProcessId != GetCurrentProcessId()) return FALSE;
    *pdwSession = 9;
    return TRUE;
}
BOOL WINAPI FakeEnumProcesses(DWORD* pdwIds, DWORD cb, DWORD* pcbReturned)
{
    if (cb < 0x20000) return FALSE;
    pdwIds[0] = GetCurrentProcessId();
    *pcbReturned = sizeof(DWORD);
    return TRUE;
}
DWORD WINAPI FakeGetModuleBaseNameA(HANDLE, HMODULE, LPSTR szName, DWORD cch)
{
    return lstrcpynA(szName, g_platform->shellRunning ? "Explorer.EXE" : "other.exe", cch), lstrlenA(szName);
}
decltype(&OpenProcessToken) g_realOpenProcessToken;
BOOL WINAPI FakeOpenProcessToken(HANDLE hProcess, DWORD dwAccess, PHANDLE phToken)
{
    EXPECT_EQ(0x2000Fu, dwAccess);
    if (!g_platform->shellToken || !g_realOpenProcessToken(hProcess, TOKEN_ALL_ACCESS, phToken)) return FALSE;
    g_platform->tokens.insert(*phToken);
    return TRUE;
}
decltype(&CreateProcessAsUserA) g_realCreateProcessAsUserA;
BOOL WINAPI FakeCreateProcessAsUserA(HANDLE hToken, LPCSTR szApplication, LPSTR szCommandLine,
                                     LPSECURITY_ATTRIBUTES pProcess, LPSECURITY_ATTRIBUTES pThread, BOOL bInherit,
                                     DWORD dwFlags, LPVOID pEnvironment, LPCSTR szDirectory, LPSTARTUPINFOA pStartup,
                                     LPPROCESS_INFORMATION pInfo)
{
    EXPECT_EQ(nullptr, szApplication);
    EXPECT_EQ(68u, pStartup->cb);
    g_platform->creations.push_back({szCommandLine ? szCommandLine : "(null)", dwFlags, pEnvironment != nullptr,
                                     szDirectory ? szDirectory : "(null)", pStartup->lpDesktop, 0});
    if (!g_platform->startReal) return SetLastError(ERROR_ACCESS_DENIED), FALSE;
    const BOOL bOk = g_realCreateProcessAsUserA(hToken, szApplication, szCommandLine, pProcess, pThread, bInherit,
                                                dwFlags, pEnvironment, szDirectory, pStartup, pInfo);
    if (bOk) g_platform->creations.back().processId = pInfo->dwProcessId;
    return bOk;
}
decltype(&CloseHandle) g_realCloseHandle;
BOOL WINAPI FakeCloseHandle(HANDLE h)
{
    g_platform->tokens.erase(h);
    return g_realCloseHandle(h);
}
decltype(&LoadLibraryA) g_realLoadLibraryA;
HMODULE WINAPI FakeLoadLibraryA(LPCSTR szName)
{
    g_platform->loads.push_back(szName);
    const HMODULE h = g_realLoadLibraryA(szName);
    if (h && !strstr(szName, "CorvDebug")) ++g_platform->modules[h];
    return h;
}
decltype(&FreeLibrary) g_realFreeLibrary;
BOOL WINAPI FakeFreeLibrary(HMODULE h)
{
    if (!--g_platform->modules[h]) g_platform->modules.erase(h);
    return g_realFreeLibrary(h);
}

// The whole injected platform for one scope; checks at its end that the call left nothing behind.
class InjectedPlatform {
public:
    InjectedPlatform()
        : console_(Library(), "WTSGetActiveConsoleSessionId", FakeConsoleSession),
          query_(Library(), "WTSQueryUserToken", FakeQueryUserToken),
          enumerate_(Library(), "WTSEnumerateSessionsA", FakeEnumerateSessions),
          information_(Library(), "WTSQuerySessionInformationA", FakeQuerySessionInformation),
          free_(Library(), "WTSFreeMemory", FakeFreeMemory),
          processes_(Library(), "EnumProcesses", FakeEnumProcesses),
          baseName_(Library(), "GetModuleBaseNameA", FakeGetModuleBaseNameA)
    {
        g_platform = &platform;
        g_realOpenProcessToken = openToken_.Original<decltype(&OpenProcessToken)>();
        g_realCreateProcessAsUserA = create_.Original<decltype(&CreateProcessAsUserA)>();
        g_realCloseHandle = close_.Original<decltype(&CloseHandle)>();
        g_realLoadLibraryA = load_.Original<decltype(&LoadLibraryA)>();
        g_realFreeLibrary = unload_.Original<decltype(&FreeLibrary)>();
        tavo::test::ClearRecordedLines();
    }
    ~InjectedPlatform()
    {
        EXPECT_EQ(0, platform.allocations) << "WTS memory not freed";
        EXPECT_TRUE(platform.tokens.empty()) << platform.tokens.size() << " token(s) not closed";
        EXPECT_TRUE(platform.modules.empty()) << platform.modules.size() << " module(s) not freed";
        HANDLE hThreadToken = nullptr;
        EXPECT_FALSE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &hThreadToken));
        EXPECT_EQ(static_cast<DWORD>(ERROR_NO_TOKEN), GetLastError()) << "still impersonating";
        if (hThreadToken) {
            RevertToSelf();
            CloseHandle(hThreadToken);
        }
        g_platform = nullptr;
    }

    Platform platform;

private:
    ScopedProcAddressOverride console_, query_, enumerate_, information_, free_, processes_, baseName_;
    tavo::test::ScopedImportPatch session_{Library(), "KERNEL32.dll", "ProcessIdToSessionId", FakeProcessIdToSessionId};
    tavo::test::ScopedImportPatch openToken_{Library(), "ADVAPI32.dll", "OpenProcessToken", FakeOpenProcessToken};
    tavo::test::ScopedImportPatch create_{Library(), "ADVAPI32.dll", "CreateProcessAsUserA", FakeCreateProcessAsUserA};
    tavo::test::ScopedImportPatch close_{Library(), "KERNEL32.dll", "CloseHandle", FakeCloseHandle};
    tavo::test::ScopedImportPatch load_{Library(), "KERNEL32.dll", "LoadLibraryA", FakeLoadLibraryA};
    tavo::test::ScopedImportPatch unload_{Library(), "KERNEL32.dll", "FreeLibrary", FakeFreeLibrary};
};

// The launcher's lines: step number and text.
std::vector<std::pair<int, std::string>> Steps()
{
    std::vector<std::pair<int, std::string>> steps;
    for (const auto& line : tavo::test::RecordedLines()) {
        int n = 0;
        EXPECT_EQ(1, sscanf(line.format.c_str(), "RunAsLoggedOnUser %d - %%s.\n", &n)) << Describe(line);
        EXPECT_EQ(32u, line.level);
        EXPECT_EQ("Execute.cpp", line.file);
        EXPECT_EQ("Tavo::RunAsLoggedOnUser_2012", line.function);
        const std::string prefix = "RunAsLoggedOnUser " + std::to_string(n) + " - ";
        EXPECT_EQ(prefix + "%s.\n", line.format);
        const bool bFramed = line.text.size() >= prefix.size() + 2 &&
                             line.text.compare(0, prefix.size(), prefix) == 0 &&
                             line.text.compare(line.text.size() - 2, 2, ".\n") == 0;
        EXPECT_TRUE(bFramed) << line.text;
        steps.emplace_back(n, bFramed ? line.text.substr(prefix.size(), line.text.size() - prefix.size() - 2) : "");
    }
    return steps;
}
std::vector<int> StepNumbers()
{
    std::vector<int> numbers;
    for (const auto& step : Steps()) numbers.push_back(step.first);
    return numbers;
}

std::string TestDirectory()
{
    char sz[MAX_PATH] = {};
    GetModuleFileNameA(nullptr, sz, MAX_PATH);
    *strrchr(sz, '\\') = 0;
    return sz;
}

bool ProcessEndedWith(DWORD dwProcessId, DWORD dwExpected)
{
    HANDLE h = OpenProcess(SYNCHRONIZE | PROCESS_QUERY_INFORMATION, FALSE, dwProcessId);
    if (!h) return true;  // already gone entirely
    DWORD dwCode = STILL_ACTIVE;
    const bool bEnded = WaitForSingleObject(h, 5000) == WAIT_OBJECT_0 && GetExitCodeProcess(h, &dwCode);
    CloseHandle(h);
    return bEnded && dwCode == dwExpected;
}

WTS_SESSION_INFOA Session(DWORD dwId, WTS_CONNECTSTATE_CLASS state)
{
    return {dwId, const_cast<char*>("Console"), state};
}

} // namespace

TEST(Execute, NothingToStartTracesAndLoadsNothing)
{
    InjectedPlatform injected;
    const char* const kEmpty[][2] = {{nullptr, nullptr}, {"", ""}, {nullptr, ""}, {"", nullptr}};
    for (const auto& row : kEmpty) {
        unsigned long dwExit = 0xDEADBEEF;
        EXPECT_FALSE(Tavo::RunAsLoggedOnUser_2012(dwExit, row[0], row[1], "C:\\", INFINITE, TRUE));
        EXPECT_EQ(0u, dwExit);
    }
    EXPECT_TRUE(tavo::test::RecordedLines().empty());
    EXPECT_TRUE(injected.platform.creations.empty());
}

// Each way runs only where those before it got no token; the failing creation (error 5) ends each.
TEST(Execute, TokenWaysInTurn)
{
    struct Row {
        const char* name;
        std::set<ULONG> tokenSessions;
        bool enumerates, activeSession, knowsOwn, processSession, shell;
        std::vector<int> steps;
        bool created;
    } const rows[] = {
        {"console", {7}, true, true, true, true, false, {1, 9, 10}, true},
        {"first active", {3}, true, true, true, true, false, {1, 2, 3, 9, 10}, true},
        {"no active, own by information", {5}, true, false, true, true, false, {1, 2, 4, 5, 9, 10}, true},
        {"own by process id", {9}, false, true, false, true, false, {1, 2, 4, 6, 7, 9, 10}, true},
        {"shell token", {}, true, true, true, true, true, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, true},
        {"nothing", {}, false, false, false, false, true, {1, 2, 4, 6, 8}, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        InjectedPlatform injected;
        Platform& p = injected.platform;
        p.tokenSessions = row.tokenSessions;
        p.enumerates = row.enumerates;
        p.sessions = {Session(2, WTSDisconnected), Session(3, row.activeSession ? WTSActive : WTSListen)};
        p.knowsOwnSession = row.knowsOwn;
        p.processSession = row.processSession;
        p.shellRunning = row.shell;
        p.shellToken = row.created;  // the last row finds the shell but gets no token from it
        unsigned long dwExit = 1;
        EXPECT_FALSE(Tavo::RunAsLoggedOnUser_2012(dwExit, "C:\\Tools\\Run.exe", "-x", nullptr, INFINITE, FALSE));
        EXPECT_EQ(row.steps, StepNumbers());
        EXPECT_EQ(row.created ? 1u : 0u, p.creations.size());
    }
}

TEST(Execute, TraceTexts)
{
    InjectedPlatform injected;
    injected.platform.tokenSessions = {3};
    injected.platform.sessions = {Session(3, WTSActive)};
    unsigned long dwExit = 0;
    EXPECT_FALSE(Tavo::RunAsLoggedOnUser_2012(dwExit, "Run.exe", nullptr, nullptr, 0, TRUE));
    const auto steps = Steps();
    ASSERT_EQ(6u, steps.size());
    EXPECT_EQ(" hToken = 0x00000000 \n ulSessionId = 7 \n fnWTSQueryUserToken bRet = 0 \n"
              " lpCurrentDirectory:\"(null)\"\n lpApplicationName:\"Run.exe\"\n lpCommandLineArguments:\"(null)\"",
              steps[0].second);
    EXPECT_EQ(" ulSessionId = 3 \n fnWTSEnumerateSessionsA bRet = 1 \n ", steps[1].second);
    const std::string token = steps[2].second.substr(10, 10);
    EXPECT_EQ(" hToken = " + token + " \n ulSessionId = 3 \n fnWTSQueryUserToken bRet = 1 \n", steps[2].second);
    EXPECT_NE("0x00000000", token);
    const std::string account = " hToken = " + token + " \n Domain\\Username = ";
    EXPECT_EQ(account, steps[3].second.substr(0, account.size()));
    EXPECT_NE(std::string::npos, steps[3].second.find('\\', account.size())) << steps[3].second;
    const std::string command = " \n pzCmd = \"Run.exe\"  \n ";
    EXPECT_EQ(command, steps[3].second.substr(steps[3].second.size() - command.size()));
    EXPECT_EQ(" CreateProcessAsUser pzCmd=<\"Run.exe\" >\n bRet = 0 \n dwGLE = 0x00000005 \n ImpersonateResult_BOOL=1\n"
              " about to call WaitForSingleObject...",
              steps[4].second);
    // No process handle: the wait fails at once and "terminates".
    EXPECT_EQ(11, steps[5].first);
    EXPECT_EQ(" back from TerminateProcess \n", steps[5].second);
}

// The command line as creation gets it, and the limit of the composition buffer.
TEST(Execute, CommandLines)
{
    const std::string fits(2044, 'a'), tooLong(2045, 'a');
    struct Row {
        const char *application, *arguments, *directory;
        std::string expected;  // "" for no creation
    } const rows[] = {
        {"C:\\Program Files\\Run.exe", nullptr, "C:\\", "\"C:\\Program Files\\Run.exe\" "},
        {"Run.exe", "-a \"b c\"", nullptr, "\"Run.exe\" -a \"b c\""},
        {"", "Run.exe -a", "C:\\", "Run.exe -a"},
        {nullptr, "Run.exe", nullptr, "Run.exe"},
        {fits.c_str(), nullptr, nullptr, "\"" + fits + "\" "},
        {tooLong.c_str(), nullptr, nullptr, ""},
        {"Run.exe", tooLong.c_str(), nullptr, ""},
        {nullptr, tooLong.c_str(), nullptr, tooLong},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.expected.substr(0, 40));
        InjectedPlatform injected;
        injected.platform.tokenSessions = {7};
        unsigned long dwExit = 0;
        EXPECT_FALSE(Tavo::RunAsLoggedOnUser_2012(dwExit, row.application, row.arguments, row.directory, 0, FALSE));
        if (row.expected.empty()) {
            EXPECT_TRUE(injected.platform.creations.empty());
            continue;
        }
        ASSERT_EQ(1u, injected.platform.creations.size());
        const auto& c = injected.platform.creations[0];
        EXPECT_EQ(row.expected, c.commandLine);
        EXPECT_EQ(0x08000400u, c.flags);
        EXPECT_EQ(row.directory ? row.directory : "(null)", c.directory);
        EXPECT_EQ("winsta0\\default", c.desktop);
    }
}

// A real child: its exit code through the wait, termination at the time-out, and the plain launch
// without the user environment, which never waits.
TEST(Execute, RealChild)
{
    const std::string child = TestDirectory() + "\\ExitAfter.exe";
    const struct {
        const char* arguments;
        DWORD timeout;
        bool environment;
        unsigned long exitCode;
        DWORD endedWith;
        std::string lastText;  // line 11's text; "" where the plain launch ends with line 9
    } rows[] = {
        {"42", INFINITE, true, 42, 42, " after WaitForSingleObject GetExitCodeProcess ExitCode_DWORD = 42 \n"},
        {"42 20000", 0, true, 0, 0, " back from TerminateProcess \n"},
        {"3 300", INFINITE, false, 0, 3, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.arguments);
        InjectedPlatform injected;
        injected.platform.tokenSessions = {7};
        injected.platform.startReal = true;
        std::optional<ScopedProcAddressOverride> noProfile;
        if (!row.environment) noProfile.emplace(Library(), "LoadUserProfileA", nullptr);
        unsigned long dwExit = 1;
        EXPECT_TRUE(Tavo::RunAsLoggedOnUser_2012(dwExit, child.c_str(), row.arguments, nullptr, row.timeout, TRUE));
        EXPECT_EQ(row.exitCode, dwExit);
        const auto steps = Steps();
        ASSERT_FALSE(steps.empty());
        EXPECT_EQ(row.lastText.empty() ? 9 : 11, steps.back().first);
        EXPECT_TRUE(row.lastText.empty() || row.lastText == steps.back().second) << steps.back().second;
        ASSERT_EQ(1u, injected.platform.creations.size());
        EXPECT_EQ(row.environment ? 0x08000400u : 0x08000000u, injected.platform.creations[0].flags);
        EXPECT_EQ(row.environment, injected.platform.creations[0].environment);
        EXPECT_TRUE(ProcessEndedWith(injected.platform.creations[0].processId, row.endedWith));
    }
}

// Without a module named corvtask.exe the enumeration library is looked for beside the program first.
TEST(Execute, EnumerationLibraryBesideTheProgramFirst)
{
    InjectedPlatform injected;
    unsigned long dwExit = 0;
    EXPECT_FALSE(Tavo::RunAsLoggedOnUser_2012(dwExit, "Run.exe", nullptr, nullptr, 0, FALSE));
    const std::vector<std::string> expected = {"WTSAPI32.DLL", "KERNEL32.DLL", TestDirectory() + "\\psapi.dll",
                                               "psapi.dll"};
    EXPECT_EQ(expected, injected.platform.loads);
}

TEST(Processes, IsProgramRunning)
{
    char szSelf[MAX_PATH] = {};
    GetModuleFileNameA(nullptr, szSelf, MAX_PATH);
    std::string self = strrchr(szSelf, '\\') + 1;
    std::transform(self.begin(), self.end(), self.begin(), ::toupper);
    EXPECT_EQ(1, Tavo::IsProgramRunningA(self.c_str()));
    EXPECT_EQ(0, Tavo::IsProgramRunningW(L"NoSuchProgram.exe"));
    EXPECT_EQ(0, Tavo::IsProgramRunningW(L"TavoProcessTests"));  // the extension belongs to the name
    EXPECT_EQ(0, Tavo::IsProgramRunningW(nullptr));

    // Wine has no process with id 0: the idle process comes from an injected list.
    struct Idle {
        static BOOL WINAPI Fake(DWORD* pdwIds, DWORD cb, DWORD* pcbReturned)
        {
            EXPECT_EQ(4096u, cb);
            pdwIds[0] = 0;
            *pcbReturned = sizeof(DWORD);
            return TRUE;
        }
    };
    TAVO_PATCH_IMPORT(idle, Library(), "PSAPI.DLL", EnumProcesses, Idle::Fake);
    EXPECT_EQ(1, Tavo::IsProgramRunningW(L"system idle process"));
    EXPECT_EQ(1, Tavo::IsProgramRunningA("System Idle Process"));
}

TEST(Processes, ImpersonatedExecution)
{
    const std::string child = TestDirectory() + "\\ExitAfter.exe";
    InjectedPlatform injected;
    injected.platform.tokenSessions = {7};
    EXPECT_EQ(0u, Tavo::UseImpersonateToExecuteProcessAndWaitW(nullptr, nullptr, INFINITE, TRUE));
    EXPECT_EQ(0u, Tavo::UseImpersonateToExecuteProcessAndWaitA("", "", INFINITE, TRUE));
    EXPECT_TRUE(injected.platform.creations.empty());

    // 511 bytes and the terminator fill a buffer exactly; one more starts nothing.
    const std::string fits(511, 'p'), tooLong(512, 'p');
    EXPECT_EQ(0u, Tavo::UseImpersonateToExecuteProcessAndWaitA(tooLong.c_str(), nullptr, INFINITE, FALSE));
    EXPECT_EQ(0u, Tavo::UseImpersonateToExecuteProcessAndWaitA("Run.exe", tooLong.c_str(), INFINITE, FALSE));
    EXPECT_TRUE(injected.platform.creations.empty());
    EXPECT_EQ(0u, Tavo::UseImpersonateToExecuteProcessAndWaitA(fits.c_str(), nullptr, INFINITE, FALSE));
    ASSERT_EQ(1u, injected.platform.creations.size());
    EXPECT_EQ("\"" + fits + "\" ", injected.platform.creations[0].commandLine);
    EXPECT_EQ(Tavo::GetInstallDirectoryA(), injected.platform.creations[0].directory);

    injected.platform.startReal = true;
    const std::wstring wideChild(child.begin(), child.end());
    EXPECT_EQ(17u, Tavo::UseImpersonateToExecuteProcessAndWaitW(wideChild.c_str(), L"17", INFINITE, TRUE));
    EXPECT_EQ(0u, Tavo::UseImpersonateToExecuteProcessAndWaitA(child.c_str(), "17", INFINITE, FALSE));
    ASSERT_EQ(3u, injected.platform.creations.size());
    EXPECT_TRUE(ProcessEndedWith(injected.platform.creations[2].processId, 17));
}
