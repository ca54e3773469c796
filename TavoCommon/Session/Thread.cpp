// Threads for the library's callers: started through the run-time, so that it is set up for them,
// and named for the debugger.
#include "Check.h"
#include "TavoCommon.h"

#include <process.h>

namespace Tavo {
namespace {

// The record a debugger reads from the naming exception; every field is one 32-bit word.
struct THREADNAME_INFO {
    DWORD dwType;
    LPCSTR szName;
    DWORD dwThreadID;
    DWORD dwFlags;
};

const DWORD MS_VC_EXCEPTION = 0x406D1388;

void RaiseThreadName(void* pv)
{
    ::RaiseException(MS_VC_EXCEPTION, 0, sizeof(THREADNAME_INFO) / sizeof(ULONG_PTR),
                     static_cast<const ULONG_PTR*>(pv));
}

} // namespace

HANDLE CreateThread(SECURITY_ATTRIBUTES* pThreadAttributes, unsigned long dwStackSize,
                    LPTHREAD_START_ROUTINE pfnStartAddress, void* pvParameter, unsigned long dwCreationFlags,
                    unsigned long* pdwThreadId, const char* szThreadName)
{
    TAVO_FUNCTION("Tavo::CreateThread");
    unsigned int uThreadId = 0;
    HANDLE hThread = reinterpret_cast<HANDLE>(
        _beginthreadex(pThreadAttributes, dwStackSize, reinterpret_cast<unsigned(__stdcall*)(void*)>(pfnStartAddress),
                       pvParameter, dwCreationFlags, &uThreadId));
    VERIFY_WIN32(hThread);
    if (pdwThreadId) *pdwThreadId = hThread ? uThreadId : 0;
    if (hThread && uThreadId && szThreadName && szThreadName[0]) SetThreadName(uThreadId, szThreadName);
    return hThread;
}

HANDLE CreateThread(const char* szThreadName, LPTHREAD_START_ROUTINE pfnStartAddress, void* pvParameter)
{
    return CreateThread(NULL, 0, pfnStartAddress, pvParameter, 0, NULL, szThreadName);
}

void SetThreadName(unsigned long dwThreadId, const char* szThreadName)
{
    // The name is not copied: the debugger reads it while the exception is raised.
    THREADNAME_INFO info = {0x1000, szThreadName, dwThreadId, 0};
    // Without a debugger nobody takes the exception; the frame lets the thread carry on behind it.
    CallWithStructuredGuard(&RaiseThreadName, &info, GUARD_CONTINUE_EXECUTION);
}

} // namespace Tavo
