// The sink builds of CorvDebug.dll called directly: the real log writer, in children, and the recorder.
#include <windows.h>

#include <fstream>
#include <future>
#include <map>
#include <regex>
#include <sstream>

#include <gtest/gtest.h>

#include "ChildProcess.h"
#include "CorvDebug.h"
#include "Recorder.h"

namespace {

const char kModulePath[] = "C:\\Program Files\\Tavo\\TavoCommon.dll", kStamp[] = "Tue Mar  5 10:11:12 2024";
const int kLinesPerThread = 500;
const std::string x(5000, 'x'), kHead = "ERROR M F(9) Fn: Close(h) 2147500037 C:\\Data ";
// Each child writes these rows, all given ("Close(h)", 0x80004005, L"C:\Data", 5000 x's), each template taking
// what it needs. A message is cut past 2047 characters, a line past 3069 (its stamp's 24 included), each marked.
const struct Row { DWORD level; const char *module, *file, *function, *format; std::string expected; } kRows[] = {
    {TRACE_VERIFY, "D:\\dir/M.dll", "F", "Fn", "%s - %lu", "VERIFY M.dll F(9) Fn: Close(h) - 2147500037"},
    {TRACE_VERIFY_HR, "D:M.dll", "F", "Fn", "%s - %#08lx", "VERIFY_HR M.dll F(9) Fn: Close(h) - 0x80004005"},
    {TRACE_INFO, "M", "F", "Fn", "%s %lu \"%ls\"", "INFO M F(9) Fn: Close(h) 2147500037 \"C:\\Data\""},
    {TRACE_WARNING, "M", "F", "Fn", "%s", "WARNING M F(9) Fn: Close(h)"},
    {0, "M", "F", "Fn", "zero", "0 M F(9) Fn: zero"},
    {0x100, "M", "F", "Fn", "wide", "256 M F(9) Fn: wide"},
    {TRACE_ERROR, NULL, NULL, NULL, NULL, "ERROR (null) (null)(9) (null): (null)"},
    {TRACE_ERROR, "M", "F", "Fn", "%s %lu %ls %.2019s", kHead + x.substr(0, 2019)},
    {TRACE_ERROR, "M", "F", "Fn", "%s %lu %ls %.2020s", kHead + x.substr(0, 2016) + "..."},
    {TRACE_ERROR, "M", "F", x.c_str() + 1975, "after", "ERROR M F(9) " + x.substr(0, 3025) + ": after"},
    {TRACE_ERROR, "M", "F", x.c_str() + 1974, "after", "ERROR M F(9) " + x.substr(0, 3026) + ": a..."},
};

void Output(PFN_CORV_OUTPUTA fn, DWORD level, const char* module, const char* file, const char* function, int line,
            const char* format, ...)
{
    va_list args;
    va_start(args, format);
    fn(level, module, file, function, line, kStamp, format, args);
    va_end(args);
}

TAVO_CHILD_CASE(CorvDebugSinkLines)
{
    const std::vector<std::string>& args = tavo::test::ChildArgs();  // file, levels ("": unset), sync objects' prefix
    ::SetEnvironmentVariableA("CORVDEBUG_FILE", args[0].empty() ? NULL : args[0].c_str());
    ::SetEnvironmentVariableA("CORVDEBUG_LEVELS", args[1].empty() ? NULL : args[1].c_str());
    const auto out = reinterpret_cast<PFN_CORV_OUTPUTA>(reinterpret_cast<void*>(
        ::GetProcAddress(::LoadLibraryA("Z:" CORVDEBUG_REAL_SINK), "OutputA")));  // Wine shows a Unix path on Z:
    // Children that share a file start together, or they would hardly overlap.
    HANDLE ready = ::OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, (args[2] + ".ready").c_str());
    HANDLE go = ::OpenEventA(SYNCHRONIZE, FALSE, (args[2] + ".go").c_str());
    if (!out || !go || !ready || !::ReleaseSemaphore(ready, 1, NULL) || ::WaitForSingleObject(go, 30000)) return 2;
    ::SetLastError(0xdeadbeef);
    for (const Row& r : kRows)
        Output(out, r.level, r.module, r.file, r.function, 9, r.format, "Close(h)", 0x80004005ul, L"C:\\Data", &x[0]);
    EXPECT_EQ(0xdeadbeefu, ::GetLastError());
    auto lines = [out](int thread) {
        for (int i = 0; i < kLinesPerThread; ++i) Output(out, TRACE_INFO, "M", "F", "Fn", thread, "line %d", i);
    };
    auto other = std::async(std::launch::async, lines, 1);
    lines(0);
    return 0;
}

TEST(CorvDebugSink, AppendsWholeLinesOfTheLevelsAskedToTheFileOrStandardError)
{
    tavo::test::ScratchInstall install;
    const std::string log = install.Path() + "\\sink.log", earlier = "an earlier line\r\n";
    install.WriteFile("sink.log", earlier);
    // A child per row; "": the variable unset. passes: the levels of the lines expected; ~0u: every line, level 0 too.
    const struct { std::string file, levels; DWORD passes; } rows[] = {
        {log, "", ~0u}, {log, "", ~0u},  // two processes append to one file
        {"-", "0xFFFFFFBF", ~0u & ~TRACE_WARNING},
        {"-", "160", TRACE_INFO | TRACE_ERROR},
        {"-", "0x20 junk", ~0u},  // a mask that does not parse filters nothing
        {"", "", 0},  // no file: the debugger only
    };
    const std::string sync = "CorvDebugTest." + std::to_string(::GetCurrentProcessId());
    HANDLE ready = ::CreateSemaphoreA(NULL, 0, 10, (sync + ".ready").c_str());
    HANDLE go = ::CreateEventA(NULL, TRUE, FALSE, (sync + ".go").c_str());
    std::vector<std::future<tavo::test::ChildResult>> children;
    for (const auto& row : rows)
        children.push_back(std::async(std::launch::async,
                                      [&] { return install.Run("CorvDebugSinkLines", {row.file, row.levels, sync}); }));
    for (size_t i = 0; i < children.size(); ++i) EXPECT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(ready, 30000));
    ::SetEvent(go);
    for (HANDLE h : {ready, go}) ::CloseHandle(h);

    // By output, named "file|levels": what the children print is read as lines too.
    std::map<std::string, std::string> out;
    std::map<std::string, std::map<std::string, int>> expected, lines;  // lines by output, each with its count
    for (size_t r = 0; r < std::size(rows); ++r) {
        const std::string name = rows[r].file + "|" + rows[r].levels;
        const tavo::test::ChildResult result = children[r].get();
        EXPECT_EQ(0u, result.exitCode) << name << "\n" << result.output;
        out[name] += result.output;
        for (const Row& row : kRows)
            if ((row.level & rows[r].passes) || rows[r].passes == ~0u) ++expected[name][row.expected];
        for (int n = 0; (rows[r].passes & TRACE_INFO) && n < 2 * kLinesPerThread; ++n)
            ++expected[name]["INFO M F(" + std::to_string(n % 2) + ") Fn: line " + std::to_string(n / 2)];
    }
    const std::string text{std::istreambuf_iterator<char>(std::ifstream(log, std::ios::binary).rdbuf()), {}};
    EXPECT_EQ(earlier, text.substr(0, earlier.size()));
    out[log + "|"] += text.substr(earlier.size());
    // Each line starts with the local date and time to the millisecond.
    char today[16] = "";
    ::GetDateFormatA(LOCALE_INVARIANT, 0, NULL, "yyyy'-'MM'-'dd ", today, sizeof(today));
    const std::regex stamped(today + std::string(R"((?:[01]\d|2[0-3]):[0-5]\d:[0-5]\d\.\d{3} (.*)\r)"));
    for (const auto& [name, printed] : out) {
        std::istringstream in(printed);
        for (std::string line; std::getline(in, line);) {  // a torn last line has no "\r"
            std::smatch m;
            if (!std::regex_match(line, m, stamped)) ADD_FAILURE() << name << ": torn or unstamped line: " << line;
            else ++lines[name][m[1].str()];
        }
    }
    EXPECT_EQ(expected, lines);
}

// The recorder's knob and module pointer, without which the checks that rest on them could pass unseen.
TEST(CorvRecorder, SetsTheLastErrorOnlyWhenAskedAndKeepsTheModulePointer)
{
    const auto output = reinterpret_cast<PFN_CORV_OUTPUTA>(
        reinterpret_cast<void*>(::GetProcAddress(::LoadLibraryA("CorvDebug.dll"), "OutputA")));
    ASSERT_TRUE(output && tavo::test::RecorderLoaded());
    ::SetEnvironmentVariableA(CORV_RECORDER_LASTERROR_VARIABLE, "1234");
    Output(output, TRACE_ERROR, kModulePath, "F", "Fn", 1, "%s", "set");
    EXPECT_EQ(1234u, ::GetLastError());
    ::SetEnvironmentVariableA(CORV_RECORDER_LASTERROR_VARIABLE, NULL);
    ::SetLastError(5);  // the knob gone, the caller's last error is left again
    Output(output, TRACE_ERROR, NULL, "F", "Fn", 2, "%s", "unset");
    EXPECT_EQ(5u, ::GetLastError());
    const std::vector<tavo::test::RecordedLine> lines = tavo::test::RecordedLines();
    ASSERT_EQ(2u, lines.size());  // nothing else in this process writes a line
    EXPECT_TRUE(lines[0].modulePointer == kModulePath && !lines[1].modulePointer && lines[1].module == "(null)");
}

} // namespace
