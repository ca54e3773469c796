// Acting on the machine and its desktop: shutdown with the privilege it needs, reconnection of the
// mapped network drives, whole-rectangle conversions, and the search for the suite's main window.
#include "Check.h"
#include "TavoCommon.h"
#include "TavoHandles.h"

#include <string.h>
#include <tchar.h>

namespace Tavo {
namespace {

typedef DWORD(WINAPI* WNETRESTORESINGLECONNECTIONW)(HWND hwndParent, LPCWSTR lpDevice, BOOL fUseUI);
typedef BOOL(WINAPI* CONVERTPOINT)(HWND hWnd, LPPOINT lpPoint);

// The rectangle is its two corners; a failure at the second leaves the first converted.
int ConvertCorners(CONVERTPOINT pfnConvert, HWND hWnd, RECT* pRect)
{
    // The platform refuses a null point itself; on some systems it would fault instead.
    if (pRect == nullptr) return FALSE;
    POINT* const pCorners = reinterpret_cast<POINT*>(pRect);
    if (!pfnConvert(hWnd, &pCorners[0])) return FALSE;
    return pfnConvert(hWnd, &pCorners[1]) ? TRUE : FALSE;
}

BOOL CALLBACK AskIfMainAppWindow(HWND hWnd, LPARAM lParam)
{
    char szClassName[200] = {};
    ::GetClassNameA(hWnd, szClassName, sizeof(szClassName));
    // Only the main program's kind of window is asked: another class may not expect the message.
    if (strstr(szClassName, "HwndWrapper") == nullptr) return TRUE;
    const UINT uMessage = ::RegisterWindowMessageA("Tavo::WM_ISMAINAPPWINDOW");
    if (uMessage == 0 || ::SendMessageA(hWnd, uMessage, 0, 0) == 0) return TRUE;
    *reinterpret_cast<HWND*>(lParam) = hWnd;
    return FALSE;
}

} // namespace

long ExitWindowsEx(unsigned int uFlags, unsigned long dwReason)
{
    TAVO_FUNCTION("Tavo::ExitWindowsEx");
    // The privilege is best effort: whatever fails here, the platform has the last word.
    THandle<HANDLE, 0> hToken;
    BOOL bResult;
    VERIFY_WIN32(bResult = OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &hToken));
    if (bResult) {
        TOKEN_PRIVILEGES tp;
        ZeroMemory(&tp, sizeof(tp));
        VERIFY_WIN32(bResult = LookupPrivilegeValue(NULL, _T("SeShutdownPrivilege"), &tp.Privileges[0].Luid));
        if (bResult) {
            tp.PrivilegeCount = 1;
            tp.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
            VERIFY_WIN32(AdjustTokenPrivileges(hToken, FALSE, &tp, 0, NULL, 0));
        }
    }
    CHECK_HRESULT_AS(::ExitWindowsEx(uFlags, dwReason) ? S_OK : HResultFromLastError(),
                     "::ExitWindowsEx(uFlags, dwReason)");
    return S_OK;
}

long NetRestoreAllConnections()
{
    TAVO_FUNCTION("Tavo::NetRestoreAllConnections");
    THandle<HINSTANCE, 0> hModule;
    CHECK_WIN32(hModule = LoadLibraryA("mpr.dll"));
    WNETRESTORESINGLECONNECTIONW pWNetRestoreSingleConnectionW;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wcast-function-type"  // FARPROC is the platform's generic entry type
    CHECK_WIN32(pWNetRestoreSingleConnectionW = (WNETRESTORESINGLECONNECTIONW)GetProcAddress(hModule, "WNetRestoreSingleConnectionW"));
#pragma GCC diagnostic pop
    // Every letter is tried, mapped or not; a drive that stays away is only told.
    wchar_t szDevice[] = L"A:";
    for (wchar_t chDrive = L'A'; chDrive <= L'Z'; ++chDrive) {
        szDevice[0] = chDrive;
        const DWORD dwResult = pWNetRestoreSingleConnectionW(NULL, szDevice, FALSE);
        TAVO_TRACE(TRACE_INFO, "WNetRestoreSingleConnectionW(%ls) returned %lu", szDevice, dwResult);
    }
    return S_OK;
}

int ClientToScreen(HWND hWnd, RECT* pRect)
{
    TAVO_FUNCTION("Tavo::ClientToScreen");
    VERIFY_WIN32(::IsWindow(hWnd));
    return ConvertCorners(&::ClientToScreen, hWnd, pRect);
}

int ScreenToClient(HWND hWnd, RECT* pRect)
{
    TAVO_FUNCTION("Tavo::ScreenToClient");
    VERIFY_WIN32(::IsWindow(hWnd));
    return ConvertCorners(&::ScreenToClient, hWnd, pRect);
}

HWND GetMainAppWindow()
{
    HWND hWnd = NULL;
    // The callback ends the enumeration with a failure of its own: the result is not an error.
    ::EnumWindows(&AskIfMainAppWindow, reinterpret_cast<LPARAM>(&hWnd));
    return hWnd;
}

} // namespace Tavo
