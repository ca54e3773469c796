// Shutdown, drive reconnection and window helpers. What would act on the machine (the shutdown, the
// reconnections) is injected; the windows asked are stand-ins of the test's own thread that answer
// as the suite's main program does.
#include <CorvDebug.h>
#include <TavoCommon.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ImportPatch.h"
#include "Recorder.h"

namespace {

typedef std::vector<std::string> Lines;

HMODULE Library() { return tavo::test::LoadedModule("TavoCommon.dll"); }

// "level|function|text" of every line since the last clear.
Lines Recorded()
{
    Lines lines;
    for (const tavo::test::RecordedLine& l : tavo::test::RecordedLines()) {
        EXPECT_EQ("Shell.cpp", l.file) << tavo::test::Describe(l);
        lines.push_back(std::to_string(l.level) + "|" + l.function + "|" + l.text);
    }
    tavo::test::ClearRecordedLines();
    return lines;
}

std::string Line(unsigned level, const char* function, const std::string& text)
{
    return std::to_string(level) + "|Tavo::" + function + "|" + text;
}

// Which privilege step fails (0: none) and what the platform's shutdown answers.
enum { kOpen = 1, kLookup, kAdjust };
int g_failingStep, g_exitCalls;
BOOL g_exitResult;
DWORD g_exitError;
UINT g_uFlags;
DWORD g_dwReason;
decltype(&::OpenProcessToken) g_realOpenProcessToken;

BOOL WINAPI FakeOpenProcessToken(HANDLE hProcess, DWORD dwAccess, PHANDLE phToken)
{
    if (g_failingStep == kOpen) return SetLastError(ERROR_ACCESS_DENIED), FALSE;
    return g_realOpenProcessToken(hProcess, dwAccess, phToken);
}

BOOL WINAPI FakeLookupPrivilegeValueA(LPCSTR, LPCSTR, PLUID)
{
    return g_failingStep == kLookup ? (SetLastError(ERROR_NO_SUCH_PRIVILEGE), FALSE) : TRUE;
}

// Leaves the process token alone.
BOOL WINAPI FakeAdjustTokenPrivileges(HANDLE, BOOL, PTOKEN_PRIVILEGES, DWORD, PTOKEN_PRIVILEGES, PDWORD)
{
    return g_failingStep == kAdjust ? (SetLastError(ERROR_NOT_ALL_ASSIGNED), FALSE) : TRUE;
}

BOOL WINAPI FakeExitWindowsEx(UINT uFlags, DWORD dwReason)
{
    ++g_exitCalls;
    g_uFlags = uFlags;
    g_dwReason = dwReason;
    SetLastError(g_exitError);
    return g_exitResult;
}

std::vector<std::wstring> g_devices;

// A few drives answer other than "not connected", so that each line shows its own answer.
DWORD Answer(wchar_t chDrive) { return chDrive == L'C' ? NO_ERROR : chDrive == L'N' ? ERROR_NO_NETWORK : ERROR_NOT_CONNECTED; }

DWORD WINAPI FakeRestoreSingleConnection(HWND hwndParent, LPCWSTR szDevice, BOOL fUseUI)
{
    EXPECT_TRUE(hwndParent == nullptr && !fUseUI);
    g_devices.push_back(szDevice);
    return Answer(szDevice[0]);
}

int g_converts;
decltype(&::ClientToScreen) g_realConvert;

BOOL WINAPI SecondCornerFails(HWND hWnd, LPPOINT pPoint)
{
    if (++g_converts == 1) return g_realConvert(hWnd, pPoint);
    return SetLastError(ERROR_INVALID_WINDOW_HANDLE), FALSE;
}

int g_sends;
decltype(&::SendMessageA) g_realSendMessageA;

LRESULT WINAPI CountingSendMessageA(HWND hWnd, UINT uMsg, WPARAM wParam, LPARAM lParam)
{
    ++g_sends;
    return g_realSendMessageA(hWnd, uMsg, wParam, lParam);
}

// Top-level windows of the test's thread (a send from it reaches them at once, no pump needed),
// each of its own class. Each answers the registered message with its own value and counts how
// often it was asked.
class StandInWindows {
public:
    struct Window {
        std::string className;
        LRESULT answer;
        HWND hWnd;
        int asked;
    };

    explicit StandInWindows(std::vector<Window> windows) : windows_(windows)
    {
        for (Window& w : windows_) {
            WNDCLASSA wc = {};
            wc.lpfnWndProc = &Proc;
            wc.lpszClassName = w.className.c_str();
            EXPECT_TRUE(RegisterClassA(&wc)) << w.className;
            w.hWnd = CreateWindowExA(0, wc.lpszClassName, "", WS_POPUP, 0, 0, 10, 10, nullptr, nullptr, nullptr, nullptr);
            SetWindowLongPtrA(w.hWnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(&w));
        }
    }
    ~StandInWindows()
    {
        for (Window& w : windows_) DestroyWindow(w.hWnd), UnregisterClassA(w.className.c_str(), nullptr);
    }
    const Window& operator[](size_t i) const { return windows_[i]; }

private:
    static LRESULT CALLBACK Proc(HWND hWnd, UINT uMsg, WPARAM wParam, LPARAM lParam)
    {
        Window* const w = reinterpret_cast<Window*>(GetWindowLongPtrA(hWnd, GWLP_USERDATA));
        if (w && uMsg == RegisterWindowMessageA("Tavo::WM_ISMAINAPPWINDOW")) return ++w->asked, w->answer;
        return DefWindowProcA(hWnd, uMsg, wParam, lParam);
    }

    std::vector<Window> windows_;
};

} // namespace

TEST(Shell, ExitWindowsExTakesThePrivilegeAsBestEffortAndAlwaysAsksThePlatform)
{
    TAVO_PATCH_IMPORT(open, Library(), "ADVAPI32.dll", OpenProcessToken, FakeOpenProcessToken);
    TAVO_PATCH_IMPORT(lookup, Library(), "ADVAPI32.dll", LookupPrivilegeValueA, FakeLookupPrivilegeValueA);
    TAVO_PATCH_IMPORT(adjust, Library(), "ADVAPI32.dll", AdjustTokenPrivileges, FakeAdjustTokenPrivileges);
    TAVO_PATCH_IMPORT(exit, Library(), "USER32.dll", ExitWindowsEx, FakeExitWindowsEx);
    g_realOpenProcessToken = open.Original<decltype(&::OpenProcessToken)>();
    const std::string kFailure = "FAILURE: ::ExitWindowsEx(uFlags, dwReason) - ";
    const struct {
        int failingStep;
        BOOL exitResult;
        DWORD exitError;
        HRESULT expected;
        Lines lines;
    } rows[] = {
        {0, TRUE, 0, S_OK, {}},
        {0, FALSE, ERROR_ACCESS_DENIED, HRESULT(0x80070005), {Line(TRACE_ERROR, "ExitWindowsEx", kFailure + "0x80070005")}},
        {0, FALSE, 0, HRESULT(0x8007001F), {Line(TRACE_ERROR, "ExitWindowsEx", kFailure + "0x8007001f")}},
        {kOpen, TRUE, 0, S_OK,
         {Line(TRACE_VERIFY, "ExitWindowsEx",
               "bResult = OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &hToken) - 5")}},
        {kLookup, FALSE, ERROR_PRIVILEGE_NOT_HELD, HRESULT(0x80070522),
         {Line(TRACE_VERIFY, "ExitWindowsEx",
               "bResult = LookupPrivilegeValue(NULL, _T(\"SeShutdownPrivilege\"), &tp.Privileges[0].Luid) - 1313"),
          Line(TRACE_ERROR, "ExitWindowsEx", kFailure + "0x80070522")}},
        {kAdjust, TRUE, 0, S_OK,
         {Line(TRACE_VERIFY, "ExitWindowsEx", "AdjustTokenPrivileges(hToken, FALSE, &tp, 0, NULL, 0) - 1300")}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "failing step " << row.failingStep << ", last error " << row.exitError);
        g_failingStep = row.failingStep;
        g_exitResult = row.exitResult;
        g_exitError = row.exitError;
        g_exitCalls = 0;
        tavo::test::ClearRecordedLines();
        EXPECT_EQ(row.expected, Tavo::ExitWindowsEx(EWX_LOGOFF | EWX_FORCE, 0x80020003));
        EXPECT_EQ(row.lines, Recorded());
        EXPECT_EQ(1, g_exitCalls) << "the platform call runs whatever the privilege steps gave";
        EXPECT_EQ(UINT(EWX_LOGOFF | EWX_FORCE), g_uFlags);
        EXPECT_EQ(0x80020003u, g_dwReason);
    }
}

TEST(Shell, NetRestoreAllConnectionsTriesEveryDriveLetterOrNone)
{
    {
        tavo::test::ScopedProcAddressOverride entry(Library(), "WNetRestoreSingleConnectionW", &FakeRestoreSingleConnection);
        g_devices.clear();
        tavo::test::ClearRecordedLines();
        EXPECT_EQ(S_OK, Tavo::NetRestoreAllConnections());
        std::vector<std::wstring> devices;
        Lines lines;
        for (wchar_t ch = L'A'; ch <= L'Z'; ++ch) {
            devices.push_back(std::wstring(1, ch) + L":");
            lines.push_back(Line(TRACE_INFO, "NetRestoreAllConnections", "WNetRestoreSingleConnectionW(" +
                                     std::string(1, char(ch)) + ":) returned " + std::to_string(Answer(ch))));
        }
        EXPECT_EQ(devices, g_devices);
        EXPECT_EQ(lines, Recorded());
    }
    // Wine's own mpr.dll lacks the entry, as some systems do: no drive is tried.
    g_devices.clear();
    EXPECT_EQ(HRESULT(0x8007007F), Tavo::NetRestoreAllConnections());
    EXPECT_EQ(Lines{Line(TRACE_ERROR, "NetRestoreAllConnections",
                         "FAILED: pWNetRestoreSingleConnectionW = (WNETRESTORESINGLECONNECTIONW)GetProcAddress("
                         "hModule, \"WNetRestoreSingleConnectionW\") - GetLastError = 127")},
              Recorded());
    EXPECT_TRUE(g_devices.empty());
}

TEST(Shell, RectangleConversionsTakeBothCornersOrStop)
{
    const HWND hWnd = CreateWindowExA(0, "STATIC", "", WS_POPUP, 120, 80, 300, 200, nullptr, nullptr, nullptr, nullptr);
    ASSERT_NE(nullptr, hWnd);
    const struct {
        const char* function;
        int (*library)(HWND, RECT*);
        decltype(&::ClientToScreen) platform;
    } conversions[] = {{"ClientToScreen", &Tavo::ClientToScreen, &::ClientToScreen},
                       {"ScreenToClient", &Tavo::ScreenToClient, &::ScreenToClient}};
    for (const auto& c : conversions) {
        SCOPED_TRACE(c.function);
        // The platform's answer for each corner; the window lies away from the origin, so it moves them.
        POINT corners[2] = {{5, 6}, {50, 60}};
        ASSERT_TRUE(c.platform(hWnd, &corners[0]) && c.platform(hWnd, &corners[1]));
        ASSERT_NE(5, corners[0].x);
        tavo::test::ClearRecordedLines();

        RECT rc = {5, 6, 50, 60};
        EXPECT_EQ(1, c.library(hWnd, &rc));
        EXPECT_EQ(std::vector<LONG>({corners[0].x, corners[0].y, corners[1].x, corners[1].y}),
                  std::vector<LONG>({rc.left, rc.top, rc.right, rc.bottom}));

        rc = {5, 6, 50, 60};
        EXPECT_EQ(0, c.library(reinterpret_cast<HWND>(0x0BADF00D), &rc));
        EXPECT_EQ(std::vector<LONG>({5, 6, 50, 60}), std::vector<LONG>({rc.left, rc.top, rc.right, rc.bottom}));
        const Lines lines = Recorded();
        ASSERT_EQ(1u, lines.size());
        EXPECT_EQ(0u, lines[0].find(Line(TRACE_VERIFY, c.function, "::IsWindow(hWnd) - "))) << lines[0];

        EXPECT_EQ(0, c.library(hWnd, nullptr));

        tavo::test::ScopedImportPatch patch(Library(), "USER32.dll", c.function, &SecondCornerFails);
        g_realConvert = patch.Original<decltype(&::ClientToScreen)>();
        g_converts = 0;
        rc = {5, 6, 50, 60};
        EXPECT_EQ(0, c.library(hWnd, &rc));
        EXPECT_EQ(std::vector<LONG>({corners[0].x, corners[0].y, 50, 60}),
                  std::vector<LONG>({rc.left, rc.top, rc.right, rc.bottom}))
            << "half converted";
        EXPECT_EQ(Lines{}, Recorded());
    }
    DestroyWindow(hWnd);
}

TEST(Shell, MainAppWindowIsTheFirstWrapperThatAnswers)
{
    TAVO_PATCH_IMPORT(sending, Library(), "USER32.dll", SendMessageA, CountingSendMessageA);
    g_realSendMessageA = sending.Original<decltype(&::SendMessageA)>();
    {
        SCOPED_TRACE("no wrapper");
        StandInWindows windows({{"Tavo.Test.hwndwrapper[Case;;1]", 1, nullptr, 0}, {"Tavo.Test.Other", 1, nullptr, 0}});
        g_sends = 0;
        EXPECT_EQ(nullptr, Tavo::GetMainAppWindow());
        EXPECT_EQ(0, g_sends) << "nothing is sent";
        EXPECT_EQ(0, windows[0].asked + windows[1].asked);
    }
    {
        SCOPED_TRACE("wrappers");
        // Created first, so enumerated last: the silent wrapper above it is asked before it.
        StandInWindows windows({{"Tavo.Test.HwndWrapper[Main;;2]", 1, nullptr, 0},
                                {"Tavo.Test.HwndWrapper[Silent;;3]", 0, nullptr, 0},
                                {"Tavo.Test.hwndwrapper[Case;;4]", 1, nullptr, 0},
                                {"Tavo.Test.Other", 1, nullptr, 0}});
        EXPECT_EQ(windows[0].hWnd, Tavo::GetMainAppWindow());
        EXPECT_EQ(1, windows[0].asked);
        EXPECT_EQ(1, windows[1].asked) << "a zero answer passes the window over";
        EXPECT_EQ(0, windows[2].asked + windows[3].asked) << "no other class is sent the message";
    }
}
