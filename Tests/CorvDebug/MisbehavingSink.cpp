// Misbehaving sinks for the channel's tests, one DLL per definition: TEST_SINK_NO_OUTPUT exports no OutputA;
// TEST_SINK_THROWS and _FAULTS count each call (as CorvRecorderCount), then throw or write through null.
#include <windows.h>
#include "CorvDebug.h"

#if defined(TEST_SINK_NO_OUTPUT)
extern "C" __declspec(dllexport) void __cdecl OutputW(void) {}  // a near miss: the lookup asks for "OutputA" exactly
#else
static volatile LONG s_calls;

extern "C" __declspec(dllexport) int __cdecl CorvRecorderCount(void) { return static_cast<int>(s_calls); }

extern "C" void __cdecl OutputA(DWORD, const char*, const char*, const char*, int, const char*, const char*, va_list)
{
    ::InterlockedIncrement(&s_calls);
#if defined(TEST_SINK_THROWS)
    throw 42;
#else
    int* volatile target = nullptr;  // volatile: the compiler may not turn the store into a trap of its own
    *target = 1;
#endif
}
#endif
