// Library code in a fresh process (caches that fill once, a Product.cfg of its own, another sink):
// a case registered with TAVO_CHILD_CASE runs in a copy of the test program in a scratch install
// and reports values back; gtest failures, crashes and hangs in a child fail the parent's test.
#ifndef TAVO_TESTS_CHILD_PROCESS_H
#define TAVO_TESTS_CHILD_PROCESS_H

#include <windows.h>

#include <map>
#include <string>
#include <vector>

namespace tavo::test {

enum ChildExitCode : DWORD { kChildUnknownCase = 3, kChildUncaught = 4, kChildTestFailure = 5 };  // or the case's

struct ChildResult {
    DWORD exitCode = 0;
    std::string output;                         // stdout and stderr, as written
    std::map<std::string, std::string> values;  // the last value reported under each key
    // The value reported under `key`; without one, a test failure and "".
    std::string Value(const std::string& key, const char* file = __builtin_FILE(), int line = __builtin_LINE()) const;
};

// A temp directory with copies of TavoCommon.dll, its runtime DLLs, the recorder CorvDebug.dll and the
// program, removed at the end; subdirectories are made on the way; a failed copy or write throws.
class ScratchInstall {
public:
    ScratchInstall();
    ~ScratchInstall();
    ScratchInstall(const ScratchInstall&) = delete;

    void WithoutSink();
    void UseSink(const std::string& dllName);  // dllName from the test directory as CorvDebug.dll
    void WriteFile(const std::string& relativePath, const std::string& bytes);
    void CopyFile(const std::string& fromTestDir, const std::string& relativeTo);
    void SetProgramName(const std::string& exeName);  // children run as a copy of the program so named
    void SetTimeout(DWORD milliseconds) { timeoutMs_ = milliseconds; }
    std::string Path() const { return path_; }  // without a trailing backslash
    // Runs `childCase` there, `args` reaching it through ChildArgs(); a child still running after
    // the timeout (30 s unless set) is ended and fails the test.
    ChildResult Run(const std::string& childCase, const std::vector<std::string>& args = {},
                    const char* file = __builtin_FILE(), int line = __builtin_LINE()) const;

private:
    std::string path_, testDir_, exeName_, runName_;
    DWORD timeoutMs_ = 30000;
};

// Inside a child case: reports key=value for a text (any bytes), a number, an enum or a bool.
void ChildReport(const std::string& key, const std::string& value);
template <class T>
void ChildReport(const std::string& key, T value)
{
    if constexpr (std::is_convertible_v<T, const char*>) ChildReport(key, std::string(value ? value : "(null)"));
    else if constexpr (std::is_same_v<T, bool>) ChildReport(key, std::string(value ? "true" : "false"));
    else ChildReport(key, std::to_string(value));
}

inline std::map<std::string, int (*)()> g_childCases;
inline std::vector<std::string> g_childArgs;
inline const std::vector<std::string>& ChildArgs() { return g_childArgs; }  // inside a child case: Run's args

} // namespace tavo::test

// Registers the body that follows, which returns the exit code, as the case `name` (unique: linked).
#define TAVO_CHILD_CASE(name)                                                                                \
    int TavoChildCase_##name();                                                                              \
    [[maybe_unused]] static const bool tavoChildCase_##name =                                                \
        ::tavo::test::g_childCases.emplace(#name, &TavoChildCase_##name).second;                             \
    int TavoChildCase_##name()

#endif
