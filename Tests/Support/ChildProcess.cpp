#include "ChildProcess.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>

namespace tavo::test {
namespace {

const char kChildFlag[] = "--tavo-child=";
const char kFailureKey[] = "tavo-child-failure";
const char* const kInstallFiles[] = {"TavoCommon.dll", "libgcc_s_dw2-1.dll", "libwinpthread-1.dll", "CorvDebug.dll"};

struct CaseEntry {
    std::string name;
    ChildCaseFunction function;
    std::string where;
};

std::vector<CaseEntry>& Cases()
{
    static std::vector<CaseEntry> cases;
    return cases;
}

const CaseEntry* FindCase(const std::string& name)
{
    for (const CaseEntry& c : Cases()) {
        if (c.name == name) return &c;
    }
    return nullptr;
}

std::vector<std::string>& Args()
{
    static std::vector<std::string> args;
    return args;
}

bool ValidKey(const std::string& key)
{
    if (key.empty()) return false;
    for (char c : key) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
                        c == '.' || c == '-';
        if (!ok) return false;
    }
    return true;
}

std::string Escape(const std::string& value)
{
    std::string out;
    out.reserve(value.size());
    for (char c : value) {
        switch (c) {
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        default: out += c;
        }
    }
    return out;
}

std::string Unescape(const std::string& value)
{
    std::string out;
    out.reserve(value.size());
    for (size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '\\' || i + 1 == value.size()) {
            out += value[i];
            continue;
        }
        const char next = value[++i];
        out += next == 'n' ? '\n' : next == 'r' ? '\r' : next;
    }
    return out;
}

void PrintLine(const std::string& key, const std::string& value)
{
    const std::string line = key + "=" + Escape(value) + "\n";
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
}

// Quoted so that the C run-time's argv parsing gives `arg` back unchanged.
std::string QuoteArgument(const std::string& arg)
{
    if (!arg.empty() && arg.find_first_of(" \t\n\v\"") == std::string::npos) return arg;
    std::string out = "\"";
    for (size_t i = 0;; ++i) {
        size_t backslashes = 0;
        while (i < arg.size() && arg[i] == '\\') {
            ++i;
            ++backslashes;
        }
        if (i == arg.size()) {
            out.append(backslashes * 2, '\\');
            break;
        }
        if (arg[i] == '"') {
            out.append(backslashes * 2 + 1, '\\');
        } else {
            out.append(backslashes, '\\');
        }
        out += arg[i];
    }
    return out + "\"";
}

std::string RunningProgram()
{
    std::vector<char> buffer(MAX_PATH);
    for (;;) {
        const DWORD n = ::GetModuleFileNameA(NULL, buffer.data(), static_cast<DWORD>(buffer.size()));
        if (n == 0) return std::string();
        if (n < buffer.size()) return std::string(buffer.data(), n);
        if (buffer.size() >= 32768) return std::string();
        buffer.resize(buffer.size() * 2);
    }
}

bool Exists(const std::string& path)
{
    return ::GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool RemoveTree(const std::string& dir)
{
    WIN32_FIND_DATAA found;
    HANDLE search = ::FindFirstFileA((dir + "\\*").c_str(), &found);
    if (search != INVALID_HANDLE_VALUE) {
        do {
            const std::string name = found.cFileName;
            if (name == "." || name == "..") continue;
            const std::string full = dir + "\\" + name;
            if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) && !(found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT)) {
                RemoveTree(full);
            } else {
                ::SetFileAttributesA(full.c_str(), FILE_ATTRIBUTE_NORMAL);
                ::DeleteFileA(full.c_str());
            }
        } while (::FindNextFileA(search, &found));
        ::FindClose(search);
    }
    ::RemoveDirectoryA(dir.c_str());
    return !Exists(dir);
}

// Prints the child's gtest failures where the parent finds them, instead of the usual report.
class ChildFailurePrinter : public ::testing::EmptyTestEventListener {
public:
    void OnTestPartResult(const ::testing::TestPartResult& result) override
    {
        if (!result.failed()) return;
        failed = true;
        std::string where = result.file_name() ? result.file_name() : "(unknown file)";
        if (result.line_number() >= 0) where += ":" + std::to_string(result.line_number());
        PrintLine(kFailureKey, where + ": " + result.message());
    }
    static inline bool failed = false;
};

LONG WINAPI ReportCrash(EXCEPTION_POINTERS* info)
{
    char text[96];
    std::snprintf(text, sizeof(text), "unhandled exception 0x%08lx at %p",
                  static_cast<unsigned long>(info->ExceptionRecord->ExceptionCode),
                  info->ExceptionRecord->ExceptionAddress);
    PrintLine(kFailureKey, text);
    std::fflush(stderr);
    return EXCEPTION_EXECUTE_HANDLER;  // the process ends with the exception code as exit code
}

class Handle {
public:
    explicit Handle(HANDLE h = NULL) : h_(h == INVALID_HANDLE_VALUE ? NULL : h) {}
    ~Handle() { Close(); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    HANDLE get() const { return h_; }
    HANDLE* out() { return &h_; }
    void Close()
    {
        if (h_) ::CloseHandle(h_);
        h_ = NULL;
    }

private:
    HANDLE h_;
};

} // namespace

// --- reports -------------------------------------------------------------------------------------

void ChildReport(const std::string& key, const std::string& value)
{
    if (!ValidKey(key) || key == kFailureKey) {
        PrintLine(kFailureKey, "ChildReport: \"" + key + "\" is not a usable key");
        ChildFailurePrinter::failed = true;
        return;
    }
    PrintLine(key, value);
}

void ChildReport(const std::string& key, const char* value)
{
    ChildReport(key, std::string(value ? value : "(null)"));
}

void ChildReport(const std::string& key, long long value)
{
    ChildReport(key, std::to_string(value));
}

void ChildReport(const std::string& key, unsigned long long value)
{
    ChildReport(key, std::to_string(value));
}

void ChildReport(const std::string& key, const void* value)
{
    char text[2 + 2 * sizeof(uintptr_t) + 1];
    std::snprintf(text, sizeof(text), "0x%0*llx", static_cast<int>(2 * sizeof(uintptr_t)),
                  static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(value)));
    ChildReport(key, std::string(text));
}

const std::vector<std::string>& ChildArgs()
{
    return Args();
}

bool RegisterChildCase(const char* name, ChildCaseFunction function, const char* file, int line)
{
    Cases().push_back(CaseEntry{name, function, std::string(file) + ":" + std::to_string(line)});
    return true;
}

namespace detail {

bool ChildCasesAreUnique()
{
    bool unique = true;
    const auto& cases = Cases();
    for (size_t i = 0; i < cases.size(); ++i) {
        for (size_t j = i + 1; j < cases.size(); ++j) {
            if (cases[i].name != cases[j].name) continue;
            std::fprintf(stderr, "child case %s is registered twice: %s and %s\n", cases[i].name.c_str(),
                         cases[i].where.c_str(), cases[j].where.c_str());
            unique = false;
        }
    }
    return unique;
}

bool RunChildIfAsked(int argc, char** argv, int& exitCode)
{
    int flag = 1;
    while (flag < argc && std::strncmp(argv[flag], kChildFlag, sizeof(kChildFlag) - 1) != 0) ++flag;
    if (flag >= argc) return false;

    // A crash reports itself and ends the child, instead of waiting on a debugger.
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    ::SetUnhandledExceptionFilter(&ReportCrash);

    const std::string name = argv[flag] + sizeof(kChildFlag) - 1;
    Args().assign(argv + flag + 1, argv + argc);
    const CaseEntry* entry = ChildCasesAreUnique() ? FindCase(name) : nullptr;
    if (!entry) {
        std::fprintf(stderr, "no child case named \"%s\" in this program\n", name.c_str());
        exitCode = kChildUnknownCase;
        return true;
    }

    ::testing::TestEventListeners& listeners = ::testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new ChildFailurePrinter);

    try {
        exitCode = entry->function();
    } catch (const std::exception& e) {
        PrintLine(kFailureKey, std::string("child case ") + name + " let an exception out: " + e.what());
        exitCode = kChildUncaught;
    } catch (...) {
        PrintLine(kFailureKey, std::string("child case ") + name + " let an exception out");
        exitCode = kChildUncaught;
    }
    if (ChildFailurePrinter::failed) exitCode = kChildTestFailure;
    std::fflush(stdout);
    std::fflush(stderr);
    return true;
}

} // namespace detail

// --- parent side ---------------------------------------------------------------------------------

std::string ChildResult::Value(const std::string& key, const char* file, int line) const
{
    const auto it = values.find(key);
    if (it == values.end()) {
        ADD_FAILURE_AT(file, line) << "the child reported no \"" << key << "\" (exit code " << exitCode
                                   << "); its output:\n"
                                   << output;
        return std::string();
    }
    return it->second;
}

ScratchInstall::ScratchInstall(const char* file, int line)
{
    const std::string program = RunningProgram();
    const size_t slash = program.find_last_of('\\');
    if (slash == std::string::npos) {
        ADD_FAILURE_AT(file, line) << "scratch install: cannot tell where the test program lives (" << program << ")";
        return;
    }
    testDir_ = program.substr(0, slash);
    exeName_ = program.substr(slash + 1);

    char temp[MAX_PATH + 1] = {};
    const DWORD n = ::GetTempPathA(sizeof(temp), temp);
    if (n == 0 || n >= sizeof(temp)) {
        ADD_FAILURE_AT(file, line) << "scratch install: GetTempPathA failed, error " << ::GetLastError();
        return;
    }
    static std::atomic<unsigned> counter{0};
    for (int attempt = 0; attempt < 100 && path_.empty(); ++attempt) {
        char name[64];
        std::snprintf(name, sizeof(name), "tavo-%lu-%u-%lx", ::GetCurrentProcessId(), ++counter, ::GetTickCount());
        const std::string candidate = std::string(temp) + name;
        if (::CreateDirectoryA(candidate.c_str(), NULL)) {
            path_ = candidate;
        } else if (::GetLastError() != ERROR_ALREADY_EXISTS) {
            ADD_FAILURE_AT(file, line) << "scratch install: cannot create " << candidate << ", error " << ::GetLastError();
            return;
        }
    }
    if (path_.empty()) {
        ADD_FAILURE_AT(file, line) << "scratch install: no unused directory name under " << temp;
        return;
    }

    for (const char* name : kInstallFiles) CopyFile(name, name, file, line);
    CopyFile(exeName_, exeName_, file, line);
}

ScratchInstall::~ScratchInstall()
{
    if (path_.empty()) return;
    // A child that has just ended can hold its image files open for a moment under Wine.
    const DWORD start = ::GetTickCount();
    while (!RemoveTree(path_)) {
        if (::GetTickCount() - start > 10000) {
            ADD_FAILURE() << "scratch install: " << path_ << " could not be removed";
            return;
        }
        ::Sleep(50);
    }
}

std::string ScratchInstall::Below(const std::string& relativePath, const char* file, int line) const
{
    if (path_.empty()) {
        ADD_FAILURE_AT(file, line) << "scratch install: there is no directory (its creation failed)";
        return std::string();
    }
    std::string rel = relativePath;
    for (char& c : rel) {
        if (c == '/') c = '\\';
    }
    bool bad = rel.empty() || rel[0] == '\\' || rel.find(':') != std::string::npos || rel.back() == '\\';
    for (size_t start = 0; !bad && start <= rel.size();) {
        const size_t end = std::min(rel.find('\\', start), rel.size());
        const std::string part = rel.substr(start, end - start);
        bad = part.empty() || part == "." || part == "..";
        start = end + 1;
    }
    if (bad) {
        ADD_FAILURE_AT(file, line) << "scratch install: \"" << relativePath
                                   << "\" is not a file path below the scratch directory";
        return std::string();
    }
    // Subdirectories on the way.
    for (size_t sep = rel.find('\\'); sep != std::string::npos; sep = rel.find('\\', sep + 1)) {
        ::CreateDirectoryA((path_ + "\\" + rel.substr(0, sep)).c_str(), NULL);
    }
    return path_ + "\\" + rel;
}

void ScratchInstall::WithoutSink(const char* file, int line)
{
    const std::string sink = Below("CorvDebug.dll", file, line);
    if (sink.empty()) return;
    if (!::DeleteFileA(sink.c_str()) && ::GetLastError() != ERROR_FILE_NOT_FOUND) {
        ADD_FAILURE_AT(file, line) << "scratch install: cannot remove " << sink << ", error " << ::GetLastError();
    }
}

void ScratchInstall::UseSink(const std::string& dllName, const char* file, int line)
{
    CopyFile(dllName, "CorvDebug.dll", file, line);
}

void ScratchInstall::SetProgramName(const std::string& exeName, const char* file, int line)
{
    CopyFile(exeName_, exeName, file, line);
    runName_ = exeName;
}

void ScratchInstall::WriteFile(const std::string& relativePath, const std::string& bytes, const char* file, int line)
{
    const std::string target = Below(relativePath, file, line);
    if (target.empty()) return;
    Handle h(::CreateFileA(target.c_str(), GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, NULL));
    if (!h.get()) {
        ADD_FAILURE_AT(file, line) << "scratch install: cannot create " << target << ", error " << ::GetLastError();
        return;
    }
    DWORD written = 0;
    if (!::WriteFile(h.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, NULL) || written != bytes.size()) {
        ADD_FAILURE_AT(file, line) << "scratch install: cannot write " << target << ", error " << ::GetLastError();
    }
}

void ScratchInstall::CopyFile(const std::string& fromTestDir, const std::string& relativeTo, const char* file, int line)
{
    const std::string target = Below(relativeTo, file, line);
    if (target.empty()) return;
    const std::string source = testDir_ + "\\" + fromTestDir;
    if (!::CopyFileA(source.c_str(), target.c_str(), FALSE)) {
        ADD_FAILURE_AT(file, line) << "scratch install: cannot copy " << source << " to " << target << ", error "
                                   << ::GetLastError();
    }
}

ChildResult ScratchInstall::Run(const std::string& childCase, const std::vector<std::string>& args, const char* file,
                                int line) const
{
    ChildResult result;
    result.exitCode = kChildUnknownCase;
    if (!FindCase(childCase)) {
        ADD_FAILURE_AT(file, line) << "no child case named \"" << childCase << "\" in this program";
        return result;
    }
    if (path_.empty()) {
        ADD_FAILURE_AT(file, line) << "scratch install: there is no directory to run " << childCase << " in";
        return result;
    }

    SECURITY_ATTRIBUTES inherit = {sizeof(inherit), NULL, TRUE};
    Handle readEnd, writeEnd;
    if (!::CreatePipe(readEnd.out(), writeEnd.out(), &inherit, 0) ||
        !::SetHandleInformation(readEnd.get(), HANDLE_FLAG_INHERIT, 0)) {
        ADD_FAILURE_AT(file, line) << "child " << childCase << ": CreatePipe failed, error " << ::GetLastError();
        return result;
    }
    Handle input(::CreateFileA("NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit, OPEN_EXISTING, 0, NULL));

    const std::string exe = path_ + "\\" + (runName_.empty() ? exeName_ : runName_);
    std::string commandLine = QuoteArgument(exe) + " " + QuoteArgument(kChildFlag + childCase);
    for (const std::string& arg : args) commandLine += " " + QuoteArgument(arg);
    std::vector<char> mutableCommandLine(commandLine.begin(), commandLine.end());
    mutableCommandLine.push_back('\0');

    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = input.get();
    startup.hStdOutput = writeEnd.get();
    startup.hStdError = writeEnd.get();
    PROCESS_INFORMATION info = {};
    if (!::CreateProcessA(exe.c_str(), mutableCommandLine.data(), NULL, NULL, TRUE, CREATE_NO_WINDOW, NULL,
                          path_.c_str(), &startup, &info)) {
        ADD_FAILURE_AT(file, line) << "child " << childCase << ": cannot start " << exe << ", error " << ::GetLastError();
        return result;
    }
    Handle process(info.hProcess);
    Handle thread(info.hThread);
    writeEnd.Close();  // our copy; the pipe ends when the child's copies close
    input.Close();

    // Read while the child runs, so a full pipe never stalls it. Peek rather than block: a
    // grandchild that inherited the pipe must not keep us waiting once the child has ended.
    const DWORD start = ::GetTickCount();
    bool ended = false, timedOut = false;
    for (;;) {
        DWORD available = 0;
        while (::PeekNamedPipe(readEnd.get(), NULL, 0, NULL, &available, NULL) && available > 0) {
            char buffer[4096];
            DWORD got = 0;
            if (!::ReadFile(readEnd.get(), buffer, std::min<DWORD>(available, sizeof(buffer)), &got, NULL) || got == 0) break;
            result.output.append(buffer, got);
        }
        if (ended) break;
        const DWORD elapsed = ::GetTickCount() - start;
        if (elapsed >= timeoutMs_) {
            timedOut = true;
            ::TerminateProcess(process.get(), WAIT_TIMEOUT);
            ::WaitForSingleObject(process.get(), 5000);
            ended = true;  // one more pass collects what it wrote
            continue;
        }
        ended = ::WaitForSingleObject(process.get(), std::min<DWORD>(10, timeoutMs_ - elapsed)) == WAIT_OBJECT_0;
    }
    DWORD code = 0;
    result.exitCode = ::GetExitCodeProcess(process.get(), &code) ? code : static_cast<DWORD>(-1);
    if (timedOut) {
        ADD_FAILURE_AT(file, line) << "child " << childCase << " did not finish within " << timeoutMs_
                                   << " ms and was terminated; its output:\n"
                                   << result.output;
    }

    size_t begin = 0;
    while (begin < result.output.size()) {
        size_t end = result.output.find('\n', begin);
        if (end == std::string::npos) end = result.output.size();
        std::string text = result.output.substr(begin, end - begin);
        begin = end + 1;
        if (!text.empty() && text.back() == '\r') text.pop_back();
        const size_t eq = text.find('=');
        if (eq == std::string::npos) continue;
        const std::string key = text.substr(0, eq);
        if (!ValidKey(key)) continue;
        const std::string value = Unescape(text.substr(eq + 1));
        if (key == kFailureKey) {
            ADD_FAILURE_AT(file, line) << "in child case " << childCase << ": " << value;
        } else {
            result.values[key] = value;
        }
    }
    return result;
}

} // namespace tavo::test
