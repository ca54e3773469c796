// The sink builds of CorvDebug.dll, called directly: the real log writer (loaded by full path from
// bin/) and the recorder every other test program reads.
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

const char kModulePath[] = "C:\\Program Files\\Tavo\\TavoCommon.dll";
const char kStamp[] = "Tue Mar  5 10:11:12 2024";
// The shape of the stamp the real sink writes at the start of each line.
const std::string kStampShape = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3})";

std::string TempFile(const char* prefix)
{
    char dir[MAX_PATH] = {}, file[MAX_PATH] = {};
    ::GetTempPathA(MAX_PATH, dir);
    ::GetTempFileNameA(dir, prefix, 0, file);
    return file;
}

std::string ReadFile(const std::string& path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

// Lines ending in "\r\n"; a trailing fragment is a line of its own, so a torn write does not parse.
std::vector<std::string> SplitLines(const std::string& text)
{
    std::vector<std::string> lines;
    for (size_t start = 0, end; start < text.size(); start = end + 2) {
        end = std::min(text.find("\r\n", start), text.size());
        lines.push_back(text.substr(start, end - start));
    }
    return lines;
}

void Output(PFN_CORV_OUTPUTA fn, DWORD level, const char* module, const char* file, const char* function, int line,
            const char* format, ...)
{
    va_list args;
    va_start(args, format);
    fn(level, module, file, function, line, kStamp, format, args);
    va_end(args);
}

PFN_CORV_OUTPUTA OutputOf(HMODULE h)
{
    return h ? reinterpret_cast<PFN_CORV_OUTPUTA>(reinterpret_cast<void*>(::GetProcAddress(h, "OutputA"))) : NULL;
}

// The real sink from bin/; build paths are Unix paths, which Wine shows on drive Z:.
PFN_CORV_OUTPUTA LoadRealSink()
{
    std::string path = "Z:" CORVDEBUG_REAL_SINK;
    for (char& c : path) c = c == '/' ? '\\' : c;
    return OutputOf(::LoadLibraryA(path.c_str()));
}

// This process's real sink writes to one temporary log, set before its first line, and filters out
// TRACE_WARNING. The recorder is loaded by bare name first: a bare-name load hands back any module
// of that name that is already loaded.
struct RealSinkHere {
    HMODULE recorder = ::LoadLibraryA("CorvDebug.dll");
    std::string log = TempFile("cdl");
    PFN_CORV_OUTPUTA output = NULL;
    size_t seen = 0;

    RealSinkHere()
    {
        ::SetEnvironmentVariableA("CORVDEBUG_FILE", log.c_str());
        ::SetEnvironmentVariableA("CORVDEBUG_LEVELS", "0xFFFFFFBF");
        output = LoadRealSink();
    }
    ~RealSinkHere() { ::DeleteFileA(log.c_str()); }

    // The lines written since the previous call, with the stamp checked for shape and cut off.
    std::vector<std::string> NewLines(std::vector<std::string>* stamps = nullptr)
    {
        const std::string text = ReadFile(log);
        const std::string fresh = text.substr(std::min(seen, text.size()));
        seen = text.size();
        EXPECT_TRUE(fresh.empty() || fresh.substr(fresh.size() - 2) == "\r\n") << fresh;
        std::vector<std::string> lines = SplitLines(fresh);
        static const std::regex shape("(" + kStampShape + ") (.*)");
        for (std::string& line : lines) {
            std::smatch m;
            EXPECT_TRUE(std::regex_match(line, m, shape)) << "not a log line: " << line;
            if (stamps) stamps->push_back(m[1].str());
            line = m[2].str();
        }
        return lines;
    }
};

RealSinkHere& RealSink()
{
    static RealSinkHere sink;
    return sink;
}

// Now as the sink stamps a line; fixed width, so the text orders as the time does.
std::string LocalStamp()
{
    SYSTEMTIME st;
    ::GetLocalTime(&st);
    char text[32];
    snprintf(text, sizeof(text), "%04u-%02u-%02u %02u:%02u:%02u.%03u", st.wYear, st.wMonth, st.wDay, st.wHour,
             st.wMinute, st.wSecond, st.wMilliseconds);
    return text;
}

TEST(CorvDebugSink, WritesStampLevelModuleSiteAndMessageAndLeavesTheLastError)
{
    RealSinkHere& sink = RealSink();
    ASSERT_NE(nullptr, sink.output) << CORVDEBUG_REAL_SINK;
    sink.NewLines();

    const std::string before = LocalStamp();
    ::SetLastError(0xdeadbeef);
    Output(sink.output, TRACE_INFO, kModulePath, "Config.cpp", "Tavo::GetConfigFileW", 57,
           "The config file is \"%ls\"", L"C:\\Data\\Product.cfg");
    EXPECT_EQ(0xdeadbeefu, ::GetLastError());
    const std::string after = LocalStamp();

    std::vector<std::string> stamps;
    const std::vector<std::string> lines = sink.NewLines(&stamps);
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("INFO TavoCommon.dll Config.cpp(57) Tavo::GetConfigFileW: The config file is \"C:\\Data\\Product.cfg\"",
              lines[0]);
    // Local time to the millisecond, cut rather than rounded.
    EXPECT_LE(before, stamps[0]);
    EXPECT_GE(after, stamps[0]);
}

TEST(CorvDebugSink, NamesEachLevelAndFiltersByMask)
{
    RealSinkHere& sink = RealSink();
    ASSERT_NE(nullptr, sink.output);
    sink.NewLines();
    // Every row gets the same values; the template takes what it needs. No line: filtered out.
    const struct { DWORD level; const char* format; const char* expected; } rows[] = {
        {TRACE_VERIFY, "%s - %lu", "VERIFY M.dll F.cpp(9) Fn: Close(h) - 2147500037"},
        {TRACE_VERIFY_HR, "%s - %#08lx", "VERIFY_HR M.dll F.cpp(9) Fn: Close(h) - 0x80004005"},
        {TRACE_INFO, "%s", "INFO M.dll F.cpp(9) Fn: Close(h)"},
        {TRACE_WARNING, "%s", NULL},
        {TRACE_ERROR, "FAILED: %s", "ERROR M.dll F.cpp(9) Fn: FAILED: Close(h)"},
        {2, "two", "2 M.dll F.cpp(9) Fn: two"},
        {0x100, "wide", "256 M.dll F.cpp(9) Fn: wide"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.format);
        Output(sink.output, row.level, "D:\\dir/M.dll", "F.cpp", "Fn", 9, row.format, "Close(h)", 0x80004005ul);
        const std::vector<std::string> lines = sink.NewLines();
        EXPECT_EQ(row.expected ? std::vector<std::string>{row.expected} : std::vector<std::string>{}, lines);
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
    ASSERT_EQ(head, lines[0].substr(0, head.size()));
    const std::string message = lines[0].substr(head.size());
    ASSERT_GT(message.size(), 1000u);
    EXPECT_LT(message.size(), longText.size());
    EXPECT_EQ(std::string(message.size() - 3, 'x') + "...", message);
    EXPECT_LT(lines[1].size(), longText.size());
    EXPECT_EQ("x...", lines[1].substr(lines[1].size() - 4));
    EXPECT_EQ("ERROR (null) (null)(3) (null): (null)", lines[2]);
    EXPECT_EQ("ERROR TavoCommon.dll Long.cpp(4) Tavo::Long: still fine", lines[3]);
}

// Each child writes every level, then two threads of numbered lines. Settings are read once per
// process, so the child sets its own: the file given, every level let through.
const int kChildLinesPerThread = 500;
const DWORD kChildLevels[] = {TRACE_VERIFY, 2, TRACE_VERIFY_HR, TRACE_INFO, TRACE_WARNING, TRACE_ERROR, 0};

TAVO_CHILD_CASE(CorvDebugSinkLines)
{
    const std::vector<std::string>& args = tavo::test::ChildArgs();  // file, "ready" semaphore, "go" event
    if (args.size() != 3) return 1;
    ::SetEnvironmentVariableA("CORVDEBUG_FILE", args[0].c_str());
    ::SetEnvironmentVariableA("CORVDEBUG_LEVELS", NULL);
    const PFN_CORV_OUTPUTA output = LoadRealSink();
    // Children that share a file start together, or they would hardly overlap.
    HANDLE ready = ::OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, args[1].c_str());
    HANDLE go = ::OpenEventA(SYNCHRONIZE, FALSE, args[2].c_str());
    if (!output || !ready || !go || !::ReleaseSemaphore(ready, 1, NULL) ||
        ::WaitForSingleObject(go, 30000) != WAIT_OBJECT_0) {
        return 2;
    }
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

// Runs `children` of those at once, writing to `file`; returns what they printed.
std::string RunSinkChildren(const std::string& file, size_t children)
{
    tavo::test::ScratchInstall install;
    const std::string pid = std::to_string(::GetCurrentProcessId());
    const std::vector<std::string> args = {file, "CorvDebugTest.Ready." + pid, "CorvDebugTest.Go." + pid};
    HANDLE ready = ::CreateSemaphoreA(NULL, 0, LONG(children), args[1].c_str());
    HANDLE go = ::CreateEventA(NULL, TRUE, FALSE, args[2].c_str());
    std::vector<tavo::test::ChildResult> results(children);
    std::vector<std::thread> threads;
    for (tavo::test::ChildResult& r : results) {
        threads.emplace_back([&] { r = install.Run("CorvDebugSinkLines", args); });
    }
    for (size_t i = 0; i < children; ++i) EXPECT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(ready, 30000));
    ::SetEvent(go);
    std::string output;
    for (size_t i = 0; i < children; ++i) {
        threads[i].join();
        EXPECT_EQ(0u, results[i].exitCode) << results[i].output;
        output += results[i].output;
    }
    ::CloseHandle(ready);
    ::CloseHandle(go);
    return output;
}

// What the children wrote: each line whole, every level there, each thread's numbered lines complete.
void ExpectChildLines(const std::string& text, size_t children)
{
    const std::regex numbered(kStampShape +
                              R"( INFO TavoCommon\.dll Child\.cpp\(2\) Child: pid (\d+) thread (\d) line (\d+))");
    const std::regex level(kStampShape + R"( \w+ TavoCommon\.dll Child\.cpp\(1\) Child: level)");
    std::set<std::string> seen;
    size_t levelLines = 0;
    for (const std::string& line : SplitLines(text)) {
        std::smatch m;
        if (std::regex_match(line, m, numbered)) {
            EXPECT_TRUE(seen.insert(m[1].str() + "/" + m[2].str() + "/" + m[3].str()).second) << line;
        } else if (std::regex_match(line, level)) {
            ++levelLines;
        } else {
            ADD_FAILURE() << "torn or unexpected line: " << line;
        }
    }
    EXPECT_EQ(children * kChildLinesPerThread * 2, seen.size());
    EXPECT_EQ(children * (sizeof(kChildLevels) / sizeof(kChildLevels[0])), levelLines);
}

TEST(CorvDebugSinkProcess, TwoProcessesAppendWholeLinesOfEveryLevel)
{
    const std::string log = TempFile("cdp");
    RunSinkChildren(log, 2);
    const std::string text = ReadFile(log);
    ::DeleteFileA(log.c_str());
    ExpectChildLines(text, 2);
}

TEST(CorvDebugSinkProcess, DashWritesToStandardError)
{
    ExpectChildLines(RunSinkChildren("-", 1), 1);
}

struct CorvRecorder : ::testing::Test {
    void SetUp() override
    {
        // With the real sink loaded under the same name, the reader must still find the recorder.
        output_ = OutputOf(RealSink().recorder);
        ASSERT_NE(nullptr, output_);
        ASSERT_TRUE(tavo::test::RecorderLoaded());
        tavo::test::ClearRecordedLines();
    }
    void TearDown() override { tavo::test::ClearRecordedLines(); }
    PFN_CORV_OUTPUTA output_ = NULL;
};

TEST_F(CorvRecorder, KeepsEveryFieldOfEveryLineInOrder)
{
    Output(output_, TRACE_ERROR, kModulePath, "Config.cpp", "Tavo::GetConfigDWORD", 120,
           "Invalid DWORD value %ls = %ls", L"Retries", L"many");
    DWORD otherThread = 0;
    std::thread([&] {
        otherThread = ::GetCurrentThreadId();
        Output(output_, TRACE_VERIFY_HR, "Z:\\other.dll", "Misc.cpp", "Tavo::Other", 7, "%s - %#08lx",
               "CoCreateInstance", 0x80040154ul);
    }).join();

    const std::vector<tavo::test::RecordedLine> lines = tavo::test::RecordedLines();
    ASSERT_EQ(2u, lines.size());
    const tavo::test::RecordedLine& first = lines[0];
    EXPECT_EQ(TRACE_ERROR, first.level);
    EXPECT_EQ(static_cast<const void*>(kModulePath), first.modulePointer);
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
    ::SetEnvironmentVariableA(CORV_RECORDER_LASTERROR_VARIABLE, "1234");
    ::SetLastError(0xdeadbeef);
    Output(output_, TRACE_INFO, kModulePath, "E.cpp", "Fn", 2, "set");
    EXPECT_EQ(1234u, ::GetLastError());
    ::SetEnvironmentVariableA(CORV_RECORDER_LASTERROR_VARIABLE, NULL);
    ::SetLastError(5);
    Output(output_, TRACE_INFO, kModulePath, "E.cpp", "Fn", 3, "knob gone");
    EXPECT_EQ(5u, ::GetLastError());
    EXPECT_EQ(3u, tavo::test::RecordedLines().size());
}

} // namespace
