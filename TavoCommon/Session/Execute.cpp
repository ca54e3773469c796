// Launching a program as the logged-on user, on that user's desktop, from whatever account the
// caller runs under. Session services, the user environment and the process enumeration are bound
// at run time per call: a system that lacks them only loses the step that needs them.
#include "TavoCommon.h"

#include <mbstring.h>
#include <string.h>
#include <userenv.h>
#include <wtsapi32.h>

#include "StrSafe.h"
#include "TavoHandles.h"
#include "Trace.h"

namespace Tavo {

namespace {

// Every line of this file belongs to the launcher.
TAVO_FUNCTION("Tavo::RunAsLoggedOnUser_2012");

// A module loaded for entries bound by name; freed when its owner ends.
class CBoundModule {
public:
    explicit CBoundModule(HINSTANCE hModule) { m_hModule = hModule; }

    // False (and pfn null) when the module or the entry is missing.
    template <typename PFN>
    bool Bind(PFN& pfn, const char* szName)
    {
        pfn = m_hModule ? reinterpret_cast<PFN>(reinterpret_cast<void*>(::GetProcAddress(m_hModule, szName)))
                        : nullptr;
        return pfn != nullptr;
    }

    THandle<HINSTANCE, 0> m_hModule;
};

// Zeroed memory of the process heap, freed when the owner ends.
class CHeapBlock {
public:
    explicit CHeapBlock(SIZE_T cb) : m_pv(cb ? ::HeapAlloc(::GetProcessHeap(), HEAP_ZERO_MEMORY, cb) : nullptr) {}
    ~CHeapBlock()
    {
        if (m_pv) ::HeapFree(::GetProcessHeap(), 0, m_pv);
    }
    void* m_pv;

private:
    CHeapBlock(const CHeapBlock&);
    CHeapBlock& operator=(const CHeapBlock&);
};

typedef BOOL(WINAPI* PFN_WTSQueryUserToken)(ULONG, PHANDLE);
typedef BOOL(WINAPI* PFN_WTSQuerySessionInformationA)(HANDLE, DWORD, WTS_INFO_CLASS, LPSTR*, DWORD*);
typedef BOOL(WINAPI* PFN_WTSEnumerateSessionsA)(HANDLE, DWORD, DWORD, PWTS_SESSION_INFOA*, DWORD*);
typedef void(WINAPI* PFN_WTSFreeMemory)(PVOID);
typedef DWORD(WINAPI* PFN_WTSGetActiveConsoleSessionId)();

// The session services. WTSAPI32 is freed before KERNEL32, as they were loaded the other way round.
struct SessionFunctions {
    SessionFunctions() : m_kernel32(nullptr), m_wtsapi32(nullptr)
    {
        m_wtsapi32.m_hModule = ::LoadLibraryA("WTSAPI32.DLL");
        m_kernel32.m_hModule = ::LoadLibraryA("KERNEL32.DLL");
        m_wtsapi32.Bind(fnWTSQueryUserToken, "WTSQueryUserToken");
        m_wtsapi32.Bind(fnWTSQuerySessionInformationA, "WTSQuerySessionInformationA");
        m_wtsapi32.Bind(fnWTSEnumerateSessionsA, "WTSEnumerateSessionsA");
        m_wtsapi32.Bind(fnWTSFreeMemory, "WTSFreeMemory");
        m_kernel32.Bind(fnWTSGetActiveConsoleSessionId, "WTSGetActiveConsoleSessionId");
    }

    CBoundModule m_kernel32;
    CBoundModule m_wtsapi32;
    PFN_WTSQueryUserToken fnWTSQueryUserToken;
    PFN_WTSQuerySessionInformationA fnWTSQuerySessionInformationA;
    PFN_WTSEnumerateSessionsA fnWTSEnumerateSessionsA;
    PFN_WTSFreeMemory fnWTSFreeMemory;
    PFN_WTSGetActiveConsoleSessionId fnWTSGetActiveConsoleSessionId;
};

} // namespace

struct UserEnvironmentFunctions {
    typedef BOOL(WINAPI* PFN_CreateEnvironmentBlock)(LPVOID*, HANDLE, BOOL);
    typedef BOOL(WINAPI* PFN_DestroyEnvironmentBlock)(LPVOID);
    typedef BOOL(WINAPI* PFN_LoadUserProfileA)(HANDLE, LPPROFILEINFOA);
    typedef BOOL(WINAPI* PFN_UnloadUserProfile)(HANDLE, HANDLE);

    // Every entry starts null: the binding stops at the first one that is missing.
    UserEnvironmentFunctions()
        : m_userenv(::LoadLibraryA("userenv.dll")), fnCreateEnvironmentBlock(nullptr),
          fnDestroyEnvironmentBlock(nullptr), fnLoadUserProfileA(nullptr), fnUnloadUserProfile(nullptr)
    {
        bAvailable = m_userenv.Bind(fnCreateEnvironmentBlock, "CreateEnvironmentBlock") &&
                     m_userenv.Bind(fnDestroyEnvironmentBlock, "DestroyEnvironmentBlock") &&
                     m_userenv.Bind(fnLoadUserProfileA, "LoadUserProfileA") &&
                     m_userenv.Bind(fnUnloadUserProfile, "UnloadUserProfile");
    }

    CBoundModule m_userenv;
    PFN_CreateEnvironmentBlock fnCreateEnvironmentBlock;
    PFN_DestroyEnvironmentBlock fnDestroyEnvironmentBlock;
    PFN_LoadUserProfileA fnLoadUserProfileA;
    PFN_UnloadUserProfile fnUnloadUserProfile;
    bool bAvailable;
};

struct ProcessEnumerationFunctions {
    typedef BOOL(WINAPI* PFN_EnumProcesses)(DWORD*, DWORD, DWORD*);
    typedef DWORD(WINAPI* PFN_GetModuleBaseNameA)(HANDLE, HMODULE, LPSTR, DWORD);

    // The suite's task program ships its own copy beside it; that copy is preferred. Without such a
    // module the folder is the one of this process's executable.
    ProcessEnumerationFunctions() : m_psapi(nullptr)
    {
        char szPath[MAX_PATH] = {};
        const DWORD cch = ::GetModuleFileNameA(::GetModuleHandleA("corvtask.exe"), szPath, MAX_PATH);
        char* pszSlash = cch && cch < MAX_PATH ? strrchr(szPath, '\\') : nullptr;
        if (pszSlash) {
            pszSlash[1] = 0;
            if (SUCCEEDED(::StringCchCopyA(pszSlash + 1, MAX_PATH - (pszSlash + 1 - szPath), "psapi.dll")))
                m_psapi.m_hModule = ::LoadLibraryA(szPath);
        }
        if (!m_psapi.m_hModule) m_psapi.m_hModule = ::LoadLibraryA("psapi.dll");
        bAvailable = m_psapi.Bind(fnEnumProcesses, "EnumProcesses") &&
                     m_psapi.Bind(fnGetModuleBaseNameA, "GetModuleBaseNameA");
    }

    CBoundModule m_psapi;
    PFN_EnumProcesses fnEnumProcesses;
    PFN_GetModuleBaseNameA fnGetModuleBaseNameA;
    bool bAvailable;
};

// The first process of that file name, case-insensitive, open with all access; null if none. The
// caller closes it. No session is asked: the first in enumeration order wins.
HANDLE FindProcessByName(const char* szName)
{
    ProcessEnumerationFunctions psapi;
    if (!psapi.bAvailable) return nullptr;
    const DWORD cbList = 0x20000;
    CHeapBlock ids(cbList);
    DWORD* pdwIds = static_cast<DWORD*>(ids.m_pv);
    DWORD cbReturned = 0;
    if (!pdwIds || !psapi.fnEnumProcesses(pdwIds, cbList, &cbReturned)) return nullptr;
    const DWORD nIds = (cbReturned < cbList ? cbReturned : cbList) / sizeof(DWORD);
    for (DWORD i = 0; i < nIds; ++i) {
        THandle<HANDLE, 0> hProcess;
        // All access as the systems before Vista define it; the later, wider mask fails there.
        hProcess = ::OpenProcess(0x1F0FFF, FALSE, pdwIds[i]);
        if (!hProcess) continue;
        char szBase[MAX_PATH] = {};
        psapi.fnGetModuleBaseNameA(hProcess, nullptr, szBase, MAX_PATH);
        szBase[MAX_PATH - 1] = 0;
        const unsigned char* pszBase = reinterpret_cast<const unsigned char*>(szBase);
        if (_mbsicmp(pszBase, reinterpret_cast<const unsigned char*>(szName)) == 0) {
            HANDLE h = hProcess.m_h;
            hProcess.m_h = nullptr;
            return h;
        }
    }
    return nullptr;
}

namespace {

// One launch: the working values the traces name, the token chain and the launch itself.
class CLaunch {
public:
    CLaunch(const char* szApplication, const char* szArguments, const char* szDirectory)
        : m_szApplication(szApplication), m_szArguments(szArguments), m_szDirectory(szDirectory), m_bRet(false),
          m_ulSessionId(0)
    {
    }

    // The five ways, each only while the ways before it got no token.
    bool GetUserToken();
    // Account, command line, process; the token and the library handles are released by the owners.
    bool Launch(unsigned long& ExitCode_DWORD, unsigned long dwTimeout, int bWait);

private:
    // The token of that session, adopted; the traces show it.
    bool QueryUserToken(ULONG ulSessionId)
    {
        HANDLE hNew = nullptr;
        const bool bOk = m_wts.fnWTSQueryUserToken(ulSessionId, &hNew) != FALSE;
        Adopt(hNew);
        return bOk;
    }
    void Adopt(HANDLE hNew)
    {
        if (!hNew) return;
        m_hToken.Close();
        m_hToken = hNew;
    }
    void QueryFoundSession(const char* szStepFormat);
    unsigned Token() const { return static_cast<unsigned>(reinterpret_cast<UINT_PTR>(m_hToken.m_h)); }
    void LaunchWithEnvironment(UserEnvironmentFunctions& env, const char* szName, char* pzCmd,
                               unsigned long& ExitCode_DWORD, unsigned long dwTimeout, int bWait);

    const char* m_szApplication;
    const char* m_szArguments;
    const char* m_szDirectory;
    bool m_bRet;
    ULONG m_ulSessionId;
    SessionFunctions m_wts;
    THandle<HANDLE, 0> m_hProcess;
    THandle<HANDLE, 0> m_hToken;  // declared last: closed first, then the shell's process, then the modules
    char m_szTrace[2048];
};

// Diagnostic text only: a text too long for the buffer is cut.
#define TRACE_STEP(n, ...)                                                                 \
    do {                                                                                   \
        ::StringCchPrintfA(m_szTrace, sizeof(m_szTrace), __VA_ARGS__);                     \
        TAVO_TRACE(TRACE_INFO, "RunAsLoggedOnUser " #n " - %s.\n", m_szTrace);             \
    } while (0)

// The token of the session a way found, traced under that way's step.
void CLaunch::QueryFoundSession(const char* szStepFormat)
{
    m_bRet = QueryUserToken(m_ulSessionId);
    ::StringCchPrintfA(m_szTrace, sizeof(m_szTrace),
                       " hToken = 0x%08X \n ulSessionId = %lu \n fnWTSQueryUserToken bRet = %lu \n", Token(),
                       m_ulSessionId, static_cast<unsigned long>(m_bRet));
    TAVO_TRACE(TRACE_INFO, szStepFormat, m_szTrace);
}

bool CLaunch::GetUserToken()
{
    const SessionFunctions& wts = m_wts;
    if (wts.fnWTSQueryUserToken && wts.fnWTSGetActiveConsoleSessionId) {
        m_ulSessionId = wts.fnWTSGetActiveConsoleSessionId();
        m_bRet = QueryUserToken(m_ulSessionId);
        TRACE_STEP(1,
                   " hToken = 0x%08X \n ulSessionId = %lu \n fnWTSQueryUserToken bRet = %lu \n"
                   " lpCurrentDirectory:\"%s\"\n lpApplicationName:\"%s\"\n lpCommandLineArguments:\"%s\"",
                   Token(), m_ulSessionId, static_cast<unsigned long>(m_bRet), m_szDirectory, m_szApplication,
                   m_szArguments);
    }
    if (!m_bRet && wts.fnWTSQueryUserToken && wts.fnWTSEnumerateSessionsA && wts.fnWTSFreeMemory) {
        PWTS_SESSION_INFOA pSessions = nullptr;
        DWORD nSessions = 0;
        if (wts.fnWTSEnumerateSessionsA(nullptr, 0, 1, &pSessions, &nSessions)) {
            for (DWORD i = 0; pSessions && i < nSessions; ++i) {
                if (pSessions[i].State == WTSActive) {
                    m_ulSessionId = pSessions[i].SessionId;
                    m_bRet = true;
                    break;
                }
            }
            wts.fnWTSFreeMemory(pSessions);
        }
        TRACE_STEP(2, " ulSessionId = %lu \n fnWTSEnumerateSessionsA bRet = %lu \n ", m_ulSessionId,
                   static_cast<unsigned long>(m_bRet));
        if (m_bRet) QueryFoundSession("RunAsLoggedOnUser 3 - %s.\n");
    }
    if (!m_bRet && wts.fnWTSQueryUserToken && wts.fnWTSQuerySessionInformationA && wts.fnWTSFreeMemory) {
        LPSTR pBuffer = nullptr;
        DWORD cbBuffer = 0;
        if (wts.fnWTSQuerySessionInformationA(nullptr, WTS_CURRENT_SESSION, WTSSessionId, &pBuffer, &cbBuffer) &&
            pBuffer) {
            // A buffer too short to hold the id is no answer.
            if (cbBuffer >= sizeof(ULONG)) {
                memcpy(&m_ulSessionId, pBuffer, sizeof(ULONG));
                m_bRet = true;
            }
            wts.fnWTSFreeMemory(pBuffer);
        }
        TRACE_STEP(4, " ulSessionId = %lu \n fnWTSQuerySessionInformationA bRet = %lu \n ", m_ulSessionId,
                   static_cast<unsigned long>(m_bRet));
        if (m_bRet) QueryFoundSession("RunAsLoggedOnUser 5 - %s.\n");
    }
    if (!m_bRet && wts.fnWTSQueryUserToken) {
        m_bRet = ::ProcessIdToSessionId(::GetCurrentProcessId(), &m_ulSessionId) != FALSE;
        TRACE_STEP(6, " ulSessionId = %lu \n ProcessIdToSessionId bRet = %lu \n ", m_ulSessionId,
                   static_cast<unsigned long>(m_bRet));
        if (m_bRet) QueryFoundSession("RunAsLoggedOnUser 7 - %s.\n");
    }
    if (!m_bRet) {
        m_hProcess = FindProcessByName("explorer.exe");
        if (m_hProcess) {
            HANDLE hNew = nullptr;
            m_bRet = ::OpenProcessToken(m_hProcess, TOKEN_READ | TOKEN_ASSIGN_PRIMARY | TOKEN_DUPLICATE |
                                                        TOKEN_IMPERSONATE, &hNew) != FALSE;
            Adopt(hNew);
        }
        TRACE_STEP(8, " hToken = 0x%08X \n hProcess = 0x%08X \n OpenProcessToken bRet = %lu \n", Token(),
                   static_cast<unsigned>(reinterpret_cast<UINT_PTR>(m_hProcess.m_h)),
                   static_cast<unsigned long>(m_bRet));
    }
    return m_bRet;
}

bool CLaunch::Launch(unsigned long& ExitCode_DWORD, unsigned long dwTimeout, int bWait)
{
    DWORD cbUser = 0;
    ::GetTokenInformation(m_hToken, TokenUser, nullptr, 0, &cbUser);
    CHeapBlock user(cbUser);
    if (!user.m_pv) return m_bRet = false;
    char szName[0x100] = {};
    char szDomain[0x100] = {};
    DWORD cchName = sizeof(szName);
    DWORD cchDomain = sizeof(szDomain);
    SID_NAME_USE use;
    if (!::GetTokenInformation(m_hToken, TokenUser, user.m_pv, cbUser, &cbUser) ||
        !::LookupAccountSidA(nullptr, static_cast<TOKEN_USER*>(user.m_pv)->User.Sid, szName, &cchName, szDomain,
                             &cchDomain, &use))
        return m_bRet = false;

    UserEnvironmentFunctions env;
    // A cut command line would start something else: one that does not fit starts nothing.
    char szCmd[2048] = {};
    char* pzCmd = szCmd;
    bool bFits = true;
    if (m_szApplication && *m_szApplication)
        bFits = SUCCEEDED(::StringCchPrintfA(szCmd, sizeof(szCmd), "\"%s\" %s", m_szApplication,
                                             m_szArguments ? m_szArguments : ""));
    else
        pzCmd = const_cast<char*>(m_szArguments);  // the narrow creation converts it and never writes it
    TRACE_STEP(9, " hToken = 0x%08X \n Domain\\Username = %s\\%s \n pzCmd = %s \n ", Token(), szDomain, szName,
               pzCmd);
    if (!bFits) return m_bRet = false;

    if (env.bAvailable) {
        LaunchWithEnvironment(env, szName, pzCmd, ExitCode_DWORD, dwTimeout, bWait);
    } else {
        STARTUPINFOA si = {};
        si.cb = sizeof(si);
        si.lpDesktop = const_cast<char*>("winsta0\\default");
        PROCESS_INFORMATION pi = {};
        m_bRet = ::CreateProcessAsUserA(m_hToken, nullptr, pzCmd, nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                                        m_szDirectory, &si, &pi) != FALSE;
        THandle<HANDLE, 0> hThread;
        hThread = pi.hThread;
        THandle<HANDLE, 0> hChild;  // declared last: the process closes before its thread
        hChild = pi.hProcess;
    }
    return m_bRet;
}

void CLaunch::LaunchWithEnvironment(UserEnvironmentFunctions& env, const char* szName, char* pzCmd,
                                    unsigned long& ExitCode_DWORD, unsigned long dwTimeout, int bWait)
{
    PROFILEINFOA profile = {};
    profile.dwSize = sizeof(profile);
    profile.lpUserName = const_cast<char*>(szName);
    m_bRet = env.fnLoadUserProfileA(m_hToken, &profile) != FALSE;
    // Without a profile the process still starts, with no environment block.
    LPVOID pEnvironment = nullptr;
    if (m_bRet) env.fnCreateEnvironmentBlock(&pEnvironment, m_hToken, FALSE);
    const BOOL bImpersonated = ::ImpersonateLoggedOnUser(m_hToken);

    STARTUPINFOA si = {};
    si.cb = sizeof(si);
    si.lpDesktop = const_cast<char*>("winsta0\\default");
    PROCESS_INFORMATION pi = {};
    ::SetLastError(0);
    m_bRet = ::CreateProcessAsUserA(m_hToken, nullptr, pzCmd, nullptr, nullptr, FALSE,
                                    CREATE_NO_WINDOW | CREATE_UNICODE_ENVIRONMENT, pEnvironment, m_szDirectory, &si,
                                    &pi) != FALSE;
    const DWORD dwGLE = m_bRet ? 0 : ::GetLastError();
    TRACE_STEP(10,
               " CreateProcessAsUser pzCmd=<%s>\n bRet = %lu \n dwGLE = 0x%08X \n ImpersonateResult_BOOL=%d\n"
               " about to call WaitForSingleObject...",
               pzCmd, static_cast<unsigned long>(m_bRet), static_cast<unsigned>(dwGLE), bImpersonated);
    if (bWait) {
        if (::WaitForSingleObject(pi.hProcess, dwTimeout) == WAIT_OBJECT_0) {
            DWORD dwExit = 0;
            ::GetExitCodeProcess(pi.hProcess, &dwExit);
            ExitCode_DWORD = dwExit;
            TRACE_STEP(11, " after WaitForSingleObject GetExitCodeProcess ExitCode_DWORD = %lu \n", ExitCode_DWORD);
        } else {
            ::TerminateProcess(pi.hProcess, 0);
            TRACE_STEP(11, " back from TerminateProcess \n");
        }
    }
    if (pi.hProcess) ::CloseHandle(pi.hProcess);
    if (pi.hThread) ::CloseHandle(pi.hThread);
    ::RevertToSelf();
    if (pEnvironment) env.fnDestroyEnvironmentBlock(pEnvironment);
    env.fnUnloadUserProfile(m_hToken, profile.hProfile);
}

#undef TRACE_STEP

} // namespace

bool RunAsLoggedOnUser_2012(unsigned long& ExitCode_DWORD, const char* lpApplicationName,
                            const char* lpCommandLineArguments, const char* lpCurrentDirectory, unsigned long dwTimeout,
                            int bWait)
{
    ExitCode_DWORD = 0;
    if (!lpApplicationName && !lpCommandLineArguments) return false;
    if ((!lpApplicationName || !*lpApplicationName) && (!lpCommandLineArguments || !*lpCommandLineArguments))
        return false;
    CLaunch launch(lpApplicationName, lpCommandLineArguments, lpCurrentDirectory);
    return launch.GetUserToken() && launch.Launch(ExitCode_DWORD, dwTimeout, bWait);
}

} // namespace Tavo
