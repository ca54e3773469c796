// The sink builds of CorvDebug.dll, called directly: the real log writer (loaded by full path from
// bin/), the recorder every other test program reads, and the misbehaving stand-ins.
#include <windows.h>
#include <stdarg.h>
#include <stdio.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ChildProcess.h"
#include "CorvDebug.h"
#include "Recorder.h"

namespace {

// All but TRACE_WARNING, for this process's real sink; children run with the default (everything).
const char kLevelsHere[] = "0xFFFFFFBF";
const char kModulePath[] = "C:\\Program Files\\Tavo\\TavoCommon.dll";
const char kStamp[] = "Tue Mar  5 10:11:12 2024";

std::string ExePath()
{
    char path[MAX_PATH] = {};
    ::GetModuleFileNameA(NULL, path, MAX_PATH);
    return path;
}

std::string TestsDir()
{
    const std::string exe = ExePath();
    return exe.substr(0, exe.find_last_of('\\') + 1);
}

// Build paths are Unix paths; Wine shows the root as drive Z:.
std::string RealSinkPath()
{
    std::string path = "Z:" CORVDEBUG_REAL_SINK;
    for (char& c : path) {
        if (c == '/') c = '\\';
    }
    return path;
}

std::string TempFile(const char* prefix)
{
    char dir[MAX_PATH] = {}, file[MAX_PATH] = {};
    ::GetTempPathA(MAX_PATH, dir);
    ::GetTempFileNameA(dir, prefix, 0, file);
    return file;
}

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// Lines of text that end in "\r\n"; a fragment without one is returned as a line of its own, so
// that a torn write shows up as a line that does not parse.
std::vector<std::string> SplitLines(const std::string& text)
{
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        const size_t end = text.find("\r\n", start);
        if (end == std::string::npos) {
            lines.push_back(text.substr(start));
            break;
        }
        lines.push_back(text.substr(start, end - start));
        start = end + 2;
    }
    return lines;
}

class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : name_(name)
    {
        char old[1024];
        const DWORD cch = ::GetEnvironmentVariableA(name, old, sizeof(old));
        had_ = cch > 0 && cch < sizeof(old);
        if (had_) old_ = old;
        ::SetEnvironmentVariableA(name, value);
    }
    ~ScopedEnv() { ::SetEnvironmentVariableA(name_, had_ ? old_.c_str() : NULL); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    const char* name_;
    bool had_;
    std::string old_;
};

void Output(PFN_CORV_OUTPUTA fn, DWORD level, const char* module, const char* file,
            const char* function, int line, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    fn(level, module, file, function, line, kStamp, format, args);
    va_end(args);
}

PFN_CORV_OUTPUTA OutputOf(HMODULE h)
{
    return h ? reinterpret_cast<PFN_CORV_OUTPUTA>(reinterpret_cast<void*>(::GetProcAddress(h, "OutputA")))
             : NULL;
}

// The recorder is loaded by bare name before the real sink by full path: a bare-name load hands
// back any module of that name that is already loaded.
HMODULE Recorder()
{
    static HMODULE h = ::LoadLibraryA("CorvDebug.dll");
    return h;
}

// This process's real sink writes to one temporary log, set before its first line.
struct RealSinkHere {
    std::string log = TempFile("cdl");
    PFN_CORV_OUTPUTA output = NULL;

    RealSinkHere()
    {
        Recorder();
        ::SetEnvironmentVariableA("CORVDEBUG_FILE", log.c_str());
        ::SetEnvironmentVariableA("CORVDEBUG_LEVELS", kLevelsHere);
        output = OutputOf(::LoadLibraryA(RealSinkPath().c_str()));
    }
    ~RealSinkHere() { ::DeleteFileA(log.c_str()); }

    // The lines written since the previous call.
    std::vector<std::string> NewLines()
    {
        const std::string text = ReadFile(log);
        const std::string fresh = text.substr(std::min(seen_, text.size()));
        seen_ = text.size();
        EXPECT_TRUE(fresh.empty() || fresh.substr(fresh.size() - 2) == "\r\n") << fresh;
        return SplitLines(fresh);
    }

private:
    size_t seen_ = 0;
};

RealSinkHere& RealSink()
{
    static RealSinkHere sink;
    return sink;
}

// "stamp LEVEL rest": the stamp's shape is checked here, its value by the caller.
const std::regex kLineShape(R"((\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}) (.*))");

std::string AfterStamp(const std::string& line)
{
    std::smatch m;
    if (!std::regex_match(line, m, kLineShape)) {
        ADD_FAILURE() << "not a log line: " << line;
        return std::string();
    }
    return m[2];
}

ULONGLONG LocalNow()
{
    SYSTEMTIME st;
    ::GetLocalTime(&st);
    FILETIME ft;
    ::SystemTimeToFileTime(&st, &ft);
    return (static_cast<ULONGLONG>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
}

ULONGLONG StampTime(const std::string& line)
{
    SYSTEMTIME st = {};
    unsigned y, mo, d, h, mi, s, ms;
    if (sscanf(line.c_str(), "%4u-%2u-%2u %2u:%2u:%2u.%3u", &y, &mo, &d, &h, &mi, &s, &ms) != 7) return 0;
    st.wYear = WORD(y), st.wMonth = WORD(mo), st.wDay = WORD(d);
    st.wHour = WORD(h), st.wMinute = WORD(mi), st.wSecond = WORD(s), st.wMilliseconds = WORD(ms);
    FILETIME ft;
    if (!::SystemTimeToFileTime(&st, &ft)) return 0;
    return (static_cast<ULONGLONG>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
}

// The work of a child process: every level, then two threads of numbered lines.
const int kChildLinesPerThread = 500;
const DWORD kChildLevels[] = {TRACE_VERIFY, 2, TRACE_VERIFY_HR, TRACE_INFO, TRACE_WARNING, TRACE_ERROR, 0};

// Children that append to one file start writing together, or they would hardly overlap: each
// says it is ready (a semaphore) and waits for the go (an event); the names come as arguments.
struct StartGate {
    std::string ready = "CorvDebugTest.Ready." + std::to_string(::GetCurrentProcessId());
    std::string go = "CorvDebugTest.Go." + std::to_string(::GetCurrentProcessId());
    HANDLE readyHandle = ::CreateSemaphoreA(NULL, 0, 16, ready.c_str());
    HANDLE goHandle = ::CreateEventA(NULL, TRUE, FALSE, go.c_str());

    ~StartGate()
    {
        ::CloseHandle(readyHandle);
        ::CloseHandle(goHandle);
    }
    // Opens once `children` have said they are ready.
    bool Open(int children)
    {
        for (int i = 0; i < children; ++i) {
            if (::WaitForSingleObject(readyHandle, 30000) != WAIT_OBJECT_0) return false;
        }
        return ::SetEvent(goHandle) != FALSE;
    }
    static bool Pass(const std::vector<std::string>& names)
    {
        if (names.size() != 2) return true;
        HANDLE ready = ::OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, names[0].c_str());
        HANDLE go = ::OpenEventA(SYNCHRONIZE, FALSE, names[1].c_str());
        const bool passed = ready && go && ::ReleaseSemaphore(ready, 1, NULL) &&
                            ::WaitForSingleObject(go, 30000) == WAIT_OBJECT_0;
        if (ready) ::CloseHandle(ready);
        if (go) ::CloseHandle(go);
        return passed;
    }
};

TAVO_CHILD_CASE(CorvDebugSinkLines)
{
    const PFN_CORV_OUTPUTA output = OutputOf(::LoadLibraryA(RealSinkPath().c_str()));
    if (!output) return 1;
    if (!StartGate::Pass(tavo::test::ChildArgs())) return 2;
    for (DWORD level : kChildLevels) Output(output, level, kModulePath, "Child.cpp", "Child", 1, "level");
    auto lines = [output](int thread) {
        for (int i = 0; i < kChildLinesPerThread; ++i) {
            Output(output, TRACE_INFO, kModulePath, "Child.cpp", "Child", 2, "pid %lu thread %d line %d",
                   ::GetCurrentProcessId(), thread, i);
        }
    };
    std::thread other(lines, 1);
    lines(0);
    other.join();
    return 0;
}

// What a child wrote: each line whole, every level there (the default filter lets all through),
// and each thread's numbered lines complete.
void ExpectChildLines(const std::vector<std::string>& lines, size_t children)
{
    const std::regex numbered(R"(INFO TavoCommon\.dll Child\.cpp\(2\) Child: pid (\d+) thread (\d) line (\d+))");
    std::set<std::string> seen;
    size_t levelLines = 0;
    for (const std::string& line : lines) {
        const std::string rest = AfterStamp(line);
        std::smatch m;
        if (std::regex_match(rest, m, numbered)) {
            EXPECT_TRUE(seen.insert(m[1].str() + "/" + m[2].str() + "/" + m[3].str()).second) << line;
        } else if (rest.size() > 5 && rest.compare(rest.size() - 5, 5, "level") == 0) {
            ++levelLines;
        } else {
            ADD_FAILURE() << "torn or unexpected line: " << line;
        }
    }
    EXPECT_EQ(children * kChildLinesPerThread * 2, seen.size());
    EXPECT_EQ(children * (sizeof(kChildLevels) / sizeof(kChildLevels[0])), levelLines);
}

// ---------------------------------------------------------------------------------------------

TEST(CorvDebugSink, WritesStampLevelModuleSiteAndMessage)
{
    RealSinkHere& sink = RealSink();
    ASSERT_NE(nullptr, sink.output) << RealSinkPath();
    sink.NewLines();

    const ULONGLONG before = LocalNow();
    Output(sink.output, TRACE_INFO, kModulePath, "Config.cpp", "Tavo::GetConfigFileW", 57,
           "The config file is \"%ls\"", L"C:\\Data\\Product.cfg");
    const ULONGLONG after = LocalNow();

    const std::vector<std::string> lines = sink.NewLines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("INFO TavoCommon.dll Config.cpp(57) Tavo::GetConfigFileW: "
              "The config file is \"C:\\Data\\Product.cfg\"",
              AfterStamp(lines[0]));
    const ULONGLONG stamp = StampTime(lines[0]);
    // The stamp is local time to the millisecond, cut rather than rounded.
    EXPECT_LE(before / 10000 * 10000, stamp) << lines[0];
    EXPECT_GE(after, stamp) << lines[0];
}

TEST(CorvDebugSink, NamesEachLevelAndFiltersByMask)
{
    RealSinkHere& sink = RealSink();
    ASSERT_NE(nullptr, sink.output);
    sink.NewLines();
    // Every row gets the same values; the template takes what it needs.
    struct Row {
        DWORD level;
        const char* format;
        const char* expected;  // null: filtered out by the mask
    } const rows[] = {
        {TRACE_VERIFY, "%s - %lu", "VERIFY M.dll F.cpp(9) Fn: Close(h) - 2147500037"},
        {TRACE_VERIFY_HR, "%s - %#08lx", "VERIFY_HR M.dll F.cpp(9) Fn: Close(h) - 0x80004005"},
        {TRACE_INFO, "%s", "INFO M.dll F.cpp(9) Fn: Close(h)"},
        {TRACE_WARNING, "%s", NULL},
        {TRACE_ERROR, "FAILED: %s", "ERROR M.dll F.cpp(9) Fn: FAILED: Close(h)"},
        {2, "two", "2 M.dll F.cpp(9) Fn: two"},
        {0x100, "wide", "256 M.dll F.cpp(9) Fn: wide"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.format);
        Output(sink.output, row.level, "D:\\dir/M.dll", "F.cpp", "Fn", 9, row.format, "Close(h)",
               0x80004005ul);
        const std::vector<std::string> lines = sink.NewLines();
        if (!row.expected) {
            EXPECT_TRUE(lines.empty()) << lines[0];
            continue;
        }
        ASSERT_EQ(1u, lines.size());
        EXPECT_EQ(row.expected, AfterStamp(lines[0]));
    }
}

TEST(CorvDebugSink, CutsOverlongFieldsAndPrintsNulls)
{
    RealSinkHere& sink = RealSink();
    ASSERT_NE(nullptr, sink.output);
    sink.NewLines();

    const std::string longText(5000, 'x');
    Output(sink.output, TRACE_ERROR, kModulePath, "Long.cpp", "Tavo::Long", 1, "%s", longText.c_str());
    Output(sink.output, TRACE_ERROR, kModulePath, "Long.cpp", longText.c_str(), 2, "after");
    Output(sink.output, TRACE_ERROR, NULL, NULL, NULL, 3, NULL);
    Output(sink.output, TRACE_ERROR, kModulePath, "Long.cpp", "Tavo::Long", 4, "still %s", "fine");

    const std::vector<std::string> lines = sink.NewLines();
    ASSERT_EQ(4u, lines.size());
    const std::string head = "ERROR TavoCommon.dll Long.cpp(1) Tavo::Long: ";
    const std::string cut = AfterStamp(lines[0]);
    ASSERT_EQ(head, cut.substr(0, head.size()));
    const std::string message = cut.substr(head.size());
    ASSERT_GT(message.size(), 1000u);
    EXPECT_LT(message.size(), longText.size());
    EXPECT_EQ(std::string(message.size() - 3, 'x') + "...", message);

    const std::string longFunction = AfterStamp(lines[1]);
    EXPECT_LT(longFunction.size(), longText.size());
    EXPECT_EQ("x...", longFunction.substr(longFunction.size() - 4));

    EXPECT_EQ("ERROR (null) (null)(3) (null): (null)", AfterStamp(lines[2]));
    EXPECT_EQ("ERROR TavoCommon.dll Long.cpp(4) Tavo::Long: still fine", AfterStamp(lines[3]));
}

TEST(CorvDebugSink, LeavesTheCallersLastError)
{
    RealSinkHere& sink = RealSink();
    ASSERT_NE(nullptr, sink.output);
    ::SetLastError(0xdeadbeef);
    Output(sink.output, TRACE_INFO, kModulePath, "E.cpp", "Fn", 1, "x");
    EXPECT_EQ(0xdeadbeefu, ::GetLastError());
    sink.NewLines();
}

TEST(CorvDebugSink, ThreadsWriteWholeLines)
{
    RealSinkHere& sink = RealSink();
    ASSERT_NE(nullptr, sink.output);
    sink.NewLines();
    const int kThreads = 4, kLines = 100;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&sink, t] {
            for (int i = 0; i < kLines; ++i) {
                Output(sink.output, TRACE_INFO, kModulePath, "T.cpp", "Fn", 1, "thread %d line %d", t, i);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();

    const std::regex shape(R"(INFO TavoCommon\.dll T\.cpp\(1\) Fn: thread (\d) line (\d+))");
    std::set<std::string> seen;
    for (const std::string& line : sink.NewLines()) {
        std::smatch m;
        const std::string rest = AfterStamp(line);
        ASSERT_TRUE(std::regex_match(rest, m, shape)) << line;
        EXPECT_TRUE(seen.insert(m[1].str() + "/" + m[2].str()).second) << line;
    }
    EXPECT_EQ(size_t(kThreads * kLines), seen.size());
}

// Settings are read once per process; these run the sink in children of their own.
TEST(CorvDebugSinkProcess, TwoProcessesAppendWholeLinesOfEveryLevel)
{
    const std::string log = TempFile("cdp");
    {
        ScopedEnv file("CORVDEBUG_FILE", log.c_str());
        ScopedEnv levels("CORVDEBUG_LEVELS", NULL);
        tavo::test::ScratchInstall install;
        StartGate gate;
        const std::vector<std::string> names = {gate.ready, gate.go};
        tavo::test::ChildResult results[2];
        std::thread first([&] { results[0] = install.Run("CorvDebugSinkLines", names); });
        std::thread second([&] { results[1] = install.Run("CorvDebugSinkLines", names); });
        EXPECT_TRUE(gate.Open(2));
        first.join();
        second.join();
        for (const tavo::test::ChildResult& r : results) EXPECT_EQ(0u, r.exitCode) << r.output;
    }
    const std::string text = ReadFile(log);
    ::DeleteFileA(log.c_str());
    ExpectChildLines(SplitLines(text), 2);
}

TEST(CorvDebugSinkProcess, DashWritesToStandardError)
{
    ScopedEnv file("CORVDEBUG_FILE", "-");
    ScopedEnv levels("CORVDEBUG_LEVELS", NULL);
    tavo::test::ScratchInstall install;
    const tavo::test::ChildResult r = install.Run("CorvDebugSinkLines");
    EXPECT_EQ(0u, r.exitCode) << r.output;
    ExpectChildLines(SplitLines(r.output), 1);
}

// ---------------------------------------------------------------------------------------------

class CorvRecorder : public ::testing::Test {
protected:
    void SetUp() override
    {
        // With the real sink loaded under the same name, the reader must still find the recorder.
        RealSink();
        output_ = OutputOf(Recorder());
        ASSERT_NE(nullptr, output_);
        ASSERT_TRUE(tavo::test::RecorderLoaded());
        tavo::test::ClearRecordedLines();
    }
    void TearDown() override { tavo::test::ClearRecordedLines(); }

    PFN_CORV_OUTPUTA output_ = NULL;
};

TEST_F(CorvRecorder, KeepsEveryFieldOfEveryLineInOrder)
{
    const char* module = kModulePath;
    Output(output_, TRACE_ERROR, module, "Config.cpp", "Tavo::GetConfigDWORD", 120,
           "Invalid DWORD value %ls = %ls", L"Retries", L"many");
    DWORD otherThread = 0;
    std::thread([&] {
        otherThread = ::GetCurrentThreadId();
        Output(output_, TRACE_VERIFY_HR, "Z:\\other.dll", "Misc.cpp", "Tavo::Other", 7, "%s - %#08lx",
               "CoCreateInstance", 0x80040154ul);
    }).join();
    Output(output_, 2, module, "Misc.cpp", "Tavo::Third", 8, "plain");

    const std::vector<tavo::test::RecordedLine> lines = tavo::test::RecordedLines();
    ASSERT_EQ(3u, lines.size());
    const tavo::test::RecordedLine& first = lines[0];
    SCOPED_TRACE(tavo::test::Describe(first));
    EXPECT_EQ(TRACE_ERROR, first.level);
    EXPECT_EQ(static_cast<const void*>(module), first.modulePointer);
    EXPECT_EQ(kModulePath, first.module);
    EXPECT_EQ("Config.cpp", first.file);
    EXPECT_EQ("Tavo::GetConfigDWORD", first.function);
    EXPECT_EQ(120, first.line);
    EXPECT_EQ(kStamp, first.stamp);
    EXPECT_EQ("Invalid DWORD value %ls = %ls", first.format);
    EXPECT_EQ("Invalid DWORD value Retries = many", first.text);
    EXPECT_EQ(::GetCurrentThreadId(), first.threadId);

    EXPECT_EQ(TRACE_VERIFY_HR, lines[1].level);
    EXPECT_EQ("CoCreateInstance - 0x80040154", lines[1].text);
    EXPECT_EQ(otherThread, lines[1].threadId);
    EXPECT_EQ("Tavo::Third", lines[2].function);
    EXPECT_EQ(2u, lines[2].level);

    tavo::test::ClearRecordedLines();
    EXPECT_TRUE(tavo::test::RecordedLines().empty());
    Output(output_, TRACE_INFO, module, "After.cpp", "Fn", 1, "after clear");
    const std::vector<tavo::test::RecordedLine> again = tavo::test::RecordedLines();
    ASSERT_EQ(1u, again.size());
    EXPECT_EQ("after clear", again[0].text);
}

TEST_F(CorvRecorder, BoundsFieldsAndLines)
{
    const std::string longText(5000, 'y');
    Output(output_, TRACE_INFO, NULL, longText.c_str(), NULL, 1, "%s", longText.c_str());
    Output(output_, TRACE_INFO, kModulePath, "F.cpp", "Fn", 2, NULL);
    std::vector<tavo::test::RecordedLine> lines = tavo::test::RecordedLines();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("(null)", lines[0].module);
    EXPECT_EQ(nullptr, lines[0].modulePointer);
    EXPECT_EQ(std::string(sizeof(CorvRecord::file) - 1, 'y'), lines[0].file);
    EXPECT_EQ("(null)", lines[0].function);
    EXPECT_EQ(std::string(sizeof(CorvRecord::text) - 1, 'y'), lines[0].text);
    EXPECT_EQ("(null)", lines[1].format);
    EXPECT_EQ("(null)", lines[1].text);

    // Full: the oldest lines stay, later ones are only counted.
    for (int i = 2; i < CORV_RECORDER_MAX_LINES + 3; ++i) {
        Output(output_, TRACE_INFO, kModulePath, "F.cpp", "Fn", i, "line %d", i);
    }
    lines = tavo::test::RecordedLines();
    ASSERT_EQ(size_t(CORV_RECORDER_MAX_LINES), lines.size());
    EXPECT_EQ("line 4095", lines.back().text);
    EXPECT_EQ(3, tavo::test::DroppedRecordedLines());
    tavo::test::ClearRecordedLines();
    EXPECT_EQ(0, tavo::test::DroppedRecordedLines());
}

TEST_F(CorvRecorder, SetsTheLastErrorOnlyWhenAsked)
{
    ::SetLastError(0xdeadbeef);
    Output(output_, TRACE_INFO, kModulePath, "E.cpp", "Fn", 1, "untouched");
    EXPECT_EQ(0xdeadbeefu, ::GetLastError());
    {
        ScopedEnv knob(CORV_RECORDER_LASTERROR_VARIABLE, "1234");
        ::SetLastError(0xdeadbeef);
        Output(output_, TRACE_INFO, kModulePath, "E.cpp", "Fn", 2, "set");
        EXPECT_EQ(1234u, ::GetLastError());
    }
    ::SetLastError(5);
    Output(output_, TRACE_INFO, kModulePath, "E.cpp", "Fn", 3, "knob gone");
    EXPECT_EQ(5u, ::GetLastError());
    EXPECT_EQ(3u, tavo::test::RecordedLines().size());
}

// ---------------------------------------------------------------------------------------------

struct LoadedSink {
    explicit LoadedSink(const char* name) : h(::LoadLibraryA((TestsDir() + name).c_str())) {}
    ~LoadedSink()
    {
        if (h) ::FreeLibrary(h);
    }
    LoadedSink(const LoadedSink&) = delete;
    LoadedSink& operator=(const LoadedSink&) = delete;
    int Count() const
    {
        const auto count = reinterpret_cast<PFN_CORV_RECORDER_COUNT>(
            reinterpret_cast<void*>(::GetProcAddress(h, "CorvRecorderCount")));
        return count ? count() : -1;
    }
    HMODULE h;
};

TEST(CorvDebugTestSinks, MisbehaveAsTheChannelTestsExpect)
{
    LoadedSink noOutput("CorvDebugNoOutput.dll");
    ASSERT_TRUE(noOutput.h);
    EXPECT_EQ(nullptr, OutputOf(noOutput.h));

    LoadedSink faults("CorvDebugFaults.dll");
    ASSERT_TRUE(faults.h);
    EXPECT_NE(nullptr, OutputOf(faults.h));
    EXPECT_EQ(0, faults.Count());

    // The exception crosses the module boundary: both sides unwind with the shared libgcc.
    LoadedSink throws("CorvDebugThrows.dll");
    ASSERT_TRUE(throws.h);
    const PFN_CORV_OUTPUTA output = OutputOf(throws.h);
    ASSERT_NE(nullptr, output);
    bool caught = false;
    try {
        Output(output, TRACE_INFO, kModulePath, "F.cpp", "Fn", 1, "x");
    } catch (...) {
        caught = true;
    }
    EXPECT_TRUE(caught);
    EXPECT_EQ(1, throws.Count());
}

} // namespace
