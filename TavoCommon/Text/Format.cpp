// The general text formatters: one entry for both format dialects, the message dialect alone, and
// the text of an error number.
#include "Check.h"
#include "StrSafe.h"
#include "TavoCommon.h"

#include <stdio.h>
#include <string.h>
#include <wchar.h>

namespace Tavo {

CStringW __cdecl FormatStringW(const wchar_t* szFormat, ...)
{
    va_list args;
    va_start(args, szFormat);
    CStringW str = FormatStringVW(szFormat, args);
    va_end(args);
    return str;
}

CStringA __cdecl FormatStringA(const char* szFormat, ...)
{
    va_list args;
    va_start(args, szFormat);
    CStringA str = FormatStringVA(szFormat, args);
    va_end(args);
    return str;
}

// The plain two characters decide, so "%10d" and "%%1" are message formats too: a localised text
// may be written in either dialect and the caller need not know which.
CStringW FormatStringVW(const wchar_t* szFormat, va_list args)
{
    if (wcsstr(szFormat, L"%1")) return FormatMessageVW(szFormat, args);
    va_list argsCount;
    va_copy(argsCount, args);
    const int cch = _vscwprintf(szFormat, argsCount);
    va_end(argsCount);
    if (cch < 0) AtlThrow(E_FAIL);
    CStringW str;
    vswprintf_s(str.GetBuffer(cch), cch + 1, szFormat, args);
    str.ReleaseBuffer();
    return str;
}

CStringA FormatStringVA(const char* szFormat, va_list args)
{
    if (strstr(szFormat, "%1")) return FormatMessageVA(szFormat, args);
    va_list argsCount;
    va_copy(argsCount, args);
    const int cch = _vscprintf(szFormat, argsCount);
    va_end(argsCount);
    if (cch < 0) AtlThrow(E_FAIL);
    CStringA str;
    vsprintf_s(str.GetBuffer(cch), cch + 1, szFormat, args);
    str.ReleaseBuffer();
    return str;
}

CStringW __cdecl FormatMessageW(const wchar_t* szFormat, ...)
{
    va_list args;
    va_start(args, szFormat);
    CStringW str = FormatMessageVW(szFormat, args);
    va_end(args);
    return str;
}

CStringA __cdecl FormatMessageA(const char* szFormat, ...)
{
    va_list args;
    va_start(args, szFormat);
    CStringA str = FormatMessageVA(szFormat, args);
    va_end(args);
    return str;
}

// The argument list goes over as a va_list, not an argument array: inserts are read in the
// caller's own argument types.
CStringW FormatMessageVW(const wchar_t* szFormat, va_list args)
{
    TAVO_FUNCTION("Tavo::FormatMessageVW");
    wchar_t* p = nullptr;
    VERIFY_WIN32(::FormatMessageW(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ALLOCATE_BUFFER, szFormat, 0, 0, (LPWSTR)&p, 0, &args));
    CStringW str;
    if (p) {
        str = p;
        ::LocalFree(p);
    }
    return str;
}

CStringA FormatMessageVA(const char* szFormat, va_list args)
{
    TAVO_FUNCTION("Tavo::FormatMessageVA");
    char* p = nullptr;
    VERIFY_WIN32(::FormatMessageA(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ALLOCATE_BUFFER, szFormat, 0, 0, (LPSTR)&p, 0, &args));
    CStringA str;
    if (p) {
        str = p;
        ::LocalFree(p);
    }
    return str;
}

// The system's text keeps its line end: callers and the channel's readers see it as the system
// wrote it. The test is on the buffer, not on the call's result.
CStringW FormatErrorW(unsigned long dwError)
{
    CStringW str = FormatStringW(L"%X", dwError);
    wchar_t* p = nullptr;
    ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_ALLOCATE_BUFFER, nullptr, dwError,
                     MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), (LPWSTR)&p, 0, nullptr);
    if (p) {
        str += FormatStringW(L" - %ls", p);
        ::LocalFree(p);
    }
    return str;
}

CStringA FormatErrorA(unsigned long dwError)
{
    CStringA str = FormatStringA("%X", dwError);
    char* p = nullptr;
    ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_ALLOCATE_BUFFER, nullptr, dwError,
                     MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), (LPSTR)&p, 0, nullptr);
    if (p) {
        str += FormatStringA(" - %hs", p);
        ::LocalFree(p);
    }
    return str;
}

long FormatErrorW(unsigned long dwError, wchar_t* szBuffer, int cchBufferMax)
{
    TAVO_FUNCTION("Tavo::FormatErrorW");
    CHECK_HRESULT(::StringCchCopyW(szBuffer, cchBufferMax, Tavo::FormatErrorW(dwError)));
    return S_OK;
}

long FormatErrorA(unsigned long dwError, char* szBuffer, int cchBufferMax)
{
    TAVO_FUNCTION("Tavo::FormatErrorA");
    CHECK_HRESULT(::StringCchCopyA(szBuffer, cchBufferMax, Tavo::FormatErrorA(dwError)));
    return S_OK;
}

} // namespace Tavo
