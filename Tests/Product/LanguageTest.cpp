// The language is fixed by the first call of a process, so each language and language file is read
// by one fresh child; the test program's own string table (TestStrings.rc) is what a null module reads.
#include <CorvDebug.h>
#include <TavoCommon.h>

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "ImportPatch.h"
#include "Recorder.h"

using tavo::test::ChildReport;

namespace {

const unsigned kIds[] = {3001, 3002, 3003, 3004, 3005, 3006, 3007, 3009, 4242};

std::string Letters(size_t cch)
{
    std::string s;
    for (size_t i = 0; i < cch; ++i) s += static_cast<char>('a' + i % 26);
    return s;
}

std::string ProgramName()
{
    char sz[MAX_PATH] = {};
    GetModuleFileNameA(nullptr, sz, MAX_PATH);
    return strrchr(sz, '\\') + 1;
}

// Wine has no locale whose language is "xx": the code is injected in the library's imports.
std::string s_injectedCode;
int WINAPI InjectedCodeW(LCID, LCTYPE, LPWSTR sz, int cch)
{
    return MultiByteToWideChar(CP_ACP, 0, s_injectedCode.c_str(), -1, sz, cch);
}
int WINAPI InjectedCodeA(LCID, LCTYPE, LPSTR sz, int cch)
{
    return lstrcpynA(sz, s_injectedCode.c_str(), cch) ? static_cast<int>(s_injectedCode.size() + 1) : 0;
}

} // namespace

// args: the language ("de" through the thread locale, anything else injected). The wide loads come
// before the narrow ones, and each form is asked many times: its two lines must come once.
TAVO_CHILD_CASE(LanguageReadings)
{
    const HMODULE hLibrary = tavo::test::LoadedModule("TavoCommon.dll");
    s_injectedCode = tavo::test::ChildArgs().at(0);
    std::unique_ptr<tavo::test::ScopedImportPatch> patchW, patchA;
    if (s_injectedCode == "de") {
        SetThreadLocale(MAKELCID(MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN), SORT_DEFAULT));
    } else {
        patchW = std::make_unique<tavo::test::ScopedImportPatch>(hLibrary, "KERNEL32.dll", "GetLocaleInfoW", &InjectedCodeW);
        patchA = std::make_unique<tavo::test::ScopedImportPatch>(hLibrary, "KERNEL32.dll", "GetLocaleInfoA", &InjectedCodeA);
    }
    tavo::test::ClearRecordedLines();
    for (unsigned id : kIds) ChildReport("w." + std::to_string(id), std::string(Tavo::CStringA(Tavo::LoadStringW(id, nullptr))));
    ChildReport("w.102", std::string(Tavo::CStringA(Tavo::LoadStringW(102, hLibrary))));
    wchar_t wsz[8] = {L'#', L'#', L'#', L'#', L'#', L'#', L'#', L'#'};
    ChildReport("w.buffer", Tavo::LoadStringW(nullptr, 3009, wsz, 4));
    ChildReport("w.bufferText", std::string(Tavo::CStringA(wsz)) + static_cast<char>(wsz[4]));
    for (unsigned id : kIds) ChildReport("a." + std::to_string(id), std::string(Tavo::LoadStringA(id, nullptr)));
    ChildReport("a.102", std::string(Tavo::LoadStringA(102, hLibrary)));
    char sz[8] = {'#', '#', '#', '#', '#', '#', '#', '#'};
    ChildReport("a.buffer", Tavo::LoadStringA(nullptr, 3009, sz, 4));
    ChildReport("a.bufferText", std::string(sz) + sz[4]);
    ChildReport("noTable", std::string(Tavo::LoadStringA(1, tavo::test::LoadedModule("libgcc_s_dw2-1.dll"))));
    std::string lines;
    for (const tavo::test::RecordedLine& line : tavo::test::RecordedLines())
        if (line.function.rfind("Tavo::GetLanguageFile", 0) == 0 || line.function.rfind("Tavo::LoadString", 0) == 0)
            lines += std::to_string(line.level) + "|" + line.function + "|" + line.text + "\n";
    ChildReport("lines", lines);
    return 0;
}

TEST(Language, FileOverridesTableMacrosAndMaskingInAFreshProcess)
{
    const std::string program = ProgramName();
    const std::string file = "[" + program + "]\r\n3001=From the file, %PRODUCT% as it stands\r\n3002=\r\n"
                             "[" + program.substr(0, program.rfind('.')) + "]\r\n3009=wrong section\r\n"
                             "[TavoCommon.dll]\r\n102=%s Kilobyte\r\n";
    const std::map<std::string, std::string> kTable = {
        {"3001", "From the table"}, {"3002", "Table two"}, {"3003", "&Save %s file"},
        {"3004", "Harbell Professional by Brenmoor Software"}, {"3005", "100%done Saved %d files in %s."},
        {"3006", Letters(254)}, {"3007", Letters(255)}, {"3009", "0123456789"}, {"4242", ""}, {"102", "%s KB"},
        {"buffer", "10"}, {"bufferText", "012#"}};
    const std::map<std::string, std::string> kMasked = {
        {"3001", "From the file, %PRODUCT% as it stands"}, {"3002", "Xxxxx xxx"}, {"3003", "&Xxxx %s xxxx"},
        {"3004", "Xxxxxxx Xxxxxxxxxxxx xx Xxxxxxxx Xxxxxxxx"}, {"3005", "100%done Xxxxx %d xxxxx xx %s."},
        {"3006", std::string(254, 'x')}, {"3007", std::string(255, 'x')}, {"102", "%s Kilobyte"}};
    struct Row {
        const char* name;
        const char* code;
        bool withFile;
        std::map<std::string, std::string> changed;
    };
    const Row rows[] = {
        {"de, no file", "de", false, {}},
        {"de, file", "de", true, {{"3001", "From the file, %PRODUCT% as it stands"}, {"102", "%s Kilobyte"}}},
        {"xx", "xx", true, kMasked},
        {"XX", "XX", true, kMasked},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        tavo::test::ScratchInstall install;
        const std::string path = install.Path() + "\\Language." + row.code + ".lng";
        if (row.withFile) install.WriteFile(std::string("Language.") + row.code + ".lng", file);
        const tavo::test::ChildResult r = install.Run("LanguageReadings", {row.code});
        ASSERT_EQ(0u, r.exitCode) << r.output;
        std::map<std::string, std::string> expected = kTable;
        for (const auto& [key, value] : row.changed) expected[key] = value;
        for (const auto& [key, value] : expected) {
            SCOPED_TRACE(key);
            EXPECT_EQ(value, r.Value("w." + key));
            EXPECT_EQ(value, r.Value("a." + key));
        }
        EXPECT_EQ("", r.Value("noTable"));
        const std::string missing = row.withFile ? "" : "The language file doesn't exit\n";
        const std::string copy = "128|Tavo::LoadString%c|StringCchCopy = 0x8007007a, uID = 3009, hInstance = " +
                                 install.Path() + "\\" + program + "\n";
        std::string expectedLines = "32|Tavo::GetLanguageFileW|The language file is \"" + path + "\"\n" +
                                    (missing.empty() ? "" : "32|Tavo::GetLanguageFileW|" + missing) + copy;
        expectedLines += "32|Tavo::GetLanguageFileA|The language file is \"" + path + "\"\n" +
                         (missing.empty() ? "" : "32|Tavo::GetLanguageFileA|" + missing) + copy;
        expectedLines += "128|Tavo::LoadStringA|LoadString failed, GetLastError = 1812, uID = 1, hInstance = " +
                         install.Path() + "\\libgcc_s_dw2-1.dll\n";
        expectedLines.replace(expectedLines.find("%c"), 2, "W");
        expectedLines.replace(expectedLines.find("%c"), 2, "A");
        EXPECT_EQ(expectedLines, r.Value("lines"));
    }
}

namespace {

enum class Answer { Real, Fails, Library };
Answer s_answer;
const void* s_asked;
decltype(&GetModuleHandleExA) s_realGetModuleHandleEx;

BOOL WINAPI FakeGetModuleHandleEx(DWORD dwFlags, LPCSTR sz, HMODULE* phModule)
{
    s_asked = sz;
    const BOOL bOk = s_realGetModuleHandleEx(dwFlags, sz, phModule);
    if (s_answer == Answer::Fails) *phModule = nullptr, SetLastError(ERROR_INVALID_PARAMETER);
    if (s_answer == Answer::Library) *phModule = GetModuleHandleA("TavoCommon.dll"), SetLastError(1234);
    return s_answer == Answer::Fails ? FALSE : bOk;
}

} // namespace

// The module that a null handle stands for comes from the return address of the export's own call.
TEST(Language, NullModuleIsTheCallersModule)
{
    const HMODULE hLibrary = tavo::test::LoadedModule("TavoCommon.dll");
    TAVO_PATCH_IMPORT(patch, hLibrary, "KERNEL32.dll", GetModuleHandleExA, FakeGetModuleHandleEx);
    s_realGetModuleHandleEx = patch.Original<decltype(&GetModuleHandleExA)>();
    struct Row {
        Answer answer;
        const char* text;  // "" for no line
    };
    const Row rows[] = {
        {Answer::Real, ""},
        {Answer::Fails, "GetModuleHandleEx(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, (LPCTSTR)_ReturnAddress(), &hInstance) - 87"},
        {Answer::Library, "hInstance != _AtlBaseModule.GetModuleInstance() - 1234"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        s_answer = row.answer;
        s_asked = nullptr;
        tavo::test::ClearRecordedLines();
        // A failed look-up is the main executable, which is this program too; the library's own
        // module has the unit words.
        const unsigned id = row.answer == Answer::Library ? 102 : 3003;
        const std::string expected = row.answer == Answer::Library ? "%s KB" : "&Save %s file";
        EXPECT_EQ(expected, std::string(Tavo::CStringA(Tavo::LoadStringW(id, nullptr))));
        HMODULE hAsked = nullptr;
        EXPECT_TRUE(s_realGetModuleHandleEx(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                                            static_cast<LPCSTR>(s_asked), &hAsked));
        EXPECT_EQ(GetModuleHandleA(nullptr), hAsked);
        std::string lines;
        for (const tavo::test::RecordedLine& line : tavo::test::RecordedLines())
            if (line.function == "Tavo::GetCallersModuleHandle")
                lines += std::to_string(line.level) + "|" + line.format + "|" + line.text;
        EXPECT_EQ(*row.text ? std::string("1|%s - %lu|") + row.text : "", lines);
    }
}
