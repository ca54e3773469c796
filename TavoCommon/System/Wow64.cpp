// WOW64: whether this 32-bit library runs on 64-bit Windows, and switching file-system redirection.
// The entries are missing on older systems, so they are looked up at every call and never imported.
#include "Cache.h"
#include "Check.h"

namespace Tavo {
namespace {

typedef BOOL(WINAPI* PFN_ISWOW64PROCESS)(HANDLE, PBOOL);
typedef BOOL(WINAPI* PFN_WOW64DISABLE)(PVOID*);
typedef BOOL(WINAPI* PFN_WOW64REVERT)(PVOID);

// -1: not computed yet; then 0 or 1 for the life of the process.
int s_nIs64BitWindows = -1;
int s_nIsWow64Process = -1;

template <typename PFN>
PFN Kernel32Entry(const char* szName)
{
    HMODULE hKernel32 = ::GetModuleHandleA("kernel32");
    return hKernel32 ? reinterpret_cast<PFN>(reinterpret_cast<void*>(::GetProcAddress(hKernel32, szName))) : nullptr;
}

} // namespace

int IsWow64Process(void* hProcess, int* Wow64Process)
{
    TAVO_FUNCTION("Tavo::IsWow64Process");
    if (Wow64Process) *Wow64Process = 0;
    PFN_ISWOW64PROCESS pfn = Kernel32Entry<PFN_ISWOW64PROCESS>("IsWow64Process");
    if (!pfn) {
        TAVO_TRACE(TRACE_WARNING, "Could not find IsWow64Process");
        return 0;
    }
    return pfn(hProcess, reinterpret_cast<PBOOL>(Wow64Process));
}

// A failed query reads as false.
bool IsWow64Process(void* hProcess)
{
    int nWow64 = 0;
    IsWow64Process(hProcess, &nWow64);
    return nWow64 != 0;
}

bool IsWow64Process()
{
    CGlobalLock lock;
    if (s_nIsWow64Process == -1) s_nIsWow64Process = IsWow64Process(::GetCurrentProcess()) ? 1 : 0;
    return s_nIsWow64Process == 1;
}

// A 32-bit process sees 64-bit Windows only as a WOW64 process.
bool Is64BitWindows()
{
    CGlobalLock lock;
    if (s_nIs64BitWindows == -1) s_nIs64BitWindows = IsWow64Process() ? 1 : 0;
    return s_nIs64BitWindows == 1;
}

int Wow64DisableWow64FsRedirection(void** OldValue)
{
    PFN_WOW64DISABLE pfn = Kernel32Entry<PFN_WOW64DISABLE>("Wow64DisableWow64FsRedirection");
    return pfn ? pfn(OldValue) : 0;
}

int Wow64RevertWow64FsRedirection(void* OldValue)
{
    PFN_WOW64REVERT pfn = Kernel32Entry<PFN_WOW64REVERT>("Wow64RevertWow64FsRedirection");
    return pfn ? pfn(OldValue) : 0;
}

} // namespace Tavo
