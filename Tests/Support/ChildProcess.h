// Library code in a fresh process: caches that fill once per process, a Product.cfg of the case's
// own, another sink. A ScratchInstall is a temporary copy of the test directory's install; Run
// starts the copy of the test program there with --tavo-child=NAME, and the case registered under
// NAME reports values back. gtest failures and crashes inside a case fail the parent's test.
//
//   TAVO_CHILD_CASE(Version) { tavo::test::ChildReport("version", Tavo::GetLibraryVersionA()); return 0; }
//   TEST(Module, Version) { EXPECT_EQ("1.0.0", tavo::test::ScratchInstall().Run("Version").Value("version")); }
#ifndef TAVO_TESTS_CHILD_PROCESS_H
#define TAVO_TESTS_CHILD_PROCESS_H

#include <windows.h>

#include <map>
#include <string>
#include <type_traits>
#include <vector>

namespace tavo::test {

// Exit codes the harness gives a child, beside what the case returns or a crash's exception code.
enum ChildExitCode : DWORD { kChildUnknownCase = 3, kChildUncaught = 4, kChildTestFailure = 5 };

struct ChildResult {
    DWORD exitCode = 0;
    std::string output;                         // stdout and stderr, as written
    std::map<std::string, std::string> values;  // the last value reported under each key
    // The value reported under `key`; a test failure showing the output, and "", when there is none.
    std::string Value(const std::string& key, const char* file = __builtin_FILE(), int line = __builtin_LINE()) const;
};

// A temp directory holding TavoCommon.dll, its runtime DLLs, the recorder CorvDebug.dll and the
// running test program, copied from the test program's directory; removed on destruction. A file
// that cannot be copied or written ends the test with an exception. Paths below the directory are
// '/' or '\' separated; subdirectories are made on the way.
class ScratchInstall {
public:
    ScratchInstall();
    ~ScratchInstall();
    ScratchInstall(const ScratchInstall&) = delete;

    void WithoutSink();
    void UseSink(const std::string& dllName);  // dllName from the test directory as CorvDebug.dll
    void WriteFile(const std::string& relativePath, const std::string& bytes);
    void CopyFile(const std::string& fromTestDir, const std::string& relativeTo);
    std::string Path() const { return path_; }  // without a trailing backslash
    // A child still running after this long (30 s unless set) is ended and fails the test.
    void SetTimeout(DWORD milliseconds) { timeoutMs_ = milliseconds; }
    // Runs children as a copy of the test program named exeName, e.g. for settings keyed by name.
    void SetProgramName(const std::string& exeName);
    // Runs the case `childCase` in the directory; `args` reach it through ChildArgs().
    ChildResult Run(const std::string& childCase, const std::vector<std::string>& args = {},
                    const char* file = __builtin_FILE(), int line = __builtin_LINE()) const;

private:
    std::string path_, testDir_, exeName_, runName_;
    DWORD timeoutMs_ = 30000;
};

// Inside a child case: reports key=value for a text, a number, an enum or a bool (line breaks and
// backslashes in the value survive).
void ChildReport(const std::string& key, const std::string& value);
template <class T>
void ChildReport(const std::string& key, T value)
{
    if constexpr (std::is_convertible_v<T, const char*>) {
        const char* text = value;
        ChildReport(key, std::string(text ? text : "(null)"));
    } else if constexpr (std::is_same_v<T, bool>) {
        ChildReport(key, std::string(value ? "true" : "false"));
    } else {
        ChildReport(key, std::to_string(value));
    }
}
const std::vector<std::string>& ChildArgs();  // inside a child case: the arguments given to Run

bool RegisterChildCase(const char* name, int (*function)());

} // namespace tavo::test

// Registers the body that follows, which returns the child's exit code, as the case `name`; a name
// used twice in a program does not link.
#define TAVO_CHILD_CASE(name)                                                                                \
    int TavoChildCase_##name();                                                                              \
    [[maybe_unused]] static const bool tavoChildCase_##name = ::tavo::test::RegisterChildCase(#name, &TavoChildCase_##name); \
    int TavoChildCase_##name()

#endif
