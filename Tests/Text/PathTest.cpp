// Path arithmetic (plain string work, wide and narrow twins, double-byte text) and the creation of
// directory chains inside a temporary directory.
#include <CorvDebug.h>
#include <TavoCommon.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Recorder.h"
#include "TavoTest.h"

using Tavo::CStringA;
using Tavo::CStringW;

namespace {

const LCID kJapaneseLocale = MAKELCID(MAKELANGID(LANG_JAPANESE, SUBLANG_DEFAULT), SORT_DEFAULT);  // 932

// "level|function|text" of every recorded line, in order.
std::vector<std::string> Lines()
{
    std::vector<std::string> lines;
    for (const tavo::test::RecordedLine& line : tavo::test::RecordedLines())
        lines.push_back(std::to_string(line.level) + "|" + line.function + "|" + line.text);
    return lines;
}

std::string Hex(long hr)
{
    char sz[16];
    snprintf(sz, sizeof(sz), "0x%08lX", static_cast<unsigned long>(hr));
    return sz;
}

} // namespace

TEST(Path, CombineJoinsWithOneBackslash)
{
    struct Row { const char* path; const char* file; const char* expected; };  // null: a null argument
    const Row rows[] = {
        {"C:\\a\\", "\\b\\c", "C:\\a\\b\\c"},
        {"C:\\a\\\\\\", "\\\\b", "C:\\a\\b"},
        {"C:\\", "x", "C:\\x"},
        {"\\\\\\", "x", "\\x"},
        {"C:\\a", "D:\\b", "C:\\a\\D:\\b"},  // an absolute second piece does not replace the first
        {"C:\\a", "b\\", "C:\\a\\b\\"},
        {"C:/a/", "/b", "C:/a/\\/b"},        // a forward slash is an ordinary character
        {"C:\\a\\", nullptr, "C:\\a\\"},     // no second piece: the first, untrimmed
        {"C:\\a\\", "", "C:\\a\\"},
        {nullptr, "\\b\\", "\\b\\"},        // no first piece: the second, untrimmed
        {"", "b", "b"},
        {nullptr, nullptr, ""},
        {"", "", ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.path ? row.path : "(null)") + " + " + (row.file ? row.file : "(null)"));
        const CStringW wPath(row.path), wFile(row.file);
        EXPECT_EQ(CStringW(row.expected), Tavo::PathCombineW(row.path ? wPath.GetString() : nullptr,
                                                             row.file ? wFile.GetString() : nullptr));
        EXPECT_EQ(CStringA(row.expected), Tavo::PathCombineA(row.path, row.file));
    }
}

// A null file is a soft check and counts as empty.
TEST(Path, RenameExtensionCutsAtTheLastDot)
{
    struct Row { const char* file; const char* extension; const char* expected; };  // null: a null argument
    const Row rows[] = {
        {"C:\\a\\file.txt", ".log", "C:\\a\\file.log"},
        {"C:\\a\\file.txt", "log", "C:\\a\\file.log"},
        {"C:\\a\\file.txt", "", "C:\\a\\file"},
        {"C:\\a\\file.txt", nullptr, "C:\\a\\file"},
        {"C:\\a\\file.tar.gz", "zip", "C:\\a\\file.tar.zip"},
        {"C:\\my.dir\\file", ".log", "C:\\my.log"},  // the dot of a directory counts too
        {"C:\\a\\file", "log", "C:\\a\\file.log"},
        {"C:\\a\\file.txt", "...", "C:\\a\\file."},
        {"", "log", ".log"},
        {nullptr, "log", ".log"},
        {nullptr, nullptr, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.file ? row.file : "(null)") + " + " + (row.extension ? row.extension : "(null)"));
        const CStringW wFile(row.file), wExtension(row.extension);
        tavo::test::ClearRecordedLines();
        SetLastError(1234);
        EXPECT_EQ(CStringW(row.expected), Tavo::PathRenameExtensionW(row.file ? wFile.GetString() : nullptr,
                                                                     row.extension ? wExtension.GetString() : nullptr));
        SetLastError(1234);
        EXPECT_EQ(CStringA(row.expected), Tavo::PathRenameExtensionA(row.file, row.extension));
        std::vector<std::string> expected;
        if (!row.file) expected = {"1|Tavo::PathRenameExtensionW|szFile - 1234", "1|Tavo::PathRenameExtensionA|szFile - 1234"};
        EXPECT_EQ(expected, Lines());
    }
}

TEST(Path, ConvertWow64PathReplacesBothNamesExactly)
{
    const char* const rows[][2] = {
        {"C:\\Program Files (x86)\\App", "C:\\Program Files\\App"},
        {"C:\\Windows\\SysWOW64", "C:\\Windows\\System32"},
        {"c:\\windows\\syswow64", "c:\\windows\\syswow64"},
        {"C:\\Program Files (x86)\\SysWOW64\\Program Files (x86)\\SysWOW64", "C:\\Program Files\\System32\\Program Files\\System32"},
        {"SysWOW64\\Program Files (x86)", "SysWOW64\\Program Files"},  // only the name behind a backslash
        {"", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row[0]);
        EXPECT_EQ(CStringW(row[1]), Tavo::ConvertWow64Path(CStringW(row[0]).GetString()));
        EXPECT_EQ(CStringA(row[1]), Tavo::ConvertWow64Path(row[0]));
    }
    EXPECT_EQ(CStringW(), Tavo::ConvertWow64Path(static_cast<const wchar_t*>(nullptr)));
    EXPECT_EQ(CStringA(), Tavo::ConvertWow64Path(static_cast<const char*>(nullptr)));
}

// The narrow twins read the text in the calling thread's code page: in 932 the bytes 83 5C are the
// one character U+30BD, whose trail byte is no backslash; in 1252 they are two characters.
TEST(Path, NarrowFormsWalkTheThreadsDoubleByteCharacters)
{
    // operation C: combine with "x", R: rename to "log", W: WOW64 conversion
    struct Row { LCID locale; char operation; const char* input; const char* expected; };
    const Row rows[] = {
        {kJapaneseLocale, 'C', "C:\\\x83\x5C", "C:\\\x83\x5C\\x"},
        {kJapaneseLocale, 'C', "C:\\\x83\x5C\\\\", "C:\\\x83\x5C\\x"},
        {kJapaneseLocale, 'C', "\x95\x5C\x83\x5C", "\x95\x5C\x83\x5C\\x"},
        {tavo::test::kEnglishLocale, 'C', "C:\\\x83\x5C", "C:\\\x83\\x"},
        {kJapaneseLocale, 'R', "C:\\\x83\x5C.txt", "C:\\\x83\x5C.log"},
        {kJapaneseLocale, 'R', "C:\\d.\x83\x5C\\f", "C:\\d.log"},
        {kJapaneseLocale, 'W', "C:\\\x83\x5CSysWOW64", "C:\\\x83\x5CSysWOW64"},
        {kJapaneseLocale, 'W', "C:\\\x83\x5C\\SysWOW64", "C:\\\x83\x5C\\System32"},
        {kJapaneseLocale, 'W', "C:\\\x83\x5CProgram Files (x86)", "C:\\\x83\x5CProgram Files (x86)"},
        {tavo::test::kEnglishLocale, 'W', "C:\\\x83\x5CSysWOW64", "C:\\\x83\\System32"},
        {kJapaneseLocale, 'C', "C:\\\x83", "C:\\\x83\\x"},  // a lead byte at the end stands alone
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(1, row.operation) + " " + row.input + " in locale " + std::to_string(row.locale));
        const CStringA actual = tavo::test::WithThreadLocale(row.locale, [&] {
            switch (row.operation) {
            case 'C': return Tavo::PathCombineA(row.input, "x");
            case 'R': return Tavo::PathRenameExtensionA(row.input, "log");
            default: return Tavo::ConvertWow64Path(row.input);
            }
        });
        EXPECT_EQ(CStringA(row.expected), actual);
    }
}

namespace {

// Everything below dir, sorted, as "a\", "a\b\", "file.txt", ...: directories end in a backslash.
std::vector<std::wstring> Tree(const std::wstring& dir, const std::wstring& prefix = L"")
{
    std::vector<std::wstring> entries;
    WIN32_FIND_DATAW found;
    const HANDLE hFind = FindFirstFileW((dir + L"\\" + prefix + L"*").c_str(), &found);
    if (hFind == INVALID_HANDLE_VALUE) return entries;
    do {
        const std::wstring name = found.cFileName;
        if (name == L"." || name == L"..") continue;
        if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
            entries.push_back(prefix + name);
            continue;
        }
        entries.push_back(prefix + name + L"\\");
        const std::vector<std::wstring> below = Tree(dir, prefix + name + L"\\");
        entries.insert(entries.end(), below.begin(), below.end());
    } while (FindNextFileW(hFind, &found));
    FindClose(hFind);
    std::sort(entries.begin(), entries.end());
    return entries;
}

} // namespace

// Each way out: the result, the one CHECK_WIN32 line of the step that failed, and what is left in
// the temporary directory; the narrow form converts in the thread's code page.
TEST(Path, CreateDirectoryMakesTheChainOrReportsTheStepThatFailed)
{
    std::string missingDrive;  // a drive letter that names no drive here, "Q:\" or so
    for (int i = 25; i >= 3 && missingDrive.empty(); --i)
        if (!(GetLogicalDrives() & (1u << i))) missingDrive = std::string(1, static_cast<char>('A' + i)) + ":\\";
    ASSERT_FALSE(missingDrive.empty());
    wchar_t szTemp[MAX_PATH];
    ASSERT_NE(0u, GetTempPathW(MAX_PATH, szTemp));
    const std::wstring root =
        szTemp + (L"TavoPathTest-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(GetTickCount()));
    ASSERT_TRUE(CreateDirectoryW(root.c_str(), nullptr));
    const std::string rootA(CStringA(root.c_str()));
    CloseHandle(CreateFileW((root + L"\\file.txt").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
    const auto removeMade = [&](std::initializer_list<const wchar_t*> made) {
        for (const wchar_t* sz : made) RemoveDirectoryW((root + L"\\" + sz).c_str());
    };

    const std::string finalTest = "FAILED: 0x00000010 == (0x00000010 & ::GetFileAttributesW(strDirectory)) - GetLastError = ";
    struct Row { std::string path; long expected; std::string line; std::vector<std::wstring> tree; };  // line: none if empty
    const std::vector<std::wstring> justTheFile = {L"file.txt"};
    const Row rows[] = {
        {rootA, S_OK, "", justTheFile},
        {rootA + "\\a\\b\\c", S_OK, "", {L"a\\", L"a\\b\\", L"a\\b\\c\\", L"file.txt"}},
        {rootA + "\\\\d\\\\\\e\\", S_OK, "", {L"d\\", L"d\\e\\", L"file.txt"}},
        {rootA + "\\file.txt\\sub\\deeper", HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND),
         "FAILED: ::CreateDirectoryW(strPath, 0) - GetLastError = 3", justTheFile},
        // The last error is whatever the successful calls before left: the sentinel set below.
        {rootA + "\\file.txt", HRESULT_FROM_WIN32(1234), finalTest + "1234", justTheFile},
        {missingDrive, HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND), finalTest + "3", justTheFile},
        {"relative\\dir", HRESULT_FROM_WIN32(1234), "FAILED: PathStripToRootW(strPath.GetBuffer()) - GetLastError = 1234",
         justTheFile},
        {"", E_INVALIDARG, "", justTheFile},
    };
    for (const bool bNarrow : {false, true}) {
        for (const Row& row : rows) {
            SCOPED_TRACE(row.path + (bNarrow ? " (narrow)" : " (wide)"));
            tavo::test::ClearRecordedLines();
            SetLastError(1234);
            const long hr = bNarrow ? Tavo::CreateDirectoryA(row.path.c_str()) : Tavo::CreateDirectoryW(CStringW(row.path.c_str()));
            EXPECT_EQ(Hex(row.expected), Hex(hr));
            std::vector<std::string> expectedLines;
            if (!row.line.empty()) expectedLines.push_back("128|Tavo::_CreateDirectory|" + row.line);
            EXPECT_EQ(expectedLines, Lines());
            EXPECT_EQ(row.tree, Tree(root));
            removeMade({L"a\\b\\c", L"a\\b", L"a", L"d\\e", L"d"});
        }
    }
    tavo::test::ClearRecordedLines();
    EXPECT_EQ(Hex(E_INVALIDARG), Hex(Tavo::CreateDirectoryW(nullptr)));
    EXPECT_EQ(Hex(E_INVALIDARG), Hex(Tavo::CreateDirectoryA(nullptr)));
    EXPECT_TRUE(Lines().empty());

    const std::string path = rootA + "\\\x83\x5C\\\xC4";  // U+30BD, then U+FF84 (half-width)
    EXPECT_EQ(Hex(S_OK), Hex(tavo::test::WithThreadLocale(kJapaneseLocale, [&] { return Tavo::CreateDirectoryA(path.c_str()); })));
    EXPECT_EQ((std::vector<std::wstring>{L"file.txt", L"\x30BD\\", L"\x30BD\\\xFF84\\"}), Tree(root));
    removeMade({L"\x30BD\\\xFF84", L"\x30BD"});
    DeleteFileW((root + L"\\file.txt").c_str());
    EXPECT_TRUE(RemoveDirectoryW(root.c_str()));
}
