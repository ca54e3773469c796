// The help for a topic: the product's help server in the user's browser, or the local compiled help
// file through the system's HTML help control. The library's one plain export, outside the namespace.
#include "Check.h"
#include "Global.h"
#include "StrSafe.h"

#include <shellapi.h>
#include <htmlhelp.h>

namespace {

typedef HWND(WINAPI* PFN_HTMLHELPA)(HWND hwndCaller, LPCSTR pszFile, UINT uCommand, DWORD_PTR dwData);

// The online road's repeat filter, against a double click. No lock: two threads may both pass it,
// and the worst that does is open the help twice.
Tavo::Time s_lastTime = 0;
int s_nLastTopic = 0;

// The help control, bound once for the life of the process and never freed. A failed load or
// binding is final, so a machine without the control does not pay for the search at every call.
HMODULE s_hHelpControl = NULL;
PFN_HTMLHELPA s_pfnHtmlHelpA = NULL;
bool s_bHelpControlFailed = false;

// Where the control is registered, as the shell's own clients find it.
const char kHelpControlKey[] = "CLSID\\{ADB880A6-D8FF-11CF-9377-00AA003B7A11}\\InprocServer32";
const WORD kHtmlHelpOrdinal = 14;

// The registered file of the control; empty when the registry does not name one.
void RegisteredHelpControl(char (&szPath)[MAX_PATH])
{
    szPath[0] = 0;
    HKEY hKey = NULL;
    if (::RegOpenKeyExA(HKEY_CLASSES_ROOT, kHelpControlKey, 0, KEY_READ, &hKey) != ERROR_SUCCESS) return;
    // One byte held back and zeroed: a stored value need not end in a terminator.
    char szValue[MAX_PATH + 1] = {};
    DWORD dwType = REG_SZ;
    DWORD cbValue = MAX_PATH;
    if (::RegQueryValueExA(hKey, NULL, NULL, &dwType, reinterpret_cast<BYTE*>(szValue), &cbValue) == ERROR_SUCCESS) {
        if (dwType == REG_EXPAND_SZ) {
            // A result that did not fit leaves no usable path.
            const DWORD cch = ::ExpandEnvironmentStringsA(szValue, szPath, MAX_PATH);
            if (cch == 0 || cch > MAX_PATH) szPath[0] = 0;
        } else {
            ::StringCchCopyA(szPath, MAX_PATH, szValue);
        }
    }
    ::RegCloseKey(hKey);
}

HWND CallHtmlHelp(HWND hwndCaller, LPCSTR pszFile, UINT uCommand, DWORD_PTR dwData)
{
    if (s_bHelpControlFailed) return NULL;
    if (!s_hHelpControl) {
        char szPath[MAX_PATH];
        RegisteredHelpControl(szPath);
        if (szPath[0]) s_hHelpControl = ::LoadLibraryA(szPath);
        if (!s_hHelpControl) s_hHelpControl = ::LoadLibraryA("hhctrl.ocx");
        if (!s_hHelpControl) {
            s_bHelpControlFailed = true;
            return NULL;
        }
    }
    if (!s_pfnHtmlHelpA) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wcast-function-type"  // FARPROC is the platform's generic entry type
        s_pfnHtmlHelpA = (PFN_HTMLHELPA)::GetProcAddress(s_hHelpControl, MAKEINTRESOURCEA(kHtmlHelpOrdinal));
#pragma GCC diagnostic pop
        if (!s_pfnHtmlHelpA) {
            s_bHelpControlFailed = true;
            return NULL;
        }
    }
    return s_pfnHtmlHelpA(hwndCaller, pszFile, uCommand, dwData);
}

HRESULT LaunchOnlineHelp(int nTopic, Tavo::Time tNow)
{
    // Within the same second, or with the clock set back, the same topic is a repeated click.
    if (nTopic == s_nLastTopic && tNow - s_lastTime < 1) return E_ABORT;
    s_lastTime = tNow;
    s_nLastTopic = nTopic;

    Tavo::CStringA strAddress =
        Tavo::GetPrivateProfileStringA(Tavo::GetConfigFileA(), "URL", "Help", TAVO_DEFAULT_HELP_ADDRESS);
    strAddress.Replace("%PRODUCT%", Tavo::GetProductA());
    strAddress.Replace("%HELPID%", Tavo::FormatStringA("%d", nTopic));
    if (strAddress.IsEmpty()) return E_FAIL;

    const HINSTANCE hResult = ::ShellExecuteA(NULL, "open", strAddress, NULL, NULL, SW_SHOWNORMAL);
    // Below 32 is the shell's error number; 0 (out of resources) has no error number to give.
    const UINT_PTR nResult = reinterpret_cast<UINT_PTR>(hResult);
    return nResult < 32 ? Tavo::HResultFromWin32(static_cast<DWORD>(nResult)) : S_OK;
}

HRESULT LaunchOfflineHelp(int nTopic)
{
    const char* const szHelpFile = Tavo::GetHelpFilePathA();
    HWND hwndHelp = NULL;
    if (nTopic != 0) hwndHelp = CallHtmlHelp(NULL, szHelpFile, HH_HELP_CONTEXT, static_cast<DWORD_PTR>(nTopic));
    // A topic the help file lacks still shows the help, from its table of contents.
    if (!hwndHelp) hwndHelp = CallHtmlHelp(NULL, szHelpFile, HH_DISPLAY_TOC, 0);
    return hwndHelp ? S_OK : E_FAIL;
}

} // namespace

extern "C" long LaunchHelp(int nTopic)
{
    const Tavo::Time tNow = Tavo::GetUniversalTime();
    return Tavo::GetConfigBOOL("UseOnlineHelp", TRUE) ? LaunchOnlineHelp(nTopic, tNow) : LaunchOfflineHelp(nTopic);
}
