// Paths in both widths (the narrow ones walk the thread's double-byte characters), chains of
// directories made in a temporary directory, tokens, GUID text and the names of registry keys.
#include "TextTest.h"

#include <mbctype.h>

namespace {

const LCID kJapanese = MAKELCID(MAKELANGID(LANG_JAPANESE, SUBLANG_DEFAULT), SORT_DEFAULT);  // code page 932

// C: combine, R: rename the extension, W: the WOW64 names; the narrow forms in the thread's code page.
std::string Path(char op, const char* a, const char* b, LCID lcid = tavo::test::kEnglishLocale)
{
    return Text(tavo::test::WithThreadLocale(lcid, [&] {
        return op == 'C' ? Tavo::PathCombineA(a, b) : op == 'R' ? Tavo::PathRenameExtensionA(a, b) : Tavo::ConvertWow64Path(a);
    }));
}

// "HRESULT [token]...", the array holding "kept" before.
template <typename XCHAR, typename DELIMITERS>
std::string Split(const XCHAR* sz, DELIMITERS delimiters)
{
    Tavo::CAtlArray<Tavo::CStringT<XCHAR>> tokens;
    tokens.Add(Tavo::CStringT<XCHAR>("kept"));
    std::string s = Hex(Tavo::SplitString(sz, delimiters, tokens));
    for (size_t i = 0; i < tokens.GetCount(); ++i) s += " [" + Text(tokens[i]) + "]";
    return s;
}

// Wine 8's _mbscspn compares single bytes: Windows' answer for code page 932 is played.
size_t __cdecl Mbscspn(const unsigned char* sz, const unsigned char* szSet)
{
    size_t i = 0;
    for (; sz[i] && !strchr(reinterpret_cast<const char*>(szSet), sz[i]); ++i) if (IsDBCSLeadByteEx(932, sz[i]) && sz[i + 1]) ++i;  // a trail byte is no delimiter
    return i;
}

// The native call sizing the name, then refusing it; the blocks the library takes from the run-time are counted.
LONG NTAPI RefusingSecondQuery(HANDLE, int, PVOID pv, ULONG, PULONG pcb) { return pv ? 0xC000009AL : (*pcb = 10, 0xC0000023L); }
int s_blocks;
void* __cdecl CountedCalloc(size_t n, size_t cb) { return ++s_blocks, calloc(n, cb); }
void __cdecl CountedFree(void* pv) { s_blocks -= pv != nullptr, free(pv); }

} // namespace

// Both widths, null for a null argument; a null file to rename is a soft check. In code page 932 the
// bytes 83 5C are one character, U+30BD, whose trail byte is no backslash; in 1252 they are two.
TEST(Path, CombineRenameWow64NamesAndDirectoryChains)
{
    const struct { char op; const char *a, *b, *expected; } rows[] = {
        {'C', "C:\\a\\", "\\b\\c", "C:\\a\\b\\c"}, {'C', "C:\\a\\\\\\", "\\\\b", "C:\\a\\b"}, {'C', "\\\\\\", "x", "\\x"},
        {'C', "C:/a/", "/b", "C:/a/\\/b"}, {'C', "C:\\a\\", nullptr, "C:\\a\\"}, {'C', nullptr, "\\b\\", "\\b\\"}, {'C', "", "", ""},
        {'R', "C:\\a\\f.txt", "...log", "C:\\a\\f.log"}, {'R', "C:\\a\\f.tar.gz", "zip", "C:\\a\\f.tar.zip"}, {'R', "C:\\my.dir\\f", "log", "C:\\my.log"},
        {'R', "C:\\a\\f", "log", "C:\\a\\f.log"}, {'R', "C:\\a\\f.txt", nullptr, "C:\\a\\f"}, {'R', "C:\\a\\f.txt", "", "C:\\a\\f"}, {'R', nullptr, "log", ".log"},
        {'W', "C:\\Program Files (x86)\\SysWOW64\\Program Files (x86)\\SysWOW64", nullptr, "C:\\Program Files\\System32\\Program Files\\System32"},
        {'W', "c:\\windows\\syswow64", nullptr, "c:\\windows\\syswow64"}, {'W', "SysWOW64\\Program Files (x86)", nullptr, "SysWOW64\\Program Files"}, {'W', nullptr, nullptr, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(1, row.op) + " " + (row.a ? row.a : "(null)") + " " + (row.b ? row.b : "(null)"));
        const CStringW a(row.a), b(row.b);
        const wchar_t *wa = row.a ? a.GetString() : nullptr, *wb = row.b ? b.GetString() : nullptr;
        tavo::test::ClearRecordedLines();
        SetLastError(1234);
        EXPECT_EQ(row.expected, Text(row.op == 'C' ? Tavo::PathCombineW(wa, wb) : row.op == 'R' ? Tavo::PathRenameExtensionW(wa, wb) : Tavo::ConvertWow64Path(wa)));
        SetLastError(1234);
        EXPECT_EQ(row.expected, Path(row.op, row.a, row.b));
        const Lines rename = {"1|Tavo::PathRenameExtensionW|szFile - 1234", "1|Tavo::PathRenameExtensionA|szFile - 1234"};
        EXPECT_EQ(row.op == 'R' && !row.a ? rename : Lines(), Recorded());
    }
    EXPECT_EQ("C:\\\x83\x5C\\x \x95\x5C\x83\x5C\\x C:\\\x83\\x C:\\\x83\x5C.log C:\\d.log C:\\\x83\x5CSysWOW64 C:\\\x83\x5C\\System32",
              Join({Path('C', "C:\\\x83\x5C\\\\", "x", kJapanese), Path('C', "\x95\x5C\x83\x5C", "x", kJapanese), Path('C', "C:\\\x83", "x", kJapanese),
                    Path('R', "C:\\\x83\x5C.txt", "log", kJapanese), Path('R', "C:\\d.\x83\x5C\\f", "log", kJapanese),
                    Path('W', "C:\\\x83\x5CSysWOW64", nullptr, kJapanese), Path('W', "C:\\\x83\x5C\\SysWOW64", nullptr, kJapanese)}));
    EXPECT_EQ("C:\\\x83\\x C:\\\x83\\System32", Join({Path('C', "C:\\\x83\x5C", "x"), Path('W', "C:\\\x83\x5CSysWOW64", nullptr)})) << "in 1252";

    // A failed step's line carries the last error as the calls before it left it.

    wchar_t szTemp[MAX_PATH];
    ASSERT_NE(0u, GetTempPathW(MAX_PATH, szTemp));
    const std::wstring root = szTemp + (L"TavoPathTest-" + std::to_wstring(GetCurrentProcessId()));
    ASSERT_TRUE(CreateDirectoryW(root.c_str(), nullptr));
    const std::string rootA = Text(root.c_str()), file = rootA + "\\file.txt", failed = "128|Tavo::_CreateDirectory|FAILED: ";
    CloseHandle(CreateFileA(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
    const struct { bool bNarrow; std::string path; HRESULT hr; std::string line; std::vector<const wchar_t*> made; } chains[] = {
        {false, rootA, S_OK, "", {}}, {true, rootA + "\\a\\b\\c", S_OK, "", {L"a\\b\\c", L"a\\b", L"a"}},
        {false, rootA + "\\\\d\\\\\\e\\", S_OK, "", {L"d\\e", L"d"}}, {true, rootA + "\\\x83\x5C\\\xC4", S_OK, "", {L"\x30BD\\\xFF84", L"\x30BD"}},
        {false, file + "\\sub\\deeper", HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND), failed + "::CreateDirectoryW(strPath, 0) - GetLastError = 3", {}},
        {true, file, HRESULT_FROM_WIN32(1234), failed + "0x00000010 == (0x00000010 & ::GetFileAttributesW(strDirectory)) - GetLastError = 1234", {}},
        {true, "relative\\dir", HRESULT_FROM_WIN32(1234), failed + "PathStripToRootW(strPath.GetBuffer()) - GetLastError = 1234", {}},
        {false, "", E_INVALIDARG, "", {}},
    };
    for (const auto& row : chains) {
        SCOPED_TRACE(::testing::PrintToString(row.path));  // escaped: the path may hold double-byte text
        tavo::test::ClearRecordedLines();
        SetLastError(1234);
        const long hr = row.bNarrow ? tavo::test::WithThreadLocale(kJapanese, [&] { return Tavo::CreateDirectoryA(row.path.c_str()); })
                                    : Tavo::CreateDirectoryW(CStringW(row.path.c_str()));
        EXPECT_EQ(Hex(row.hr), Hex(hr));
        EXPECT_EQ(row.line.empty() ? Lines() : Lines{row.line}, Recorded());
        for (const wchar_t* sz : row.made) EXPECT_TRUE(RemoveDirectoryW((root + L"\\" + sz).c_str())) << Text(sz);
    }
    EXPECT_EQ("0x80070057 0x80070057", Join({Hex(Tavo::CreateDirectoryW(nullptr)), Hex(Tavo::CreateDirectoryA(nullptr))}));
    EXPECT_TRUE(DeleteFileA(file.c_str()) && RemoveDirectoryW(root.c_str())) << "nothing else was made";
}

// Tokens are appended; the narrow forms keep a double-byte character whole (83 5C in code page 932). A
// GUID's text may come with or without braces; a key's name is the native call's, which leaves the
// last error alone.
TEST(Names, TokensGuidTextAndRegistryKeyNames)
{
    const auto set = [](const char* sz, const char* delimiters) {
        return [=] { return Join({Split(sz, delimiters), Split(sz ? CStringW(sz).GetString() : nullptr, delimiters ? CStringW(delimiters).GetString() : nullptr)}); };
    };
    const auto one = [](const char* sz, char ch) { return [=] { return Join({Split(sz, ch), Split(CStringW(sz).GetString(), static_cast<wchar_t>(ch))}); }; };
    const auto twice = [](const std::string& s) { return s + " " + s; };
    const Lines refused(2, "128|Tavo::SplitString|FAILURE: E_INVALIDARG - 0x80070057"), empty(2, "128|Tavo::GuidFromString|Invalid NULL or empty string argument: szGuid");
    const GUID guid = {0x6B29FC40, 0xCA47, 0x1067, {0xB3, 0x1D, 0x00, 0xDD, 0x01, 0x06, 0x62, 0xDA}};
    const auto parsed = [&](const char* sz) {
        return [=] { return Join({IsEqualGUID(guid, Tavo::GuidFromString(sz)), IsEqualGUID(guid, Tavo::GuidFromString(sz ? CStringW(sz).GetString() : nullptr))}); };
    };
    HKEY hOpen = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"System", 0, KEY_READ, &hOpen));
    static HKEY hKeyAny = hOpen;
    ULONG block[128] = {}, cb = 0;  // the name asked directly: a byte count, the name unterminated, zeros behind
    const auto query = reinterpret_cast<LONG(NTAPI*)(HANDLE, int, PVOID, ULONG, PULONG)>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("ntdll.dll"), "ZwQueryKey")));
    ASSERT_EQ(0, query(hOpen, 3, block, sizeof(block) - 2, &cb));
    const std::string name = Text(reinterpret_cast<const wchar_t*>(block + 1)), failed = "128|Tavo::StringFromHKEYW|FAILED: ";
    const auto verify = [](const char* aw) { return "4|Tavo::StringFromHKEY" + std::string(aw) + "|StringFromHKEYW(hKey, strOutput) - 0x800704d2"; };
    ExpectCases({
        {"any of a set", set("a,b;c", ",;"), twice("0x00000000 [kept] [a] [b] [c]"), {}}, {"none but delimiters", set(",;,", ",;"), twice("0x00000000 [kept]"), {}},
        {"one, in runs", one(",,a,,b;c,,", ','), twice("0x00000000 [kept] [a] [b;c]"), {}}, {"%", one("x%y%%z", '%'), twice("0x00000000 [kept] [x] [y] [z]"), {}},
        {"no delimiters", set("one", ""), twice("0x80070057 [kept]"), refused}, {"null delimiters", set("one", nullptr), twice("0x80070057 [kept]"), refused},
        {"delimiter 0", one("a b", '\0'), twice("0x80070057 [kept]"), refused}, {"null text", set(nullptr, ","), twice("0x80070057 [kept]"), refused},
        {"GUID text", TEXT_OF(Tavo::StringFromGuidW(guid), Tavo::StringFromGuidA(guid)), "{6B29FC40-CA47-1067-B31D-00DD010662DA} {6B29FC40-CA47-1067-B31D-00DD010662DA}", {}},
        {"braced", parsed("{6B29FC40-CA47-1067-B31D-00DD010662DA}"), "1 1", {}}, {"bare, lower case", parsed("6b29fc40-ca47-1067-b31d-00dd010662da"), "1 1", {}},
        {"blank first", parsed(" {6B29FC40-CA47-1067-B31D-00DD010662DA}"), "0 0", Lines(2, "4|Tavo::GuidFromString|CLSIDFromString(strGuid, &guid) - 0x800401f3")},
        {"empty", parsed(""), "0 0", empty}, {"null", parsed(nullptr), "0 0", empty},
        {"open key", TEXT_OF(Tavo::StringFromHKEYW(hOpen), Tavo::StringFromHKEYA(hOpen)), name + " " + name, Lines(2, "32|Tavo::StringFromHKEYW|" + name)},
        {"null key", TEXT_OF(Tavo::StringFromHKEYW(nullptr), Tavo::StringFromHKEYA(nullptr)), " ",
         {failed + "hKey - GetLastError = 1234", verify("W"), failed + "hKey - GetLastError = 1234", verify("A")}},
        {"predefined key: no handle to the native call", TEXT_OF(Tavo::StringFromHKEYW(HKEY_CURRENT_USER)), "",
         {failed + "((NTSTATUS)0xC0000023L) == ZwQueryKey(hKey, KeyNameInformation, 0, 0, &dwSize) - GetLastError = 1234", verify("W")}},
        {"no native entry", [] { tavo::test::ScopedProcAddressOverride none(Library(), "ZwQueryKey", nullptr); return Text(Tavo::StringFromHKEYW(hKeyAny)); }, "",
         {failed + "ZwQueryKey = (ZWQUERYKEY)::GetProcAddress(hModule, \"ZwQueryKey\") - GetLastError = 127", "4|Tavo::StringFromHKEYW|StringFromHKEYW(hKey, strOutput) - 0x8007007f"}},
        {"name refused after sizing: no block kept", [] {
             tavo::test::ScopedProcAddressOverride refusing(Library(), "ZwQueryKey", &RefusingSecondQuery);
             TAVO_PATCH_IMPORT(allocate, Library(), "msvcrt.dll", calloc, CountedCalloc);
             TAVO_PATCH_IMPORT(release, Library(), "msvcrt.dll", free, CountedFree);
             s_blocks = 0;
             return Join({Tavo::StringFromHKEYW(hKeyAny), s_blocks});
         }, " 0", {"128|Tavo::StringFromHKEYW|ERROR: ZwQueryKey(hKey, KeyNameInformation, p, dwSize, &dwSize) = 3221225626",
                   "4|Tavo::StringFromHKEYW|StringFromHKEYW(hKey, strOutput) - 0xc000009a"}},
    });
    RegCloseKey(hOpen);
    const int nOldCodePage = _getmbcp();
    ASSERT_EQ(0, _setmbcp(932));
    tavo::test::ScopedImportPatch cspn(Library(), "msvcrt.dll", "_mbscspn", &Mbscspn);
    const std::string tokens = Split("\\a\x83\x5C" "b\\c", '\\');
    _setmbcp(nOldCodePage);
    EXPECT_EQ("0x00000000 [kept] [a\x83\x5C" "b] [c]", tokens);
}
