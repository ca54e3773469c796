// The one reporting function behind every check form: the line each form sends and the HRESULT it
// returns.
#include "Check.h"

namespace Tavo {
namespace Check {

HRESULT NullPointer(const char* szFile, const char* szFunction, int nLine, const char* szStamp,
                    const char* szName)
{
    TraceOutput(TRACE_ERROR, szFile, szFunction, nLine, szStamp, "Invalid null pointer: %s", szName);
    return E_POINTER;
}

HRESULT EmptyString(const char* szFile, const char* szFunction, int nLine, const char* szStamp,
                    const char* szName)
{
    TraceOutput(TRACE_ERROR, szFile, szFunction, nLine, szStamp, "Invalid string argument: %s", szName);
    return E_INVALIDARG;
}

HRESULT Win32Failed(const char* szFile, const char* szFunction, int nLine, const char* szStamp,
                    const char* szText, DWORD dwError)
{
    dwError = ReportedError(dwError);
    TraceOutput(TRACE_ERROR, szFile, szFunction, nLine, szStamp, "FAILED: %s - GetLastError = %lu",
                szText, dwError);
    return HResultFromWin32(dwError);
}

HRESULT HResultFailed(const char* szFile, const char* szFunction, int nLine, const char* szStamp,
                      const char* szText, HRESULT hr)
{
    TraceOutput(TRACE_ERROR, szFile, szFunction, nLine, szStamp, "FAILURE: %s - %#08lx", szText, hr);
    return hr;
}

void VerifyWin32Failed(const char* szFile, const char* szFunction, int nLine, const char* szStamp,
                       const char* szText, DWORD dwError)
{
    TraceOutput(TRACE_VERIFY, szFile, szFunction, nLine, szStamp, "%s - %lu", szText, dwError);
}

void VerifyHResultFailed(const char* szFile, const char* szFunction, int nLine, const char* szStamp,
                         const char* szText, HRESULT hr)
{
    TraceOutput(TRACE_VERIFY_HR, szFile, szFunction, nLine, szStamp, "%s - %#08lx", szText, hr);
}

} // namespace Check
} // namespace Tavo
