// The six check forms. Each reports one line through TraceOutput with the call site (the function
// names itself with TAVO_FUNCTION) and the source text of what it tests, and evaluates that exactly
// once. CHECK_ forms return an HRESULT from the function; VERIFY_ forms report and go on.
//
//   CHECK_POINTER(p)     null                  "Invalid null pointer: %s"             -> E_POINTER
//   CHECK_STRING(sz)     null / empty          the same / "Invalid string argument: %s" -> E_POINTER / E_INVALIDARG
//   CHECK_WIN32(expr)    false or zero         "FAILED: %s - GetLastError = %lu"      -> the error's HRESULT
//   CHECK_HRESULT(expr)  negative              "FAILURE: %s - %#08lx"                 -> that HRESULT
//   VERIFY_WIN32(expr)   false or zero         "%s - %lu" (TRACE_VERIFY), last error as it is
//   VERIFY_HRESULT(expr) negative              "%s - %#08lx" (TRACE_VERIFY_HR)
//
// The WIN32 forms read the last error right after the expression, before the channel can touch it.
// The _AS twins report another text than the expression's own spelling: the text the lines have
// always shown where it spells a platform macro out (LOCALE_USER_DEFAULT as its expansion), while
// the code keeps the platform's names.
#ifndef TAVO_CHECK_H
#define TAVO_CHECK_H

#include "Trace.h"
#include "TavoStrings.h"

namespace Tavo {

// The published HRESULT_FROM_WIN32 on the value read as signed: 0 and below pass unchanged, so an
// HRESULT or NTSTATUS stays what it is.
inline HRESULT HResultFromWin32(DWORD dwError)
{
    return static_cast<long>(dwError) <= 0 ? static_cast<HRESULT>(dwError)
                                           : static_cast<HRESULT>((dwError & 0xFFFF) | 0x80070000);
}

// A failed call must never read as success: a last error of 0 stands for ERROR_GEN_FAILURE.
inline DWORD ReportedError(DWORD dwError) { return dwError ? dwError : ERROR_GEN_FAILURE; }

// The HRESULT of the call that just failed, for a BOOL call reported as an HRESULT check.
inline HRESULT HResultFromLastError() { return HResultFromWin32(ReportedError(::GetLastError())); }

namespace Check {

HRESULT NullPointer(const char* szFile, const char* szFunction, int nLine, const char* szStamp,
                    const char* szName);
HRESULT EmptyString(const char* szFile, const char* szFunction, int nLine, const char* szStamp,
                    const char* szName);
HRESULT Win32Failed(const char* szFile, const char* szFunction, int nLine, const char* szStamp,
                    const char* szText, DWORD dwError);
HRESULT HResultFailed(const char* szFile, const char* szFunction, int nLine, const char* szStamp,
                      const char* szText, HRESULT hr);
void VerifyWin32Failed(const char* szFile, const char* szFunction, int nLine, const char* szStamp,
                       const char* szText, DWORD dwError);
void VerifyHResultFailed(const char* szFile, const char* szFunction, int nLine, const char* szStamp,
                         const char* szText, HRESULT hr);

} // namespace Check
} // namespace Tavo

#define CHECK_POINTER(p)                                                         \
    do {                                                                         \
        if ((p) == nullptr) return ::Tavo::Check::NullPointer(TAVO_SITE, #p);    \
    } while (0)

#define CHECK_STRING(sz)                                                         \
    do {                                                                         \
        const auto* const tavoString_ = (sz);                                    \
        if (tavoString_ == nullptr)                                              \
            return ::Tavo::Check::NullPointer(TAVO_SITE, #sz);                   \
        if (tavoString_[0] == 0) return ::Tavo::Check::EmptyString(TAVO_SITE, #sz); \
    } while (0)

#define CHECK_WIN32_AS(expr, text)                                               \
    do {                                                                         \
        if (!(expr)) {                                                           \
            const DWORD tavoError_ = ::GetLastError();                           \
            return ::Tavo::Check::Win32Failed(TAVO_SITE, text, tavoError_);      \
        }                                                                        \
    } while (0)

#define CHECK_HRESULT_AS(expr, text)                                             \
    do {                                                                         \
        const HRESULT tavoHr_ = (expr);                                          \
        if (FAILED(tavoHr_)) return ::Tavo::Check::HResultFailed(TAVO_SITE, text, tavoHr_); \
    } while (0)

#define VERIFY_WIN32_AS(expr, text)                                              \
    do {                                                                         \
        if (!(expr)) {                                                           \
            const DWORD tavoError_ = ::GetLastError();                           \
            ::Tavo::Check::VerifyWin32Failed(TAVO_SITE, text, tavoError_);       \
        }                                                                        \
    } while (0)

#define VERIFY_HRESULT_AS(expr, text)                                            \
    do {                                                                         \
        const HRESULT tavoHr_ = (expr);                                          \
        if (FAILED(tavoHr_)) ::Tavo::Check::VerifyHResultFailed(TAVO_SITE, text, tavoHr_); \
    } while (0)

#define CHECK_WIN32(expr) CHECK_WIN32_AS(expr, #expr)
#define CHECK_HRESULT(expr) CHECK_HRESULT_AS(expr, #expr)
#define VERIFY_WIN32(expr) VERIFY_WIN32_AS(expr, #expr)
#define VERIFY_HRESULT(expr) VERIFY_HRESULT_AS(expr, #expr)

namespace Tavo {
namespace Check {

// The text of a buffer form run on a zeroed buffer: the buffer, or nothing of a refused rendering
// (the platform may leave a cut text behind), the refusal reported as VERIFY_HRESULT reports it.
template <typename XCHAR>
const XCHAR* BufferFormText(XCHAR* szBuffer, HRESULT hr, const char* szFile, const char* szFunction, int nLine,
                            const char* szStamp, const char* szText)
{
    if (SUCCEEDED(hr)) return szBuffer;
    VerifyHResultFailed(szFile, szFunction, nLine, szStamp, szText, hr);
    szBuffer[0] = 0;
    return szBuffer;
}

} // namespace Check
} // namespace Tavo

#endif
