// Shared with the recorder build of CorvDebug.dll, which keeps every line it is given for the reader below.
#ifndef TAVO_TESTS_RECORDER_H
#define TAVO_TESTS_RECORDER_H

#include <windows.h>

// One line as the recorder keeps it: texts cut to their size and terminated, null kept as "(null)".
struct CorvRecord {
    DWORD level;
    const void* modulePointer;  // the szModule pointer as passed, to compare identity across lines
    int line;
    DWORD threadId;             // the thread that called OutputA
    char module[260];
    char file[128];
    char function[256];
    char stamp[64];
    char format[512];
    char text[2048];            // the template formatted by msvcrt's _vsnprintf
};

// The recorder's exports, all __cdecl and undecorated.
#define CORV_RECORDER_MAX_LINES 4096
extern "C" {
typedef int(__cdecl* PFN_CORV_RECORDER_COUNT)(void);                    // CorvRecorderCount
typedef BOOL(__cdecl* PFN_CORV_RECORDER_GET)(int index, CorvRecord* out); // CorvRecorderGet
typedef void(__cdecl* PFN_CORV_RECORDER_CLEAR)(void);                   // CorvRecorderClear
typedef int(__cdecl* PFN_CORV_RECORDER_DROPPED)(void);                  // CorvRecorderDropped
}

// Set to a number N, the recorder's OutputA ends with SetLastError(N); else it keeps the caller's.
#define CORV_RECORDER_LASTERROR_VARIABLE "CORVDEBUG_RECORDER_LASTERROR"

#ifndef CORVDEBUG_BUILDING
#include <string>
#include <vector>

namespace tavo::test {

struct RecordedLine {
    unsigned level;
    std::string module;
    const void* modulePointer;
    std::string file, function;
    int line;
    std::string stamp, format, text;
    unsigned long threadId;
};

// An export of the recorder loaded here, or null. A test that also loads the real sink (same name)
// loads the recorder first, so that the name finds it.
template <typename F>
F RecorderExport(const char* name)
{
    return reinterpret_cast<F>(reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleA("CorvDebug.dll"), name)));
}
inline bool RecorderLoaded() { return RecorderExport<PFN_CORV_RECORDER_GET>("CorvRecorderGet") != nullptr; }
inline void ClearRecordedLines() { if (const auto clear = RecorderExport<PFN_CORV_RECORDER_CLEAR>("CorvRecorderClear")) clear(); }
inline int DroppedRecordedLines()  // since the last clear, because the recorder was full
{
    const auto dropped = RecorderExport<PFN_CORV_RECORDER_DROPPED>("CorvRecorderDropped");
    return dropped ? dropped() : 0;
}

// The recorder's lines, oldest first (up to the first index not there, should a clear come meanwhile).
inline std::vector<RecordedLine> RecordedLines()
{
    std::vector<RecordedLine> lines;
    CorvRecord r;
    const auto get = RecorderExport<PFN_CORV_RECORDER_GET>("CorvRecorderGet");
    while (get && get(static_cast<int>(lines.size()), &r)) {
        lines.push_back({r.level, r.module, r.modulePointer, r.file, r.function, r.line, r.stamp, r.format, r.text, r.threadId});
    }
    return lines;
}

// A line as the tests compare it: "level|function|text".
inline std::string Brief(const RecordedLine& l) { return std::to_string(l.level) + "|" + l.function + "|" + l.text; }

} // namespace tavo::test
#endif

#endif
