// The diagnostic sink: one formatted line per call, to the debugger output and, when configured, to
// a log file or standard error.
//
//   CORVDEBUG_FILE    path of a log file to append to, "-" for standard error; unset: no file
//   CORVDEBUG_LEVELS  mask of the levels to write, decimal or 0x hex; unset: every line
//
// Both are read once, at the first line.
#include <windows.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include "CorvDebug.h"

namespace {

// A line longer than this is cut; the cut is marked so that a reader knows text is missing.
const size_t kMessageChars = 2048;
const size_t kLineChars = kMessageChars + 1024;
const char kCutMarker[] = "...";

CRITICAL_SECTION s_lock;
bool s_configured;
bool s_filtered;
DWORD s_levelMask;
bool s_toStdErr;
char s_filePath[MAX_PATH];

const char* OrNull(const char* sz)
{
    return sz ? sz : "(null)";
}

const char* BaseName(const char* szPath)
{
    if (!szPath) return "(null)";
    const char* base = szPath;
    for (const char* p = szPath; *p; ++p) {
        if (*p == '\\' || *p == '/' || *p == ':') base = p + 1;
    }
    return base;
}

// Appends to buf (capacity cch, always terminated); returns false once the text did not fit.
bool Append(char* buf, size_t cch, size_t& used, const char* text)
{
    while (*text && used + 1 < cch) buf[used++] = *text++;
    buf[used] = 0;
    return *text == 0;
}

bool ParseMask(const char* sz, DWORD& mask)
{
    char* end = NULL;
    const unsigned long value = strtoul(sz, &end, 0);
    if (end == sz || *end != 0) return false;
    mask = value;
    return true;
}

// Under the lock.
void Configure()
{
    s_configured = true;
    char value[64];
    const DWORD cch = ::GetEnvironmentVariableA("CORVDEBUG_LEVELS", value, sizeof(value));
    // A mask that does not parse leaves the filter off: losing lines is worse than extra ones.
    if (cch > 0 && cch < sizeof(value)) s_filtered = ParseMask(value, s_levelMask);

    const DWORD cchPath = ::GetEnvironmentVariableA("CORVDEBUG_FILE", s_filePath, sizeof(s_filePath));
    if (cchPath == 0 || cchPath >= sizeof(s_filePath)) {
        s_filePath[0] = 0;
    } else if (strcmp(s_filePath, "-") == 0) {
        s_toStdErr = true;
        s_filePath[0] = 0;
    }
}

const char* LevelName(DWORD dwLevel, char* buf, size_t cch)
{
    switch (dwLevel) {
    case TRACE_VERIFY: return "VERIFY";
    case TRACE_VERIFY_HR: return "VERIFY_HR";
    case TRACE_INFO: return "INFO";
    case TRACE_WARNING: return "WARNING";
    case TRACE_ERROR: return "ERROR";
    }
    _snprintf(buf, cch - 1, "%lu", dwLevel);
    buf[cch - 1] = 0;
    return buf;
}

void FormatMessageText(char* buf, const char* szFormat, va_list args)
{
    if (!szFormat) {
        strcpy(buf, "(null)");
        return;
    }
    // msvcrt's _vsnprintf: -1 when the text is cut, and then (or on an exact fit) no terminator.
    const int n = _vsnprintf(buf, kMessageChars - 1, szFormat, args);
    buf[kMessageChars - 1] = 0;
    if (n < 0) {
        memcpy(buf + kMessageChars - sizeof(kCutMarker), kCutMarker, sizeof(kCutMarker));
    }
}

// The whole line, "\r\n" included, in buf; returns its length.
size_t FormatLine(char* buf, DWORD dwLevel, const char* szModule, const char* szFile,
                  const char* szFunction, int nLine, const char* message)
{
    SYSTEMTIME st;
    ::GetLocalTime(&st);
    char level[16];
    char head[128];
    _snprintf(head, sizeof(head) - 1, "%04u-%02u-%02u %02u:%02u:%02u.%03u %s ", st.wYear, st.wMonth,
              st.wDay, st.wHour, st.wMinute, st.wSecond, st.wMilliseconds,
              LevelName(dwLevel, level, sizeof(level)));
    head[sizeof(head) - 1] = 0;
    char lineNo[16];
    _snprintf(lineNo, sizeof(lineNo) - 1, "(%d) ", nLine);
    lineNo[sizeof(lineNo) - 1] = 0;

    // Room for the line end is kept back, so a cut line still ends like every other one.
    const size_t cchText = kLineChars - 2;
    size_t used = 0;
    buf[0] = 0;
    const char* parts[] = {head, BaseName(szModule), " ", OrNull(szFile), lineNo,
                           OrNull(szFunction), ": ", message};
    for (const char* part : parts) {
        if (!Append(buf, cchText, used, part)) {
            memcpy(buf + used - (sizeof(kCutMarker) - 1), kCutMarker, sizeof(kCutMarker));
            break;
        }
    }
    buf[used++] = '\r';
    buf[used++] = '\n';
    buf[used] = 0;
    return used;
}

// Other processes may append to the same file. An append-only handle is not enough (Wine finds
// the end and writes there in two steps, so concurrent lines tear): each line is written under a
// byte-range lock on one byte far past any log's end, which readers never touch.
HANDLE OpenLog()
{
    const DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    // Locking needs read or write access; FILE_WRITE_DATA would end the append-only behaviour.
    HANDLE h = ::CreateFileA(s_filePath, FILE_APPEND_DATA | FILE_READ_DATA, share, NULL, OPEN_ALWAYS,
                             FILE_ATTRIBUTE_NORMAL, NULL);
    if (h == INVALID_HANDLE_VALUE && ::GetLastError() == ERROR_ACCESS_DENIED) {
        h = ::CreateFileA(s_filePath, FILE_APPEND_DATA, share, NULL, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                          NULL);
    }
    return h;
}

void WriteToFile(const char* line, size_t cch)
{
    DWORD written = 0;
    if (s_toStdErr) {
        const HANDLE h = ::GetStdHandle(STD_ERROR_HANDLE);
        if (h && h != INVALID_HANDLE_VALUE) ::WriteFile(h, line, static_cast<DWORD>(cch), &written, NULL);
        return;
    }
    if (!s_filePath[0]) return;
    // Opened per line: the file may be moved away or deleted while the program runs.
    const HANDLE h = OpenLog();
    if (h == INVALID_HANDLE_VALUE) return;
    OVERLAPPED where = {};
    where.Offset = 0;
    where.OffsetHigh = 0x7fffffff;
    // Without the lock (a write-only file) the line still goes out, only unguarded.
    const BOOL locked = ::LockFileEx(h, LOCKFILE_EXCLUSIVE_LOCK, 0, 1, 0, &where);
    ::WriteFile(h, line, static_cast<DWORD>(cch), &written, NULL);
    if (locked) ::UnlockFileEx(h, 0, 1, 0, &where);
    ::CloseHandle(h);
}

struct Lock {
    Lock() { ::EnterCriticalSection(&s_lock); }
    ~Lock() { ::LeaveCriticalSection(&s_lock); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
};

} // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD dwReason, LPVOID)
{
    if (dwReason == DLL_PROCESS_ATTACH) ::InitializeCriticalSection(&s_lock);
    return TRUE;
}

extern "C" void __cdecl OutputA(DWORD dwLevel, const char* szModule, const char* szFile,
                                const char* szFunction, int nLine, const char* /*szStamp*/,
                                const char* szFormat, va_list args)
{
    // The caller's last error is its own business; writing a line must not change it.
    const DWORD lastError = ::GetLastError();
    try {
        Lock lock;
        if (!s_configured) Configure();
        if (!s_filtered || (dwLevel & s_levelMask) != 0) {
            // Static buffers: the lock is held, and a deep caller's stack is not ours to spend.
            static char message[kMessageChars];
            static char line[kLineChars];
            FormatMessageText(message, szFormat, args);
            const size_t cch = FormatLine(line, dwLevel, szModule, szFile, szFunction, nLine, message);
            ::OutputDebugStringA(line);
            WriteToFile(line, cch);
        }
    } catch (...) {
        // A diagnostic line is never worth a failure in the program that wrote it.
    }
    ::SetLastError(lastError);
}
