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
using tavo::test::ScopedImportPatch;

namespace {

HMODULE Library() { return GetModuleHandleW(L"TavoCommon.dll"); }

std::string Narrow(const wchar_t* sz) { return std::string(CStringA(sz).GetString()); }

template <typename T>
std::vector<std::string> Tokens(const Tavo::CAtlArray<T>& a)
{
    std::vector<std::string> v;
    for (size_t i = 0; i < a.GetCount(); ++i) v.push_back(std::string(CStringA(a[i]).GetString()));
    return v;
}

// "level|function|format|text" of every recorded line, in order; all must come from `file`.
std::vector<std::string> Lines(const char* file)
{
    std::vector<std::string> lines;
    for (const tavo::test::RecordedLine& l : tavo::test::RecordedLines()) {
        EXPECT_EQ(file, l.file);
        lines.push_back(std::to_string(l.level) + "|" + l.function + "|" + l.format + "|" + l.text);
    }
    return lines;
}

} // namespace

TEST(SplitString, AppendsTheTokensBetweenRunsOfAnyDelimiter)
{
    // delimiters null: the single-character form with `single`; kept: the array holds "kept" before.
    struct Row { const char* string; const char* delimiters; char single; bool kept; std::vector<std::string> after; HRESULT hr; };
    const Row rows[] = {
        {"a,b;c", ",;", 0, false, {"a", "b", "c"}, S_OK},
        {"a,b;c", nullptr, ',', false, {"a", "b;c"}, S_OK},
        {",,a,,b,,", nullptr, ',', false, {"a", "b"}, S_OK},
        {"", ",", 0, false, {}, S_OK},
        {",;,", ",;", 0, false, {}, S_OK},
        {"a,b", ",", 0, true, {"kept", "a", "b"}, S_OK},
        {"x%y%%z", nullptr, '%', false, {"x", "y", "z"}, S_OK},
        {"one", "", 0, true, {"kept"}, E_INVALIDARG},
        {"a b", nullptr, '\0', false, {}, E_INVALIDARG},
        {nullptr, ",", 0, false, {}, E_INVALIDARG},
    };
    const std::string refused = std::to_string(TRACE_ERROR) + "|Tavo::SplitString|FAILURE: %s - %#08lx|FAILURE: E_INVALIDARG - 0x80070057";
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.string ? row.string : "(null)") + " by " +
                     (row.delimiters ? row.delimiters : std::string(1, row.single)));
        Tavo::CAtlArray<CStringA> narrow;
        Tavo::CAtlArray<CStringW> wide;
        if (row.kept) {
            narrow.Add(CStringA("kept"));
            wide.Add(CStringW(L"kept"));
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
        EXPECT_EQ((FAILED(row.hr) ? std::vector<std::string>{refused, refused} : std::vector<std::string>()), Lines("Tokens.cpp"));
    }
    Tavo::CAtlArray<CStringA> narrow;
    Tavo::CAtlArray<CStringW> wide;
    EXPECT_EQ(E_INVALIDARG, Tavo::SplitString("a", static_cast<const char*>(nullptr), narrow));
    EXPECT_EQ(E_INVALIDARG, Tavo::SplitString(L"a", static_cast<const wchar_t*>(nullptr), wide));
}

// 0x83 0x5C is one character in code page 932 whose trail byte is the backslash. Wine 8's _mbscspn
// compares single bytes, so Windows' answer is injected.
TEST(SplitString, NarrowFormKeepsADoubleByteCharacterWhole)
{
    struct Windows {
        static size_t __cdecl Mbscspn(const unsigned char* sz, const unsigned char* szSet)
        {
            size_t i = 0;
            for (; sz[i]; ++i) {
                if (IsDBCSLeadByteEx(932, sz[i]) && sz[i + 1]) ++i;
                else if (strchr(reinterpret_cast<const char*>(szSet), sz[i])) break;
            }
            return i;
        }
    };
    const int nOldCodePage = _getmbcp();
    ASSERT_EQ(0, _setmbcp(932)) << "code page 932 for the run-time's multi-byte routines";
    ScopedImportPatch cspn(Library(), "msvcrt.dll", "_mbscspn", &Windows::Mbscspn);
    Tavo::CAtlArray<CStringA> tokens;
    const HRESULT hr = Tavo::SplitString("\\a\x83\x5C" "b\\c", '\\', tokens);
    _setmbcp(nOldCodePage);
    EXPECT_EQ(S_OK, hr);
    EXPECT_EQ((std::vector<std::string>{"a\x83\x5C" "b", "c"}), Tokens(tokens));
}

namespace {
int s_parses;
decltype(&CLSIDFromString) s_realClsidFromString;
HRESULT WINAPI CountingClsidFromString(LPCOLESTR sz, LPCLSID pclsid)
{
    ++s_parses;
    return s_realClsidFromString(sz, pclsid);
}
} // namespace

// Upper case with braces. Braced or not, either case: the same GUID. Anything else: all
// zeros and one line, and no parse at all for nothing to parse.
TEST(Guid, TextRoundTripsAndParsesWithOrWithoutBraces)
{
    const GUID guid = {0x6B29FC40, 0xCA47, 0x1067, {0xB3, 0x1D, 0x00, 0xDD, 0x01, 0x06, 0x62, 0xDA}};
    EXPECT_EQ("{6B29FC40-CA47-1067-B31D-00DD010662DA}", Narrow(Tavo::StringFromGuidW(guid)));
    EXPECT_EQ("{6B29FC40-CA47-1067-B31D-00DD010662DA}", std::string(Tavo::StringFromGuidA(guid)));

    const std::string empty = std::to_string(TRACE_ERROR) + "|Tavo::GuidFromString|Invalid NULL or empty string "
                              "argument: szGuid|Invalid NULL or empty string argument: szGuid";
    struct Row { const char* text; bool parsed; std::string line; };  // line empty: none
    const Row rows[] = {
        {"{6B29FC40-CA47-1067-B31D-00DD010662DA}", true, ""},
        {"6b29fc40-ca47-1067-b31d-00dd010662da", true, ""},
        {" {6B29FC40-CA47-1067-B31D-00DD010662DA}", false,
         std::to_string(TRACE_VERIFY_HR) + "|Tavo::GuidFromString|%s - %#08lx|CLSIDFromString(strGuid, &guid) - 0x800401f3"},
        {"", false, empty},
        {nullptr, false, empty},
    };
    ScopedImportPatch parse(Library(), "ole32.dll", "CLSIDFromString", &CountingClsidFromString);
    s_realClsidFromString = parse.Original<decltype(&CLSIDFromString)>();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text ? row.text : "(null)");
        const CStringW strWide(row.text);
        const GUID expected = row.parsed ? guid : GUID{};
        tavo::test::ClearRecordedLines();
        s_parses = 0;
        EXPECT_TRUE(IsEqualGUID(expected, Tavo::GuidFromString(row.text)));
        EXPECT_TRUE(IsEqualGUID(expected, Tavo::GuidFromString(row.text ? strWide.GetString() : nullptr)));
        EXPECT_EQ(row.text && *row.text ? 2 : 0, s_parses);
        EXPECT_EQ((row.line.empty() ? std::vector<std::string>() : std::vector<std::string>{row.line, row.line}), Lines("GuidText.cpp"));
    }
}

namespace {

int s_mallocs, s_frees;
bool s_failMalloc;
decltype(&calloc) s_realCalloc;
decltype(&free) s_realFree;
void* __cdecl CountingCalloc(size_t n, size_t cb)
{
    ++s_mallocs;
    if (!s_failMalloc) return s_realCalloc(n, cb);
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}
void __cdecl CountingFree(void* pv)
{
    s_frees += pv != nullptr;
    s_realFree(pv);
}

decltype(&GetModuleHandleA) s_realGetModuleHandleA;
HMODULE WINAPI NoNtdll(LPCSTR sz)
{
    if (!sz || lstrcmpiA(sz, "ntdll.dll") != 0) return s_realGetModuleHandleA(sz);
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
}

ULONG s_secondLength;
// Probe: a name of three characters. Second query: refused.
LONG NTAPI RefusingSecondQuery(HANDLE, int nClass, PVOID pv, ULONG cb, PULONG pcbResult)
{
    if (nClass != 3) return static_cast<LONG>(0xC000000D);
    *pcbResult = 4 + 6;
    if (!pv) return static_cast<LONG>(0xC0000023);
    s_secondLength = cb;
    return static_cast<LONG>(0xC000009A);
}

} // namespace

// An open key gives the name the native call reports, with no short root names. Each failed step
// gives its line, then the exported form's soft check and an empty result; the block is released
// on every way out where one was taken.
TEST(StringFromHKEY, NativeNameOrTheFailedStepsLineAndAnEmptyResult)
{
    HKEY hOpen = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(HKEY_CURRENT_USER, L"Software", 0, KEY_READ, &hOpen));
    typedef LONG(NTAPI * PFN_QUERY_KEY)(HANDLE, int, PVOID, ULONG, PULONG);
    const auto pfn = reinterpret_cast<PFN_QUERY_KEY>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("ntdll.dll"), "ZwQueryKey")));
    ULONG block[1024], cb = 0;
    ASSERT_EQ(0, pfn(hOpen, 3, block, sizeof(block), &cb)) << "the native name, asked directly";
    const std::string name = Narrow(std::wstring(reinterpret_cast<const wchar_t*>(block + 1), block[0] / 2).c_str());
    ASSERT_EQ(0, _strnicmp(name.c_str(), "\\REGISTRY\\USER\\", 15)) << name;

    const DWORD kSentinel = 0x1234;  // the native call sets no last error: the thread's own shows
    const std::string failed = std::to_string(TRACE_ERROR) + "|Tavo::StringFromHKEYW|FAILED: %s - GetLastError = %lu|FAILED: ";
    const std::string verify = std::to_string(TRACE_VERIFY_HR) + "|Tavo::StringFromHKEYW|%s - %#08lx|StringFromHKEYW(hKey, strOutput) - ";
    enum Inject { kNone, kNoNtdll, kNoEntry, kNoMemory, kSecondRefused };
    struct Row { const char* name; HKEY hKey; Inject inject; std::vector<std::string> lines; int mallocs; };
    const HKEY hUnopened = HKEY_CURRENT_USER;  // a predefined key is no handle to the native call
    const Row rows[] = {
        {"open key", hOpen, kNone, {std::to_string(TRACE_INFO) + "|Tavo::StringFromHKEYW|%ls|" + name}, 1},
        {"null key", nullptr, kNone, {failed + "hKey - GetLastError = 4660", verify + "0x80071234"}, 0},
        {"refused handle", hUnopened, kNone,
         {failed + "((NTSTATUS)0xC0000023L) == ZwQueryKey(hKey, KeyNameInformation, 0, 0, &dwSize) - GetLastError = 4660",
          verify + "0x80071234"}, 0},
        {"no ntdll", hUnopened, kNoNtdll,
         {failed + "hModule = GetModuleHandleA(\"ntdll.dll\") - GetLastError = 126", verify + "0x8007007e"}, 0},
        {"no entry", hUnopened, kNoEntry,
         {failed + "ZwQueryKey = (ZWQUERYKEY)::GetProcAddress(hModule, \"ZwQueryKey\") - GetLastError = 127",
          verify + "0x8007007f"}, 0},
        {"no memory", hUnopened, kNoMemory, {failed + "p.AllocateBytes(dwSize) - GetLastError = 8", verify + "0x80070008"}, 1},
        {"second query refused", hUnopened, kSecondRefused,
         {std::to_string(TRACE_ERROR) + "|Tavo::StringFromHKEYW|ERROR: %s = %lu|ERROR: ZwQueryKey(hKey, "
              "KeyNameInformation, p, dwSize, &dwSize) = " + std::to_string(0xC000009Aul),
          verify + "0xc000009a"}, 1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::optional<ScopedImportPatch> noNtdll;
        std::optional<tavo::test::ScopedProcAddressOverride> entry;
        if (row.inject == kNoNtdll) {
            noNtdll.emplace(Library(), "KERNEL32.dll", "GetModuleHandleA", &NoNtdll);
            s_realGetModuleHandleA = noNtdll->Original<decltype(&GetModuleHandleA)>();
        }
        if (row.inject == kNoEntry) entry.emplace(Library(), "ZwQueryKey", nullptr);
        if (row.inject == kNoMemory || row.inject == kSecondRefused)
            entry.emplace(Library(), "ZwQueryKey", &RefusingSecondQuery);
        ScopedImportPatch allocate(Library(), "msvcrt.dll", "calloc", &CountingCalloc);
        ScopedImportPatch release(Library(), "msvcrt.dll", "free", &CountingFree);
        s_realCalloc = allocate.Original<decltype(&calloc)>();
        s_realFree = release.Original<decltype(&free)>();
        s_failMalloc = row.inject == kNoMemory;
        s_mallocs = s_frees = 0;
        s_secondLength = 0;
        tavo::test::ClearRecordedLines();
        SetLastError(kSentinel);
        EXPECT_EQ(row.hKey == hOpen ? name : "", Narrow(Tavo::StringFromHKEYW(row.hKey)));
        EXPECT_EQ(row.mallocs, s_mallocs);
        EXPECT_EQ(s_failMalloc ? 0 : row.mallocs, s_frees);
        EXPECT_EQ(row.inject == kSecondRefused ? 12u : 0u, s_secondLength) << "the probe's size and a terminator";
        EXPECT_EQ(row.lines, Lines("KeyName.cpp"));
    }
    tavo::test::ClearRecordedLines();
    EXPECT_EQ(name, std::string(Tavo::StringFromHKEYA(hOpen)));
    RegCloseKey(hOpen);
    SetLastError(kSentinel);
    EXPECT_TRUE(Tavo::StringFromHKEYA(nullptr).IsEmpty());
    const std::string verifyA = std::to_string(TRACE_VERIFY_HR) + "|Tavo::StringFromHKEYA|%s - %#08lx|StringFromHKEYW(hKey, strOutput) - 0x80071234";
    EXPECT_EQ((std::vector<std::string>{rows[0].lines[0], rows[1].lines[0], verifyA}), Lines("KeyName.cpp"));
}
