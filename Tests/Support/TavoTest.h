// Small helpers the library's test files share.
#ifndef TAVO_TESTS_TAVO_TEST_H
#define TAVO_TESTS_TAVO_TEST_H

#include <TavoStrings.h>

namespace tavo::test {

// The HRESULT of the CAtlException that f throws, S_OK when it throws none.
template <typename F>
HRESULT ThrownBy(F f)
{
    try { f(); } catch (const Tavo::CAtlException& e) { return e.m_hr; }
    return S_OK;
}

// Runs f with the calling thread's locale, and so its ANSI code page (CP_THREAD_ACP), set to lcid.
template <typename F>
auto WithThreadLocale(LCID lcid, F f)
{
    const LCID old = ::GetThreadLocale();
    ::SetThreadLocale(lcid);
    auto result = f();
    ::SetThreadLocale(old);
    return result;
}

const LCID kRussianLocale = MAKELCID(MAKELANGID(LANG_RUSSIAN, SUBLANG_DEFAULT), SORT_DEFAULT);      // 1251
const LCID kEnglishLocale = MAKELCID(MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US), SORT_DEFAULT);  // 1252

} // namespace tavo::test

#endif
