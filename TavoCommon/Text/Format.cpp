// The general text formatters: one entry for both format dialects, the message dialect alone, and
// the text of an error number. Both widths run the same templates; the traits hold what differs,
// the texts of the lines included.
#include "Check.h"
#include "StrSafe.h"
#include "TavoCommon.h"

#include <string.h>
#include <wchar.h>

namespace Tavo {
namespace {

template <typename XCHAR> struct TFormat;

// LITERAL is the prefix of the width's literals (L or nothing); STRING the directive of a string
// argument of the other dialect's width.
#define TAVO_FORMAT_TRAITS(XCHAR, AW, LITERAL, LPTSTR, STRING, FIND)                                   \
    template <> struct TFormat<XCHAR> {                                                                \
        static constexpr const char* kMessageFunction = "Tavo::FormatMessageV" #AW;                    \
        static constexpr const char* kMessageText =                                                    \
            "::FormatMessage" #AW "(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ALLOCATE_BUFFER, szFormat, 0, 0, (" \
            #LPTSTR ")&p, 0, &args)";                                                                  \
        static constexpr const char* kErrorFunction = "Tavo::FormatError" #AW;                         \
        static constexpr const char* kErrorCopyText =                                                  \
            "::StringCchCopy" #AW "(szBuffer, cchBufferMax, Tavo::FormatError" #AW "(dwError))";       \
        static constexpr const XCHAR* kCode = LITERAL##"%X";                                           \
        static constexpr const XCHAR* kSystemText = LITERAL##" - %" #STRING;                           \
        static bool IsMessage(const XCHAR* szFormat) { return FIND(szFormat, LITERAL##"%1") != nullptr; } \
        static DWORD Message(DWORD dwFlags, const void* pvSource, DWORD dwId, DWORD dwLanguage, XCHAR** pp, \
                             va_list* pArgs)                                                           \
        {                                                                                              \
            return ::FormatMessage##AW(dwFlags, pvSource, dwId, dwLanguage, reinterpret_cast<LPTSTR>(pp), 0, pArgs); \
        }                                                                                              \
        static HRESULT Copy(XCHAR* sz, int cch, const XCHAR* szText) { return StringCchCopy##AW(sz, cch, szText); } \
    };

TAVO_FORMAT_TRAITS(wchar_t, W, L, LPWSTR, ls, wcsstr)
TAVO_FORMAT_TRAITS(char, A, , LPSTR, hs, strstr)

#undef TAVO_FORMAT_TRAITS

// The argument list goes over as a va_list, not an argument array: inserts are read in the
// caller's own argument types.
template <typename XCHAR>
CStringT<XCHAR> FormatMessageV(const XCHAR* szFormat, va_list args)
{
    typedef TFormat<XCHAR> T;
    TAVO_FUNCTION(T::kMessageFunction);
    XCHAR* p = nullptr;
    VERIFY_WIN32_AS(T::Message(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ALLOCATE_BUFFER, szFormat, 0, 0, &p, &args),
                    T::kMessageText);
    CStringT<XCHAR> str;
    if (p) {
        str = p;
        ::LocalFree(p);
    }
    return str;
}

// The plain two characters decide, so "%10d" and "%%1" are message formats too: a localised text
// may be written in either dialect and the caller need not know which.
template <typename XCHAR>
CStringT<XCHAR> FormatStringV(const XCHAR* szFormat, va_list args)
{
    typedef TFormat<XCHAR> T;
    if (T::IsMessage(szFormat)) return FormatMessageV(szFormat, args);
    va_list argsCount;
    va_copy(argsCount, args);
    const int cch = StringFormatLength(szFormat, argsCount);
    va_end(argsCount);
    if (cch < 0) AtlThrow(E_FAIL);
    CStringT<XCHAR> str;
    StringFormatPrint(str.GetBuffer(cch), cch + 1, szFormat, args);
    str.ReleaseBuffer();
    return str;
}

// The system's text keeps its line end: callers and the channel's readers see it as the system
// wrote it. The test is on the buffer, not on the call's result.
template <typename XCHAR>
CStringT<XCHAR> FormatError(unsigned long dwError)
{
    typedef TFormat<XCHAR> T;
    CStringT<XCHAR> str;
    str.Format(T::kCode, dwError);
    XCHAR* p = nullptr;
    T::Message(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_ALLOCATE_BUFFER, nullptr, dwError,
               MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), &p, nullptr);
    if (p) {
        CStringT<XCHAR> strSystem;
        strSystem.Format(T::kSystemText, p);
        str += strSystem;
        ::LocalFree(p);
    }
    return str;
}

template <typename XCHAR>
long FormatError(unsigned long dwError, XCHAR* szBuffer, int cchBufferMax)
{
    typedef TFormat<XCHAR> T;
    TAVO_FUNCTION(T::kErrorFunction);
    CHECK_HRESULT_AS(T::Copy(szBuffer, cchBufferMax, FormatError<XCHAR>(dwError)), T::kErrorCopyText);
    return S_OK;
}

} // namespace

// ---- The family ---------------------------------------------------------------------------------

// A variadic entry hands its arguments on as a va_list.
#define TAVO_VARIADIC_FORM(XCHAR, NAME, FORM_V)                                                        \
    CStringT<XCHAR> __cdecl NAME(const XCHAR* szFormat, ...)                                           \
    {                                                                                                  \
        va_list args;                                                                                  \
        va_start(args, szFormat);                                                                      \
        CStringT<XCHAR> str = FORM_V(szFormat, args);                                                  \
        va_end(args);                                                                                  \
        return str;                                                                                    \
    }

#define TAVO_FORMAT_MEMBERS(XCHAR, AW)                                                                 \
    CStringT<XCHAR> FormatStringV##AW(const XCHAR* szFormat, va_list args) { return FormatStringV(szFormat, args); } \
    CStringT<XCHAR> FormatMessageV##AW(const XCHAR* szFormat, va_list args)                           \
    {                                                                                                  \
        return FormatMessageV(szFormat, args);                                                         \
    }                                                                                                  \
    TAVO_VARIADIC_FORM(XCHAR, FormatString##AW, FormatStringV)                                         \
    TAVO_VARIADIC_FORM(XCHAR, FormatMessage##AW, FormatMessageV)                                       \
    CStringT<XCHAR> FormatError##AW(unsigned long dwError) { return FormatError<XCHAR>(dwError); }    \
    long FormatError##AW(unsigned long dwError, XCHAR* szBuffer, int cchBufferMax)                     \
    {                                                                                                  \
        return FormatError(dwError, szBuffer, cchBufferMax);                                           \
    }

TAVO_FORMAT_MEMBERS(wchar_t, W)
TAVO_FORMAT_MEMBERS(char, A)

#undef TAVO_FORMAT_MEMBERS
#undef TAVO_VARIADIC_FORM

} // namespace Tavo
