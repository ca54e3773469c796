// What the text family's tests share: values as text, recorded lines, tables, buffer probes, settings.
#ifndef TAVO_TESTS_TEXT_TEXT_TEST_H
#define TAVO_TESTS_TEXT_TEXT_TEST_H

#include <TavoCommon.h>
#include <gtest/gtest.h>

#include <functional>

#include "ImportPatch.h"
#include "Recorder.h"
#include "TavoTest.h"

using Tavo::CStringW;
using Lines = std::vector<std::string>;

// A value as text; Join joins values by blanks in order (a braced list is evaluated in order, + is not).
struct AsText {
    AsText(const std::string& s) : text(s) {}
    AsText(const char* sz) : text(sz) {}
    AsText(const wchar_t* sz) : text(Tavo::CStringA(sz).GetString()) {}
    AsText(const Tavo::CStringA& s) : text(s.GetString()) {}
    AsText(const CStringW& s) : AsText(s.GetString()) {}
    AsText(long long n) : text(std::to_string(n)) {}
    std::string text;
};
inline std::string Text(const AsText& value) { return value.text; }
inline std::string Join(std::initializer_list<AsText> values)
{
    std::string joined;
    for (const AsText& value : values) joined += " " + value.text;
    return joined.substr(1);
}
inline std::string Hex(long hr) { char sz[11]; snprintf(sz, sizeof(sz), "0x%08lX", static_cast<unsigned long>(hr)); return sz; }
using tavo::test::Library;

// A buffer form given cch characters of cch + 1, all '#': "HRESULT text", a terminator shown as '|'.
template <typename XCHAR, typename F>
std::string Probe(int cch, F f)
{
    std::basic_string<XCHAR> buffer(cch + 1, '#');
    const long hr = f(&buffer[0], cch);
    for (XCHAR& ch : buffer) ch = ch ? ch : '|';
    return Hex(hr) + " " + Text(buffer.c_str());
}

// "level|function|text" of the lines since the last clear, which this is (1 soft check, 4 soft HRESULT check, 32 information, 128 failure).
inline Lines Recorded()
{
    Lines lines;
    for (const tavo::test::RecordedLine& l : tavo::test::RecordedLines()) lines.push_back(tavo::test::Brief(l));
    tavo::test::ClearRecordedLines();
    return lines;
}

// A row: a call's values as text and its lines, run on a cleared recorder with the last error 1234.
struct Case { std::string name; std::function<std::string()> call; std::string expected; Lines lines; };
#define TEXT_OF(...) [&] { return Join({__VA_ARGS__}); }
inline void ExpectCases(const std::vector<Case>& cases, Lines (*recorded)() = Recorded)
{
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        tavo::test::ClearRecordedLines();
        ::SetLastError(1234);
        EXPECT_EQ(c.expected, c.call());
        EXPECT_EQ(c.lines, recorded());
    }
}

// A regional value of the user's for a scope. SetLocaleInfoW writes HKCU\Control Panel\International,
// which a child reads, and drops Wine 8's copy in this process, which a registry write would not reach.
struct ScopedRegionalValue {
    ScopedRegionalValue(LCTYPE type, const wchar_t* szValue) : type_(type)
    {
        GetLocaleInfoW(LOCALE_USER_DEFAULT, type, old_, 128);
        EXPECT_TRUE(SetLocaleInfoW(LOCALE_USER_DEFAULT, type, szValue)) << type;
    }
    ~ScopedRegionalValue() { SetLocaleInfoW(LOCALE_USER_DEFAULT, type_, old_); }
    LCTYPE type_;
    wchar_t old_[128] = {};
};

#endif
