// Tokens, GUID text and registry key names.
#include <CorvDebug.h>
#include <TavoCommon.h>

#include <gtest/gtest.h>

#include <mbctype.h>

#include <optional>
#include <string>
#include <vector>

#include "ImportPatch.h"
#include "Recorder.h"

using Tavo::CStringA;
using Tavo::CStringW;
using tavo::test::RecordedLine;
using tavo::test::RecordedLines;
using tavo::test::ScopedImportPatch;
using tavo::test::ScopedProcAddressOverride;

namespace {

HMODULE Library() { return GetModuleHandleW(L"TavoCommon.dll"); }

std::string Narrow(const wchar_t* sz) { return std::string(CStringA(sz).GetString()); }

std::vector<std::string> Tokens(const Tavo::CAtlArray<CStringA>& a)
{
    std::vector<std::string> v;
    for (size_t i = 0; i < a.GetCount(); ++i) v.push_back(a[i].GetString());
    return v;
}

std::vector<std::string> Tokens(const Tavo::CAtlArray<CStringW>& a)
{
    std::vector<std::string> v;
    for (size_t i = 0; i < a.GetCount(); ++i) v.push_back(Narrow(a[i]));
    return v;
}

void ExpectLine(const RecordedLine& line, unsigned level, const char* function, const char* format,
                const std::string& text)
{
    EXPECT_EQ(level, line.level);
    EXPECT_EQ("Misc.cpp", line.file);
    EXPECT_EQ(function, line.function);
    EXPECT_EQ(format, line.format);
    EXPECT_EQ(text, line.text);
}

std::string Hex(HRESULT hr)
{
    char sz[16];
    snprintf(sz, sizeof(sz), "%#08lx", static_cast<unsigned long>(hr));
    return sz;
}

} // namespace

// ---- SplitString ----------------------------------------------------------------------------------

TEST(SplitString, AppendsTheTokensBetweenRunsOfAnyDelimiter)
{
    struct Row {
        const char* string;
        const char* delimiters;  // null: the single-character form with `single`
        char single;
        std::vector<std::string> before;
        std::vector<std::string> after;
        HRESULT hr;
    };
    const Row rows[] = {
        {"a,b;c", ",;", 0, {}, {"a", "b", "c"}, S_OK},
        {"a,b;c", nullptr, ',', {}, {"a", "b;c"}, S_OK},
        {",,a,,b,,", nullptr, ',', {}, {"a", "b"}, S_OK},
        {"", ",", 0, {}, {}, S_OK},
        {",;,", ",;", 0, {}, {}, S_OK},
        {"a,b", ",", 0, {"kept"}, {"kept", "a", "b"}, S_OK},
        {"x%y%%z", nullptr, '%', {}, {"x", "y", "z"}, S_OK},
        {"one", "", 0, {"kept"}, {"kept"}, E_INVALIDARG},
        {"a b", nullptr, '\0', {}, {}, E_INVALIDARG},
        {nullptr, ",", 0, {}, {}, E_INVALIDARG},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.string ? row.string : "(null)") + " by " +
                     (row.delimiters ? row.delimiters : std::string(1, row.single)));
        Tavo::CAtlArray<CStringA> narrow;
        Tavo::CAtlArray<CStringW> wide;
        for (const std::string& s : row.before) {
            narrow.Add(CStringA(s.c_str()));
            wide.Add(CStringW(s.c_str()));
        }
        const CStringW strString(row.string);
        const wchar_t* szWide = row.string ? strString.GetString() : nullptr;
        tavo::test::ClearRecordedLines();
        if (row.delimiters) {
            EXPECT_EQ(row.hr, Tavo::SplitString(row.string, row.delimiters, narrow));
            EXPECT_EQ(row.hr, Tavo::SplitString(szWide, CStringW(row.delimiters).GetString(), wide));
        } else {
            EXPECT_EQ(row.hr, Tavo::SplitString(row.string, row.single, narrow));
            EXPECT_EQ(row.hr, Tavo::SplitString(szWide, static_cast<wchar_t>(row.single), wide));
        }
        EXPECT_EQ(row.after, Tokens(narrow));
        EXPECT_EQ(row.after, Tokens(wide));
        const std::vector<RecordedLine> lines = RecordedLines();
        if (SUCCEEDED(row.hr)) {
            EXPECT_TRUE(lines.empty());
            continue;
        }
        ASSERT_EQ(2u, lines.size());
        for (const RecordedLine& line : lines)
            ExpectLine(line, TRACE_ERROR, "Tavo::SplitString", "FAILURE: %s - %#08lx", "FAILURE: E_INVALIDARG - 0x80070057");
    }
    Tavo::CAtlArray<CStringA> narrow;
    Tavo::CAtlArray<CStringW> wide;
    EXPECT_EQ(E_INVALIDARG, Tavo::SplitString("a", static_cast<const char*>(nullptr), narrow));
    EXPECT_EQ(E_INVALIDARG, Tavo::SplitString(L"a", static_cast<const wchar_t*>(nullptr), wide));
}

namespace {
// Windows' answer under code page 932; Wine 8's _mbscspn compares single bytes.
size_t __cdecl DoubleByteMbscspn(const unsigned char* sz, const unsigned char* szSet)
{
    size_t i = 0;
    while (sz[i]) {
        if (IsDBCSLeadByteEx(932, sz[i]) && sz[i + 1]) {
            i += 2;
            continue;
        }
        if (strchr(reinterpret_cast<const char*>(szSet), sz[i])) break;
        ++i;
    }
    return i;
}
} // namespace

// 0x83 0x5C is one character in code page 932 whose trail byte is the backslash.
TEST(SplitString, NarrowFormKeepsADoubleByteCharacterWhole)
{
    const int nOldCodePage = _getmbcp();
    ASSERT_EQ(0, _setmbcp(932)) << "code page 932 for the run-time's multi-byte routines";
    ScopedImportPatch cspn(Library(), "msvcrt.dll", "_mbscspn", &DoubleByteMbscspn);
    Tavo::CAtlArray<CStringA> tokens;
    const HRESULT hr = Tavo::SplitString("\\a\x83\x5C" "b\\c", '\\', tokens);
    _setmbcp(nOldCodePage);
    EXPECT_EQ(S_OK, hr);
    const std::vector<std::string> expected = {"a\x83\x5C" "b", "c"};
    EXPECT_EQ(expected, Tokens(tokens));
}

// ---- GUID text --------------------------------------------------------------------------------------

namespace {
const GUID kGuid = {0x6B29FC40, 0xCA47, 0x1067, {0xB3, 0x1D, 0x00, 0xDD, 0x01, 0x06, 0x62, 0xDA}};
const GUID kZero = {};
int s_parses;
decltype(&CLSIDFromString) s_realClsidFromString;
HRESULT WINAPI CountingClsidFromString(LPCOLESTR sz, LPCLSID pclsid)
{
    ++s_parses;
    return s_realClsidFromString(sz, pclsid);
}
} // namespace

TEST(Guid, TextRoundTripsInUpperCaseWithBraces)
{
    EXPECT_EQ("{6B29FC40-CA47-1067-B31D-00DD010662DA}", Narrow(Tavo::StringFromGuidW(kGuid)));
    EXPECT_EQ("{6B29FC40-CA47-1067-B31D-00DD010662DA}", std::string(Tavo::StringFromGuidA(kGuid)));
    EXPECT_EQ("{00000000-0000-0000-0000-000000000000}", std::string(Tavo::StringFromGuidA(kZero)));
    const GUID other = {0x01234567, 0x89AB, 0xCDEF, {0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x10}};
    EXPECT_TRUE(IsEqualGUID(other, Tavo::GuidFromString(Tavo::StringFromGuidW(other))));
}

// Braced or not, either case: the same GUID. Anything else: all zeros and one line, and no parse
// at all for nothing to parse.
TEST(Guid, ParsesWithOrWithoutBracesAndReportsTheRest)
{
    struct Row {
        const char* text;
        GUID guid;
        int parses;
        unsigned level;  // 0: no line
        const char* format;
        std::string line;
    };
    const std::string badParse = "CLSIDFromString(strGuid, &guid) - " + Hex(CO_E_CLASSSTRING);
    const Row rows[] = {
        {"{6B29FC40-CA47-1067-B31D-00DD010662DA}", kGuid, 1, 0, "", ""},
        {"6b29fc40-ca47-1067-b31d-00dd010662da", kGuid, 1, 0, "", ""},
        {" {6B29FC40-CA47-1067-B31D-00DD010662DA}", kZero, 1, TRACE_VERIFY_HR, "%s - %#08lx", badParse},
        {"", kZero, 0, TRACE_ERROR, "Invalid NULL or empty string argument: szGuid",
         "Invalid NULL or empty string argument: szGuid"},
        {nullptr, kZero, 0, TRACE_ERROR, "Invalid NULL or empty string argument: szGuid",
         "Invalid NULL or empty string argument: szGuid"},
    };
    ScopedImportPatch parse(Library(), "ole32.dll", "CLSIDFromString", &CountingClsidFromString);
    s_realClsidFromString = parse.Original<decltype(&CLSIDFromString)>();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text ? row.text : "(null)");
        const CStringW strWide(row.text);
        tavo::test::ClearRecordedLines();
        s_parses = 0;
        EXPECT_TRUE(IsEqualGUID(row.guid, Tavo::GuidFromString(row.text)));
        EXPECT_TRUE(IsEqualGUID(row.guid, Tavo::GuidFromString(row.text ? strWide.GetString() : nullptr)));
        EXPECT_EQ(2 * row.parses, s_parses);
        const std::vector<RecordedLine> lines = RecordedLines();
        ASSERT_EQ(row.level ? 2u : 0u, lines.size());
        for (const RecordedLine& line : lines) ExpectLine(line, row.level, "Tavo::GuidFromString", row.format, row.line);
    }
}

// ---- Registry key names -----------------------------------------------------------------------------

namespace {

typedef LONG(NTAPI* PFN_QUERY_KEY)(HANDLE, int, PVOID, ULONG, PULONG);
const LONG kBufferTooSmall = static_cast<LONG>(0xC0000023);
const LONG kNoMemory = static_cast<LONG>(0xC000009A);

std::wstring NativeKeyName(HKEY hKey)
{
    auto pfn = reinterpret_cast<PFN_QUERY_KEY>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("ntdll.dll"), "ZwQueryKey")));
    std::vector<BYTE> block(4096);
    ULONG cb = 0;
    if (!pfn || pfn(hKey, 3, block.data(), static_cast<ULONG>(block.size()), &cb) != 0) return L"(no answer)";
    ULONG cbName;
    memcpy(&cbName, block.data(), sizeof(cbName));
    return std::wstring(reinterpret_cast<const wchar_t*>(block.data() + 4), cbName / 2);
}

int s_mallocs, s_frees;
decltype(&malloc) s_realMalloc;
decltype(&free) s_realFree;
bool s_failMalloc;
void* __cdecl CountingMalloc(size_t cb)
{
    ++s_mallocs;
    if (s_failMalloc) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    return s_realMalloc(cb);
}
void __cdecl CountingFree(void* pv)
{
    if (pv) ++s_frees;
    s_realFree(pv);
}

// The library's run-time heap calls, counted for the life of the object.
struct CountedHeap {
    ScopedImportPatch allocate{Library(), "msvcrt.dll", "malloc", &CountingMalloc};
    ScopedImportPatch release{Library(), "msvcrt.dll", "free", &CountingFree};
    explicit CountedHeap(bool bFail)
    {
        s_realMalloc = allocate.Original<decltype(&malloc)>();
        s_realFree = release.Original<decltype(&free)>();
        s_failMalloc = bFail;
        s_mallocs = s_frees = 0;
    }
};

decltype(&GetModuleHandleA) s_realGetModuleHandleA;
HMODULE WINAPI NoNtdll(LPCSTR sz)
{
    if (sz && lstrcmpiA(sz, "ntdll.dll") == 0) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    return s_realGetModuleHandleA(sz);
}

ULONG s_secondLength;
// Probe: a name of three characters. Second query: refused.
LONG NTAPI RefusingSecondQuery(HANDLE, int nClass, PVOID pv, ULONG cb, PULONG pcbResult)
{
    if (nClass != 3) return static_cast<LONG>(0xC000000D);
    *pcbResult = 4 + 6;
    if (!pv) return kBufferTooSmall;
    s_secondLength = cb;
    return kNoMemory;
}
} // namespace

TEST(StringFromHKEY, AnOpenKeyGivesItsNativeNameAndOneInfoLine)
{
    HKEY hKey = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(HKEY_CURRENT_USER, L"Software", 0, KEY_READ, &hKey));
    const std::wstring expected = NativeKeyName(hKey);
    CountedHeap heap(false);
    tavo::test::ClearRecordedLines();
    const CStringW wide = Tavo::StringFromHKEYW(hKey);
    const CStringA narrow = Tavo::StringFromHKEYA(hKey);
    RegCloseKey(hKey);

    EXPECT_EQ(0, _wcsnicmp(wide, L"\\REGISTRY\\USER\\", 15)) << "no short root names: " << Narrow(wide);
    EXPECT_EQ(expected, std::wstring(wide.GetString()));
    EXPECT_EQ(Narrow(expected.c_str()), std::string(narrow));
    EXPECT_EQ(2, s_mallocs);
    EXPECT_EQ(2, s_frees);
    const std::vector<RecordedLine> lines = RecordedLines();
    ASSERT_EQ(2u, lines.size());
    for (const RecordedLine& line : lines) ExpectLine(line, TRACE_INFO, "Tavo::StringFromHKEYW", "%ls", Narrow(expected.c_str()));
}

// Each way out: the failed step's line, then the exported form's soft check, an empty result, and
// the block released where one was taken.
TEST(StringFromHKEY, EachFailedStepGivesItsLineAndAnEmptyResult)
{
    const DWORD kSentinel = 0x1234;  // the native call sets no last error: the thread's own shows
    const std::string probe = "FAILED: ((NTSTATUS)0xC0000023L) == ZwQueryKey(hKey, KeyNameInformation, 0, 0, &dwSize)"
                              " - GetLastError = " + std::to_string(kSentinel);
    enum Inject { kNone, kNoNtdll, kNoEntry, kNoMemory, kSecondRefused };
    struct Row {
        const char* name;
        HKEY hKey;
        Inject inject;
        std::string line;  // the failed step's; the exported form's soft check follows
        HRESULT hr;
        int mallocs;
    };
    const HKEY hUnopened = HKEY_CURRENT_USER;  // a predefined key is no handle to the native call
    const Row rows[] = {
        {"null key", nullptr, kNone, "FAILED: hKey - GetLastError = " + std::to_string(kSentinel),
         HRESULT_FROM_WIN32(kSentinel), 0},
        {"refused handle", hUnopened, kNone, probe, HRESULT_FROM_WIN32(kSentinel), 0},
        {"no ntdll", hUnopened, kNoNtdll,
         "FAILED: hModule = GetModuleHandleA(\"ntdll.dll\") - GetLastError = 126", HRESULT_FROM_WIN32(126), 0},
        {"no entry", hUnopened, kNoEntry,
         "FAILED: ZwQueryKey = (ZWQUERYKEY)::GetProcAddress(hModule, \"ZwQueryKey\") - GetLastError = 127",
         HRESULT_FROM_WIN32(127), 0},
        {"no memory", hUnopened, kNoMemory,
         "FAILED: p.AllocateBytes(dwSize) - GetLastError = 8", HRESULT_FROM_WIN32(8), 1},
        {"second query refused", hUnopened, kSecondRefused,
         "ERROR: ZwQueryKey(hKey, KeyNameInformation, p, dwSize, &dwSize) = " + std::to_string(0xC000009Aul),
         static_cast<HRESULT>(0xC000009A), 1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::optional<ScopedImportPatch> noNtdll;
        std::optional<ScopedProcAddressOverride> entry;
        if (row.inject == kNoNtdll) {
            noNtdll.emplace(Library(), "KERNEL32.dll", "GetModuleHandleA", &NoNtdll);
            s_realGetModuleHandleA = noNtdll->Original<decltype(&GetModuleHandleA)>();
        }
        if (row.inject == kNoEntry) entry.emplace(Library(), "ZwQueryKey", nullptr);
        if (row.inject == kNoMemory || row.inject == kSecondRefused)
            entry.emplace(Library(), "ZwQueryKey", &RefusingSecondQuery);
        CountedHeap heap(row.inject == kNoMemory);
        s_secondLength = 0;
        tavo::test::ClearRecordedLines();
        SetLastError(kSentinel);
        const CStringW result = Tavo::StringFromHKEYW(row.hKey);
        EXPECT_TRUE(result.IsEmpty());
        EXPECT_EQ(row.mallocs, s_mallocs);
        EXPECT_EQ(s_failMalloc ? 0 : row.mallocs, s_frees);
        if (row.inject == kSecondRefused) {
            EXPECT_EQ(12u, s_secondLength) << "the probe's size and a terminator";
        }

        const std::vector<RecordedLine> lines = RecordedLines();
        ASSERT_EQ(2u, lines.size());
        ExpectLine(lines[0], TRACE_ERROR, "Tavo::StringFromHKEYW",
                   row.inject == kSecondRefused ? "ERROR: %s = %lu" : "FAILED: %s - GetLastError = %lu", row.line);
        ExpectLine(lines[1], TRACE_VERIFY_HR, "Tavo::StringFromHKEYW", "%s - %#08lx",
                   "StringFromHKEYW(hKey, strOutput) - " + Hex(row.hr));
    }
    tavo::test::ClearRecordedLines();
    EXPECT_TRUE(Tavo::StringFromHKEYA(nullptr).IsEmpty());
    const std::vector<RecordedLine> lines = RecordedLines();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("Tavo::StringFromHKEYA", lines[1].function);
    EXPECT_EQ(0u, lines[1].text.find("StringFromHKEYW(hKey, strOutput) - "));
}
