// Re-texting of real windows and menus (a display is needed) with the test program's own string
// table (TestStrings.rc), reached through a null module. What the library writes is seen through
// its SetWindowTextA / SetMenuItemInfoA imports, forwarded to the real calls.
#include <TavoCommon.h>

#include <gtest/gtest.h>

#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "ImportPatch.h"
#include "Recorder.h"

using tavo::test::ChildReport;
using tavo::test::ScopedImportPatch;

namespace {

const int kHello = 2001, kOpen = 2002, kEmpty = 2003, kNone = 2099;  // TestStrings.rc

struct Written {
    const void* handle;
    std::string text;
    bool operator==(const Written& o) const { return handle == o.handle && text == o.text; }
};
void PrintTo(const Written& w, std::ostream* os) { *os << w.handle << " \"" << w.text << '"'; }
std::vector<Written> g_written;
const void* g_failFor;           // the write for this window or menu fails with error 5
const ScopedImportPatch* g_real;

BOOL WINAPI RecordingSetWindowTextA(HWND hWnd, LPCSTR sz)
{
    g_written.push_back({hWnd, sz});
    if (hWnd == g_failFor) return SetLastError(ERROR_ACCESS_DENIED), FALSE;
    return g_real->Original<decltype(&::SetWindowTextA)>()(hWnd, sz);
}

BOOL WINAPI RecordingSetMenuItemInfoA(HMENU hMenu, UINT i, BOOL bByPosition, LPCMENUITEMINFOA pmii)
{
    g_written.push_back({hMenu, std::to_string(i) + ":" + pmii->dwTypeData});
    if (hMenu == g_failFor) return SetLastError(ERROR_ACCESS_DENIED), FALSE;
    return g_real->Original<decltype(&::SetMenuItemInfoA)>()(hMenu, i, bByPosition, pmii);
}

HWND Child(HWND hParent, int nId, const char* szText, DWORD dwStyle = WS_VISIBLE)
{
    HWND h = CreateWindowExA(0, "STATIC", szText, WS_CHILD | dwStyle, 0, 0, 10, 10, hParent,
                             reinterpret_cast<HMENU>(static_cast<INT_PTR>(nId)), nullptr, nullptr);
    EXPECT_NE(nullptr, h) << szText;
    return h;
}

// A top level with children in creation order; `blank` (hidden, disabled, no text, no string) has
// the one grandchild.
struct Tree {
    HWND top = CreateWindowExA(0, "STATIC", "Main %COMPANY%", WS_OVERLAPPEDWINDOW, 0, 0, 50, 50, nullptr,
                               nullptr, nullptr, nullptr);
    HWND hello = Child(top, kHello, "old");
    HWND minusOne = Child(top, -1, "By %COMPANY%");
    HWND about = Child(top, 0, "About %PRODUCT%");
    HWND blank = Child(top, kNone, "", WS_DISABLED);
    HWND inner = Child(blank, kHello, "inner");
    HWND tail = Child(top, kHello, "tail");
    ~Tree() { DestroyWindow(top); }
};

std::string Text(HWND h)
{
    char sz[256] = {};
    GetWindowTextA(h, sz, sizeof(sz));
    return sz;
}

// The lines that ResetText itself sent.
std::vector<std::string> Lines()
{
    std::vector<std::string> texts;
    for (const auto& line : tavo::test::RecordedLines())
        if (line.file == "ResetText.cpp") texts.push_back(line.text);
    return texts;
}

void Item(HMENU hMenu, UINT fType, UINT uID, const char* szText, HMENU hSub = nullptr)
{
    MENUITEMINFOA mii = {};
    mii.cbSize = sizeof(mii);
    mii.fMask = MIIM_FTYPE | MIIM_ID | (szText ? MIIM_STRING : 0) | (hSub ? MIIM_SUBMENU : 0);
    mii.fType = fType;
    mii.wID = uID;
    mii.dwTypeData = const_cast<char*>(szText);
    mii.hSubMenu = hSub;
    EXPECT_TRUE(InsertMenuItemA(hMenu, GetMenuItemCount(hMenu), TRUE, &mii)) << uID;
}

std::string MenuText(HMENU hMenu, int i)
{
    char sz[64] = {};
    GetMenuStringA(hMenu, i, sz, sizeof(sz), MF_BYPOSITION);
    return sz;
}

int WINAPI FailingGetMenuItemCount(HMENU)
{
    SetLastError(0);
    return -1;
}

int WINAPI PseudoLocaleInfoA(LCID, LCTYPE, LPSTR sz, int cch)
{
    return lstrcpynA(sz, "xx", cch) ? 3 : 0;
}

} // namespace

TEST(ResetText, WindowsDepthFirstWithStringsOrOwnTextExpanded)
{
    Tree t;
    ASSERT_NE(nullptr, t.top);
    const std::string product = Tavo::GetProductNameA(), company = Tavo::GetCompanyNameA();
    const std::string hello = "Hello " + product;
    const std::string fail = "FAILURE: ResetText(hChild, hInstance ? hInstance : GetCallersModuleHandle()) - 0x80070005";
    struct Row {
        const char* name;
        HWND failFor;
        long hr;
        std::vector<Written> written;
        std::vector<std::string> lines;
    };
    const Row rows[] = {
        {"all done", nullptr, S_OK,
         {{t.top, "Main " + company}, {t.hello, hello}, {t.minusOne, "By " + company}, {t.about, "About " + product},
          {t.inner, hello}, {t.tail, hello}},
         {}},
        // Two levels each add their line; the sibling after the failing branch keeps its text.
        {"grandchild fails", t.inner, static_cast<long>(0x80070005),
         {{t.top, "Main " + company}, {t.hello, hello}, {t.minusOne, "By " + company}, {t.about, "About " + product},
          {t.inner, hello}},
         {"FAILED: SetWindowTextA(hWnd, str) - GetLastError = 5", fail, fail}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        SetWindowTextA(t.tail, "tail");
        ScopedImportPatch patch(tavo::test::LoadedModule("TavoCommon.dll"), "user32.dll", "SetWindowTextA",
                                &RecordingSetWindowTextA);
        g_real = &patch;
        g_written.clear();
        g_failFor = row.failFor;
        tavo::test::ClearRecordedLines();
        EXPECT_EQ(row.hr, Tavo::ResetText(t.top, nullptr));
        EXPECT_EQ(row.written, g_written);
        EXPECT_EQ(row.lines, Lines());
        EXPECT_EQ(row.hr ? "tail" : hello, Text(t.tail));
    }
}

TEST(ResetText, MenuItemsWithStringsOnly)
{
    HMENU hMenu = CreatePopupMenu(), hSub = CreatePopupMenu();
    Item(hMenu, MFT_STRING, kOpen, "open");
    Item(hMenu, MFT_SEPARATOR, kOpen, nullptr);
    Item(hMenu, MFT_OWNERDRAW, kOpen, nullptr);
    Item(hMenu, MFT_STRING | MFT_RADIOCHECK, kOpen, "radio");
    Item(hMenu, MFT_STRING, kNone, "Keep %PRODUCT%");
    Item(hMenu, MFT_STRING, kEmpty, "Empty %PRODUCT%");
    Item(hMenu, MFT_STRING, 0, "Zero %PRODUCT%");
    Item(hMenu, MFT_STRING, kOpen, "Sub %PRODUCT%", hSub);  // has a string, yet keeps its caption
    Item(hSub, MFT_STRING, kHello, "hello");
    const std::string open = std::string("&Open ") + Tavo::GetCompanyNameA();
    const std::string hello = std::string("Hello ") + Tavo::GetProductNameA();
    const std::string fail =
        "FAILURE: ResetText(mii.hSubMenu, hInstance ? hInstance : GetCallersModuleHandle()) - 0x80070005";
    struct Row {
        const char* name;
        HMENU failFor;
        long hr;
        std::vector<std::string> lines;
    };
    const Row rows[] = {
        {"all done", nullptr, S_OK, {}},
        {"submenu fails", hSub, static_cast<long>(0x80070005),
         {"FAILED: SetMenuItemInfoA(hMenu, i, 1, &mii) - GetLastError = 5", fail}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ScopedImportPatch patch(tavo::test::LoadedModule("TavoCommon.dll"), "user32.dll", "SetMenuItemInfoA",
                                &RecordingSetMenuItemInfoA);
        g_real = &patch;
        g_written.clear();
        g_failFor = row.failFor;
        tavo::test::ClearRecordedLines();
        EXPECT_EQ(row.hr, Tavo::ResetText(hMenu, nullptr));
        EXPECT_EQ((std::vector<Written>{{hMenu, "0:" + open}, {hSub, "0:" + hello}}), g_written);
        EXPECT_EQ(row.lines, Lines());
    }
    const std::vector<std::string> kTexts = {open, "radio", "Keep %PRODUCT%", "Empty %PRODUCT%", "Zero %PRODUCT%",
                                             "Sub %PRODUCT%"};
    EXPECT_EQ(kTexts, (std::vector<std::string>{MenuText(hMenu, 0), MenuText(hMenu, 3), MenuText(hMenu, 4),
                                                MenuText(hMenu, 5), MenuText(hMenu, 6), MenuText(hMenu, 7)}));
    DestroyMenu(hMenu);
}

TEST(ResetText, InvalidHandleGivesTheLastErrorsHResult)
{
    HMENU hMenu = CreateMenu();
    struct Row {
        const char* name;
        long (*call)(HMENU);
        const char* text;  // the line, up to the error
    };
    const Row rows[] = {
        {"window", [](HMENU) { return Tavo::ResetText(reinterpret_cast<HWND>(0x4321), nullptr); },
         "FAILED: IsWindow(hWnd) - GetLastError = "},
        {"menu", [](HMENU) { return Tavo::ResetText(reinterpret_cast<HMENU>(0x4321), nullptr); },
         "FAILED: IsMenu(hMenu) - GetLastError = "},
        {"item count, no last error", [](HMENU h) {
             TAVO_PATCH_IMPORT(count, tavo::test::LoadedModule("TavoCommon.dll"), "user32.dll", GetMenuItemCount,
                               FailingGetMenuItemCount);
             return Tavo::ResetText(h, nullptr);
         }, "FAILED: -1 != (nCount = GetMenuItemCount(hMenu)) - GetLastError = "},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        tavo::test::ClearRecordedLines();
        const long hr = row.call(hMenu);
        const auto lines = Lines();
        ASSERT_EQ(1u, lines.size());
        const std::string prefix = row.text;
        ASSERT_EQ(prefix, lines[0].substr(0, prefix.size()));
        const unsigned long error = std::stoul(lines[0].substr(prefix.size()));
        EXPECT_NE(0u, error);
        EXPECT_EQ(static_cast<long>(0x80070000 | error), hr);
    }
    DestroyMenu(hMenu);
}

// Under "xx" (the locale's answer injected) a language file value stays verbatim and a window's own
// text is masked with its macros standing.
TAVO_CHILD_CASE(ResetTextMasked)
{
    TAVO_PATCH_IMPORT(locale, tavo::test::LoadedModule("TavoCommon.dll"), "kernel32.dll", GetLocaleInfoA,
                      PseudoLocaleInfoA);
    Tree t;
    HMENU hMenu = CreatePopupMenu();
    AppendMenuA(hMenu, MF_STRING, kOpen, "open");
    ChildReport("hr", Tavo::ResetText(t.top, nullptr));
    ChildReport("hrMenu", Tavo::ResetText(hMenu, nullptr));
    const HWND windows[] = {t.top, t.hello, t.minusOne, t.about, t.inner};
    for (int i = 0; i < 5; ++i) ChildReport("w" + std::to_string(i), Text(windows[i]));
    ChildReport("menu", MenuText(hMenu, 0));
    return 0;
}

TEST(ResetText, PseudoLanguageMasksOwnTextsButNotTheLanguageFile)
{
    char szExe[MAX_PATH] = {};
    GetModuleFileNameA(nullptr, szExe, MAX_PATH);
    tavo::test::ScratchInstall install;
    install.WriteFile("Language.xx.lng", std::string("[") + (strrchr(szExe, '\\') + 1) + "]\r\n2001=Hallo %PRODUCT%\r\n");
    const tavo::test::ChildResult r = install.Run("ResetTextMasked");
    ASSERT_EQ(0u, r.exitCode) << r.output;
    const char* kExpected[][2] = {{"hr", "0"}, {"hrMenu", "0"}, {"w0", "Xxxx %COMPANY%"}, {"w1", "Hallo %PRODUCT%"},
                                  {"w2", "Xx %COMPANY%"}, {"w3", "Xxxxx %PRODUCT%"}, {"w4", "Hallo %PRODUCT%"},
                                  {"menu", "&Xxxx Xxxxxxxx Xxxxxxxx"}};  // expanded, then masked
    for (const auto& [key, value] : kExpected) {
        SCOPED_TRACE(key);
        EXPECT_EQ(value, r.Value(key));
    }
}
