// Numbers, sizes and versions for the user: every number type at its limits in both widths and
// forms, the user's regional settings (in a child: Wine reads them from the registry once per
// process), what the formatter refuses, and the unit words a language file rewords.
#include <TavoCommon.h>

#include <gtest/gtest.h>

#include <cfloat>
#include <clocale>
#include <cmath>
#include <functional>

#include "ChildProcess.h"
#include "ImportPatch.h"
#include "Recorder.h"

using Tavo::CStringA;
using Tavo::CStringW;

namespace {

std::string Narrow(const wchar_t* sz) { return std::string(CStringA(sz).GetString()); }

std::vector<std::string> Lines()  // "function|text" of every recorded line, in order
{
    std::vector<std::string> lines;
    for (const tavo::test::RecordedLine& l : tavo::test::RecordedLines()) lines.push_back(l.function + "|" + l.text);
    return lines;
}

const HRESULT kCut = HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
const char kFormatterW[] = "Tavo::FormatNumberW|FAILED: ::GetNumberFormatW(LOCALE_USER_DEFAULT, 0, szNumber, &fmt, "
                           "szBuffer, cchBufferMax) - GetLastError = ";
const char kValueFormW[] = "Tavo::FormatNumberW|Tavo::FormatNumberW(szNumber, strNumber.GetBuffer(128), 128) - ";

// One value through all four forms of its type; a precision goes behind the buffer in buffer forms.
struct Form {
    std::string expected;
    std::function<CStringW()> wide;
    std::function<CStringA()> narrow;
    std::function<long(wchar_t*, int)> wideBuffer;
    std::function<long(char*, int)> narrowBuffer;
};

template <typename T, typename... P>
Form Of(const char* expected, T n, P... nPrecision)
{
    return {expected, [=] { return Tavo::FormatNumberW(n, nPrecision...); }, [=] { return Tavo::FormatNumberA(n, nPrecision...); },
            [=](wchar_t* sz, int cch) { return Tavo::FormatNumberW(n, sz, cch, nPrecision...); },
            [=](char* sz, int cch) { return Tavo::FormatNumberA(n, sz, cch, nPrecision...); }};
}

Form Bytes(const char* expected, unsigned long long n)
{
    return {expected, [=] { return Tavo::FormatBytesW(n); }, [=] { return Tavo::FormatBytesA(n); },
            [=](wchar_t* sz, int cch) { return Tavo::FormatBytesW(n, sz, cch); },
            [=](char* sz, int cch) { return Tavo::FormatBytesA(n, sz, cch); }};
}

Form Version(const char* expected, unsigned long long n, unsigned short nPrecision)
{
    return {expected, [=] { return Tavo::FormatVersionW(n, nPrecision); }, [=] { return Tavo::FormatVersionA(n, nPrecision); },
            [=](wchar_t* sz, int cch) { return Tavo::FormatVersionW(n, sz, cch, nPrecision); },
            [=](char* sz, int cch) { return Tavo::FormatVersionA(n, sz, cch, nPrecision); }};
}

// Both value forms, and both buffer forms at the exact size with a marker behind that must stay.
void ExpectAllForms(const Form& row, std::wstring& wsz, std::string& sz)
{
    EXPECT_EQ(row.expected, Narrow(row.wide()));
    EXPECT_EQ(row.expected, std::string(row.narrow()));
    const int cch = static_cast<int>(row.expected.size()) + 1;
    wsz.assign(cch + 1, L'#');
    sz.assign(cch + 1, '#');
    EXPECT_EQ(S_OK, row.wideBuffer(&wsz[0], cch));
    EXPECT_EQ(S_OK, row.narrowBuffer(&sz[0], cch));
    EXPECT_EQ(std::wstring(row.expected.begin(), row.expected.end()) + L'\0' + L'#', wsz);
    EXPECT_EQ(row.expected + '\0' + '#', sz);
}

// The cases below assume the prefix's en-US settings; a machine that differs fails here, not later.
void ExpectEnglishSettings()
{
    wchar_t sz[32];
    ASSERT_TRUE(GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_SGROUPING, sz, 32));
    ASSERT_STREQ(L"3;0", sz);
    ASSERT_EQ("1,234.50", std::string(Tavo::FormatNumberA(1234.5, 2))) << "separators, leading zero";
}

std::wstring s_number;
NUMBERFMTW s_fmt;

// Wine overruns its stack past about 320 characters: Windows' answer is played, with debris left.
int WINAPI OverlongFormatter(LCID, DWORD, LPCWSTR szNumber, const NUMBERFMTW* pfmt, LPWSTR szOut, int cchOut)
{
    s_number = szNumber;
    s_fmt = *pfmt;
    for (int i = 0; i < cchOut; ++i) szOut[i] = L'9';
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return 0;
}

// One value under HKCU\Control Panel\International for the scope; the old one (or none) comes back.
class ScopedRegionalValue {
public:
    ScopedRegionalValue(const wchar_t* szName, const std::wstring& value) : name_(szName)
    {
        EXPECT_EQ(ERROR_SUCCESS, RegOpenKeyExW(HKEY_CURRENT_USER, L"Control Panel\\International", 0, KEY_ALL_ACCESS, &key_));
        wchar_t sz[256] = {};
        DWORD cb = sizeof(sz) - sizeof(wchar_t);
        had_ = RegQueryValueExW(key_, szName, nullptr, nullptr, reinterpret_cast<BYTE*>(sz), &cb) == ERROR_SUCCESS;
        old_ = sz;
        Set(value);
    }
    ~ScopedRegionalValue()
    {
        if (had_) Set(old_);
        else RegDeleteValueW(key_, name_.c_str());
        RegCloseKey(key_);
    }

private:
    void Set(const std::wstring& value)
    {
        EXPECT_EQ(ERROR_SUCCESS, RegSetValueExW(key_, name_.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                                                static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t))));
    }
    HKEY key_ = nullptr;
    std::wstring name_, old_;
    bool had_ = false;
};

} // namespace

// Each form at its type's limits and the precisions; the buffer forms at exact size, one short and 0.
TEST(Number, EveryTypeAtItsLimitsInAllForms)
{
    ExpectEnglishSettings();
    const unsigned short k0 = 0, k1 = 1, k2 = 2, k3 = 3;
    const Form rows[] = {
        Of("2,147,483,647", INT_MAX), Of("-2,147,483,648", INT_MIN), Of("0", 0), Of("4,294,967,295", UINT_MAX),
        Of("4,294,967,295", ULONG_MAX), Of("-9,223,372,036,854,775,808", LLONG_MIN),
        Of("9,223,372,036,854,775,807", LLONG_MAX), Of("18,446,744,073,709,551,615", ULLONG_MAX),
        Of("1,234.6", 1234.56, k1), Of("1,234.560", 1234.56, k3), Of("1,235", 1234.56, k0),
        Of("-1,234,567.00", -1234567.0, k2), Of("0.1", 0.05, k1), Of("0.5", 0.5f, k1),
        Of("340,282,346,638,528,859,811,704,183,484,516,925,440", FLT_MAX, k0),
    };
    for (const Form& row : rows) {
        SCOPED_TRACE(row.expected);
        tavo::test::ClearRecordedLines();
        std::wstring wsz;
        std::string sz;
        ExpectAllForms(row, wsz, sz);
        const int cch = static_cast<int>(row.expected.size()) + 1;
        EXPECT_EQ(std::vector<std::string>(), Lines());
        wsz.assign(cch + 1, L'#');
        EXPECT_EQ(S_OK, row.wideBuffer(&wsz[0], 0)) << "size 0 only asks for the size";
        EXPECT_EQ(std::wstring(cch + 1, L'#'), wsz);
        EXPECT_EQ(kCut, row.wideBuffer(&wsz[0], cch - 1));
        EXPECT_EQ(kCut, row.narrowBuffer(&sz[0], cch - 1));
        const std::vector<std::string> lines = Lines();
        ASSERT_EQ(2u, lines.size());
        EXPECT_EQ(kFormatterW + std::to_string(ERROR_INSUFFICIENT_BUFFER), lines[0]);
        EXPECT_EQ(0u, lines[1].rfind("Tavo::FormatNumberA|FAILED: ::GetNumberFormatA(LOCALE_USER_DEFAULT, 0, szNumber, &fmt, ", 0));
    }
}

// What is no digit string is refused by the formatter; the value forms give "" and both lines.
TEST(Number, NotANumberAndInfinityAreRefused)
{
    const double rows[] = {NAN, INFINITY, -INFINITY};
    for (const double d : rows) {
        SCOPED_TRACE(d);
        wchar_t sz[64] = {};
        tavo::test::ClearRecordedLines();
        EXPECT_EQ("", Narrow(Tavo::FormatNumberW(d, 2)));
        EXPECT_EQ(std::vector<std::string>({kFormatterW + std::to_string(ERROR_INVALID_PARAMETER),
                                            std::string(kValueFormW) + "0x80070057"}),
                  Lines());
        EXPECT_EQ(E_INVALIDARG, Tavo::FormatNumberW(static_cast<float>(d), sz, 64, 1));
        EXPECT_EQ("", std::string(Tavo::FormatNumberA(d, 1)));
    }
}

// 1e300 needs over 128 characters: the value form must not hand back what the formatter left behind.
// Inside FormatBytes the failed number leaves the unit word alone.
TEST(Number, OverlongValueGivesEmptyAndBytesKeepTheUnit)
{
    ExpectEnglishSettings();
    TAVO_PATCH_IMPORT(patch, tavo::test::LoadedModule("TavoCommon.dll"), "KERNEL32.dll", GetNumberFormatW, OverlongFormatter);
    tavo::test::ClearRecordedLines();
    EXPECT_EQ("", Narrow(Tavo::FormatNumberW(1e300, 2)));
    EXPECT_GT(s_number.size(), 300u);
    EXPECT_EQ(L"1000000000", s_number.substr(0, 10));
    EXPECT_EQ(L".00", s_number.substr(s_number.size() - 3));
    EXPECT_EQ(2u, s_fmt.NumDigits);
    EXPECT_EQ(3u, s_fmt.Grouping);
    EXPECT_EQ(std::vector<std::string>({kFormatterW + std::to_string(ERROR_INSUFFICIENT_BUFFER),
                                        std::string(kValueFormW) + "0x8007007a"}),
              Lines());
    EXPECT_EQ(" KB", Narrow(Tavo::FormatBytesW(2048)));
    EXPECT_EQ(L"2.00", s_number);
}

// The DLL and this program share msvcrt.dll, so setlocale here changes the library's printing too.
TEST(Number, RunTimeCommaPointIsReplacedBeforeTheFormatter)
{
    const std::string old = setlocale(LC_NUMERIC, nullptr);
    ASSERT_NE(nullptr, setlocale(LC_NUMERIC, "German"));
    const std::string printed(Tavo::FormatStringA("%.2f", 1.5));
    const std::string wide = Narrow(Tavo::FormatNumberW(1234.56, 2)), narrow(Tavo::FormatNumberA(1234.5f, 2));
    setlocale(LC_NUMERIC, old.c_str());
    ASSERT_EQ("1,50", printed) << "the run-time's point did not change";
    EXPECT_EQ("1,234.56", wide);
    EXPECT_EQ("1,234.50", narrow);
}

TAVO_CHILD_CASE(NumberInRegion)
{
    tavo::test::ChildReport("int", Narrow(Tavo::FormatNumberW(1234567)));
    tavo::test::ChildReport("intA", std::string(Tavo::FormatNumberA(1234567)));
    tavo::test::ChildReport("half", Narrow(Tavo::FormatNumberW(0.5, 1)));
    tavo::test::ChildReport("negative", std::string(Tavo::FormatNumberA(-1234.5, 1)));
    return 0;
}

TEST(Number, UserRegionalSettingsInAChildProcess)
{
    struct Row {
        const wchar_t *grouping, *leadingZero, *point, *thousands, *negative;
        const char *integer, *half, *negativeText;
    };
    const Row rows[] = {
        {L"3;0", L"1", L".", L",", L"1", "1,234,567", "0.5", "-1,234.5"},
        {L"3;2;0", L"1", L".", L",", L"1", "12,34,567", "0.5", "-1,234.5"},
        {L"3", L"1", L".", L",", L"1", "1234,567", "0.5", "-1,234.5"},
        {L"0;0", L"1", L".", L",", L"1", "1234567", "0.5", "-1234.5"},
        {L"0", L"1", L".", L",", L"1", "1234567", "0.5", "-1234.5"},
        {L"", L"1", L".", L",", L"1", "1234567", "0.5", "-1234.5"},
        {L"3;0", L"0", L",", L".", L"0", "1.234.567", ",5", "(1.234,5)"},
    };
    tavo::test::ScratchInstall install;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.integer);
        const ScopedRegionalValue scopes[] = {{L"sGrouping", row.grouping}, {L"iLZero", row.leadingZero},
                                              {L"sDecimal", row.point}, {L"sThousand", row.thousands},
                                              {L"iNegNumber", row.negative}};
        const tavo::test::ChildResult r = install.Run("NumberInRegion");
        ASSERT_EQ(0u, r.exitCode) << r.output;
        EXPECT_EQ(row.integer, r.Value("int"));
        EXPECT_EQ(row.integer, r.Value("intA"));
        EXPECT_EQ(row.half, r.Value("half"));
        EXPECT_EQ(row.negativeText, r.Value("negative"));
    }
}

// The unit is chosen on the exact count; rounding never moves a value to the next unit. Version
// fields are plain decimals.
TEST(Bytes, UnitsBoundariesAndVersionsInAllForms)
{
    ExpectEnglishSettings();
    const Form rows[] = {
        Bytes("0 bytes", 0), Bytes("1 bytes", 1), Bytes("999 bytes", 999), Bytes("1,023 bytes", 1023),
        Bytes("1.00 KB", 1024), Bytes("1.50 KB", 1536), Bytes("1,024.00 KB", 1048575), Bytes("1.00 MB", 1048576),
        Bytes("1,024.00 MB", 1073741823), Bytes("1.00 GB", 1073741824), Bytes("1,024.00 GB", 1099511627775ull),
        Bytes("1.00 TB", 1099511627776ull), Bytes("16,777,216.00 TB", ULLONG_MAX),
        Version("1.2.3.4", 0x0001000200030004ull, 4), Version("1.2", 0x0001000200030004ull, 2),
        Version("1.2.3.4", 0x0001000200030004ull, 9), Version("", 0x0001000200030004ull, 0),
        Version("0.0.0", 0, 3), Version("5.0", 0x0005000000000000ull, 2),
        Version("65535.65535.65535.65535", ULLONG_MAX, 4),
    };
    for (const Form& row : rows) {
        SCOPED_TRACE(row.expected);
        std::wstring wsz;
        std::string sz;
        ExpectAllForms(row, wsz, sz);
    }
}

// Null pointer, size 0 and one short in the buffer forms of both families (1536 bytes: "1.50 KB").
TEST(Bytes, BufferPointerAndSizeRules)
{
    const auto bytes = [](wchar_t* sz, int cch) { return Tavo::FormatBytesW(1536, sz, cch); };
    const auto version = [](wchar_t* sz, int cch) { return Tavo::FormatVersionW(0x0001000200030004ull, sz, cch, 4); };
    const std::string copyB = "Tavo::FormatBytesW|FAILURE: StringCchCopyW(szBuffer, cchBufferMax, Tavo::FormatBytesW(lBytes)) - ";
    const std::string copyV = "Tavo::FormatVersionW|FAILURE: ::StringCchCopyW(szBuffer, cchBufferMax, "
                              "Tavo::FormatVersionW(lVersion, nPrecision)) - ";
    const std::string failedV = "Tavo::FormatVersionW|FAILED: cchBufferMax - GetLastError = ";
    const struct {
        std::function<long(wchar_t*, int)> call;
        int cch;
        DWORD dwLastError;
        HRESULT hr;
        const char* text;  // null: no buffer passed
        std::string line;
    } rows[] = {
        {bytes, 8, 0, E_POINTER, nullptr, "Tavo::FormatBytesW|Invalid null pointer: szBuffer"},
        {bytes, 0, 0, E_INVALIDARG, "#######", copyB + "0x80070057"},
        {bytes, 7, 0, kCut, "1.50 K", copyB + "0x8007007a"},
        {bytes, 8, 0, S_OK, "1.50 KB", ""},
        {version, 8, 0, E_POINTER, nullptr, "Tavo::FormatVersionW|Invalid null pointer: szBuffer"},
        {version, 0, 0, HRESULT_FROM_WIN32(ERROR_GEN_FAILURE), "#######", failedV + "31"},
        {version, 0, ERROR_ACCESS_DENIED, E_ACCESSDENIED, "#######", failedV + "5"},
        {version, 7, 0, kCut, "1.2.3.", copyV + "0x8007007a"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        wchar_t wsz[8] = {L'#', L'#', L'#', L'#', L'#', L'#', L'#', 0};
        tavo::test::ClearRecordedLines();
        SetLastError(row.dwLastError);
        EXPECT_EQ(row.hr, row.call(row.text ? wsz : nullptr, row.cch));
        EXPECT_EQ(row.line.empty() ? std::vector<std::string>() : std::vector<std::string>{row.line}, Lines());
        EXPECT_EQ(row.text ? row.text : "#######", Narrow(wsz));
    }
    char sz[8];
    EXPECT_EQ(E_POINTER, Tavo::FormatBytesA(1536, nullptr, 8));
    EXPECT_EQ(kCut, Tavo::FormatVersionA(0x0001000200030004ull, sz, 6, 4));
    EXPECT_STREQ("1.2.3", sz);
}

TAVO_CHILD_CASE(BytesWithLanguageFile)
{
    tavo::test::ChildReport("kb", Narrow(Tavo::FormatBytesW(1536)));
    tavo::test::ChildReport("kbA", std::string(Tavo::FormatBytesA(1536)));
    tavo::test::ChildReport("mb", Narrow(Tavo::FormatBytesW(3 << 20)));
    tavo::test::ChildReport("bytes", std::string(Tavo::FormatBytesA(12)));
    return 0;
}

// The words come from the library's own section, whoever calls; one is in the message dialect.
TEST(Bytes, UnitWordsFromALanguageFile)
{
    tavo::test::ScratchInstall install;
    install.WriteFile("Language.en.lng", "[TavoCommon.dll]\r\n102=%s Kilobyte\r\n103=%1 Megabyte (%1)\r\n"
                                         "[TavoDllTests.exe]\r\n101=wrong\r\n");
    const tavo::test::ChildResult r = install.Run("BytesWithLanguageFile");
    ASSERT_EQ(0u, r.exitCode) << r.output;
    EXPECT_EQ("1.50 Kilobyte", r.Value("kb"));
    EXPECT_EQ("1.50 Kilobyte", r.Value("kbA"));
    EXPECT_EQ("3.00 Megabyte (3.00)", r.Value("mb"));
    EXPECT_EQ("12 bytes", r.Value("bytes"));
}
