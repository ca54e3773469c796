// Misbehaving sinks for the channel's tests, one DLL per behaviour (chosen by a definition):
//   TEST_SINK_NO_OUTPUT  a valid DLL without OutputA
//   TEST_SINK_THROWS     OutputA counts the call, then throws a C++ exception
//   TEST_SINK_FAULTS     OutputA counts the call, then writes through a null pointer
// The counting ones export the recorder's CorvRecorderCount, so a test can see they were reached.
#include <windows.h>
#include <stdarg.h>
#include "CorvDebug.h"

#if defined(TEST_SINK_NO_OUTPUT)

// A near miss: exporting something (not everything) keeps the linker from exporting all symbols,
// and the lookup must ask for exactly "OutputA".
extern "C" __declspec(dllexport) void __cdecl OutputW(void) {}

#elif defined(TEST_SINK_THROWS) || defined(TEST_SINK_FAULTS)

namespace {
volatile LONG s_calls;
}

extern "C" __declspec(dllexport) int __cdecl CorvRecorderCount(void)
{
    return static_cast<int>(s_calls);
}

extern "C" void __cdecl OutputA(DWORD, const char*, const char*, const char*, int, const char*,
                                const char*, va_list)
{
    ::InterlockedIncrement(&s_calls);
#if defined(TEST_SINK_THROWS)
    throw 42;
#else
    // Through a volatile pointer, so the compiler cannot turn the store into a trap of its own.
    int* volatile target = nullptr;
    *target = 1;
#endif
}

#else
#error "Define which test sink to build."
#endif
