// The bounded copy and print, with the published semantics of the platform's strsafe functions:
//   cchDest 0 or above 0x7FFFFFFF  -> E_INVALIDARG, the buffer untouched
//   the text fits                  -> S_OK
//   the buffer filled first        -> STRSAFE_E_INSUFFICIENT_BUFFER, holding cchDest - 1 characters
// A null source copies as the empty string. Global, as the call sites name them (::StringCchCopyW);
// the platform's <strsafe.h> is never included by the library.
#ifndef TAVO_STRSAFE_H
#define TAVO_STRSAFE_H

#include <windows.h>
#include <stdarg.h>
#include <stddef.h>

#ifndef STRSAFE_E_INSUFFICIENT_BUFFER
#define STRSAFE_E_INSUFFICIENT_BUFFER ((HRESULT)0x8007007AL)
#endif
#ifndef STRSAFE_MAX_CCH
#define STRSAFE_MAX_CCH 2147483647
#endif

HRESULT StringCchCopyW(wchar_t* pszDest, size_t cchDest, const wchar_t* pszSrc);
HRESULT StringCchCopyA(char* pszDest, size_t cchDest, const char* pszSrc);
HRESULT StringCchPrintfW(wchar_t* pszDest, size_t cchDest, const wchar_t* pszFormat, ...);
HRESULT StringCchPrintfA(char* pszDest, size_t cchDest, const char* pszFormat, ...);
HRESULT StringCchVPrintfW(wchar_t* pszDest, size_t cchDest, const wchar_t* pszFormat, va_list args);
HRESULT StringCchVPrintfA(char* pszDest, size_t cchDest, const char* pszFormat, va_list args);

#endif
