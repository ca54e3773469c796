// The session family. Whatever would act on the machine is injected through import patches.
#include <TavoCommon.h>

#include <psapi.h>
#include <wtsapi32.h>

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "ImportPatch.h"
#include "Recorder.h"
#include "StandIns/ComServer.h"

using Lines = std::vector<std::string>;
using namespace tavo::test;

namespace {

std::string Hex(unsigned long n, const char* f = "0x%08lX") { char sz[16]; return std::string(sz, snprintf(sz, 16, f, n)); }
std::string Installed() { return Tavo::GetInstallDirectoryA(); }  // the library lies beside the tests
std::string Here() { char sz[MAX_PATH]; return std::string(sz, GetCurrentDirectoryA(MAX_PATH, sz)); }
// "level|function|text" of the lines of that file since the last clear, which it clears.
Lines Recorded(const char* szFile)
{
    Lines lines;
    for (const RecordedLine& l : RecordedLines())
        if (l.file == szFile) lines.push_back(Brief(l));
    return ClearRecordedLines(), lines;
}

// The launcher's platform (Wine's own gives any session a token): what it answers, creation for real or
// failing with 5, and what it saw, a creation as "command|dir|flags[+env]".
struct Platform {
    ULONG tokenFor;
    bool enumerates = true, active = true, information = true, processSession = true, shell = false, shellToken = true, startReal = false;
    int wtsBlocks = 0, modules = 0;
    std::vector<HANDLE> tokens = {};  // handed out; each must be closed at the end
    std::vector<DWORD> processIds = {};
    Lines loads = {}, creations = {};
} g;
WTS_SESSION_INFOA g_sessions[] = {{2, nullptr, WTSDisconnected}, {3, nullptr, WTSActive}};
ULONG g_ownSession = 5;

BOOL Kept(BOOL bOk, HANDLE* ph) { return bOk && (g.tokens.push_back(*ph), true); }  // a wrong size or mask gets nothing
DWORD WINAPI Console() { return 7; }
BOOL WINAPI UserToken(ULONG ul, PHANDLE ph) { return ul == g.tokenFor && Kept(OpenProcessToken(GetCurrentProcess(), MAXIMUM_ALLOWED, ph), ph); }
BOOL WINAPI Sessions(HANDLE, DWORD, DWORD, PWTS_SESSION_INFOA* pp, DWORD* pn) { return g.enumerates && (*pp = g_sessions, *pn = 2, ++g.wtsBlocks); }
BOOL WINAPI OwnSession(HANDLE, DWORD dwSession, WTS_INFO_CLASS info, LPSTR* pp, DWORD* pcb)
{
    return g.information && dwSession == WTS_CURRENT_SESSION && info == WTSSessionId &&
           (*pp = reinterpret_cast<LPSTR>(&g_ownSession), *pcb = sizeof(ULONG), ++g.wtsBlocks);
}
void WINAPI FreeMemory(PVOID) { --g.wtsBlocks; }
BOOL WINAPI ProcessSession(DWORD dwId, DWORD* pdw) { return g.processSession && dwId == GetCurrentProcessId() && (*pdw = 9, true); }
BOOL WINAPI List(DWORD* pdw, DWORD cb, DWORD* pcb) { return cb == 0x20000 && (*pdw = GetCurrentProcessId(), *pcb = 4, true); }
DWORD WINAPI BaseName(HANDLE, HMODULE, LPSTR sz, DWORD cch) { return lstrlenA(lstrcpynA(sz, g.shell ? "Explorer.EXE" : "x", cch)); }
BOOL WINAPI ShellToken(HANDLE h, DWORD dw, PHANDLE ph) { return dw == 0x2000F && g.shellToken && Kept(OpenProcessToken(h, dw, ph), ph); }
BOOL WINAPI Account(LPCSTR, PSID, LPSTR szName, LPDWORD pcchName, LPSTR szDomain, LPDWORD pcchDomain, PSID_NAME_USE)
{
    return *pcchName == 0x100 && *pcchDomain == 0x100 && lstrcpyA(szName, "user") && lstrcpyA(szDomain, "HOST");
}
BOOL WINAPI Create(HANDLE hToken, LPCSTR szApplication, LPSTR szCommandLine, LPSECURITY_ATTRIBUTES pProcess,
                   LPSECURITY_ATTRIBUTES pThread, BOOL bInherit, DWORD dwFlags, LPVOID pEnvironment, LPCSTR szDirectory,
                   LPSTARTUPINFOA pStartup, LPPROCESS_INFORMATION pInfo)
{
    EXPECT_TRUE(!szApplication && pStartup->cb == 68 && !strcmp(pStartup->lpDesktop, "winsta0\\default"));
    g.creations.push_back(std::string(szCommandLine) + "|" + (szDirectory ? szDirectory : "(null)") + "|" + Hex(dwFlags, "%lx") +
                          (pEnvironment ? "+env" : ""));
    if (!g.startReal) return SetLastError(ERROR_ACCESS_DENIED), FALSE;
    const BOOL bOk = CreateProcessAsUserA(hToken, nullptr, szCommandLine, pProcess, pThread, bInherit, dwFlags, pEnvironment, szDirectory,
                              pStartup, pInfo);
    return g.processIds.push_back(pInfo->dwProcessId), bOk;
}
HMODULE WINAPI Load(LPCSTR sz) { const HMODULE h = LoadLibraryA(sz); return g.loads.push_back(sz), g.modules += h && !strstr(sz, "CorvDebug"), h; }
BOOL WINAPI Free(HMODULE h) { return --g.modules, FreeLibrary(h); }

// The platform for one scope; at its end, checks that the calls left nothing behind.
struct InjectedPlatform {
    explicit InjectedPlatform(const Platform& platform)
    {
        g = platform, g_sessions[1].State = g.active ? WTSActive : WTSListen, ClearRecordedLines();
    }
    ~InjectedPlatform()
    {
        HANDLE hToken = nullptr;
        for (HANDLE h : g.tokens) EXPECT_FALSE(GetHandleInformation(h, reinterpret_cast<DWORD*>(&hToken))) << "token left open";
        EXPECT_EQ("0 WTS blocks, 0 modules", std::to_string(g.wtsBlocks) + " WTS blocks, " + std::to_string(g.modules) + " modules");
        EXPECT_FALSE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &hToken)) << "still impersonating";
    }
    HMODULE l_ = Library();
    ScopedProcAddressOverride bound_[7] = {{l_, "WTSGetActiveConsoleSessionId", Console}, {l_, "WTSQueryUserToken", UserToken},
        {l_, "WTSEnumerateSessionsA", Sessions}, {l_, "WTSQuerySessionInformationA", OwnSession}, {l_, "WTSFreeMemory", FreeMemory},
        {l_, "EnumProcesses", List}, {l_, "GetModuleBaseNameA", BaseName}};
    ScopedImportPatch session_{l_, "KERNEL32.dll", "ProcessIdToSessionId", ProcessSession},
        open_{l_, "ADVAPI32.dll", "OpenProcessToken", ShellToken}, account_{l_, "ADVAPI32.dll", "LookupAccountSidA", Account},
        create_{l_, "ADVAPI32.dll", "CreateProcessAsUserA", Create}, load_{l_, "KERNEL32.dll", "LoadLibraryA", Load},
        free_{l_, "KERNEL32.dll", "FreeLibrary", Free};
};

// The launcher's line numbers since the last clear ("1 9 10") and texts, each line's frame checked.
std::string Steps(Lines* texts = nullptr)
{
    std::string numbers;
    for (const RecordedLine& l : RecordedLines()) {
        const std::string n = std::to_string(atoi(l.format.c_str() + std::min<size_t>(18, l.format.size())));
        EXPECT_EQ("32|Execute.cpp|Tavo::RunAsLoggedOnUser_2012|RunAsLoggedOnUser " + n + " - %s.\n",
                  std::to_string(l.level) + "|" + l.file + "|" + l.function + "|" + l.format);
        numbers += (numbers.empty() ? "" : " ") + n;
        if (texts) texts->push_back(l.text);
    }
    return numbers;
}

DWORD g_version[2];
BOOL WINAPI Version(LPOSVERSIONINFOA p) { return p->dwMajorVersion = g_version[0], p->dwMinorVersion = g_version[1], p->dwPlatformId = 2; }
Tavo::METRO_TOAST_APP_EXIT_CODES_ENUM (*const kToasts[])() = {  // for the child to make and the parent to expect
    [] { return Tavo::ShowMetroToastIfWin8orNewerW(1, L"Info", L"C:\\i.png", L"One", L"Two", L"Three", 0); },
    [] { return Tavo::ShowMetroToastIfWin8orNewerA(2, "Warn", nullptr, "", nullptr, nullptr, 0); },
    [] { return Tavo::ShowMetroToastIfWin8orNewerA(0, nullptr, "i", "One", nullptr, nullptr, 1); },
    [] { return Tavo::ShowMetroToastIfWin8orNewerW(0, nullptr, nullptr, nullptr, nullptr, nullptr, 1); },
    [] { return Tavo::ShowMetroToastIfWin8orNewerW(0, L"Info", nullptr, nullptr, L"Two", nullptr, 1); },
    [] { return Tavo::ShowMetroToastIfWin8orNewerA(0, "Info", nullptr, "One", nullptr, "3", 1); },
    [] { return Tavo::ShowMetroToastIfWin8orNewerA(1, "Info", nullptr, std::string(600, 'x').c_str(), nullptr, nullptr, 1); }};  // past 512 bytes

int g_failingStep;  // 1 OpenProcessToken, 2 LookupPrivilegeValueA
DWORD g_exitError;  // the platform's shutdown fails with it, or succeeds when 0xFFFFFFFF
std::vector<unsigned long> g_exitCalls;
BOOL Step(int nStep, DWORD dwError) { return g_failingStep == nStep ? (SetLastError(dwError), FALSE) : TRUE; }
BOOL WINAPI OpenToken(HANDLE h, DWORD dw, PHANDLE ph) { return Step(1, ERROR_ACCESS_DENIED) && OpenProcessToken(h, dw, ph); }
BOOL WINAPI Lookup(LPCSTR, LPCSTR, PLUID) { return Step(2, ERROR_NO_SUCH_PRIVILEGE); }
BOOL WINAPI Exit(UINT u, DWORD dw) { return g_exitCalls.insert(g_exitCalls.end(), {u, dw}), SetLastError(g_exitError), g_exitError == ~0u; }
DWORD WINAPI Restore(HWND hwnd, LPCWSTR szDevice, BOOL fUseUI) { return hwnd || fUseUI ? 0 : szDevice[0]; }  // each its own answer
std::map<HWND, int> g_asked;
LRESULT CALLBACK Answering(HWND hWnd, UINT uMsg, WPARAM wParam, LPARAM lParam)
{
    if (uMsg != RegisterWindowMessageA("Tavo::WM_ISMAINAPPWINDOW")) return DefWindowProcA(hWnd, uMsg, wParam, lParam);
    return ++g_asked[hWnd], GetWindowLongPtrA(hWnd, GWLP_USERDATA);
}

std::vector<std::vector<ULONG_PTR>> g_raised;  // each raise as code, flags, count and the record's words
void WINAPI Raise(DWORD code, DWORD flags, DWORD n, const ULONG_PTR* p) { g_raised.push_back({code, flags, n, p[0], p[1], p[2], p[3]}); }
// Raises for real in the naming exception's place (Wine keeps that code): the clear needs the frame to go on.
void WINAPI RaiseForReal(DWORD, DWORD, DWORD, const ULONG_PTR*) { RaiseException(0xE0001388, 0, 0, nullptr), g_raised.clear(); }
DWORD WINAPI Work(void* pv) { return static_cast<DWORD>(reinterpret_cast<UINT_PTR>(pv)); }
DWORD Ended(HANDLE h) { DWORD dw = WaitForSingleObject(h, 10000); return GetExitCodeThread(h, &dw), CloseHandle(h), dw; }

Lines g_loads;  // "name@current directory"
HMODULE WINAPI LoadW(LPCWSTR sz) { return g_loads.push_back(std::string(Tavo::CStringA(sz)) + "@" + Here()), LoadLibraryW(sz); }

} // namespace

// Each way to a token runs only where those before it got none. Nothing to start gives no line and loads
// nothing; a command line beyond the 2,048-byte buffer is refused after line 9, not cut. A creation is
// "command line|directory", "" for none. Without a module corvtask.exe, psapi.dll is sought beside the program.
TEST(Execute, TokenWaysAndCommandLines)
{
    const std::string fits(2044, 'a'), tooLong(2045, 'a'), run = "\"Run.exe\" -x|(null)";
    const struct { Platform platform; const char *application, *arguments, *directory, *steps; std::string creation; } rows[] = {
        {{3}, "Run.exe", "-x", nullptr, "1 2 3 9 10", run},                          // the first active session
        {{5, true, false}, "Run.exe", "-x", nullptr, "1 2 4 5 9 10", run},           // none active: the own one
        {{9, false, true, false}, "Run.exe", "-x", nullptr, "1 2 4 6 7 9 10", run},  // the own one by its id
        {{7}, nullptr, nullptr, "C:\\", "", ""}, {{7}, "", "", "C:\\", "", ""}, {{7}, nullptr, "", nullptr, "", ""},
        {{7}, "", nullptr, nullptr, "", ""}, {{7}, "", "Run.exe -a", "C:\\", "1 9 10", "Run.exe -a|C:\\"},
        {{7}, "C:\\Program Files\\Run.exe", nullptr, "C:\\", "1 9 10", "\"C:\\Program Files\\Run.exe\" |C:\\"},
        {{7}, "Run.exe", "-a \"b c\"", nullptr, "1 9 10", "\"Run.exe\" -a \"b c\"|(null)"}, {{7}, nullptr, "Run.exe", nullptr, "1 9 10", "Run.exe|(null)"},
        {{7}, fits.c_str(), nullptr, nullptr, "1 9 10", "\"" + fits + "\" |(null)"}, {{7}, tooLong.c_str(), nullptr, nullptr, "1 9", ""},
        {{7}, "Run.exe", tooLong.c_str(), nullptr, "1 9", ""}, {{7}, nullptr, tooLong.c_str(), nullptr, "1 9 10", tooLong + "|(null)"},
        {{0, false, false, false, false, true, false}, "Run.exe", "-x", nullptr, "1 2 4 6 8", ""},  // the shell gives none
    };
    for (const auto& row : rows) {
        InjectedPlatform injected(row.platform);
        unsigned long dwExit = 0xDEADBEEF;
        EXPECT_FALSE(Tavo::RunAsLoggedOnUser_2012(dwExit, row.application, row.arguments, row.directory, INFINITE, FALSE));
        EXPECT_EQ(std::string(row.steps) + (*row.steps ? "+" : ""), Steps() + (g.loads.empty() ? "" : "+") + Hex(dwExit, ""));
        EXPECT_EQ(row.creation.empty() ? Lines() : Lines{row.creation + "|8000400+env"}, g.creations) << row.steps;
    }
    EXPECT_EQ(Lines({"WTSAPI32.DLL", "KERNEL32.DLL", Installed() + "\\psapi.dll", "psapi.dll"}), g.loads);
}

// Every way down to the shell's token, and every text; without a process the wait fails at once.
TEST(Execute, TraceTexts)
{
    InjectedPlatform injected({0, true, true, true, true, true});
    unsigned long dwExit = 0;
    EXPECT_FALSE(Tavo::RunAsLoggedOnUser_2012(dwExit, "Run.exe", nullptr, nullptr, 0, TRUE));
    Lines t;
    EXPECT_EQ("1 2 3 4 5 6 7 8 9 10 11", Steps(&t));
    const std::string s = "RunAsLoggedOnUser ", token = Hex(reinterpret_cast<UINT_PTR>(g.tokens.at(0)));
    const auto query = [&](char n, char c) { return s + n + " -  hToken = 0x00000000 \n ulSessionId = " + c + " \n fnWTSQueryUserToken bRet = 0 \n"; };
    const auto found = [&](char n, const char* szWhat) { return s + n + " -  ulSessionId = " + szWhat + " bRet = 1 \n .\n"; };
    EXPECT_EQ(0u, t[7].find(s + "8 -  hToken = " + token + " \n hProcess = 0x")) << t[7];
    EXPECT_EQ(Lines({query('1', '7') + " lpCurrentDirectory:\"(null)\"\n lpApplicationName:\"Run.exe\"\n lpCommandLineArguments:\"(null)\".\n",
                     found('2', "3 \n fnWTSEnumerateSessionsA"), query('3', '3') + ".\n", found('4', "5 \n fnWTSQuerySessionInformationA"),
                     query('5', '5') + ".\n", found('6', "9 \n ProcessIdToSessionId"), query('7', '9') + ".\n",
                     t[7].substr(0, 66) + " \n OpenProcessToken bRet = 1 \n.\n",
                     s + "9 -  hToken = " + token + " \n Domain\\Username = HOST\\user \n pzCmd = \"Run.exe\"  \n .\n",
                     s + "10 -  CreateProcessAsUser pzCmd=<\"Run.exe\" >\n bRet = 0 \n dwGLE = 0x00000005 \n ImpersonateResult_BOOL=1\n"
                         " about to call WaitForSingleObject....\n", s + "11 -  back from TerminateProcess \n.\n"}),
              t);
}

// Real children: the exit code through the wait (by the wide front, in the install directory), the time-out,
// the plain launch without the user environment. 512 bytes do not fit the front's buffers.
TEST(Execute, RealChildrenAndTheWideFront)
{
    const std::string child = Installed() + "\\ExitAfter.exe", fits(511, 'p'), tooLong(512, 'p');
    InjectedPlatform injected({7, true, true, true, true, false, true, true});
    EXPECT_EQ(0u, Tavo::UseImpersonateToExecuteProcessAndWaitW(nullptr, nullptr, INFINITE, TRUE) +
                      Tavo::UseImpersonateToExecuteProcessAndWaitA(tooLong.c_str(), nullptr, INFINITE, FALSE) +
                      Tavo::UseImpersonateToExecuteProcessAndWaitA("Run.exe", tooLong.c_str(), INFINITE, FALSE) +
                      Tavo::UseImpersonateToExecuteProcessAndWaitA(fits.c_str(), nullptr, INFINITE, FALSE));
    EXPECT_EQ(42u, Tavo::UseImpersonateToExecuteProcessAndWaitW(Tavo::CStringW(child.c_str()), L"42", INFINITE, TRUE));
    unsigned long dwExit = 1;
    EXPECT_TRUE(Tavo::RunAsLoggedOnUser_2012(dwExit, child.c_str(), "42 20000", nullptr, 0, TRUE) && dwExit == 0) << dwExit;
    ScopedProcAddressOverride noProfile(Library(), "LoadUserProfileA", nullptr);
    EXPECT_TRUE(Tavo::RunAsLoggedOnUser_2012(dwExit = 1, child.c_str(), "3 300", nullptr, INFINITE, TRUE) && dwExit == 0) << dwExit;
    Lines t;
    EXPECT_EQ("1 9 10 1 9 10 11 1 9 10 11 1 9", Steps(&t));
    EXPECT_EQ("RunAsLoggedOnUser 11 -  after WaitForSingleObject GetExitCodeProcess ExitCode_DWORD = 42 \n.\n", t[6]);
    EXPECT_EQ("RunAsLoggedOnUser 11 -  back from TerminateProcess \n.\n", t[10]);
    const std::string quoted = "\"" + child + "\" ";
    EXPECT_EQ(Lines({"\"" + fits + "\" |" + Installed() + "|8000400+env", quoted + "42|" + Installed() + "|8000400+env",
                     quoted + "42 20000|(null)|8000400+env", quoted + "3 300|(null)|8000000"}),
              g.creations);
    const HANDLE h = OpenProcess(SYNCHRONIZE | PROCESS_QUERY_INFORMATION, FALSE, g.processIds.at(2));  // gone, or ended with 0
    DWORD dwCode = 0;
    EXPECT_TRUE(!h || (!WaitForSingleObject(h, 5000) && GetExitCodeProcess(h, &dwCode) && CloseHandle(h) && !dwCode)) << dwCode;
    EXPECT_EQ(1, Tavo::IsProgramRunningA(CharUpperA(strrchr(_pgmptr, '\\') + 1)));  // the whole name, extension and all
    EXPECT_EQ(0, Tavo::IsProgramRunningW(L"TavoProcessTests") + Tavo::IsProgramRunningW(nullptr));
}

TAVO_CHILD_CASE(Toasts)  // args: the system's major and minor version; reports "N" as "result|creation" per row
{
    g_version[0] = std::stoul(ChildArgs().at(0)), g_version[1] = std::stoul(ChildArgs().at(1));
    TAVO_PATCH_IMPORT(version, Library(), "KERNEL32.dll", GetVersionExA, Version);
    InjectedPlatform injected({7});
    for (int nRow = 0; nRow < 7; ++nRow, g.creations.clear()) {
        const std::string result = std::to_string(kToasts[nRow]()) + "|";
        ChildReport(std::to_string(nRow), g.creations.empty() ? result : result + g.creations[0]);
    }
    return 0;
}

// Windows 8 shows; 7 and the unknown 10.0 are too old for every call.
TEST(Toast, CommandLinesByVersion)
{
    ScratchInstall install;
    install.WriteFile("Product.cfg", "[Config]\r\nCompany=Acme\r\nShortcutName=Acme Tool.lnk\r\n");
    const std::string head = "0|\"" + install.Path() + "\\MetroToast.exe\"  \"CompanyName=Acme\" \"ShortcutFileBaseName=Acme Tool\"",
                      tail = "|" + install.Path() + "|8000400+env";
    const std::string expected[] = {head + " Duration=long Type=Info \"Image=C:\\i.png\" \"Line1=One\" \"Line2=Two\" \"Line3=Three\"" + tail,
                                    head + " Duration=short Type=Warn \"Line1=\"" + tail, "6|", "6|", "8|",
                                    head + " Duration=short Type=Info \"Line1=One\" \"Line3=3\"" + tail, "0|"};
    for (const auto& version : {Lines{"6", "2"}, Lines{"6", "1"}, Lines{"10", "0"}}) {
        const ChildResult r = install.Run("Toasts", version);
        for (int nRow = 0; nRow < 7; ++nRow)
            EXPECT_EQ(version[1] == "2" ? expected[nRow] : "12|", r.Value(std::to_string(nRow))) << version[0] << r.output;
    }
}

// The real tool takes the library's command line one argument per key, logs it whole, and refuses what it must.
TEST(Toast, TheToolTakesOneArgumentPerKey)
{
    ScratchInstall install;
    install.CopyFile("MetroToast.exe", "MetroToast.exe");
    install.WriteFile("MetroToast.log", "");
    OSVERSIONINFOW ovi = {};
    ovi.dwOSVersionInfoSize = sizeof(ovi);
    ASSERT_TRUE(GetVersionExW(&ovi));  // the tool asks the platform itself: 6.2 and newer show
    const DWORD shown = ovi.dwMajorVersion > 6 || (ovi.dwMajorVersion == 6 && ovi.dwMinorVersion >= 2) ? 0 : 12;
    const struct { const char* arguments; DWORD code; } rows[] = {
        {"  \"CompanyName=Acme\" \"ShortcutFileBaseName=Acme Tool\" Duration=long Type=Info \"Line1=One two\" \"Line3=3\"", shown},
        {" Duration=short \"Line1=a\"", 6}, {" Duration=short Type=Info", 8}, {" Type=Info \"Line1=a\" Colour=red", 2},
        {" Duration=medium Type=Info \"Line1=a\"", 3}};
    std::string expected;
    for (const auto& [arguments, code] : rows) {
        std::string commandLine = "\"" + install.Path() + "\\MetroToast.exe\"" + arguments;
        STARTUPINFOA si = {};
        si.cb = sizeof(si);
        PROCESS_INFORMATION pi = {};
        ASSERT_TRUE(CreateProcessA(nullptr, commandLine.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr, &si, &pi));
        DWORD dwCode = ~0u;
        if (WaitForSingleObject(pi.hProcess, 30000)) TerminateProcess(pi.hProcess, ~0u);
        GetExitCodeProcess(pi.hProcess, &dwCode);
        CloseHandle(pi.hThread), CloseHandle(pi.hProcess);
        EXPECT_EQ(code, dwCode) << arguments;
        expected += std::to_string(code) + "\t" + commandLine + "\r\n";
    }
    std::ifstream log(install.Path() + "\\MetroToast.log", std::ios::binary);
    EXPECT_EQ(expected, std::string(std::istreambuf_iterator<char>(log), {}));
}

// The privilege steps are soft checks (the token is left alone); the platform's call follows anyway.
TEST(Shell, ExitWindowsExTakesThePrivilegeAsBestEffortAndAlwaysAsksThePlatform)
{
    TAVO_PATCH_IMPORT(open, Library(), "ADVAPI32.dll", OpenProcessToken, OpenToken);
    TAVO_PATCH_IMPORT(lookup, Library(), "ADVAPI32.dll", LookupPrivilegeValueA, Lookup);
    TAVO_PATCH_IMPORT(exit, Library(), "USER32.dll", ExitWindowsEx, Exit);
    const std::string failed = "128|Tavo::ExitWindowsEx|FAILURE: ::ExitWindowsEx(uFlags, dwReason) - ", soft = "1|Tavo::ExitWindowsEx|";
    const struct { int failingStep; DWORD exitError; HRESULT expected; Lines lines; } rows[] = {
        {1, ~0u, S_OK, {soft + "bResult = OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &hToken) - 5"}},
        {2, ERROR_PRIVILEGE_NOT_HELD, HRESULT(0x80070522),
         {soft + "bResult = LookupPrivilegeValue(NULL, _T(\"SeShutdownPrivilege\"), &tp.Privileges[0].Luid) - 1313", failed + "0x80070522"}}};
    for (const auto& row : rows) {
        g_failingStep = row.failingStep, g_exitError = row.exitError, g_exitCalls.clear();
        EXPECT_EQ(row.expected, Tavo::ExitWindowsEx(EWX_LOGOFF | EWX_FORCE, 0x80020003)) << row.failingStep;
        EXPECT_EQ(row.lines, Recorded("Shell.cpp"));
        EXPECT_EQ(std::vector<unsigned long>({EWX_LOGOFF | EWX_FORCE, 0x80020003}), g_exitCalls);
    }
}

// Every letter is tried, mapped or not, and told with its answer.
TEST(Shell, NetRestoreAllConnectionsTriesEveryDriveLetter)
{
    ScopedProcAddressOverride entry(Library(), "WNetRestoreSingleConnectionW", &Restore);
    EXPECT_EQ(S_OK, Tavo::NetRestoreAllConnections());
    Lines expected;
    for (char c = 'A'; c <= 'Z'; ++c)
        expected.push_back("32|Tavo::NetRestoreAllConnections|WNetRestoreSingleConnectionW(" + (c + (":) returned " + std::to_string(c))));
    EXPECT_EQ(expected, Recorded("Shell.cpp"));
}

// Both corners convert (the client area starts at 120,80); an invalid window is told, then left alone.
TEST(Shell, RectangleConversionsTakeBothCornersOrNone)
{
    const HWND hWnd = CreateWindowExA(0, "STATIC", "", WS_POPUP, 120, 80, 300, 200, nullptr, nullptr, nullptr, nullptr);
    RECT rc[] = {{5, 6, 50, 60}, {5, 6, 50, 60}, {5, 6, 50, 60}, {5, 6, 50, 60}};
    EXPECT_EQ(2, Tavo::ClientToScreen(hWnd, &rc[0]) + Tavo::ScreenToClient(hWnd, &rc[1]) + Tavo::ClientToScreen(hWnd, nullptr) +
                     Tavo::ClientToScreen(HWND(0x0BADF00D), &rc[2]) + Tavo::ScreenToClient(HWND(0x0BADF00D), &rc[3]));
    EXPECT_EQ(std::vector<LONG>({125, 86, 170, 140, -115, -74, -70, -20, 5, 6, 50, 60, 5, 6, 50, 60}), std::vector<LONG>(&rc[0].left, &rc[4].left));
    EXPECT_EQ(Lines({"1|Tavo::ClientToScreen|::IsWindow(hWnd) - 1400", "1|Tavo::ScreenToClient|::IsWindow(hWnd) - 1400"}), Recorded("Shell.cpp"));
    DestroyWindow(hWnd);
}

// The first window of a class holding "HwndWrapper" (that case) to answer non-zero wins. The stand-ins,
// of this thread, answer their user data; newest first, the silent one is asked before the main one.
TEST(Shell, MainAppWindowIsTheFirstWrapperThatAnswers)
{
    const std::pair<const char*, LONG_PTR> kinds[] = {{"Tavo.Test.hwndwrapper[Case;;1]", 1}, {"Tavo.Test.Other", 1},
        {"Tavo.Test.HwndWrapper[Late;;2]", 1}, {"Tavo.Test.HwndWrapper[Main;;3]", 1}, {"Tavo.Test.HwndWrapper[Silent;;4]", 0}};
    HWND w[5];
    for (int i = 0; i < 5; ++i) {
        const WNDCLASSA wc = {0, &Answering, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr, kinds[i].first};
        RegisterClassA(&wc);
        w[i] = CreateWindowExA(0, kinds[i].first, "", WS_POPUP, 0, 0, 9, 9, nullptr, nullptr, nullptr, nullptr);
        SetWindowLongPtrA(w[i], GWLP_USERDATA, kinds[i].second);
        EXPECT_EQ(i < 2 ? nullptr : w[std::min(i, 3)], Tavo::GetMainAppWindow()) << i;
    }
    EXPECT_EQ((std::map<HWND, int>{{w[2], 1}, {w[3], 2}, {w[4], 1}}), g_asked);
    for (int i = 0; i < 5; ++i) DestroyWindow(w[i]), UnregisterClassA(kinds[i].first, nullptr);
}

// Both forms name the thread before it runs (the second starts suspended); no name, no announcement.
TEST(Thread, OnlyNamedThreadsAreAnnouncedToTheDebugger)
{
    TAVO_PATCH_IMPORT(raise, Library(), "KERNEL32.dll", RaiseException, Raise);
    const char szName[] = "Indexer";  // the caller's, not a copy
    const ULONG_PTR name = reinterpret_cast<ULONG_PTR>(szName);
    for (const char* szThreadName : {szName, "", static_cast<const char*>(nullptr)}) {
        g_raised.clear();
        unsigned long dwId = 0xDEADBEEF;
        const HANDLE hFirst = Tavo::CreateThread(szThreadName, &Work, reinterpret_cast<void*>(7)),
                     hSecond = Tavo::CreateThread(nullptr, 0, &Work, reinterpret_cast<void*>(7), CREATE_SUSPENDED, &dwId, szThreadName);
        EXPECT_EQ(GetThreadId(hSecond), dwId);
        EXPECT_EQ(szThreadName != szName ? decltype(g_raised)()
                                         : decltype(g_raised)({{0x406D1388, 0, 4, 0x1000, name, GetThreadId(hFirst), 0},
                                                               {0x406D1388, 0, 4, 0x1000, name, dwId, 0}}), g_raised);
        ResumeThread(hSecond);
        EXPECT_EQ("7 7", std::to_string(Ended(hFirst)) + " " + std::to_string(Ended(hSecond)));  // both ran their work
    }
    TAVO_PATCH_IMPORT(real, Library(), "KERNEL32.dll", RaiseException, RaiseForReal);
    g_raised.resize(1);  // without a debugger, the thread carries on right behind the raise
    Tavo::SetThreadName(GetCurrentThreadId(), "Resumed");
    EXPECT_TRUE(g_raised.empty());
}

// Build 1 of the server (ComServer.dll) lies in the install directory I, build 2 as ComServer.dll and
// ComServerAway.dll in the current directory S. A bare name in I comes from there; one elsewhere by its bare
// name with I current, then from S; a path leaves I out. A call is "HRESULT build|name@directory loads|lines";
// a failure after the load is told by the step that failed and by the form that called.
TEST(ComObject, FindsLoadsAndCreates)
{
    ScratchInstall scratch;
    scratch.CopyFile("ComServerOther.dll", "ComServer.dll");
    scratch.CopyFile("ComServerOther.dll", "ComServerAway.dll");
    const std::string caller = Here(), S = scratch.Path(), loaded = "0|I\\ComServer.dll@I ", outer = "|128 FAILURE: Tavo::CoCreateInstance(";
    const std::string create = "|128 FAILURE: pFactory->CreateInstance(NULL, riid, ppv) - 0x80040201", byName = "*pModule, rclsid, riid, ppv) - 0x";
    ASSERT_TRUE(SetCurrentDirectoryA(S.c_str()));
    ScopedImportPatch patch(Library(), "KERNEL32.dll", "LoadLibraryW", &LoadW);
    const GUID id = kComServerObject;
    const struct { int form; const char* module; GUID clsid, iid; std::string expected; } rows[] = {  // forms: 0, 1 wide and narrow; 2, 3 one id as both; 4 a handle
        {0, "ComServer.dll", kComServerSFalse, id, "0 1|I\\ComServer.dll@I "}, {1, "ComServer.dll", id, id, "0 1|I\\ComServer.dll@I "},
        {2, "ComServer.dll", id, id, "0 1|I\\ComServer.dll@I "}, {3, "ComServer.dll", id, id, "0 1|I\\ComServer.dll@I "},
        {1, "ComServerAway.dll", id, id, "0 2|ComServerAway.dll@I ComServerAway.dll@S |64 File not found: I\\ComServerAway.dll"},
        {0, "No.dll", id, id, "8007007e 0|No.dll@I No.dll@S |64 File not found: I\\No.dll|128 FAILED: *pModule = ::LoadLibraryW(szModule) - GetLastError = 126"},
        {1, "S\\ComServer.dll", id, id, "0 2|S\\ComServer.dll@S "},
        {0, "ComServer.dll", kComServerFailing, id, "80040201 " + loaded + create + outer + byName + "80040201"},
        {4, "ComServer.dll", kComServerFailing, id, "80040201 0|" + create + outer + "hModule, riid, riid, ppv) - 0x80040201"},
        {0, "ComServer.dll", __uuidof(IDispatch), id, "80040111 " + loaded +
                                                          "|128 FAILURE: DllGetClassObject(rclsid, __uuidof(IClassFactory), (LPVOID*)&pFactory) - 0x80040111" + outer + byName + "80040111"},
        {0, "ComServer.dll", kComServerNoFactory, id, "8007001f " + loaded + "|128 FAILED: pFactory - GetLastError = 31" + outer + byName + "8007001f"},
        {0, "HelpStandIn.dll", id, id, "8007007f 0|I\\HelpStandIn.dll@I |128 FAILED: DllGetClassObject = (DLLGETCLASSOBJECT)::GetProcAddress(hModule, "
                                       "\"DllGetClassObject\") - GetLastError = 127" + outer + byName + "8007007f"},
        {3, "", id, id, "80070057 0||128 Invalid string argument: szModule"},
    };
    for (const auto& row : rows) {
        HINSTANCE hModule = reinterpret_cast<HINSTANCE>(1);
        void* pv = nullptr;
        g_loads.clear();
        const std::string module = row.module[0] == 'S' ? S + (row.module + 1) : row.module;
        const Tavo::CStringW wide(module.c_str());
        const long hr = row.form == 0 ? Tavo::CoCreateInstance(wide, row.clsid, row.iid, &hModule, &pv)
                      : row.form == 1 ? Tavo::CoCreateInstance(module.c_str(), row.clsid, row.iid, &hModule, &pv)
                      : row.form == 2 ? Tavo::CoCreateInstance(wide, row.clsid, &hModule, &pv)
                      : row.form == 3 ? Tavo::CoCreateInstance(module.c_str(), row.clsid, &hModule, &pv)
                                      : Tavo::CoCreateInstance(hModule = LoadLibraryA((Installed() + "\\" + module).c_str()), row.clsid, &pv);
        std::string s = Hex(hr, "%lx") + " " + std::to_string(pv ? static_cast<IComServerObject*>(pv)->Build() : 0) + "|";
        EXPECT_EQ(S, Here());
        if (pv) static_cast<IComServerObject*>(pv)->Release();
        for (const std::string& load : g_loads) s += load + " ";
        for (std::string line : Recorded("ComObject.cpp")) s += "|" + line.replace(line.find('|'), 24, " ");
        for (const auto& d : {std::make_pair(Installed(), "I"), std::make_pair(S, "S")})
            for (size_t at; (at = s.find(d.first)) != std::string::npos;) s.replace(at, d.first.size(), d.second);
        EXPECT_EQ(row.expected, s);
        const auto live = reinterpret_cast<PFN_COM_SERVER_LIVE_OBJECTS>(reinterpret_cast<void*>(GetProcAddress(hModule, "ComServerLiveObjects")));
        EXPECT_EQ(0, live ? live() : 0) << "factory or object not released";
        if (hModule != reinterpret_cast<HINSTANCE>(1)) FreeLibrary(hModule);
    }
    HINSTANCE hModule = nullptr;  // null out-pointers are refused before anything is touched
    EXPECT_EQ(E_POINTER, Tavo::CoCreateInstance(L"ComServer.dll", id, nullptr, nullptr) | Tavo::CoCreateInstance("ComServer.dll", id, &hModule, nullptr));
    EXPECT_EQ(Lines({"128|Tavo::CoCreateInstance|Invalid null pointer: pModule", "128|Tavo::CoCreateInstance|Invalid null pointer: ppv"}),
              Recorded("ComObject.cpp"));
    SetCurrentDirectoryA(caller.c_str());
    for (const char* name : {"ComServer.dll", "ComServerAway.dll", "HelpStandIn.dll"}) EXPECT_EQ(nullptr, GetModuleHandleA(name)) << name;
}
