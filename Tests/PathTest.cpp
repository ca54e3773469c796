// Path arithmetic (plain string work, wide and narrow twins, double-byte text) and the creation of
// directory chains, inside a temporary directory that each test removes.
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

// ---- Path arithmetic ---------------------------------------------------------------------------

TEST(Path, CombineJoinsWithOneBackslash)
{
    struct Row {
        const char* path;  // null stands for a null argument
        const char* file;
        const char* expected;
    };
    const Row rows[] = {
        {"C:\\a\\", "\\b\\c", "C:\\a\\b\\c"},
        {"C:\\a\\\\\\", "\\\\b", "C:\\a\\b"},
        {"C:\\", "x", "C:\\x"},
        {"\\\\\\", "x", "\\x"},
        {"C:\\a", "D:\\b", "C:\\a\\D:\\b"},  // an absolute second piece does not replace the first
        {"C:\\a", "b\\", "C:\\a\\b\\"},      // the second piece keeps its trailing backslash
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

TEST(Path, RenameExtensionCutsAtTheLastDot)
{
    struct Row {
        const char* file;
        const char* extension;
        const char* expected;
    };
    const Row rows[] = {
        {"C:\\a\\file.txt", ".log", "C:\\a\\file.log"},
        {"C:\\a\\file.txt", "log", "C:\\a\\file.log"},
        {"C:\\a\\file.txt", "", "C:\\a\\file"},
        {"C:\\a\\file.txt", nullptr, "C:\\a\\file"},
        {"C:\\a\\file.tar.gz", "zip", "C:\\a\\file.tar.zip"},
        {"C:\\my.dir\\file", ".log", "C:\\my.log"},  // the dot of a directory counts too
        {"C:\\a\\file", "log", "C:\\a\\file.log"},
        {"C:\\a\\file.txt", "...", "C:\\a\\file."},    // an extension of dots only
        {"C:\\a\\file.txt", "..log", "C:\\a\\file.log"},
        {"", "log", ".log"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.file) + " + " + (row.extension ? row.extension : "(null)"));
        const CStringW wExtension(row.extension);
        EXPECT_EQ(CStringW(row.expected),
                  Tavo::PathRenameExtensionW(CStringW(row.file), row.extension ? wExtension.GetString() : nullptr));
        EXPECT_EQ(CStringA(row.expected), Tavo::PathRenameExtensionA(row.file, row.extension));
    }
}

TEST(Path, RenameExtensionOfANullFileIsASoftCheckAndEmpty)
{
    tavo::test::ClearRecordedLines();
    SetLastError(1234);
    EXPECT_EQ(CStringW(L".log"), Tavo::PathRenameExtensionW(nullptr, L"log"));
    SetLastError(1234);
    EXPECT_EQ(CStringA(""), Tavo::PathRenameExtensionA(nullptr, nullptr));
    const std::vector<std::string> expected = {
        "1|Tavo::PathRenameExtensionW|szFile - 1234",
        "1|Tavo::PathRenameExtensionA|szFile - 1234",
    };
    EXPECT_EQ(expected, Lines());
}

TEST(Path, ConvertWow64PathReplacesBothNamesExactly)
{
    struct Row {
        const char* path;
        const char* expected;
    };
    const Row rows[] = {
        {"C:\\Program Files (x86)\\App", "C:\\Program Files\\App"},
        {"C:\\Windows\\SysWOW64", "C:\\Windows\\System32"},
        {"c:\\windows\\syswow64", "c:\\windows\\syswow64"},
        {"C:\\Program Files (x86)\\SysWOW64\\x\\SysWOW64", "C:\\Program Files\\System32\\x\\System32"},
        {"SysWOW64\\Program Files (x86)", "SysWOW64\\Program Files"},  // only the name behind a backslash
        {"D:\\Program Files (x86)\\Program Files (x86)", "D:\\Program Files\\Program Files"},
        {"", ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.path);
        EXPECT_EQ(CStringW(row.expected), Tavo::ConvertWow64Path(CStringW(row.path).GetString()));
        EXPECT_EQ(CStringA(row.expected), Tavo::ConvertWow64Path(row.path));
    }
    EXPECT_EQ(CStringW(), Tavo::ConvertWow64Path(static_cast<const wchar_t*>(nullptr)));
    EXPECT_EQ(CStringA(), Tavo::ConvertWow64Path(static_cast<const char*>(nullptr)));
}

// The narrow twins read the text in the calling thread's code page: in 932 the bytes 83 5C are the
// one character U+30BD, whose trail byte is no backslash; in 1252 they are two characters.
TEST(Path, NarrowFormsWalkTheThreadsDoubleByteCharacters)
{
    struct Row {
        LCID locale;
        const char* operation;  // C: combine with "x", R: rename to "log", W: WOW64 conversion
        const char* input;
        const char* expected;
    };
    const Row rows[] = {
        {kJapaneseLocale, "C", "C:\\\x83\x5C", "C:\\\x83\x5C\\x"},
        {kJapaneseLocale, "C", "C:\\\x83\x5C\\\\", "C:\\\x83\x5C\\x"},
        {kJapaneseLocale, "C", "\x95\x5C\x83\x5C", "\x95\x5C\x83\x5C\\x"},
        {tavo::test::kEnglishLocale, "C", "C:\\\x83\x5C", "C:\\\x83\\x"},
        {kJapaneseLocale, "R", "C:\\\x83\x5C.txt", "C:\\\x83\x5C.log"},
        {kJapaneseLocale, "R", "C:\\d.\x83\x5C\\f", "C:\\d.log"},
        {kJapaneseLocale, "W", "C:\\\x83\x5CSysWOW64", "C:\\\x83\x5CSysWOW64"},
        {kJapaneseLocale, "W", "C:\\\x83\x5C\\SysWOW64", "C:\\\x83\x5C\\System32"},
        {kJapaneseLocale, "W", "C:\\\x83\x5CProgram Files (x86)", "C:\\\x83\x5CProgram Files (x86)"},
        {tavo::test::kEnglishLocale, "W", "C:\\\x83\x5CSysWOW64", "C:\\\x83\\System32"},
        {kJapaneseLocale, "C", "C:\\\x83", "C:\\\x83\\x"},  // a lead byte at the end stands alone
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.operation) + " " + row.input + " in locale " + std::to_string(row.locale));
        const CStringA actual = tavo::test::WithThreadLocale(row.locale, [&] {
            switch (row.operation[0]) {
            case 'C': return Tavo::PathCombineA(row.input, "x");
            case 'R': return Tavo::PathRenameExtensionA(row.input, "log");
            default: return Tavo::ConvertWow64Path(row.input);
            }
        });
        EXPECT_EQ(CStringA(row.expected), actual);
    }
}

// ---- Directory chains --------------------------------------------------------------------------

namespace {

void RemoveTree(const std::wstring& dir)
{
    WIN32_FIND_DATAW found;
    HANDLE hFind = FindFirstFileW((dir + L"\\*").c_str(), &found);
    if (hFind != INVALID_HANDLE_VALUE) {
        do {
            const std::wstring name = found.cFileName;
            if (name == L"." || name == L"..") continue;
            if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
                RemoveTree(dir + L"\\" + name);
            } else {
                DeleteFileW((dir + L"\\" + name).c_str());
            }
        } while (FindNextFileW(hFind, &found));
        FindClose(hFind);
    }
    RemoveDirectoryW(dir.c_str());
}

// Everything below dir, as "a", "a\b", ...; directories end in a backslash.
void ListTree(const std::wstring& dir, const std::string& prefix, std::vector<std::string>& entries)
{
    WIN32_FIND_DATAW found;
    HANDLE hFind = FindFirstFileW((dir + L"\\*").c_str(), &found);
    if (hFind == INVALID_HANDLE_VALUE) return;
    do {
        const std::wstring name = found.cFileName;
        if (name == L"." || name == L"..") continue;
        const std::string entry = prefix + std::string(CStringA(name.c_str()));
        if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
            entries.push_back(entry + "\\");
            ListTree(dir + L"\\" + name, entry + "\\", entries);
        } else {
            entries.push_back(entry);
        }
    } while (FindNextFileW(hFind, &found));
    FindClose(hFind);
}

// A drive letter that names no drive here, "Q:\" or so.
std::string MissingDrive()
{
    const DWORD dwDrives = GetLogicalDrives();
    for (int i = 25; i >= 3; --i)
        if (!(dwDrives & (1u << i))) return std::string(1, static_cast<char>('A' + i)) + ":\\";
    return "";
}

class CreateDirectoryTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        wchar_t szTemp[MAX_PATH];
        ASSERT_NE(0u, GetTempPathW(MAX_PATH, szTemp));
        root_ = std::wstring(szTemp) + L"TavoPathTest-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                std::to_wstring(GetTickCount());
        ASSERT_TRUE(CreateDirectoryW(root_.c_str(), nullptr));
    }
    void TearDown() override { RemoveTree(root_); }

    std::string Root() const { return std::string(CStringA(root_.c_str())); }
    void MakeFile(const std::string& relative) const
    {
        HANDLE h = CreateFileA((Root() + "\\" + relative).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
        ASSERT_NE(INVALID_HANDLE_VALUE, h);
        CloseHandle(h);
    }
    std::vector<std::string> Tree() const
    {
        std::vector<std::string> entries;
        ListTree(root_, "", entries);
        std::sort(entries.begin(), entries.end());
        return entries;
    }

    std::wstring root_;
};

const char kFinalTest[] = "FAILED: 0x00000010 == (0x00000010 & ::GetFileAttributesW(strDirectory)) - GetLastError = ";
const char kCreateLevel[] = "FAILED: ::CreateDirectoryW(strPath, 0) - GetLastError = ";
const char kStripToRoot[] = "FAILED: PathStripToRootW(strPath.GetBuffer()) - GetLastError = ";

} // namespace

TEST_F(CreateDirectoryTest, MakesTheChainOrReportsTheStepThatFailed)
{
    MakeFile("file.txt");
    const std::string missingDrive = MissingDrive();
    ASSERT_FALSE(missingDrive.empty());
    struct Row {
        std::string path;  // "~" stands for the temporary directory
        long expected;
        const char* line;  // the one CHECK_WIN32 line, before its error number; null: none
        DWORD error;       // the error number that line shows
        std::vector<std::string> tree;  // what the temporary directory holds afterwards
    };
    const std::vector<std::string> justTheFile = {"file.txt"};
    const Row rows[] = {
        {"~", S_OK, nullptr, 0, justTheFile},
        {"~\\a\\b\\c", S_OK, nullptr, 0, {"a\\", "a\\b\\", "a\\b\\c\\", "file.txt"}},
        {"~\\\\d\\\\\\e\\", S_OK, nullptr, 0, {"d\\", "d\\e\\", "file.txt"}},
        {"~\\file.txt\\sub\\deeper", HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND), kCreateLevel, ERROR_PATH_NOT_FOUND,
         justTheFile},
        // The last error is whatever the successful calls before left: the sentinel set below.
        {"~\\file.txt", HRESULT_FROM_WIN32(1234), kFinalTest, 1234, justTheFile},
        {missingDrive, HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND), kFinalTest, ERROR_PATH_NOT_FOUND, justTheFile},
        {"relative\\dir", HRESULT_FROM_WIN32(1234), kStripToRoot, 1234, justTheFile},
    };
    for (const bool bNarrow : {false, true}) {
        for (const Row& row : rows) {
            std::string path = row.path;
            if (path[0] == '~') path = Root() + path.substr(1);
            SCOPED_TRACE(path + (bNarrow ? " (narrow)" : " (wide)"));
            tavo::test::ClearRecordedLines();
            SetLastError(1234);
            const long hr = bNarrow ? Tavo::CreateDirectoryA(path.c_str())
                                    : Tavo::CreateDirectoryW(CStringW(path.c_str()));
            EXPECT_EQ(Hex(row.expected), Hex(hr));
            std::vector<std::string> expectedLines;
            if (row.line) expectedLines.push_back("128|Tavo::_CreateDirectory|" + (row.line + std::to_string(row.error)));
            EXPECT_EQ(expectedLines, Lines());
            EXPECT_EQ(row.tree, Tree());
            for (const char* made : {"a", "d"}) RemoveTree(root_ + L"\\" + CStringW(made).GetString());
        }
    }
}

TEST_F(CreateDirectoryTest, EmptyOrNullIsInvalidWithNoLine)
{
    tavo::test::ClearRecordedLines();
    EXPECT_EQ(Hex(E_INVALIDARG), Hex(Tavo::CreateDirectoryW(nullptr)));
    EXPECT_EQ(Hex(E_INVALIDARG), Hex(Tavo::CreateDirectoryW(L"")));
    EXPECT_EQ(Hex(E_INVALIDARG), Hex(Tavo::CreateDirectoryA(nullptr)));
    EXPECT_EQ(Hex(E_INVALIDARG), Hex(Tavo::CreateDirectoryA("")));
    EXPECT_TRUE(Lines().empty());
}

// The narrow form converts in the thread's code page and creates through the wide calls.
TEST_F(CreateDirectoryTest, NarrowPathsConvertInTheThreadsCodePage)
{
    const std::string path = Root() + "\\\x83\x5C\\\xC4";  // U+30BD, then U+FF84 (half-width)
    const long hr = tavo::test::WithThreadLocale(kJapaneseLocale, [&] { return Tavo::CreateDirectoryA(path.c_str()); });
    EXPECT_EQ(Hex(S_OK), Hex(hr));
    const std::wstring expected = root_ + L"\\\x30BD\\\xFF84";
    EXPECT_EQ(FILE_ATTRIBUTE_DIRECTORY, GetFileAttributesW(expected.c_str()) & FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_NE(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(expected.c_str()));
}
