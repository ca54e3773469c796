// Stands in for the system's HTML help control: HtmlHelpA by ordinal 14 only, as the library binds it.
// It shows nothing for a help file that does not exist, knows the topics below 1000, and logs every
// call as "caller,command,data,file;" for the test to read through HelpStandInLog.
#include <windows.h>
#include <htmlhelp.h>

#include <stdio.h>
#include <string.h>

namespace {
char g_szLog[8192];
}

extern "C" HWND WINAPI HtmlHelpA(HWND hwndCaller, LPCSTR pszFile, UINT uCommand, DWORD_PTR dwData)
{
    const size_t cchUsed = strlen(g_szLog);
    snprintf(g_szLog + cchUsed, sizeof(g_szLog) - cchUsed, "%lu,%u,%lu,%s;",
             static_cast<unsigned long>(reinterpret_cast<UINT_PTR>(hwndCaller)), uCommand,
             static_cast<unsigned long>(dwData), pszFile ? pszFile : "(null)");
    if (!pszFile || GetFileAttributesA(pszFile) == INVALID_FILE_ATTRIBUTES) return NULL;
    if (uCommand == HH_HELP_CONTEXT && dwData >= 1000) return NULL;
    return GetDesktopWindow();
}

extern "C" const char* __cdecl HelpStandInLog() { return g_szLog; }
