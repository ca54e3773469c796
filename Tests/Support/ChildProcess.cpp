// The child side, the parent side, and main() of every test program, which runs a child case when
// started as one and the GoogleTest run otherwise (the linker takes main from this archive).
#include "ChildProcess.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace tavo::test {
namespace {

const char kFlag[] = "--tavo-child=";
const char kFailure[] = "tavo-child-failure";  // the key of a line the parent turns into a failure

std::map<std::string, int (*)()>& Cases()
{
    static std::map<std::string, int (*)()> cases;
    return cases;
}
std::vector<std::string> g_args;

void Print(const std::string& key, const std::string& value)
{
    std::string line = key + "=";
    for (char c : value) line += c == '\\' ? "\\\\" : c == '\n' ? "\\n" : c == '\r' ? "\\r" : std::string(1, c);
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
}

std::string Unescape(const std::string& text)
{
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '\\' && i + 1 < text.size()) c = text[++i] == 'n' ? '\n' : text[i] == 'r' ? '\r' : text[i];
        out += c;
    }
    return out;
}

// Quoted so that the C run-time's argv parsing gives `arg` back unchanged.
std::string Quote(const std::string& arg)
{
    std::string out = "\"";
    size_t backslashes = 0;
    for (char c : arg) {
        if (c == '"') out.append(backslashes + 1, '\\');
        backslashes = c == '\\' ? backslashes + 1 : 0;
        out += c;
    }
    return out.append(backslashes, '\\') + "\"";
}

// Inside a child: gtest failures go to the parent instead of the usual report.
struct FailurePrinter : ::testing::EmptyTestEventListener {
    void OnTestPartResult(const ::testing::TestPartResult& r) override
    {
        if (!r.failed()) return;
        failed = true;
        Print(kFailure, std::string(r.file_name() ? r.file_name() : "?") + ":" + std::to_string(r.line_number()) + ": " + r.message());
    }
    static inline bool failed = false;
};

// Ends a crashed child at once, with the exception code as exit code, instead of in a debugger.
LONG WINAPI EndOnCrash(EXCEPTION_POINTERS*)
{
    Print(kFailure, "unhandled exception");
    return EXCEPTION_EXECUTE_HANDLER;
}

int RunChild(const std::string& name)
{
    ::SetUnhandledExceptionFilter(&EndOnCrash);
    ::testing::TestEventListeners& listeners = ::testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new FailurePrinter);
    int exitCode = kChildUnknownCase;
    try {
        if (Cases().count(name)) exitCode = Cases()[name]();
        else Print(kFailure, "no child case " + name);
    } catch (...) {
        Print(kFailure, "the case let an exception out");
        exitCode = kChildUncaught;
    }
    return FailurePrinter::failed ? int(kChildTestFailure) : exitCode;
}

} // namespace

void ChildReport(const std::string& key, const std::string& value) { Print(key, value); }

const std::vector<std::string>& ChildArgs() { return g_args; }

bool RegisterChildCase(const char* name, int (*function)())
{
    Cases()[name] = function;
    return true;
}

std::string ChildResult::Value(const std::string& key, const char* file, int line) const
{
    if (values.count(key)) return values.at(key);
    ADD_FAILURE_AT(file, line) << "the child reported no \"" << key << "\" (exit code " << exitCode << "); its output:\n"
                               << output;
    return "";
}

ScratchInstall::ScratchInstall()
{
    static std::atomic<unsigned> count{0};
    char buffer[MAX_PATH];
    const fs::path program(std::string(buffer, ::GetModuleFileNameA(NULL, buffer, MAX_PATH)));
    testDir_ = program.parent_path().string();
    exeName_ = program.filename().string();
    ::GetTempPathA(MAX_PATH, buffer);
    path_ = buffer + ("tavo-" + std::to_string(::GetCurrentProcessId()) + "-" + std::to_string(++count) + "-" +
                      std::to_string(::GetTickCount()));
    fs::create_directory(path_);
    for (const char* name : {"TavoCommon.dll", "libgcc_s_dw2-1.dll", "libwinpthread-1.dll", "CorvDebug.dll"}) {
        CopyFile(name, name);
    }
    CopyFile(exeName_, exeName_);
}

ScratchInstall::~ScratchInstall()
{
    // A child that has just ended can hold its image files open for a moment under Wine.
    std::error_code error;
    for (int tries = 0; tries < 200; ++tries, ::Sleep(50)) {
        if (fs::remove_all(path_, error) != static_cast<std::uintmax_t>(-1)) return;
    }
    ADD_FAILURE() << "scratch install: " << path_ << " could not be removed: " << error.message();
}

void ScratchInstall::WithoutSink() { fs::remove(path_ + "\\CorvDebug.dll"); }

void ScratchInstall::UseSink(const std::string& dllName) { CopyFile(dllName, "CorvDebug.dll"); }

void ScratchInstall::SetProgramName(const std::string& exeName)
{
    CopyFile(exeName_, exeName);
    runName_ = exeName;
}

void ScratchInstall::WriteFile(const std::string& relativePath, const std::string& bytes)
{
    const fs::path target = fs::path(path_) / fs::path(relativePath).make_preferred();
    fs::create_directories(target.parent_path());
    if (!std::ofstream(target, std::ios::binary).write(bytes.data(), bytes.size())) {
        throw std::runtime_error("scratch install: cannot write " + target.string());
    }
}

void ScratchInstall::CopyFile(const std::string& fromTestDir, const std::string& relativeTo)
{
    const fs::path target = fs::path(path_) / fs::path(relativeTo).make_preferred();
    fs::create_directories(target.parent_path());
    fs::copy_file(fs::path(testDir_) / fromTestDir, target, fs::copy_options::overwrite_existing);
}

ChildResult ScratchInstall::Run(const std::string& childCase, const std::vector<std::string>& args, const char* file,
                                int line) const
{
    // Output goes to a file, which nobody has to drain while the child runs and which a grandchild
    // holding it cannot keep open for us; it goes away with the last handle.
    static std::atomic<unsigned> runs{0};
    SECURITY_ATTRIBUTES inherit = {sizeof(inherit), NULL, TRUE};
    const HANDLE out = ::CreateFileA((path_ + "-" + std::to_string(++runs) + ".out").c_str(), GENERIC_READ | GENERIC_WRITE,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &inherit, CREATE_ALWAYS,
                                     FILE_FLAG_DELETE_ON_CLOSE, NULL);
    const std::string exe = path_ + "\\" + (runName_.empty() ? exeName_ : runName_);
    std::string command = Quote(exe) + " " + Quote(kFlag + childCase);
    for (const std::string& arg : args) command += " " + Quote(arg);
    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = startup.hStdError = out;
    PROCESS_INFORMATION child = {};
    ChildResult result;
    if (!::CreateProcessA(exe.c_str(), &command[0], NULL, NULL, TRUE, CREATE_NO_WINDOW, NULL, path_.c_str(), &startup, &child)) {
        ADD_FAILURE_AT(file, line) << "cannot start " << exe << ", error " << ::GetLastError();
    } else if (::WaitForSingleObject(child.hProcess, timeoutMs_) != WAIT_OBJECT_0) {
        ::TerminateProcess(child.hProcess, WAIT_TIMEOUT);
        ::WaitForSingleObject(child.hProcess, 5000);
        ADD_FAILURE_AT(file, line) << "child " << childCase << " hung and was ended";
    }
    ::GetExitCodeProcess(child.hProcess, &result.exitCode);
    ::CloseHandle(child.hProcess);
    ::CloseHandle(child.hThread);
    result.output.resize(::GetFileSize(out, NULL));
    DWORD got = 0;
    ::SetFilePointer(out, 0, NULL, FILE_BEGIN);
    ::ReadFile(out, &result.output[0], result.output.size(), &got, NULL);
    ::CloseHandle(out);
    result.output.resize(got);
    std::istringstream lines(result.output);
    for (std::string text; std::getline(lines, text);) {
        if (!text.empty() && text.back() == '\r') text.pop_back();
        const size_t eq = text.find('=');
        if (eq == std::string::npos) continue;
        const std::string key = text.substr(0, eq), value = Unescape(text.substr(eq + 1));
        if (key != kFailure) result.values[key] = value;
        else ADD_FAILURE_AT(file, line) << "in child case " << childCase << " (exit code 0x" << std::hex << result.exitCode << "): " << value;
    }
    return result;
}

} // namespace tavo::test

int main(int argc, char** argv)
{
    // A crash ends the process with its code rather than waiting on a crash dialog.
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    if (argc > 1 && std::strncmp(argv[1], tavo::test::kFlag, sizeof(tavo::test::kFlag) - 1) == 0) {
        tavo::test::g_args.assign(argv + 2, argv + argc);
        return tavo::test::RunChild(argv[1] + sizeof(tavo::test::kFlag) - 1);
    }
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
