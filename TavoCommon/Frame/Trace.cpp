// The diagnostic channel's sending half: the sibling CorvDebug.dll loaded and its entry looked up
// once, every line handed over unformatted, and nothing the sink does reaching the caller.
#include "Trace.h"

namespace Tavo {
namespace {

enum : DWORD { LOAD_TRIED = 1, LOOKUP_TRIED = 2 };

const char kSinkName[] = "CorvDebug.dll";

// Plain words, no lock: a race only loads the sibling twice (a reference count) and looks up the
// same entry twice.
HMODULE s_hSibling;
PFN_CORV_OUTPUTA s_pfnOutput;
DWORD s_dwTried;
char s_szModule[MAX_PATH];
// Set for good once the channel is off (the load gave nothing, or the sibling went away), so that a
// line then costs this one test. Only ever set, by the thread that saw it happen: a thread that
// finds the load tried but its handle not yet stored must not turn the channel off.
volatile LONG s_bOff;

// The library's own path: the module that holds this static buffer, not the process's executable.
const char* ModuleName()
{
    if (s_szModule[0] == 0) {
        MEMORY_BASIC_INFORMATION mbi = {};
        ::VirtualQuery(s_szModule, &mbi, sizeof(mbi));
        ::GetModuleFileNameA(static_cast<HMODULE>(mbi.AllocationBase), s_szModule, MAX_PATH);
    }
    return s_szModule;
}

struct TraceCall {
    DWORD dwLevel;
    const char* szFile;
    const char* szFunction;
    int nLine;
    const char* szStamp;
    const char* szFormat;
    va_list args;
};

void SendLine(void* pv)
{
    try {
        TraceCall& call = *static_cast<TraceCall*>(pv);
        if (!(s_dwTried & LOAD_TRIED)) {
            s_dwTried |= LOAD_TRIED;
            s_hSibling = ::LoadLibraryA(kSinkName);
            if (!s_hSibling) s_bOff = TRUE;
        }
        if (!s_hSibling) return;
        if (!::GetModuleHandleA(kSinkName)) {
            // Unloaded behind our back: the entry points into freed code. Off for good.
            s_hSibling = NULL;
            s_bOff = TRUE;
            return;
        }
        if (!(s_dwTried & LOOKUP_TRIED)) {
            s_dwTried |= LOOKUP_TRIED;
            s_pfnOutput = reinterpret_cast<PFN_CORV_OUTPUTA>(
                reinterpret_cast<void*>(::GetProcAddress(s_hSibling, "OutputA")));
        }
        if (!s_pfnOutput) return;
        s_pfnOutput(call.dwLevel, ModuleName(), call.szFile, call.szFunction, call.nLine,
                    call.szStamp, call.szFormat, call.args);
    } catch (...) {
        // The channel never fails its caller.
    }
}

} // namespace

void TraceOutputV(DWORD dwLevel, const char* szFile, const char* szFunction, int nLine,
                  const char* szStamp, const char* szFormat, va_list args)
{
    if (s_bOff) return;
    TraceCall call = {dwLevel, szFile, szFunction, nLine, szStamp, szFormat, {}};
    va_copy(call.args, args);
    CallWithStructuredGuard(&SendLine, &call);
    va_end(call.args);
}

// No sink is the common case: tested before the arguments are touched.
void TraceOutput(DWORD dwLevel, const char* szFile, const char* szFunction, int nLine,
                 const char* szStamp, const char* szFormat, ...)
{
    if (s_bOff) return;
    va_list args;
    va_start(args, szFormat);
    TraceOutputV(dwLevel, szFile, szFunction, nLine, szStamp, szFormat, args);
    va_end(args);
}

} // namespace Tavo
