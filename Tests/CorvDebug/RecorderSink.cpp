// The recorder build of CorvDebug.dll: keeps every field of every line, in the order the lines
// arrive, for test programs to read back. Bounded: once full, further lines are counted, not kept.
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>
#include "CorvDebug.h"
#include "Recorder.h"

static SRWLOCK s_lock = SRWLOCK_INIT;
static CorvRecord s_lines[CORV_RECORDER_MAX_LINES];
static int s_count, s_dropped;

struct Lock {
    Lock() { ::AcquireSRWLockExclusive(&s_lock); }
    ~Lock() { ::ReleaseSRWLockExclusive(&s_lock); }
};

template <size_t N> static void Copy(char (&dst)[N], const char* src) { ::lstrcpynA(dst, src ? src : "(null)", N); }

// The exports' types are the reader's PFN_CORV_RECORDER_* and PFN_CORV_OUTPUTA: keep them in step.
extern "C" void __cdecl OutputA(DWORD dwLevel, const char* szModule, const char* szFile, const char* szFunction,
                                int nLine, const char* szStamp, const char* szFormat, va_list args)
{
    const DWORD lastError = ::GetLastError();
    if (Lock lock; s_count == CORV_RECORDER_MAX_LINES) {
        ++s_dropped;
    } else {
        // Zeroed first, so that a text cut by _vsnprintf (msvcrt's, as the real sink's) keeps its terminator.
        CorvRecord& rec = s_lines[s_count++] = {dwLevel, szModule, nLine, GetCurrentThreadId(), {}, {}, {}, {}, {}, {}};
        Copy(rec.module, szModule);
        Copy(rec.file, szFile);
        Copy(rec.function, szFunction);
        Copy(rec.stamp, szStamp);
        Copy(rec.format, szFormat);
        if (szFormat) _vsnprintf(rec.text, sizeof(rec.text) - 1, szFormat, args);
        else Copy(rec.text, szFormat);
    }
    // A number in the knob, read at each line, becomes the last error.
    char knob[32] = "", *end = knob;
    ::GetEnvironmentVariableA(CORV_RECORDER_LASTERROR_VARIABLE, knob, sizeof(knob));
    const DWORD value = strtoul(knob, &end, 0);
    ::SetLastError(end != knob && *end == 0 ? value : lastError);
}

extern "C" __declspec(dllexport) int __cdecl CorvRecorderCount(void) { Lock lock; return s_count; }
extern "C" __declspec(dllexport) int __cdecl CorvRecorderDropped(void) { Lock lock; return s_dropped; }
extern "C" __declspec(dllexport) void __cdecl CorvRecorderClear(void) { Lock lock; s_count = s_dropped = 0; }

extern "C" __declspec(dllexport) BOOL __cdecl CorvRecorderGet(int index, CorvRecord* out)
{
    Lock lock;
    return out && index >= 0 && index < s_count ? (*out = s_lines[index], TRUE) : FALSE;
}
