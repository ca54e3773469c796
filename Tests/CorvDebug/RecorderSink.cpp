// The recorder build of CorvDebug.dll: keeps every field of every line, in the order the lines
// arrive, for test programs to read back. Bounded: once full, further lines are counted, not kept.
#include <windows.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <type_traits>
#include "CorvDebug.h"
#include "Recorder.h"

namespace {

CRITICAL_SECTION s_lock;
CorvRecord* s_lines[CORV_RECORDER_MAX_LINES];
int s_count;
int s_dropped;

template <size_t N>
void CopyBounded(char (&dst)[N], const char* src)
{
    if (!src) src = "(null)";
    size_t i = 0;
    for (; i + 1 < N && src[i]; ++i) dst[i] = src[i];
    dst[i] = 0;
}

struct Lock {
    Lock() { ::EnterCriticalSection(&s_lock); }
    ~Lock() { ::LeaveCriticalSection(&s_lock); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
};

// The knob's value, if it is set to a number.
bool KnobLastError(DWORD& value)
{
    char text[32];
    const DWORD cch = ::GetEnvironmentVariableA(CORV_RECORDER_LASTERROR_VARIABLE, text, sizeof(text));
    if (cch == 0 || cch >= sizeof(text)) return false;
    char* end = NULL;
    value = strtoul(text, &end, 0);
    return end != text && *end == 0;
}

} // namespace

extern "C" {

__declspec(dllexport) int __cdecl CorvRecorderCount(void);
__declspec(dllexport) BOOL __cdecl CorvRecorderGet(int index, CorvRecord* out);
__declspec(dllexport) void __cdecl CorvRecorderClear(void);
__declspec(dllexport) int __cdecl CorvRecorderDropped(void);

// The reader calls through these types: keep the definitions in step with them.
static_assert(std::is_same<decltype(&CorvRecorderCount), PFN_CORV_RECORDER_COUNT>::value, "");
static_assert(std::is_same<decltype(&CorvRecorderGet), PFN_CORV_RECORDER_GET>::value, "");
static_assert(std::is_same<decltype(&CorvRecorderClear), PFN_CORV_RECORDER_CLEAR>::value, "");
static_assert(std::is_same<decltype(&CorvRecorderDropped), PFN_CORV_RECORDER_DROPPED>::value, "");
static_assert(std::is_same<decltype(&OutputA), PFN_CORV_OUTPUTA>::value, "");

BOOL WINAPI DllMain(HINSTANCE, DWORD dwReason, LPVOID)
{
    if (dwReason == DLL_PROCESS_ATTACH) ::InitializeCriticalSection(&s_lock);
    return TRUE;
}

void __cdecl OutputA(DWORD dwLevel, const char* szModule, const char* szFile, const char* szFunction,
                     int nLine, const char* szStamp, const char* szFormat, va_list args)
{
    const DWORD lastError = ::GetLastError();
    // Filled before the lock is taken: formatting may be slow, and the heap is thread-safe.
    CorvRecord* rec = static_cast<CorvRecord*>(::HeapAlloc(::GetProcessHeap(), 0, sizeof(CorvRecord)));
    if (rec) {
        rec->level = dwLevel;
        rec->modulePointer = szModule;
        rec->line = nLine;
        rec->threadId = ::GetCurrentThreadId();
        CopyBounded(rec->module, szModule);
        CopyBounded(rec->file, szFile);
        CopyBounded(rec->function, szFunction);
        CopyBounded(rec->stamp, szStamp);
        CopyBounded(rec->format, szFormat);
        if (szFormat) {
            // msvcrt's dialect, as the real sink formats it; a cut text is left cut.
            _vsnprintf(rec->text, sizeof(rec->text) - 1, szFormat, args);
            rec->text[sizeof(rec->text) - 1] = 0;
        } else {
            CopyBounded(rec->text, szFormat);
        }
    }
    {
        Lock lock;
        if (rec && s_count < CORV_RECORDER_MAX_LINES) {
            s_lines[s_count++] = rec;
            rec = NULL;
        } else {
            ++s_dropped;
        }
    }
    if (rec) ::HeapFree(::GetProcessHeap(), 0, rec);

    DWORD knob;
    ::SetLastError(KnobLastError(knob) ? knob : lastError);
}

int __cdecl CorvRecorderCount(void)
{
    Lock lock;
    return s_count;
}

BOOL __cdecl CorvRecorderGet(int index, CorvRecord* out)
{
    Lock lock;
    if (!out || index < 0 || index >= s_count) return FALSE;
    *out = *s_lines[index];
    return TRUE;
}

void __cdecl CorvRecorderClear(void)
{
    Lock lock;
    for (int i = 0; i < s_count; ++i) ::HeapFree(::GetProcessHeap(), 0, s_lines[i]);
    s_count = 0;
    s_dropped = 0;
}

int __cdecl CorvRecorderDropped(void)
{
    Lock lock;
    return s_dropped;
}

} // extern "C"
