// A module with a global object, linked with RuntimeShims.cpp as the library is: its entry must construct the object
// before DllMain's attach and destroy it after DllMain's detach. The program watches the steps through ShimProbeWatch.
#include <windows.h>

static char s_szSteps[8];  // static storage: zero before any constructor
static char* s_pszWatch;   // the program's copy, which outlives this module

// A step of nothing (0) only copies the steps so far to the program.
static void Step(char ch)
{
    size_t n = 0;
    while (s_szSteps[n]) ++n;
    if (n + 1 < sizeof(s_szSteps)) s_szSteps[n] = ch;
    for (size_t i = 0; s_pszWatch && i < sizeof(s_szSteps); ++i) s_pszWatch[i] = s_szSteps[i];
}

static struct CGlobal { CGlobal() { Step('c'); } ~CGlobal() { Step('d'); } } s_global;

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD dwReason, LPVOID)
{
    Step(dwReason == DLL_PROCESS_ATTACH ? 'a' : dwReason == DLL_PROCESS_DETACH ? 'x' : 0);
    return TRUE;
}

// pszWatch: 8 characters that outlive this module; they get the steps so far and every later one.
extern "C" __declspec(dllexport) void __cdecl ShimProbeWatch(char* pszWatch)
{
    s_pszWatch = pszWatch;
    Step(0);
}
