// LaunchHelp keeps its repeat filter and its help control per process, so each road runs in a fresh
// child whose current directory is its scratch install. The browser launch is patched out of the
// library's imports; the help control is our stand-in, registered under a HKEY_CLASSES_ROOT that the
// child leads to a scratch key of its own.
#include <TavoCommon.h>

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "ImportPatch.h"

namespace {

HMODULE Library() { return tavo::test::LoadedModule("TavoCommon.dll"); }

std::string Here()
{
    char sz[MAX_PATH] = {};
    GetCurrentDirectoryA(MAX_PATH, sz);
    return sz;
}

__time64_t g_now;
__time64_t __cdecl FakeTime64(__time64_t* pt) { return pt ? *pt = g_now : g_now; }

std::vector<std::string> g_calls;  // browser launches and control loads
INT_PTR g_shellResult;
HINSTANCE WINAPI FakeShellExecuteA(HWND hwnd, LPCSTR szVerb, LPCSTR szFile, LPCSTR szParameters, LPCSTR szDirectory,
                                   INT nShow)
{
    const bool bPlain = !hwnd && !szParameters && !szDirectory && nShow == SW_SHOWNORMAL;
    g_calls.push_back(std::string(szVerb) + (bPlain ? " " : " (odd arguments) ") + szFile);
    return reinterpret_cast<HINSTANCE>(g_shellResult);
}

HMODULE WINAPI RefusingLoadLibraryA(LPCSTR szName)
{
    if (lstrcmpiA(szName, "CorvDebug.dll") != 0) g_calls.push_back(szName);
    return lstrcmpiA(szName, "hhctrl.ocx") == 0 ? nullptr : LoadLibraryA(szName);
}

// HKEY_CLASSES_ROOT of this process led to a scratch key under HKEY_CURRENT_USER holding only the
// control's registration, so the prefix's own keys are never touched.
class ScopedControlRegistration {
public:
    ScopedControlRegistration(DWORD dwType, const std::string& value)
    {
        HKEY hControl = nullptr;
        EXPECT_EQ(ERROR_SUCCESS, RegCreateKeyA(HKEY_CURRENT_USER, name_.c_str(), &root_));
        EXPECT_EQ(ERROR_SUCCESS, RegCreateKeyA(root_, "CLSID\\{ADB880A6-D8FF-11CF-9377-00AA003B7A11}\\InprocServer32", &hControl));
        RegSetValueExA(hControl, nullptr, 0, dwType, reinterpret_cast<const BYTE*>(value.c_str()), value.size() + 1);
        RegCloseKey(hControl);
        EXPECT_EQ(ERROR_SUCCESS, RegOverridePredefKey(HKEY_CLASSES_ROOT, root_));
    }
    ~ScopedControlRegistration()
    {
        RegOverridePredefKey(HKEY_CLASSES_ROOT, nullptr);
        RegCloseKey(root_);
        RegDeleteTreeA(HKEY_CURRENT_USER, name_.c_str());
        RegDeleteKeyA(HKEY_CURRENT_USER, "Software\\TavoTests");  // only once empty
    }

private:
    std::string name_ = "Software\\TavoTests\\HelpControl-" + std::to_string(GetCurrentProcessId());
    HKEY root_ = nullptr;
};

const struct {
    const char* url;  // the [URL] section's line, or null for none
    __time64_t now;
    int topic;
    INT_PTR shellResult;
    HRESULT expected;
    const char* launched;  // the address the browser was given, or null for none
} kOnlineSteps[] = {
    // The stored time of 0 lies far in the past: topic 0 passes first.
    {nullptr, 1000, 0, 42, S_OK, "http://help.tavo.example/help/Fenwick/topics.php?topic_id=0"},
    {nullptr, 1000, 7, 42, S_OK, "http://help.tavo.example/help/Fenwick/topics.php?topic_id=7"},
    {nullptr, 1000, 7, 42, E_ABORT, nullptr},
    {"Help=x:%HELPID%", 1000, 8, 42, S_OK, "x:8"},
    {"Help=x:%HELPID%", 1001, 8, 42, S_OK, "x:8"},
    {"Help=x:%HELPID%", 990, 8, 42, E_ABORT, nullptr},  // the clock set back
    {"Help=x:%HELPID%", 1001, 8, 42, E_ABORT, nullptr},
    {"Help=x:%HELPID%", 1002, 8, 2, static_cast<HRESULT>(0x80070002), "x:8"},
    {"Help=x:%HELPID%", 1003, 8, 0, S_OK, "x:8"},
    {"Help=%HELPID%/%PRODUCT%/%HELPID%-%PRODUCT%", 1004, -3, 42, S_OK, "-3/Fenwick/-3-Fenwick"},
    // An empty address starts nothing, yet the filter has stored the call.
    {"Help=", 1005, 9, 42, E_FAIL, nullptr},
    {"Help=", 1005, 9, 42, E_ABORT, nullptr},
};

} // namespace

TAVO_CHILD_CASE(HelpOnline)
{
    TAVO_PATCH_IMPORT(clock, Library(), "msvcrt.dll", _time64, FakeTime64);
    TAVO_PATCH_IMPORT(shell, Library(), "SHELL32.dll", ShellExecuteA, FakeShellExecuteA);
    for (const auto& step : kOnlineSteps) {
        SCOPED_TRACE(testing::Message() << "topic " << step.topic << " at " << step.now);
        std::ofstream(Here() + "\\Product.cfg", std::ios::trunc)
            << "[Config]\nProduct=Fenwick\n" << (step.url ? std::string("[URL]\n") + step.url + "\n" : "");
        g_now = step.now;
        g_shellResult = step.shellResult;
        g_calls.clear();
        EXPECT_EQ(step.expected, LaunchHelp(step.topic));
        EXPECT_EQ(step.launched ? std::vector<std::string>{std::string("open ") + step.launched} : std::vector<std::string>{},
                  g_calls);
    }
    return 0;
}

// Args: the registry value's type.
TAVO_CHILD_CASE(HelpOffline)
{
    const bool bExpand = tavo::test::ChildArgs().at(0) == "REG_EXPAND_SZ";
    SetEnvironmentVariableA("TAVO_HELP_CONTROL", (Here() + "\\Control").c_str());
    ScopedControlRegistration registration(bExpand ? REG_EXPAND_SZ : REG_SZ,
                                           bExpand ? "%TAVO_HELP_CONTROL%\\HelpStandIn.dll" : Here() + "\\Control\\HelpStandIn.dll");
    const std::string help = Here() + "\\Guide.chm", toc = "0,1,0," + help + ";";
    const auto context = [&](int nTopic) { return "0,15," + std::to_string(nTopic) + "," + help + ";"; };
    EXPECT_EQ(S_OK, LaunchHelp(0));
    EXPECT_EQ(S_OK, LaunchHelp(12));
    EXPECT_EQ(S_OK, LaunchHelp(12));    // no repeat filter offline
    EXPECT_EQ(S_OK, LaunchHelp(4000));  // a topic the file lacks: its contents
    DeleteFileA(help.c_str());
    EXPECT_EQ(E_FAIL, LaunchHelp(12));  // the control shows nothing
    const auto log = reinterpret_cast<const char*(__cdecl*)()>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("HelpStandIn.dll"), "HelpStandInLog")));
    EXPECT_EQ(toc + context(12) + context(12) + context(4000) + toc + context(12) + toc, log ? log() : "(no control)");
    return 0;
}

// Args: the registered control file below the install directory, then every file loaded for it.
TAVO_CHILD_CASE(HelpControlUnavailable)
{
    const std::vector<std::string>& args = tavo::test::ChildArgs();
    ScopedControlRegistration registration(REG_SZ, Here() + "\\" + args[0]);
    TAVO_PATCH_IMPORT(load, Library(), "KERNEL32.dll", LoadLibraryA, RefusingLoadLibraryA);
    std::vector<std::string> expected;
    for (size_t i = 1; i < args.size(); ++i) expected.push_back(args[i][0] == '\\' ? Here() + args[i] : args[i]);
    EXPECT_EQ(E_FAIL, LaunchHelp(3));
    EXPECT_EQ(expected, g_calls);
    EXPECT_EQ(E_FAIL, LaunchHelp(3));
    EXPECT_EQ(E_FAIL, LaunchHelp(0));
    EXPECT_EQ(expected, g_calls) << "tried again";
    return 0;
}

TEST(Help, LaunchInAFreshProcess)
{
    struct {
        const char* childCase;
        std::vector<std::string> args;
    } const rows[] = {
        {"HelpOnline", {}},
        {"HelpOffline", {"REG_SZ"}},
        {"HelpOffline", {"REG_EXPAND_SZ"}},
        {"HelpControlUnavailable", {"Missing.dll", "\\Missing.dll", "hhctrl.ocx"}},
        {"HelpControlUnavailable", {"ComServer.dll", "\\ComServer.dll"}},  // loads, but has no ordinal 14
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.childCase + (row.args.empty() ? "" : " " + row.args[0]));
        tavo::test::ScratchInstall install;
        install.WriteFile("Product.cfg", "[Config]\nUseOnlineHelp=no\nHelpFile=Guide.chm\n");
        install.WriteFile("Guide.chm", "stand-in");
        install.CopyFile("HelpStandIn.dll", "Control\\HelpStandIn.dll");
        install.CopyFile("ComServer.dll", "ComServer.dll");
        const tavo::test::ChildResult result = install.Run(row.childCase, row.args);
        EXPECT_EQ(0u, result.exitCode) << result.output;
    }
}
