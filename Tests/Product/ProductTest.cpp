// The product family. What a process keeps once is checked by a fresh child in a scratch install of its
// own; a null module is the test program (TestStrings.rc). Nothing is shown or launched for real.
#include <TavoCommon.h>

#include <shlobj.h>

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "ImportPatch.h"
#include "Recorder.h"

namespace {

using tavo::test::Library;
std::string Narrow(const wchar_t* sz) { return std::string(Tavo::CStringA(sz)); }
std::string Exe() { return _pgmptr; }
std::string Here() { return Exe().substr(0, Exe().rfind('\\')); }  // in a child: its scratch install
std::string Replace(std::string s, const std::string& from, const std::string& to)
{
    for (size_t i = s.find(from); i != std::string::npos; i = s.find(from, i + to.size())) s.replace(i, from.size(), to);
    return s;
}

// The lines of the functions whose names begin so, as "level|function|text;"; the recorder emptied.
std::string Lines(const std::string& prefix)
{
    std::string s;
    for (const tavo::test::RecordedLine& line : tavo::test::RecordedLines())
        if (line.function.rfind(prefix, 0) == 0) s += tavo::test::Brief(line) + ";";
    tavo::test::ClearRecordedLines();
    return s;
}

// A row per value under the key K<row>, read by the BOOL reader (default 5) and the DWORD reader
// (default 9); -1: the default and a line that names key and value.
const struct { const char* value; int asBool; long long asDword; } kTyped[] = {
    {"YES", 1, -1}, {"Off", 0, -1}, {"1", 1, 1}, {"0", 0, 0}, {"2", -1, 2}, {"00", -1, -1}, {"", 5, 9}, {"abc", -1, -1},
    {"-1", -1, -1}, {"2147483647", -1, -1}, {"2147483646", -1, 2147483646}, {"7x", -1, 7}};
const GUID kGuid = {0x0A1B2C3D, 0x4E5F, 0x6071, {0x82, 0x93, 0xA4, 0xB5, 0xC6, 0xD7, 0xE8, 0xF9}};

// Product.cfg rewritten: the readers read it at each call, in both widths; a null and an empty section
// are [Config]. The platform cuts a long value to the buffer; the reader doubles it (L<n>: n v's).
void CheckConfigReaders()
{
    std::ofstream cfg("Product.cfg", std::ios::trunc);
    cfg << "[Other]\nName=in Other\n[Config]\nName=in Config\nEmpty=\nCompany=E\nCompanyName=E\n"
           "Product=E\nProductName=E\nShortcutName=E\nAppDataPath=E\nHelpFile=E\nMainExe=E\nRegKey=E\nIsPortable=no\n";
    for (int cch : {255, 3000}) cfg << "L" << cch << "=" << std::string(cch, 'v') << "\n";
    for (size_t i = 0; i < std::size(kTyped); ++i) cfg << "K" << i << "=" << kTyped[i].value << "\n";
    cfg.close();
    const char* strings[][3] = {{nullptr, "Name", "in Config"}, {"", "Name", "in Config"}, {"OTHER", "name", "in Other"},
        {nullptr, "Empty", ""}, {nullptr, "Absent", "dflt"}, {nullptr, "L255", nullptr}, {nullptr, "L3000", nullptr}};
    for (const auto& [section, key, expected] : strings) {
        const std::string value = expected ? expected : std::string(std::stoul(key + 1), 'v');
        EXPECT_EQ(value, Narrow(Tavo::GetConfigString(Tavo::CStringW(key), L"dflt", Tavo::CStringW(section ? section : ""))));
        EXPECT_EQ(value, std::string(Tavo::GetConfigString(key, "dflt", section)));
    }
    for (size_t i = 0; i < std::size(kTyped); ++i) {
        const auto& [value, asBool, asDword] = kTyped[i];
        const std::string key = "K" + std::to_string(i), bad = " value " + key + " = " + value + ";";
        const std::string lines = (asBool < 0 ? "128|Tavo::GetConfigBOOL|Invalid BOOL" + bad : "") +
                                  (asDword < 0 ? "128|Tavo::GetConfigDWORD|Invalid DWORD" + bad : "");
        EXPECT_EQ(asBool < 0 ? 5 : asBool, Tavo::GetConfigBOOL(Tavo::CStringW(key.c_str()), 5)) << value;
        EXPECT_EQ(asDword < 0 ? 9 : asDword, Tavo::GetConfigDWORD(Tavo::CStringW(key.c_str()), 9)) << value;
        EXPECT_EQ(asBool < 0 ? 5 : asBool, Tavo::GetConfigBOOL(key.c_str(), 5, "")) << value;
        EXPECT_EQ(asDword < 0 ? 9 : asDword, Tavo::GetConfigDWORD(key.c_str(), 9, "")) << value;
        EXPECT_EQ(lines + lines, Lines("Tavo::")) << value;
    }
    EXPECT_EQ("{0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9}", std::string(Tavo::StringFromGuidA(Tavo::GetConfigGuid("Absent", kGuid, ""))));
    EXPECT_EQ("{00000000-0000-0000-0000-000000000000}", std::string(Tavo::StringFromGuidA(Tavo::GetConfigGuid(L"Empty", kGuid))));
    tavo::test::ClearRecordedLines();  // the default travels as text, so the parser reports the empty value
}

const int kHello = 2001, kOpen = 2002, kNone = 2099;  // TestStrings.rc
bool s_xx;  // the locale's language is "XX", which Wine lacks: injected in the library's imports
int WINAPI LocaleW(LCID id, LCTYPE type, LPWSTR sz, int n) { return s_xx ? (lstrcpynW(sz, L"XX", n), 3) : GetLocaleInfoW(id, type, sz, n); }
int WINAPI LocaleA(LCID id, LCTYPE type, LPSTR sz, int n) { return s_xx ? (lstrcpynA(sz, "XX", n), 3) : GetLocaleInfoA(id, type, sz, n); }

// The buffer forms give the whole length; a copy that does not fit is cut, terminated and reported.
// Past the copy the marker stays; cch -1: no buffer.
void CheckBufferForms()
{
    const struct { int cch; const char *text, *hr; } rows[] = {{12, "0123456789", nullptr}, {11, "0123456789", nullptr},
        {10, "012345678", "0x8007007a"}, {4, "012", "0x8007007a"}, {0, nullptr, "0x80070057"}, {-1, nullptr, "0x80004003"}};
    for (const auto& [cch, text, hr] : rows) {
        const std::string expected = text ? text + std::string(1, '\0') + std::string(15 - strlen(text), '#') : std::string(16, '#');
        std::wstring wide(16, L'#');
        std::string narrow(16, '#');
        EXPECT_EQ(10, Tavo::LoadStringW(nullptr, 3009, cch < 0 ? nullptr : wide.data(), cch)) << cch;
        EXPECT_EQ(10, Tavo::LoadStringA(nullptr, 3009, cch < 0 ? nullptr : narrow.data(), cch)) << cch;
        EXPECT_EQ(expected + "|" + expected, std::string(wide.begin(), wide.end()) + "|" + narrow) << cch;
        const std::string line = hr ? std::string("|StringCchCopy = ") + hr + ", uID = 3009, hInstance = " + Exe() + ";" : "";
        EXPECT_EQ(hr ? "128|Tavo::LoadStringW" + line + "128|Tavo::LoadStringA" + line : "", Lines("Tavo::")) << cch;
    }
}

std::vector<std::pair<const void*, std::string>> g_written;  // re-texting's writes: window or menu, text
const void* g_failing[2];                                   // the writes to these fail with error 5
BOOL Write(const void* h, const std::string& text)
{
    g_written.emplace_back(h, text);
    return h != g_failing[0] && h != g_failing[1] ? TRUE : (SetLastError(ERROR_ACCESS_DENIED), FALSE);
}
BOOL WINAPI WritingWindowText(HWND hWnd, LPCSTR sz) { return Write(hWnd, sz); }
BOOL WINAPI WritingMenuItem(HMENU h, UINT i, BOOL, LPCMENUITEMINFOA pmii) { return Write(h, std::to_string(i) + ":" + pmii->dwTypeData); }
int WINAPI FailingGetMenuItemCount(HMENU) { return SetLastError(0), -1; }
HWND Window(HWND hParent, int nId, const char* szText)
{
    return CreateWindowExA(0, "STATIC", szText, hParent ? WS_CHILD : 0, 0, 0, 9, 9, hParent, HMENU(INT_PTR(nId)), nullptr, nullptr);
}

// Depth first, a window takes its string, else its own text with the macros filled in, or masked under
// XX; a menu's plain items take their non-empty strings. A failing write ends the walk, each level
// adding its line. An invalid handle gives its last error's HRESULT, 0x8007001F when there is none.
void CheckResetText()
{
    const HWND top = Window(nullptr, 0, "Main %COMPANY%"), hello = Window(top, kHello, ""), minusOne = Window(top, -1, "By %PRODUCT%");
    const HWND blank = Window(top, kNone, ""), inner = Window(blank, kHello, ""), tail = Window(top, kHello, "");
    const HMENU hMenu = CreatePopupMenu(), hSub = CreatePopupMenu();
    AppendMenuA(hSub, MF_STRING, kHello, "hello");
    const struct { UINT flags; UINT_PTR id; const char* text; } items[] = {
        {MF_STRING, kOpen, "open"}, {MF_SEPARATOR, kOpen, nullptr}, {MF_OWNERDRAW, kOpen, nullptr},
        {MF_STRING, kNone, "None"}, {MF_STRING, 0, "Zero"}, {MF_POPUP, UINT_PTR(hSub), "Sub"}};
    for (const auto& item : items) AppendMenuA(hMenu, item.flags, item.id, item.text);
    const MENUITEMINFOA mii = {sizeof(mii), MIIM_ID, 0, 0, kOpen, nullptr, nullptr, nullptr, 0, nullptr, 0, nullptr};
    SetMenuItemInfoA(hMenu, 5, TRUE, &mii);  // a submenu's item with a string keeps its caption
    TAVO_PATCH_IMPORT(windowText, Library(), "user32.dll", SetWindowTextA, WritingWindowText);
    TAVO_PATCH_IMPORT(menuItem, Library(), "user32.dll", SetMenuItemInfoA, WritingMenuItem);
    const std::string hi = s_xx ? "Hallo %PRODUCT%" : "Hello Harbell Professional", failed = "128|Tavo::ResetText|FAILED: ";
    const std::string failure = "128|Tavo::ResetText|FAILURE: ResetText(hChild, hInstance ? hInstance : GetCallersModuleHandle())"
                                " - 0x80070005;";
    for (const bool bFail : {false, true}) {
        g_written.clear();
        g_failing[0] = bFail ? inner : nullptr, g_failing[1] = bFail ? hSub : nullptr;
        EXPECT_EQ(bFail ? E_ACCESSDENIED : S_OK, Tavo::ResetText(top, nullptr));
        EXPECT_EQ(bFail ? E_ACCESSDENIED : S_OK, Tavo::ResetText(hMenu, nullptr));
        std::vector<std::pair<const void*, std::string>> expected = {{top, s_xx ? "Xxxx %COMPANY%" : "Main Brenmoor Software"},
            {hello, hi}, {minusOne, s_xx ? "Xx %PRODUCT%" : "By Harbell Professional"}, {inner, hi}, {tail, hi},
            {hMenu, s_xx ? "0:&Xxxx Xxxxxxxx Xxxxxxxx" : "0:&Open Brenmoor Software"}, {hSub, "0:" + hi}};
        if (bFail) expected.erase(expected.begin() + 4);  // the tail is not reached
        EXPECT_EQ(expected, g_written) << bFail;
        EXPECT_EQ(bFail ? failed + "SetWindowTextA(hWnd, str) - GetLastError = 5;" + failure + failure + failed +
                  "SetMenuItemInfoA(hMenu, i, 1, &mii) - GetLastError = 5;" + Replace(failure, "hChild", "mii.hSubMenu") : "",
                  Lines("Tavo::ResetText")) << bFail;
    }
    EXPECT_EQ(HRESULT(0x80070578), Tavo::ResetText(HWND(0x4321), nullptr));
    EXPECT_EQ(HRESULT(0x80070579), Tavo::ResetText(HMENU(0x4321), nullptr));
    TAVO_PATCH_IMPORT(count, Library(), "user32.dll", GetMenuItemCount, FailingGetMenuItemCount);
    EXPECT_EQ(HRESULT(0x8007001F), Tavo::ResetText(hMenu, nullptr));
    EXPECT_EQ(failed + "IsWindow(hWnd) - GetLastError = 1400;" + failed + "IsMenu(hMenu) - GetLastError = 1401;" + failed +
              "-1 != (nCount = GetMenuItemCount(hMenu)) - GetLastError = 31;", Lines("Tavo::ResetText"));
}

// Under "de" without a language file and under "XX" with one: a file value verbatim, else the table's
// text with the macros filled in, then masked outside printf directives.
const struct { unsigned id; bool library; std::string de, xx; } kLoads[] = {  // library: its own module, else a null one
    {2001, false, "Hello Harbell Professional", "Hallo %PRODUCT%"},
    {2002, false, "&Open Brenmoor Software", "&Xxxx Xxxxxxxx Xxxxxxxx"},
    {3005, false, "100%done Saved %d files in %s.", "100%done Xxxxx %d xxxxx xx %s."},  // the file's value is empty: none
    {3006, false, std::string(256, 'X'), std::string(256, 'X')},  // fills the first read: read again
    {3009, false, "0123456789", "0123456789"},                   // the file's section lacks the extension
    {4242, false, "", ""},                                       // no such string: nothing, silently
    {102, true, "%s KB", "%s Kilobyte"}};

// The language is that of the first call: "de" through the thread locale, or "XX".
void CheckLanguage(const std::string& code)
{
    TAVO_PATCH_IMPORT(localeW, Library(), "KERNEL32.dll", GetLocaleInfoW, LocaleW);
    TAVO_PATCH_IMPORT(localeA, Library(), "KERNEL32.dll", GetLocaleInfoA, LocaleA);
    SetThreadLocale(MAKELCID(MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN), SORT_DEFAULT));
    const std::string program = Exe().substr(Here().size() + 1);
    if ((s_xx = code == "XX"))
        std::ofstream("Language.XX.lng") << "[" << program << "]\n2001=Hallo %PRODUCT%\n3005=\n[" << program.substr(0, program.rfind('.'))
                                         << "]\n3009=wrong\n[TavoCommon.dll]\n102=%s Kilobyte\n";
    for (const auto& [id, library, de, xx] : kLoads) {
        EXPECT_EQ(s_xx ? xx : de, Narrow(Tavo::LoadStringW(id, library ? Library() : nullptr))) << id;
        EXPECT_EQ(s_xx ? xx : de, std::string(Tavo::LoadStringA(id, library ? Library() : nullptr))) << id;
    }
    EXPECT_EQ("", std::string(Tavo::LoadStringA(1, tavo::test::LoadedModule("libgcc_s_dw2-1.dll"))));
    // Each twin tells its file once; a module without a string table is worth a line.
    const std::string told = "32|Tavo::GetLanguageFile?|The language file is \"" + Here() + "\\Language." + code + ".lng\";" +
                             (s_xx ? "" : "32|Tavo::GetLanguageFile?|The language file doesn't exit;");
    EXPECT_EQ(Replace(told, "?", "W") + Replace(told, "?", "A") + "128|Tavo::LoadStringA|LoadString failed, GetLastError = 1812, uID = 1, "
              "hInstance = " + Here() + "\\libgcc_s_dw2-1.dll;", Lines("Tavo::"));
    CheckBufferForms();
    CheckResetText();
}

// Help: the library's imports of the clock, the browser, the control's registration and its load led to
// these; the control itself is the stand-in HelpStandIn.dll.
__time64_t g_now;
__time64_t __cdecl FakeTime64(__time64_t* pt) { return pt ? *pt = g_now : g_now; }
INT_PTR g_shellResult;
std::string g_calls, g_control;  // the browser's starts and the control's loads; the control as registered
HINSTANCE WINAPI FakeShellExecuteA(HWND hWnd, LPCSTR szVerb, LPCSTR szFile, LPCSTR szParameters, LPCSTR szDirectory, INT nShow)
{
    g_calls += std::string(szVerb) + (hWnd || szParameters || szDirectory || nShow != SW_SHOWNORMAL ? " (odd) " : " ") + szFile + ";";
    return HINSTANCE(g_shellResult);
}
LSTATUS WINAPI FakeRegQueryValueExA(HKEY, LPCSTR, LPDWORD, LPDWORD pdwType, LPBYTE pb, LPDWORD pcb)
{
    *pdwType = g_control.find('%') == std::string::npos ? REG_SZ : REG_EXPAND_SZ;
    return lstrcpynA(reinterpret_cast<char*>(pb), g_control.c_str(), *pcb), ERROR_SUCCESS;
}
HMODULE WINAPI RefusingLoadLibraryA(LPCSTR szName)  // the system's control never loads
{
    g_calls += std::string(szName) + ";";
    return lstrcmpiA(szName, "hhctrl.ocx") ? LoadLibraryA(szName) : nullptr;
}

const struct { const char* url; __time64_t now; int topic; INT_PTR shellResult; HRESULT expected; const char* started; } kOnline[] = {
    {nullptr, 1000, 0, 42, S_OK, "http://help.tavo.example/help/{P}/topics.php?topic_id=0"},
    {nullptr, 1000, 0, 42, E_ABORT, nullptr},
    {"x:%HELPID%", 1000, 8, 32, S_OK, "x:8"},  // 32 and above: started
    {"x:%HELPID%", 1001, 8, 42, S_OK, "x:8"},
    {"x:%HELPID%", 990, 8, 42, E_ABORT, nullptr},  // the clock set back
    {"x:%HELPID%", 1001, 8, 42, E_ABORT, nullptr},
    {"x:%HELPID%", 1002, 8, 2, HRESULT(0x80070002), "x:8"},
    {"x:%HELPID%", 1003, 8, 0, S_OK, "x:8"},
    {"%HELPID%/%PRODUCT%/%HELPID%-%PRODUCT%", 1004, -3, 42, S_OK, "-3/{P}/-3-{P}"},
    {"", 1005, 9, 42, E_FAIL, nullptr},  // an empty address starts nothing, yet the filter has stored the call
    {"", 1005, 9, 42, E_ABORT, nullptr}};

// Online by default, the address read at each call (no url: no [URL] section; the stored time of 0
// lies far in the past); offline through the control, bound once for good.
void CheckHelp(const std::string& control, const std::string& loads)
{
    TAVO_PATCH_IMPORT(clock, Library(), "msvcrt.dll", _time64, FakeTime64);
    TAVO_PATCH_IMPORT(shell, Library(), "SHELL32.dll", ShellExecuteA, FakeShellExecuteA);
    TAVO_PATCH_IMPORT(query, Library(), "ADVAPI32.dll", RegQueryValueExA, FakeRegQueryValueExA);
    TAVO_PATCH_IMPORT(load, Library(), "KERNEL32.dll", LoadLibraryA, RefusingLoadLibraryA);
    for (const auto& [url, now, topic, shellResult, expected, started] : kOnline) {
        std::ofstream("Product.cfg", std::ios::trunc) << (url ? std::string("[URL]\nHelp=") + url + "\n" : "");
        g_now = now, g_shellResult = shellResult, g_calls.clear();
        EXPECT_EQ(expected, LaunchHelp(topic)) << topic << " at " << now;
        EXPECT_EQ(started ? "open " + Replace(started, "{P}", Tavo::GetProductA()) + ";" : "", g_calls) << topic << " at " << now;
    }
    std::ofstream("Product.cfg", std::ios::trunc) << "[Config]\nUseOnlineHelp=no\n";
    const std::string help = Tavo::GetHelpFilePathA(), toc = "0,1,0," + help + ";", context = "0,15,12," + help + ";";
    std::ofstream(help) << "stand-in";
    SetEnvironmentVariableA("TAVO_HELP_CONTROL", (Here() + "\\Control").c_str());
    g_control = Replace(control, "{S}", Here()), g_calls.clear();
    const HRESULT hr = loads.find("HelpStandIn") == std::string::npos ? E_FAIL : S_OK;
    for (int topic : {0, 12, 12, 4000}) EXPECT_EQ(hr, LaunchHelp(topic)) << topic;  // no repeat filter; 4000: a topic the file lacks
    DeleteFileA(help.c_str());
    EXPECT_EQ(E_FAIL, LaunchHelp(12));  // the control shows nothing
    EXPECT_EQ(Replace(loads, "{S}", Here()), g_calls);
    const auto log = reinterpret_cast<const char*(__cdecl*)()>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("HelpStandIn.dll"), "HelpStandInLog")));
    EXPECT_EQ(hr ? "" : toc + context + context + "0,15,4000," + help + ";" + toc + context + toc, log ? log() : "");
}

// {S}: the scratch install; {A}, {C}: the user's and the common application data folders. The data
// directories first: in portable mode the user's, asked for first, has to make the app one.
#define TAVO_GETTER(NAME, VALUE) {#NAME, Tavo::Get##NAME##W, Tavo::Get##NAME##A, VALUE}
const struct { const char* name; const wchar_t* (*wide)(); const char* (*narrow)(); const char* value; } kGetters[] = {
    TAVO_GETTER(UserDataDirectory, "{A}\\Brenmoor\\Harbell"), TAVO_GETTER(AppDataDirectory, "{C}\\Brenmoor\\Harbell"),
    TAVO_GETTER(InterAppDataDirectory, "{C}\\Brenmoor\\Common"), TAVO_GETTER(Company, "Brenmoor"),
    TAVO_GETTER(CompanyName, "Brenmoor Software"), TAVO_GETTER(Product, "Harbell"), TAVO_GETTER(ProductName, "Harbell Professional"),
    TAVO_GETTER(ShortcutName, "Harbell Professional.lnk"), TAVO_GETTER(InstallDirectory, "{S}"),
    TAVO_GETTER(HelpFilePath, "{S}\\Harbell.chm"), TAVO_GETTER(MainExeFile, "Harbell.exe"),
    TAVO_GETTER(MainExePath, "{S}\\Harbell.exe"), TAVO_GETTER(MainRegistryKey, "Software\\Brenmoor\\Harbell")};
// A row per fresh process: Product.cfg (null: none), the values other than the defaults, the language,
// the help control as registered and the files loaded for it.
const struct { const char *name, *cfg; std::map<std::string, std::string> changed; const char *language, *control, *loads; }
kProcesses[] = {
    {"no file", nullptr, {}, "de", "{S}\\ComServer.dll", "{S}\\ComServer.dll;"},  // it loads, but has no ordinal 14
    {"empty Company, own names", "[Config]\nCompany=\nProduct=Widget\nHelpFile=Docs\\Guide.chm\nMainExe=Tool.exe\nRegKey=Acme\\Tool\n",
     {{"Company", ""}, {"Product", "Widget"}, {"HelpFilePath", "{S}\\Docs\\Guide.chm"}, {"MainExeFile", "Tool.exe"},
      {"MainExePath", "{S}\\Tool.exe"}, {"MainRegistryKey", "Software\\Acme\\Tool"}, {"UserDataDirectory", "{A}\\Widget"},
      {"AppDataDirectory", "{C}\\Widget"}, {"InterAppDataDirectory", "{C}\\Common"}},
     "XX", "{S}\\Missing.dll", "{S}\\Missing.dll;hhctrl.ocx;"},
    {"portable, Product alone", "[CONFIG]\nIsPortable=yes\nAppDataPath={S}\\Portable\nProduct=Widget\n",
     {{"Product", "Widget"}, {"HelpFilePath", "{S}\\Widget.chm"}, {"MainExeFile", "Widget.exe"}, {"MainExePath", "{S}\\Widget.exe"},
      {"MainRegistryKey", "Software\\Brenmoor\\Widget"}, {"UserDataDirectory", "{S}\\Portable\\UserData"},
      {"AppDataDirectory", "{S}\\Portable"}},
     nullptr, "%TAVO_HELP_CONTROL%\\HelpStandIn.dll", "{S}\\Control\\HelpStandIn.dll;"},
};

BOOL WINAPI RefusingShellFolder(HWND, LPWSTR, int, BOOL) { return FALSE; }

} // namespace

// Args: the row. The values stay as first computed.
TAVO_CHILD_CASE(ProductProcess)
{
    const auto& row = kProcesses[std::stoi(tavo::test::ChildArgs().at(0))];
    std::vector<const wchar_t*> first;
    for (const auto& getter : kGetters) first.push_back(getter.wide());
    tavo::test::ClearRecordedLines();
    CheckConfigReaders();
    char szUser[MAX_PATH] = {}, szCommon[MAX_PATH] = {};
    SHGetSpecialFolderPathA(nullptr, szUser, CSIDL_APPDATA, FALSE), SHGetSpecialFolderPathA(nullptr, szCommon, CSIDL_COMMON_APPDATA, FALSE);
    for (size_t i = 0; i < std::size(kGetters); ++i) {
        const auto& [name, wide, narrow, value] = kGetters[i];
        const std::string expected = Replace(Replace(Replace(row.changed.count(name) ? row.changed.at(name) : value, "{S}", Here()),
                                                     "{A}", szUser), "{C}", szCommon);
        EXPECT_EQ(expected + "|" + expected, Narrow(first[i]) + "|" + narrow()) << name;
        EXPECT_TRUE(wide() == first[i] && narrow() == narrow()) << name << ": the same pointers";
        if (i >= 3) continue;
        EXPECT_FALSE(CreateDirectoryA(expected.c_str(), nullptr)) << name << ": made at once";
        for (const std::string root : {szUser, szCommon})  // what was made below the shell's folders goes
            for (std::string path = expected; !path.compare(0, root.size() + 1, root + "\\") && RemoveDirectoryA(path.c_str());)
                path.erase(path.rfind('\\'));
    }
    if (row.language) CheckLanguage(row.language);
    if (row.control) CheckHelp(row.control, row.loads);
    return 0;
}

TEST(Product, ConfigIdentityLanguageAndHelpInAFreshProcess)
{
    for (size_t i = 0; i < std::size(kProcesses); ++i) {
        tavo::test::ScratchInstall install;
        if (kProcesses[i].cfg) install.WriteFile("Product.cfg", Replace(kProcesses[i].cfg, "{S}", install.Path()));
        install.CopyFile("HelpStandIn.dll", "Control\\HelpStandIn.dll");
        install.CopyFile("ComServer.dll", "ComServer.dll");
        const tavo::test::ChildResult r = install.Run("ProductProcess", {std::to_string(i)});
        EXPECT_EQ(0u, r.exitCode) << kProcesses[i].name << "\n" << r.output;
    }
}

// What the shell gives is kept per id; a refusal is reported, not kept, and asked again (a line each).
TEST(Product, SpecialFolderKeptPerIdRefusalAskedAgain)
{
    char szMusic[MAX_PATH] = {};
    ASSERT_TRUE(SHGetSpecialFolderPathA(nullptr, szMusic, CSIDL_MYMUSIC, TRUE));
    const wchar_t* sz = Tavo::GetSpecialFolderW(CSIDL_MYMUSIC, nullptr);
    EXPECT_EQ(szMusic, Narrow(sz));
    EXPECT_EQ(szMusic, std::string(Tavo::GetSpecialFolderA(CSIDL_MYMUSIC, nullptr)));
    TAVO_PATCH_IMPORT(patch, Library(), "SHELL32.dll", SHGetSpecialFolderPathW, RefusingShellFolder);
    tavo::test::ClearRecordedLines();
    EXPECT_EQ(sz, Tavo::GetSpecialFolderW(CSIDL_MYMUSIC, nullptr));
    EXPECT_EQ(nullptr, Tavo::GetSpecialFolderW(0xFE, nullptr));
    EXPECT_EQ(nullptr, Tavo::GetSpecialFolderW(0xFE, nullptr));
    const std::string refusal = "128|Tavo::GetSpecialFolderW|SHGetSpecialFolderPathW(254) failed;";
    EXPECT_EQ(refusal + refusal, Lines("Tavo::GetSpecialFolder"));
}
