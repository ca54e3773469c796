// What Microsoft's static run-time library links into every module, for the modules of the
// Microsoft-ABI build: they import ucrtbase.dll and vcruntime140.dll only, and those export neither
// of these pieces. Built without a stack cookie, as start-up code must be.
#include <windows.h>
#include <corecrt_startup.h>

extern "C" {

// The compiler references this marker from every object that uses floating point.
int _fltused = 0x9875;

__declspec(dllimport) void __cdecl _initterm(_PVFV* pfnFirst, _PVFV* pfnEnd);

BOOL WINAPI DllMain(HINSTANCE hInstance, DWORD dwReason, LPVOID pvReserved);

// A program links this file for the type_info vtable alone; its DllMain is then this one.
BOOL WINAPI TavoNoDllMain(HINSTANCE, DWORD, LPVOID) { return TRUE; }
#pragma comment(linker, "/alternatename:_DllMain@12=_TavoNoDllMain@12")

} // extern "C"

namespace {

void __cdecl NoVirtualFunction() {}

// The compiler runs constructors of globals from pointers it places in .CRT$XCU; the linker sorts
// the .CRT$XC* sections by name, so these two bracket them.
#pragma section(".CRT$XCA", read)
#pragma section(".CRT$XCZ", read)
__declspec(allocate(".CRT$XCA")) _PVFV s_pfnInitFirst[] = {nullptr};
__declspec(allocate(".CRT$XCZ")) _PVFV s_pfnInitEnd[] = {nullptr};

// Destructors of globals, registered through atexit, run when this module unloads rather than
// when the process exits.
_onexit_table_t s_exitTable;

} // namespace

// Every RTTI type descriptor (a thrown or caught class) points at this vtable. Nothing calls
// through it: descriptors are static and never destroyed.
extern "C" void (*const g_pfnTypeInfoVtable[1])() __asm__("??_7type_info@@6B@");
void (*const g_pfnTypeInfoVtable[1])() = {&NoVirtualFunction};

extern "C" int __cdecl TavoAtExit(_PVFV pfn) __asm__("_atexit");
int __cdecl TavoAtExit(_PVFV pfn)
{
    return _register_onexit_function(&s_exitTable, reinterpret_cast<_onexit_t>(pfn));
}

// The module's entry: C++ initialisers before the library's DllMain sees the attach, the registered
// destructors after it has seen the detach.
extern "C" BOOL WINAPI _DllMainCRTStartup(HINSTANCE hInstance, DWORD dwReason, LPVOID pvReserved)
{
    if (dwReason == DLL_PROCESS_ATTACH) {
        if (_initialize_onexit_table(&s_exitTable) != 0) return FALSE;
        _initterm(s_pfnInitFirst, s_pfnInitEnd);
        if (!DllMain(hInstance, dwReason, pvReserved)) {
            _execute_onexit_table(&s_exitTable);
            return FALSE;
        }
        return TRUE;
    }
    const BOOL bResult = DllMain(hInstance, dwReason, pvReserved);
    if (dwReason == DLL_PROCESS_DETACH) _execute_onexit_table(&s_exitTable);
    return bResult;
}
