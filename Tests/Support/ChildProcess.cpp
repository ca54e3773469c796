// Child and parent sides, and main() of every test program (the linker takes it from this archive).
#include "ChildProcess.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <regex>

namespace fs = std::filesystem;

namespace tavo::test {
namespace {

const std::string kFlag = "--tavo-child=";
const std::string kFailure = "tavo-child-failure";  // the key of a line the parent turns into a failure
std::atomic<unsigned> g_serial;  // of scratch directories and child runs

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

// For the C run-time's argv parsing: backslashes before a quote or the end doubled, quotes escaped.
std::string Quote(const std::string& arg)
{
    const std::string quotes = std::regex_replace(arg, std::regex(R"((\\*)\")"), R"($1$1\")");
    return "\"" + std::regex_replace(quotes, std::regex(R"((\\+)$)"), "$1$1") + "\"";
}

// A crashed child ends at once, with the exception code, instead of in the debugger.
LONG WINAPI EndOnCrash(EXCEPTION_POINTERS*)
{
    ChildReport(kFailure, "unhandled exception");
    return EXCEPTION_EXECUTE_HANDLER;
}

} // namespace

// A line per value, with backslashes, CRs and line feeds escaped.
void ChildReport(const std::string& key, const std::string& value)
{
    std::string line = key + "=";
    for (char c : value) line += c == '\\' ? "\\\\" : c == '\n' ? "\\n" : c == '\r' ? "\\r" : std::string(1, c);
    std::cout << line + "\n" << std::flush;
}

std::string ChildResult::Value(const std::string& key, const char* file, int line) const
{
    if (values.count(key)) return values.at(key);
    ADD_FAILURE_AT(file, line) << "the child reported no " << key << " (exit code " << exitCode << ")\n" << output;
    return "";
}

ScratchInstall::ScratchInstall()
{
    const fs::path program(_pgmptr);
    testDir_ = program.parent_path().string();
    exeName_ = runName_ = program.filename().string();
    const std::string name = "tavo-" + std::to_string(::GetCurrentProcessId()) + "-" + std::to_string(++g_serial);
    path_ = (fs::temp_directory_path() / name).string();
    fs::remove_all(path_);  // left by a run that crashed
    fs::create_directory(path_);
    for (const char* f : {"TavoCommon.dll", "libgcc_s_dw2-1.dll", "libwinpthread-1.dll", "CorvDebug.dll"}) CopyFile(f, f);
    CopyFile(exeName_, exeName_);
}

ScratchInstall::~ScratchInstall()
{
    // A child that has just ended can hold its image files open for a moment under Wine.
    std::error_code error;
    for (int tries = 0; fs::remove_all(path_, error) == static_cast<std::uintmax_t>(-1) && tries < 200; ++tries) ::Sleep(50);
    if (error) ADD_FAILURE() << "scratch install: " << path_ << " could not be removed: " << error.message();
}

void ScratchInstall::WithoutSink() { fs::remove(path_ + "\\CorvDebug.dll"); }

void ScratchInstall::UseSink(const std::string& dllName) { CopyFile(dllName, "CorvDebug.dll"); }

void ScratchInstall::SetProgramName(const std::string& exeName) { CopyFile(exeName_, runName_ = exeName); }

void ScratchInstall::WriteFile(const std::string& relativePath, const std::string& bytes)
{
    const fs::path target = fs::path(path_) / relativePath;
    fs::create_directories(target.parent_path());
    std::ofstream out(target, std::ios::binary);
    if (!out.write(bytes.data(), bytes.size())) throw std::runtime_error("scratch install: cannot write " + target.string());
}

void ScratchInstall::CopyFile(const std::string& fromTestDir, const std::string& relativeTo)
{
    const fs::path target = fs::path(path_) / relativeTo;
    fs::create_directories(target.parent_path());
    fs::copy_file(fs::path(testDir_) / fromTestDir, target, fs::copy_options::overwrite_existing);
}

ChildResult ScratchInstall::Run(const std::string& childCase, const std::vector<std::string>& args, const char* file,
                                int line) const
{
    // Output goes to a file, which nobody has to drain while the child runs; beside the directory, as
    // a process the child started (Wine's desktop) may hold it as long as it lives.
    const std::string outPath = path_ + "-" + std::to_string(++g_serial) + ".out";
    const DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    SECURITY_ATTRIBUTES inherit = {sizeof(inherit), NULL, TRUE};
    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = startup.hStdError = ::CreateFileA(outPath.c_str(), GENERIC_WRITE, share, &inherit, CREATE_ALWAYS, 0, NULL);
    const std::string exe = path_ + "\\" + runName_;
    std::string command = Quote(exe) + " " + Quote(kFlag + childCase);
    for (const std::string& arg : args) command += " " + Quote(arg);
    PROCESS_INFORMATION child = {};
    ChildResult result;
    if (!::CreateProcessA(exe.c_str(), &command[0], NULL, NULL, TRUE, CREATE_NO_WINDOW, NULL, path_.c_str(), &startup, &child)
        || ::WaitForSingleObject(child.hProcess, timeoutMs_) != WAIT_OBJECT_0) {
        ::TerminateProcess(child.hProcess, WAIT_TIMEOUT);
        ::WaitForSingleObject(child.hProcess, 5000);
        ADD_FAILURE_AT(file, line) << "child " << childCase << " did not start, or hung and was ended";
    }
    ::GetExitCodeProcess(child.hProcess, &result.exitCode);
    for (HANDLE h : {startup.hStdOutput, child.hProcess, child.hThread}) ::CloseHandle(h);
    result.output.assign(std::istreambuf_iterator<char>(std::ifstream(outPath, std::ios::binary).rdbuf()), {});
    ::DeleteFileA(outPath.c_str());
    std::istringstream lines(result.output);
    for (std::string text; std::getline(lines, text);) {
        if (!text.empty() && text.back() == '\r') text.pop_back();
        const size_t eq = text.find('=');
        const std::string key = text.substr(0, eq), value = Unescape(text.substr(eq + 1));
        if (key == kFailure) ADD_FAILURE_AT(file, line) << "child " << childCase << ": " << value << "\n" << result.output;
        else if (eq != std::string::npos) result.values[key] = value;
    }
    return result;
}

} // namespace tavo::test

int main(int argc, char** argv)
{
    using namespace tavo::test;
    if (argc < 2 || std::string(argv[1]).rfind(kFlag, 0) != 0) {
        ::testing::InitGoogleTest(&argc, argv);
        return RUN_ALL_TESTS();
    }
    ::SetUnhandledExceptionFilter(&EndOnCrash);
    const std::string name = argv[1] + kFlag.size();
    g_childArgs.assign(argv + 2, argv + argc);
    int exitCode = kChildUnknownCase;
    try {
        if (g_childCases.count(name)) exitCode = g_childCases[name]();
        else ChildReport(kFailure, "no child case " + name);
    } catch (...) {
        ChildReport(kFailure, "the case let an exception out");
        exitCode = kChildUncaught;
    }
    // gtest keeps failures outside any test apart, and prints them into the output.
    if (!::testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed()) return exitCode;
    ChildReport(kFailure, "gtest assertions failed");
    return kChildTestFailure;
}
