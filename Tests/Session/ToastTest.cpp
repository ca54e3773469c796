// Toasts. The OS answer is cached per process, so each Windows version runs in a fresh child of a
// scratch install, which reports what the tool's start would have been; the real MetroToast.exe
// then shows what it receives through that install.
#include <TavoCommon.h>

#include <psapi.h>

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "ImportPatch.h"

using tavo::test::ChildReport;
using tavo::test::LoadedModule;

namespace {

DWORD g_major, g_minor;
bool g_toolRunning;
std::string g_commandLine;

BOOL WINAPI FakeGetVersionExA(LPOSVERSIONINFOA pInfo)
{
    pInfo->dwMajorVersion = g_major;
    pInfo->dwMinorVersion = g_minor;
    pInfo->dwPlatformId = VER_PLATFORM_WIN32_NT;
    return TRUE;
}
// The user's token, whatever the session: this process's own.
BOOL WINAPI FakeQueryUserToken(ULONG, PHANDLE phToken)
{
    return OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, phToken);
}
BOOL WINAPI RecordCreation(HANDLE, LPCSTR, LPSTR szCommandLine, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL,
                           DWORD, LPVOID, LPCSTR, LPSTARTUPINFOA, LPPROCESS_INFORMATION)
{
    g_commandLine = szCommandLine;
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}
DWORD WINAPI FakeGetModuleBaseNameW(HANDLE, HMODULE, LPWSTR szName, DWORD cch)
{
    lstrcpynW(szName, g_toolRunning ? L"metrotoast.EXE" : L"other.exe", cch);
    return lstrlenW(szName);
}

const std::string kLongLine(600, 'x');

// Calls by row number, for the child to run and the parent to expect.
int Show(int nRow)
{
    using namespace Tavo;
    g_toolRunning = nRow >= 6 && nRow <= 8;
    switch (nRow) {
    case 0: return ShowMetroToastIfWin8orNewerW(1, L"Info", L"C:\\i.png", L"One", L"Two", L"Three", 0);
    case 1: return ShowMetroToastIfWin8orNewerA(2, "Warn", nullptr, "", nullptr, nullptr, 0);
    case 2: return ShowMetroToastIfWin8orNewerA(0, nullptr, "i", "One", nullptr, nullptr, 1);
    case 3: return ShowMetroToastIfWin8orNewerW(0, nullptr, nullptr, nullptr, nullptr, nullptr, 1);
    case 4: return ShowMetroToastIfWin8orNewerW(0, L"Info", nullptr, nullptr, L"Two", nullptr, 1);
    case 5: return ShowMetroToastIfWin8orNewerA(1, "Info", nullptr, kLongLine.c_str(), nullptr, nullptr, 1);
    case 6: return ShowMetroToastIfWin8orNewerW(0, nullptr, nullptr, L"One", nullptr, nullptr, 0);
    case 7: return ShowMetroToastIfWin8orNewerW(0, L"Info", nullptr, L"One", nullptr, nullptr, 0);
    case 8: return ShowMetroToastIfWin8orNewerA(0, "Info", nullptr, "One", nullptr, "3", 1);
    }
    return -1;
}
const int kRows = 9;

} // namespace

// Args: major, minor. Reports "resultN" and "cmdN" (empty when nothing was started) per row.
TAVO_CHILD_CASE(ToastCommandLines)
{
    HMODULE hLibrary = LoadedModule("TavoCommon.dll");
    g_major = std::stoul(tavo::test::ChildArgs().at(0));
    g_minor = std::stoul(tavo::test::ChildArgs().at(1));
    TAVO_PATCH_IMPORT(version, hLibrary, "KERNEL32.dll", GetVersionExA, FakeGetVersionExA);
    TAVO_PATCH_IMPORT(create, hLibrary, "ADVAPI32.dll", CreateProcessAsUserA, RecordCreation);
    TAVO_PATCH_IMPORT(baseName, hLibrary, "PSAPI.DLL", GetModuleBaseNameW, FakeGetModuleBaseNameW);
    tavo::test::ScopedProcAddressOverride token(hLibrary, "WTSQueryUserToken", FakeQueryUserToken);
    for (int nRow = 0; nRow < kRows; ++nRow) {
        g_commandLine.clear();
        ChildReport("result" + std::to_string(nRow), Show(nRow));
        ChildReport("cmd" + std::to_string(nRow), g_commandLine);
    }
    return 0;
}

// The real tool; it appends to MetroToast.log.
TAVO_CHILD_CASE(ToastThroughTheTool)
{
    HMODULE hLibrary = LoadedModule("TavoCommon.dll");
    g_major = 6;
    g_minor = 2;
    // Wine reports 10.0, which the library counts as unknown.
    TAVO_PATCH_IMPORT(version, hLibrary, "KERNEL32.dll", GetVersionExA, FakeGetVersionExA);
    tavo::test::ScopedProcAddressOverride token(hLibrary, "WTSQueryUserToken", FakeQueryUserToken);
    ChildReport("result", Tavo::ShowMetroToastIfWin8orNewerW(1, L"Info", nullptr, L"Hello there", nullptr,
                                                             L"Bye", 1));
    return 0;
}

TEST(Toast, CommandLinesOnWindows8AndNewer)
{
    tavo::test::ScratchInstall install;
    install.WriteFile("Product.cfg", "[Config]\r\nCompany=Acme\r\nShortcutName=Acme Tool.lnk\r\n");
    const tavo::test::ChildResult r = install.Run("ToastCommandLines", {"6", "2"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    const std::string head = "\"" + install.Path() + "\\MetroToast.exe\"  \"CompanyName=Acme\" "
                             "\"ShortcutFileBaseName=Acme Tool\"";
    const struct {
        int result;
        std::string cmd;
    } expected[kRows] = {
        {0, head + " Duration=long Type=Info \"Image=C:\\i.png\" \"Line1=One\" \"Line2=Two\" \"Line3=Three\""},
        {0, head + " Duration=short Type=Warn \"Line1=\""},
        {6, ""},
        {6, ""},
        {8, ""},
        {0, ""},  // arguments beyond the launcher's 512 bytes start nothing
        {0, ""},  // the tool runs: dropped before the type is looked at
        {0, ""},
        {0, head + " Duration=short Type=Info \"Line1=One\" \"Line3=3\""},
    };
    for (int nRow = 0; nRow < kRows; ++nRow) {
        SCOPED_TRACE(nRow);
        EXPECT_EQ(std::to_string(expected[nRow].result), r.Value("result" + std::to_string(nRow)));
        EXPECT_EQ(expected[nRow].cmd, r.Value("cmd" + std::to_string(nRow)));
    }
}

TEST(Toast, ShortShortcutNameAndOlderSystems)
{
    tavo::test::ScratchInstall install;
    install.WriteFile("Product.cfg", "[Config]\r\nCompany=Acme\r\nShortcutName=Tool\r\n");
    tavo::test::ChildResult r = install.Run("ToastCommandLines", {"6", "3"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    EXPECT_NE(std::string::npos, r.Value("cmd0").find("\"CompanyName=Acme\" \"ShortcutFileBaseName=\" Duration=long"))
        << r.Value("cmd0");

    for (const char* szVersion : {"6.1", "10.0"}) {
        SCOPED_TRACE(szVersion);
        const std::string version = szVersion;
        const size_t dot = version.find('.');
        r = install.Run("ToastCommandLines", {version.substr(0, dot), version.substr(dot + 1)});
        ASSERT_EQ(0u, r.exitCode) << r.output;
        for (int nRow = 0; nRow < kRows; ++nRow) {
            EXPECT_EQ("12", r.Value("result" + std::to_string(nRow))) << nRow;
            EXPECT_EQ("", r.Value("cmd" + std::to_string(nRow))) << nRow;
        }
    }
}

TEST(Toast, TheToolReceivesOneArgumentPerKey)
{
    tavo::test::ScratchInstall install;
    install.CopyFile("MetroToast.exe", "MetroToast.exe");
    install.WriteFile("MetroToast.log", "");
    const std::string log = install.Path() + "\\MetroToast.log";
    const tavo::test::ChildResult r = install.Run("ToastThroughTheTool");
    ASSERT_EQ(0u, r.exitCode) << r.output;
    EXPECT_EQ("0", r.Value("result"));
    const std::string tool = "\"" + install.Path() + "\\MetroToast.exe\"";
    // The tool asks the platform itself, as this program does: Windows 8 (6.2) and newer show.
    OSVERSIONINFOW ovi = {};
    ovi.dwOSVersionInfoSize = sizeof(ovi);
    ASSERT_TRUE(GetVersionExW(&ovi));
    const bool bWin8 = ovi.dwMajorVersion > 6 || (ovi.dwMajorVersion == 6 && ovi.dwMinorVersion >= 2);
    const std::string expected = (bWin8 ? "0\t" : "12\t") + tool +
                                 "  \"CompanyName=Brenmoor\" \"ShortcutFileBaseName=Harbell Professional\""
                                 " Duration=long Type=Info \"Line1=Hello there\" \"Line3=Bye\"\r\n";
    std::string recorded;
    for (int nTry = 0; nTry < 100 && recorded.empty(); ++nTry, Sleep(100)) {
        std::ifstream in(log, std::ios::binary);
        recorded.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    EXPECT_EQ(expected, recorded);

    // The tool's own refusals, each recorded with its code.
    const struct {
        const char* arguments;
        DWORD code;
    } rows[] = {
        {" Duration=short \"Line1=a\"", 6},
        {" Duration=short Type=Info", 8},
        {" Type=Info \"Line1=a\" Colour=red", 2},
        {" Duration=medium Type=Info \"Line1=a\"", 3},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.arguments);
        std::string commandLine = tool + row.arguments;
        STARTUPINFOA si = {};
        si.cb = sizeof(si);
        PROCESS_INFORMATION pi = {};
        ASSERT_TRUE(CreateProcessA(nullptr, &commandLine[0], nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                                   nullptr, &si, &pi));
        DWORD dwCode = 0;
        if (WaitForSingleObject(pi.hProcess, 30000) != WAIT_OBJECT_0) TerminateProcess(pi.hProcess, 1);
        GetExitCodeProcess(pi.hProcess, &dwCode);
        CloseHandle(pi.hThread);
        CloseHandle(pi.hProcess);
        EXPECT_EQ(row.code, dwCode);
    }
    std::ifstream in(log, std::ios::binary);
    std::stringstream all;
    all << in.rdbuf();
    EXPECT_NE(std::string::npos, all.str().find("\n3\t" + tool + " Duration=medium")) << all.str();
}
