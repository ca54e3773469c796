// The recorder build of CorvDebug.dll keeps every line it is given; test programs read them back
// through the reader below. This header also compiles into the recorder DLL itself.
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

// The lines of the recorder loaded in this process, oldest first; none without a recorder.
std::vector<RecordedLine> RecordedLines();
void ClearRecordedLines();
bool RecorderLoaded();
int DroppedRecordedLines();  // since the last clear, because the recorder was full
std::string Describe(const RecordedLine& line);  // for failure messages

} // namespace tavo::test
#endif

#endif
