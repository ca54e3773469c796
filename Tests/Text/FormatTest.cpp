// The general formatters, numbers, sizes and versions; the user's regional settings and a language
// file's unit words in a fresh process.
#include "TextTest.h"

#include <climits>
#include <clocale>

#include "ChildProcess.h"

namespace {

// The value forms of a family, then its buffer forms at the exact size (see Four).
#define FORMS(FAMILY, VALUE, ...)                                                                                                   \
    [] {                                                                                                                             \
        const int cch = Tavo::FAMILY##A(VALUE, ##__VA_ARGS__).GetLength() + 1;                                                        \
        return Join({Tavo::FAMILY##W(VALUE, ##__VA_ARGS__), Tavo::FAMILY##A(VALUE, ##__VA_ARGS__),                                    \
                     Probe<wchar_t>(cch, [](wchar_t* sz, int n) { return Tavo::FAMILY##W(VALUE, sz, n, ##__VA_ARGS__); }),            \
                     Probe<char>(cch, [](char* sz, int n) { return Tavo::FAMILY##A(VALUE, sz, n, ##__VA_ARGS__); })});                 \
    }
std::string Four(const std::string& s) { return Join({s, s, "0x00000000", s + "|#", "0x00000000", s + "|#"}); }
std::string Formatter(const std::string& aw, int error)
{
    return "128|Tavo::FormatNumber" + aw + "|FAILED: ::GetNumberFormat" + aw + "(LOCALE_USER_DEFAULT, 0, szNumber, &fmt, szBuffer, cchBufferMax) - GetLastError = " +
           std::to_string(error);
}

std::wstring s_number;
NUMBERFMTW s_fmt;
// Wine 8 overruns its stack past about 320 characters: Windows' refusal is played, debris left.
int WINAPI OverlongFormatter(LCID, DWORD, LPCWSTR szNumber, const NUMBERFMTW* pfmt, LPWSTR szOut, int cchOut)
{
    s_number = szNumber;
    s_fmt = *pfmt;
    wmemset(szOut, L'9', cchOut);
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return 0;
}

} // namespace

// The format alone chooses the dialect: "%10d" is a message format too, an argument holding "%1" only
// text. An error's text keeps the system's line end; a customer code has none.
TEST(FormatString, TheFormatAloneChoosesTheDialectAndErrorsAsText)
{
    wchar_t sz[256];
    ASSERT_TRUE(::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), sz, 256, nullptr));
    const auto w = [](wchar_t* p, int n) { return Tavo::FormatErrorW(0x2000ABCD, p, n); };
    const auto a = [](char* p, int n) { return Tavo::FormatErrorA(0x2000ABCD, p, n); };
    const auto refused = [](const std::string& aw, const char* type) {
        return "1|Tavo::FormatMessageV" + aw + "|::FormatMessage" + aw + "(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ALLOCATE_BUFFER, szFormat, 0, 0, (" + type +
               ")&p, 0, &args) - 87";
    };
    const auto copy = [](const std::string& aw, const char* hr) {
        return "128|Tavo::FormatError" + aw + "|FAILURE: ::StringCchCopy" + aw + "(szBuffer, cchBufferMax, Tavo::FormatError" + aw + "(dwError)) - " + hr;
    };
    ExpectCases({
        {"printf", TEXT_OF(Tavo::FormatStringW(L""), Tavo::FormatStringW(L"%s/%hs/%d%%", L"wide", "narrow", 50), Tavo::FormatStringW(L"<%s>", L"%1")), " wide/narrow/50% <%1>", {}},
        {"message", TEXT_OF(Tavo::FormatStringW(L"%1 bytes", L"12"), Tavo::FormatMessageW(L"%2 then %3!d!", L"x", L"y", 7),
                            Tavo::FormatStringW(L"%10d", L"a", L"b", L"c", L"d", L"e", L"f", L"g", L"h", L"i", L"j")), "12 bytes y then 7 jd", {}},
        {"refused", TEXT_OF(Tavo::FormatMessageW(L"%1!d", 7), Tavo::FormatStringW(L"%1!d", 7)), " ", {refused("W", "LPWSTR"), refused("W", "LPWSTR")}},
        {"narrow", TEXT_OF(Tavo::FormatStringA("%ls/%s/%d%%", L"wide", "narrow", 50), Tavo::FormatStringA("%1", "x"), Tavo::FormatMessageA("%2!d!", "x", 7),
                           Tavo::FormatMessageA("%1!d", 7)), "wide/narrow/50% x 7 ", {refused("A", "LPSTR")}},
        {"error text", TEXT_OF(Tavo::FormatErrorW(5), Tavo::FormatErrorA(5), Tavo::FormatErrorA(0x2000ABCD)), Join({"5 - " + Text(sz), "5 - " + Text(sz), "2000ABCD"}), {}},
        {"error buffers", TEXT_OF(Probe<wchar_t>(9, w), Probe<wchar_t>(8, w), Probe<char>(8, a), Probe<char>(0, a)),
         "0x00000000 2000ABCD|# 0x8007007A 2000ABC|# 0x8007007A 2000ABC|# 0x80070057 #", {copy("W", "0x8007007a"), copy("A", "0x8007007a"), copy("A", "0x80070057")}},
    });
}

// A size's unit is chosen on the exact count, never after rounding; a version's size 0 is refused with
// the thread's last error. A number over 128 characters gives "" and leaves a size's unit alone.
TEST(Number, EachTypeSizesAndVersionsInAllFormsAndTheRefusals)
{
    const auto w = [](wchar_t* sz, int n) { return Tavo::FormatNumberW(1234, sz, n); };
    const auto a = [](char* sz, int n) { return Tavo::FormatNumberA(1234u, sz, n); };
    const auto bytes = [](wchar_t* sz, int n) { return Tavo::FormatBytesW(1536, sz, n); };
    const auto version = [](char* sz, int n) { return Tavo::FormatVersionA(0x0001000200030004ull, sz, n, 4); };
    const std::string copy = "128|Tavo::FormatBytesW|FAILURE: StringCchCopyW(szBuffer, cchBufferMax, Tavo::FormatBytesW(lBytes)) - ";
    const unsigned long long v = 0x0001000200030004ull;
    Tavo::FormatBytesW(0);  // the first call reads the language file, with lines of its own
    ExpectCases({
        {"int", FORMS(FormatNumber, INT_MIN), Four("-2,147,483,648"), {}}, {"unsigned int", FORMS(FormatNumber, UINT_MAX), Four("4,294,967,295"), {}},
        {"unsigned long", FORMS(FormatNumber, ULONG_MAX), Four("4,294,967,295"), {}}, {"__int64", FORMS(FormatNumber, LLONG_MIN), Four("-9,223,372,036,854,775,808"), {}},
        {"unsigned __int64", FORMS(FormatNumber, ULLONG_MAX), Four("18,446,744,073,709,551,615"), {}},
        {"double", FORMS(FormatNumber, -1234.56, 1), Four("-1,234.6"), {}}, {"float", FORMS(FormatNumber, 0.05f, 1), Four("0.1"), {}},
        {"size 0, one short", TEXT_OF(Probe<wchar_t>(0, w), Hex(w(&std::wstring(5, L'#')[0], 5)), Hex(a(&std::string(5, '#')[0], 5))),
         "0x00000000 # 0x8007007A 0x8007007A", {Formatter("W", 122), Formatter("A", 122)}},
        {"size", FORMS(FormatBytes, 1536ull), Four("1.50 KB"), {}}, {"version", FORMS(FormatVersion, 0x0001000200030004ull, 4), Four("1.2.3.4"), {}},
        {"units", TEXT_OF(Tavo::FormatBytesW(1023), Tavo::FormatBytesW(1024), Tavo::FormatBytesW(1048575), Tavo::FormatBytesW(1048576), Tavo::FormatBytesW(1073741823),
                          Tavo::FormatBytesW(1073741824), Tavo::FormatBytesW(1099511627775), Tavo::FormatBytesW(1099511627776)),
         "1,023 bytes 1.00 KB 1,024.00 KB 1.00 MB 1,024.00 MB 1.00 GB 1,024.00 GB 1.00 TB", {}},
        {"version fields", TEXT_OF(Tavo::FormatVersionW(v, 2), Tavo::FormatVersionW(v, 9), Tavo::FormatVersionW(v, 0), Tavo::FormatVersionW(0x0005000000000000ull, 2)),
         "1.2 1.2.3.4  5.0", {}},
        {"null buffers", TEXT_OF(Hex(Tavo::FormatBytesW(1, nullptr, 8)), Hex(Tavo::FormatVersionA(1, nullptr, 8, 4))), "0x80004003 0x80004003",
         {"128|Tavo::FormatBytesW|Invalid null pointer: szBuffer", "128|Tavo::FormatVersionA|Invalid null pointer: szBuffer"}},
        {"size at size 0, one short", TEXT_OF(Probe<wchar_t>(0, bytes), Probe<wchar_t>(7, bytes)), "0x80070057 # 0x8007007A 1.50 K|#", {copy + "0x80070057", copy + "0x8007007a"}},
        {"version at size 0, one short", TEXT_OF(Probe<char>(0, version), Probe<char>(6, version)), "0x800704D2 # 0x8007007A 1.2.3|#",
         {"128|Tavo::FormatVersionA|FAILED: cchBufferMax - GetLastError = 1234",
          "128|Tavo::FormatVersionA|FAILURE: ::StringCchCopyA(szBuffer, cchBufferMax, Tavo::FormatVersionA(lVersion, nPrecision)) - 0x8007007a"}},
    });
    const std::string value = "4|Tavo::FormatNumberW|Tavo::FormatNumberW(szNumber, strNumber.GetBuffer(128), 128) - 0x8007007a";
    TAVO_PATCH_IMPORT(patch, Library(), "KERNEL32.dll", GetNumberFormatW, OverlongFormatter);
    ExpectCases({{"1e300", TEXT_OF(Tavo::FormatNumberW(1e300, 2), s_number.size(), s_number.substr(301).c_str(), s_fmt.NumDigits, s_fmt.Grouping,
                                   Tavo::FormatBytesW(2048), s_number.c_str()),
                  " 304 .00 2 3  KB 2.00", {Formatter("W", 122), value, Formatter("W", 122), value}}});
}

TAVO_CHILD_CASE(NumbersInAFreshProcess)
{
    setlocale(LC_NUMERIC, "German");  // the run-time prints a comma for the point now, which the formatter must not be given
    tavo::test::ChildReport("numbers", Join({Tavo::FormatStringA("%.1f", 1.5), Tavo::FormatNumberW(1234567), Tavo::FormatNumberA(1234567), Tavo::FormatNumberW(0.5, 1),
                                             Tavo::FormatNumberA(-1234.5, 1), Tavo::FormatBytesW(1536), Tavo::FormatBytesA(3 << 20), Tavo::FormatBytesW(12)}));
    return 0;
}

// The unit words come from the library's own section of the language file, one in the message dialect.
TEST(Number, RegionalSettingsAndUnitWordsInAFreshProcess)
{
    const struct { const wchar_t *grouping, *leadingZero, *point, *thousands, *negative; const char* numbers; } rows[] = {
        {L"3;2;0", L"1", L".", L",", L"1", "1,5 12,34,567 12,34,567 0.5 -1,234.5 1.50 Kilobyte 3.00 Megabyte (3.00) 12 bytes"},
        {L"", L"1", L".", L",", L"1", "1,5 1234567 1234567 0.5 -1234.5 1.50 Kilobyte 3.00 Megabyte (3.00) 12 bytes"},
        {L"3;0", L"0", L",", L".", L"0", "1,5 1.234.567 1.234.567 ,5 (1.234,5) 1,50 Kilobyte 3,00 Megabyte (3,00) 12 bytes"},
    };
    tavo::test::ScratchInstall install;
    install.WriteFile("Language.en.lng", "[TavoCommon.dll]\r\n102=%s Kilobyte\r\n103=%1 Megabyte (%1)\r\n[TavoTextTests.exe]\r\n101=wrong\r\n");
    for (const auto& row : rows) {
        const ScopedRegionalValue values[] = {{LOCALE_SGROUPING, row.grouping}, {LOCALE_ILZERO, row.leadingZero}, {LOCALE_SDECIMAL, row.point},
                                              {LOCALE_STHOUSAND, row.thousands}, {LOCALE_INEGNUMBER, row.negative}};
        const tavo::test::ChildResult r = install.Run("NumbersInAFreshProcess");
        ASSERT_EQ(0u, r.exitCode) << r.output;
        EXPECT_EQ(row.numbers, r.Value("numbers"));
    }
}
