// Whether a program runs, and the install directory's programs run as the logged-on user.
#include "TavoCommon.h"

#include <psapi.h>
#include <wchar.h>

#include "Argument.h"
#include "StrSafe.h"
#include "TavoHandles.h"

namespace Tavo {

// The base name of a process's main module into szBuffer: its length, 0 when there is none. The
// idle process has no module to ask; it answers 1.
DWORD GetProcessBaseName(DWORD dwProcessId, wchar_t* szBuffer, DWORD cchBuffer)
{
    static const wchar_t kIdle[] = L"System Idle Process";
    if (!szBuffer) return 0;
    if (dwProcessId == 0 && cchBuffer > ARRAYSIZE(kIdle) - 1) {
        ::StringCchCopyW(szBuffer, cchBuffer, kIdle);
        return 1;
    }
    THandle<HANDLE, 0> hProcess;
    hProcess = ::OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, dwProcessId);
    if (!hProcess) return 0;
    HMODULE hModule = nullptr;
    DWORD cbNeeded = 0;
    if (!::EnumProcessModules(hProcess, &hModule, sizeof(hModule), &cbNeeded)) return 0;
    return ::GetModuleBaseNameW(hProcess, hModule, szBuffer, cchBuffer);
}

int IsProgramRunningW(const wchar_t* szFileName)
{
    if (!szFileName) return 0;
    DWORD adwIds[1024];
    DWORD cbReturned = 0;
    if (!::EnumProcesses(adwIds, sizeof(adwIds), &cbReturned)) return 0;
    const DWORD nIds = (cbReturned < sizeof(adwIds) ? cbReturned : sizeof(adwIds)) / sizeof(DWORD);
    for (DWORD i = 0; i < nIds; ++i) {
        wchar_t szName[MAX_PATH] = {};
        if (GetProcessBaseName(adwIds[i], szName, MAX_PATH) && _wcsicmp(szName, szFileName) == 0) return 1;
    }
    return 0;
}

int IsProgramRunningA(const char* szFileName)
{
    TAVO_WIDE_ARGUMENT(wszFileName, szFileName);
    return IsProgramRunningW(wszFileName);
}

unsigned long UseImpersonateToExecuteProcessAndWaitW(const wchar_t* szApplication, const wchar_t* szArguments,
                                                     unsigned long dwTimeout, int bWait)
{
    const CStringA strApplication(szApplication);
    const CStringA strArguments(szArguments);
    unsigned long dwExitCode = 0;
    const char* szDirectory = GetInstallDirectoryA();
    // A text that does not fit is refused, not cut: a cut path or argument would run something else.
    char szApplicationBuffer[512];
    char szArgumentsBuffer[512];
    char szDirectoryBuffer[512];
    if (FAILED(::StringCchCopyA(szApplicationBuffer, sizeof(szApplicationBuffer), strApplication)) ||
        FAILED(::StringCchCopyA(szArgumentsBuffer, sizeof(szArgumentsBuffer), strArguments)) ||
        FAILED(::StringCchCopyA(szDirectoryBuffer, sizeof(szDirectoryBuffer), szDirectory)))
        return dwExitCode;
    RunAsLoggedOnUser_2012(dwExitCode, szApplicationBuffer, szArgumentsBuffer, szDirectoryBuffer, dwTimeout, bWait);
    return dwExitCode;
}

unsigned long UseImpersonateToExecuteProcessAndWaitA(const char* szApplication, const char* szArguments,
                                                     unsigned long dwTimeout, int bWait)
{
    TAVO_WIDE_ARGUMENT(wszApplication, szApplication);
    TAVO_WIDE_ARGUMENT(wszArguments, szArguments);
    return UseImpersonateToExecuteProcessAndWaitW(wszApplication, wszArguments, dwTimeout, bWait);
}

} // namespace Tavo
