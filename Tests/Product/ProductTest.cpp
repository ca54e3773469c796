// Identity strings and locations are cached once per process, so each Product.cfg is read by one
// fresh child that reports every getter; the parent compares with what the file should give.
#include <TavoCommon.h>

#include <shlobj.h>

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "ImportPatch.h"
#include "Recorder.h"

using tavo::test::ChildReport;

namespace {

struct Getter {
    const char* key;
    const wchar_t* (*wide)();
    const char* (*narrow)();
};

// The user data directory comes first: in portable mode it has to make the app data one alone.
const Getter kGetters[] = {
    {"user", Tavo::GetUserDataDirectoryW, Tavo::GetUserDataDirectoryA},
    {"app", Tavo::GetAppDataDirectoryW, Tavo::GetAppDataDirectoryA},
    {"inter", Tavo::GetInterAppDataDirectoryW, Tavo::GetInterAppDataDirectoryA},
    {"company", Tavo::GetCompanyW, Tavo::GetCompanyA},
    {"companyName", Tavo::GetCompanyNameW, Tavo::GetCompanyNameA},
    {"product", Tavo::GetProductW, Tavo::GetProductA},
    {"productName", Tavo::GetProductNameW, Tavo::GetProductNameA},
    {"shortcut", Tavo::GetShortcutNameW, Tavo::GetShortcutNameA},
    {"install", Tavo::GetInstallDirectoryW, Tavo::GetInstallDirectoryA},
    {"help", Tavo::GetHelpFilePathW, Tavo::GetHelpFilePathA},
    {"exe", Tavo::GetMainExeFileW, Tavo::GetMainExeFileA},
    {"exePath", Tavo::GetMainExePathW, Tavo::GetMainExePathA},
    {"regKey", Tavo::GetMainRegistryKeyW, Tavo::GetMainRegistryKeyA},
};

bool IsDirectory(const char* szPath)
{
    const DWORD dw = GetFileAttributesA(szPath);
    return dw != INVALID_FILE_ATTRIBUTES && (dw & FILE_ATTRIBUTE_DIRECTORY);
}

std::string ShellFolder(int nFolder)
{
    char sz[MAX_PATH] = {};
    EXPECT_TRUE(SHGetSpecialFolderPathA(nullptr, sz, nFolder, FALSE)) << nFolder;
    return sz;
}

std::string Replace(std::string s, const std::string& from, const std::string& to)
{
    for (size_t i = s.find(from); i != std::string::npos; i = s.find(from, i + to.size())) s.replace(i, from.size(), to);
    return s;
}

// Removes a directory the child made below a shell folder and its emptied parents up to that folder.
void RemoveBelow(std::string path, const std::string& root)
{
    while (path.size() > root.size() && path.compare(0, root.size(), root) == 0 && RemoveDirectoryA(path.c_str()))
        path.erase(path.rfind('\\'));
}

} // namespace

// The wide values first, then Product.cfg is rewritten: neither the wide values nor the narrow ones,
// asked for only now, may show the edit.
TAVO_CHILD_CASE(ProductReadings)
{
    const wchar_t* szUser = Tavo::GetUserDataDirectoryW();
    ChildReport("early", IsDirectory(tavo::test::ChildArgs().at(0).c_str()));
    std::vector<const wchar_t*> first;
    for (const Getter& g : kGetters) first.push_back(g.wide());
    HANDLE h = CreateFileA("Product.cfg", GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    const char szEdited[] = "[Config]\r\nCompany=E\r\nCompanyName=E\r\nProduct=E\r\nProductName=E\r\nShortcutName=E\r\n"
                            "AppDataPath=E\r\nHelpFile=E\r\nMainExe=E\r\nRegKey=E\r\nIsPortable=no\r\n";
    DWORD cb = 0;
    ChildReport("edited", h != INVALID_HANDLE_VALUE && WriteFile(h, szEdited, sizeof(szEdited) - 1, &cb, nullptr));
    CloseHandle(h);
    for (size_t i = 0; i < std::size(kGetters); ++i) {
        const Getter& g = kGetters[i];
        const char* szNarrow = g.narrow();
        ChildReport(std::string(g.key) + ".w", std::string(Tavo::CStringA(first[i])));
        ChildReport(std::string(g.key) + ".a", szNarrow);
        ChildReport(std::string(g.key) + ".samePointers",
                    g.wide() == first[i] && g.narrow() == szNarrow && static_cast<const void*>(szNarrow) != first[i]);
        ChildReport(std::string(g.key) + ".exists", IsDirectory(szNarrow));
    }
    ChildReport("userFirst", szUser == first[0]);
    return 0;
}

TEST(Product, IdentityAndLocationsFollowProductCfgOncePerProcess)
{
    // {S}: the scratch directory, which is also the install directory; {A}, {C}: the user's and the
    // common application data folders.
    const std::map<std::string, std::string> kDefaults = {
        {"company", "Brenmoor"}, {"companyName", "Brenmoor Software"}, {"product", "Harbell"},
        {"productName", "Harbell Professional"}, {"shortcut", "Harbell Professional.lnk"}, {"install", "{S}"},
        {"help", "{S}\\Harbell.chm"}, {"exe", "Harbell.exe"}, {"exePath", "{S}\\Harbell.exe"},
        {"regKey", "Software\\Brenmoor\\Harbell"}, {"user", "{A}\\Brenmoor\\Harbell"}, {"app", "{C}\\Brenmoor\\Harbell"},
        {"inter", "{C}\\Brenmoor\\Common"}, {"user.exists", "true"}, {"app.exists", "true"}, {"inter.exists", "true"}};
    struct Row {
        const char* name;
        const char* cfg;  // null: no Product.cfg
        std::map<std::string, std::string> changed;
    };
    const Row rows[] = {
        {"no file", nullptr, {}},
        {"Product alone", "[Config]\r\nProduct=Widget\r\n",
         {{"product", "Widget"}, {"help", "{S}\\Widget.chm"}, {"exe", "Widget.exe"}, {"exePath", "{S}\\Widget.exe"},
          {"regKey", "Software\\Brenmoor\\Widget"}, {"user", "{A}\\Brenmoor\\Widget"}, {"app", "{C}\\Brenmoor\\Widget"}}},
        {"empty Company, own help file, exe and key",
         "[Config]\r\nCompany=\r\nHelpFile=Docs\\Guide.chm\r\nMainExe=Tool.exe\r\nRegKey=Acme\\Tool\r\n",
         {{"company", ""}, {"help", "{S}\\Docs\\Guide.chm"}, {"exe", "Tool.exe"}, {"exePath", "{S}\\Tool.exe"},
          {"regKey", "Software\\Acme\\Tool"}, {"user", "{A}\\Harbell"}, {"app", "{C}\\Harbell"}, {"inter", "{C}\\Common"}}},
        // A relative path has no root to create from: the text stays, nothing is made.
        {"portable, relative", "[config]\r\nIsPortable=yes\r\nAppDataPath=Port\\Data\r\n",
         {{"user", "Port\\Data\\UserData"}, {"app", "Port\\Data"}, {"user.exists", "false"}, {"app.exists", "false"}}},
        {"portable, absolute", "[CONFIG]\r\nIsPortable=yes\r\nAppDataPath={S}\\Portable\r\n",
         {{"user", "{S}\\Portable\\UserData"}, {"app", "{S}\\Portable"}, {"early", "true"}}},
    };
    const std::string userFolder = ShellFolder(CSIDL_APPDATA), commonFolder = ShellFolder(CSIDL_COMMON_APPDATA);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        tavo::test::ScratchInstall install;
        const auto expand = [&](const std::string& s) {
            return Replace(Replace(Replace(s, "{S}", install.Path()), "{A}", userFolder), "{C}", commonFolder);
        };
        if (row.cfg) install.WriteFile("Product.cfg", expand(row.cfg));
        std::map<std::string, std::string> expected = kDefaults;
        for (const auto& [key, value] : row.changed) expected[key] = value;
        const tavo::test::ChildResult r = install.Run("ProductReadings", {expand(expected["app"])});
        ASSERT_EQ(0u, r.exitCode) << r.output;
        EXPECT_EQ("true", r.Value("edited"));
        EXPECT_EQ("true", r.Value("userFirst"));
        for (const auto& [key, value] : expected) {
            SCOPED_TRACE(key);
            if (key == "early" || key.find('.') != std::string::npos) {
                EXPECT_EQ(value, r.Value(key));
                continue;
            }
            EXPECT_EQ(expand(value), r.Value(key + ".w"));
            EXPECT_EQ(expand(value), r.Value(key + ".a"));
            EXPECT_EQ("true", r.Value(key + ".samePointers"));
        }
        for (const char* key : {"user", "app", "inter"}) {
            RemoveBelow(r.Value(std::string(key) + ".w"), userFolder);
            RemoveBelow(r.Value(std::string(key) + ".w"), commonFolder);
        }
    }
}

namespace {

const int kRefusedFolder = 0xFE;
int s_refusedAsks, s_otherAsks;
decltype(&SHGetSpecialFolderPathW) s_realW;
decltype(&SHGetSpecialFolderPathA) s_realA;

BOOL WINAPI RefusingW(HWND hWnd, LPWSTR sz, int nFolder, BOOL bCreate)
{
    if (nFolder == kRefusedFolder) return ++s_refusedAsks, FALSE;
    return ++s_otherAsks, s_realW(hWnd, sz, nFolder, bCreate);
}

BOOL WINAPI RefusingA(HWND hWnd, LPSTR sz, int nFolder, BOOL bCreate)
{
    if (nFolder == kRefusedFolder) return ++s_refusedAsks, FALSE;
    return ++s_otherAsks, s_realA(hWnd, sz, nFolder, bCreate);
}

} // namespace

// A folder is asked for once per id; a refusal is reported, not stored, and asked again.
TEST(Product, SpecialFolderKeptPerIdRefusalAskedAgain)
{
    const HMODULE hLibrary = tavo::test::LoadedModule("TavoCommon.dll");
    TAVO_PATCH_IMPORT(patchW, hLibrary, "SHELL32.dll", SHGetSpecialFolderPathW, RefusingW);
    TAVO_PATCH_IMPORT(patchA, hLibrary, "SHELL32.dll", SHGetSpecialFolderPathA, RefusingA);
    s_realW = patchW.Original<decltype(&SHGetSpecialFolderPathW)>();
    s_realA = patchA.Original<decltype(&SHGetSpecialFolderPathA)>();
    const int kUnusedElsewhere = CSIDL_MYMUSIC;
    struct Twin {
        const char* name;
        const void* (*get)(int);
        std::string (*text)(int);
    };
    const Twin twins[] = {
        {"Tavo::GetSpecialFolderW", [](int n) -> const void* { return Tavo::GetSpecialFolderW(n, nullptr); },
         [](int n) { return std::string(Tavo::CStringA(Tavo::GetSpecialFolderW(n, nullptr))); }},
        {"Tavo::GetSpecialFolderA", [](int n) -> const void* { return Tavo::GetSpecialFolderA(n, nullptr); },
         [](int n) { return std::string(Tavo::GetSpecialFolderA(n, nullptr)); }},
    };
    for (const Twin& twin : twins) {
        SCOPED_TRACE(twin.name);
        s_refusedAsks = s_otherAsks = 0;
        tavo::test::ClearRecordedLines();
        EXPECT_EQ(nullptr, twin.get(kRefusedFolder));
        EXPECT_EQ(nullptr, twin.get(kRefusedFolder));
        EXPECT_EQ(2, s_refusedAsks);
        const void* p = twin.get(kUnusedElsewhere);
        ASSERT_NE(nullptr, p);
        EXPECT_EQ(p, twin.get(kUnusedElsewhere));
        EXPECT_EQ(1, s_otherAsks);
        EXPECT_EQ(ShellFolder(kUnusedElsewhere), twin.text(kUnusedElsewhere));
        EXPECT_TRUE(IsDirectory(twin.text(kUnusedElsewhere).c_str()));
        std::vector<std::string> refusals;
        for (const tavo::test::RecordedLine& line : tavo::test::RecordedLines())
            if (line.text.find("SHGetSpecialFolderPath") != std::string::npos)
                refusals.push_back(std::to_string(line.level) + "|" + line.function + "|" + line.format + "|" + line.text);
        const std::string refusal = std::string("128|") + twin.name + "|SHGetSpecialFolderPathW(%d) failed|SHGetSpecialFolderPathW(254) failed";
        EXPECT_EQ(std::vector<std::string>(2, refusal), refusals);
    }
}
