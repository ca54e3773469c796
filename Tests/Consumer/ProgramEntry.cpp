// A program's entry as Microsoft's static run-time supplies it, for programs of the Microsoft ABI
// built here (there is no such run-time library on this machine): the C++ initialisers, then main,
// then the process ends with main's result. Built without a stack cookie, as start-up code must be.
#include <windows.h>
#include <corecrt_startup.h>

extern "C" int __cdecl TavoProgramMain() __asm__("_main");

namespace {

// The linker sorts the .CRT$XC* sections by name: these two bracket the initialisers the compiler
// places in .CRT$XCU.
#pragma section(".CRT$XCA", read)
#pragma section(".CRT$XCZ", read)
__declspec(allocate(".CRT$XCA")) _PVFV s_pfnInitFirst[] = {nullptr};
__declspec(allocate(".CRT$XCZ")) _PVFV s_pfnInitEnd[] = {nullptr};

} // namespace

extern "C" __declspec(dllimport) void __cdecl _initterm(_PVFV* pfnFirst, _PVFV* pfnEnd);

extern "C" int __cdecl mainCRTStartup()
{
    _initterm(s_pfnInitFirst, s_pfnInitEnd);
    ::ExitProcess(static_cast<UINT>(TavoProgramMain()));
}
