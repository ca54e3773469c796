// A module with a global object, linked with RuntimeShims.cpp as the library is, for the
// conformance program: the entry must construct the object before DllMain sees the attach and
// destroy it after DllMain has seen the detach. Each step appends a letter to the program's buffer.
#include <windows.h>

namespace {

char s_szSteps[8];  // static storage: zero before any constructor
char* s_pszWatch;

void Step(char ch)
{
    char* const apsz[] = {s_szSteps, s_pszWatch};
    for (char* psz : apsz) {
        if (!psz) continue;
        size_t n = 0;
        while (n + 1 < sizeof(s_szSteps) && psz[n]) ++n;
        if (n + 1 < sizeof(s_szSteps)) psz[n] = ch;
    }
}

struct CGlobal {
    CGlobal() { Step('c'); }
    ~CGlobal() { Step('d'); }
} s_global;

} // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD dwReason, LPVOID)
{
    if (dwReason == DLL_PROCESS_ATTACH) Step('a');
    if (dwReason == DLL_PROCESS_DETACH) Step('x');
    return TRUE;
}

// pszWatch: 8 zeroed characters that outlive this module; it gets the steps so far and every later one.
extern "C" __declspec(dllexport) void __cdecl ShimProbeWatch(char* pszWatch)
{
    for (size_t i = 0; i + 1 < sizeof(s_szSteps); ++i) pszWatch[i] = s_szSteps[i];
    s_pszWatch = pszWatch;
}
