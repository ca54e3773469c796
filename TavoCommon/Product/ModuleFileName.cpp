// Where a loaded module lies. The library's own file place starts its configuration.
#include "Check.h"
#include "TavoCommon.h"

#include <shlwapi.h>

namespace Tavo {
namespace {

enum { kModuleFileChars = 520 };

// A zeroed buffer filled by the platform; false (with the error line) when it gives no name.
bool QueryModuleFileName(HINSTANCE hModule, wchar_t (&szFile)[kModuleFileChars], const char* szFunction)
{
    if (::GetModuleFileNameW(hModule, szFile, kModuleFileChars)) return true;
    const DWORD dwError = ::GetLastError();
    TraceOutput(TRACE_ERROR, __FILE_NAME__, szFunction, __LINE__, __TIMESTAMP__,
                "GetModuleFileName failed, GetLastError = %ld", dwError);
    return false;
}

} // namespace

CStringW GetModuleFileNameW(HINSTANCE hModule)
{
    wchar_t szFile[kModuleFileChars] = {};
    QueryModuleFileName(hModule, szFile, "Tavo::GetModuleFileNameW");
    return CStringW(szFile);
}

CStringA GetModuleFileNameA(HINSTANCE hModule)
{
    return CStringA(GetModuleFileNameW(hModule).GetString());
}

CStringW GetModulePathNameW(HINSTANCE hModule)
{
    TAVO_FUNCTION("Tavo::GetModulePathNameW");
    wchar_t szFile[kModuleFileChars] = {};
    if (QueryModuleFileName(hModule, szFile, tavoFunctionName_)) VERIFY_WIN32(::PathRemoveFileSpecW(szFile));
    return CStringW(szFile);
}

CStringA GetModulePathNameA(HINSTANCE hModule)
{
    return CStringA(GetModulePathNameW(hModule).GetString());
}

} // namespace Tavo
