// The module object and the library's life: the global lock made at load, the cached values freed
// at unload last computed first, the lock deleted last.
#include "Module.h"
#include "Cache.h"

namespace Tavo {

CModule g_module;
CRITICAL_SECTION g_globalLock;

namespace {

CCleanupList s_cleanups;

void CreateGlobalLock()
{
    if (!::InitializeCriticalSectionAndSpinCount(&g_globalLock, 0))
        AtlThrow(HRESULT_FROM_WIN32(::GetLastError()));
}

} // namespace

void RegisterCleanup(CCleanup& node, void (*pfnDestroy)(void*), void* pv)
{
    s_cleanups.Add(node, pfnDestroy, pv);
}

bool CModule::Initialize(HINSTANCE hInstance)
{
    m_hInstance = m_hInstResource = hInstance;
    try {
        CreateGlobalLock();
    } catch (const CAtlException&) {
        return false;
    }
    return true;
}

void CModule::Terminate()
{
    s_cleanups.RunAll();
    ::DeleteCriticalSection(&g_globalLock);
}

} // namespace Tavo

#if defined(TAVO_STATIC)

// Linked into a test program: the program's own module stands in for the library's.
namespace {
struct CStaticModule {
    CStaticModule() { Tavo::g_module.Initialize(::GetModuleHandleW(NULL)); }
    ~CStaticModule() { Tavo::g_module.Terminate(); }
} s_staticModule;
} // namespace

#else

extern "C" BOOL WINAPI DllMain(HINSTANCE hInstance, DWORD dwReason, LPVOID)
{
    switch (dwReason) {
    case DLL_PROCESS_ATTACH:
        return Tavo::g_module.Initialize(hInstance) ? TRUE : FALSE;
    case DLL_PROCESS_DETACH:
        Tavo::g_module.Terminate();
        break;
    }
    return TRUE;
}

#endif
