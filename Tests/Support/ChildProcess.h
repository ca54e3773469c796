// Library code in a fresh process: caches that fill once per process, a Product.cfg of the case's
// own, another sink. A ScratchInstall is a temporary copy of the test directory's install (the
// library, its runtime DLLs, the recorder sink and the running test program); Run starts the copy
// of the program there with --tavo-child=NAME, and the case registered under NAME reports back.
//
//   TAVO_CHILD_CASE(VersionInAFreshProcess) {
//       tavo::test::ChildReport("version", Tavo::GetLibraryVersionA());
//       return 0;
//   }
//   TEST(Module, VersionInAFreshProcess) {
//       tavo::test::ScratchInstall install;
//       install.WriteFile("Product.cfg", "...");
//       const tavo::test::ChildResult r = install.Run("VersionInAFreshProcess");
//       ASSERT_EQ(0u, r.exitCode) << r.output;
//       EXPECT_EQ("1.0.0", r.Value("version"));
//   }
//
// Inside a case, gtest assertions work too: their failures are printed by the child and reported
// again as failures of the parent's test.
#ifndef TAVO_TESTS_CHILD_PROCESS_H
#define TAVO_TESTS_CHILD_PROCESS_H

#include <windows.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tavo::test {

// Exit codes the harness itself gives a child, beside whatever the case returns.
enum ChildExitCode : DWORD {
    kChildUnknownCase = 3,   // no case registered under the name
    kChildUncaught = 4,      // the case let a C++ exception out
    kChildTestFailure = 5,   // a gtest assertion failed inside the case (overrides its return value)
};

struct ChildResult {
    DWORD exitCode = 0;  // the case's return value, a code above, or the code of an unhandled exception
    std::string output;  // stdout and stderr, interleaved as written
    std::map<std::string, std::string> values;  // ChildReport lines; a key reported twice keeps the last value

    // The value reported under `key`; a test failure (showing the output) and "" when there is none.
    std::string Value(const std::string& key, const char* file = __builtin_FILE(), int line = __builtin_LINE()) const;
};

class ScratchInstall {
public:
    // A fresh directory under the temp path holding TavoCommon.dll, libgcc_s_dw2-1.dll,
    // libwinpthread-1.dll, CorvDebug.dll (the recorder) and the running test program, copied from
    // the test program's directory. A file that is missing there fails the test.
    ScratchInstall(const char* file = __builtin_FILE(), int line = __builtin_LINE());
    // Removes the directory and all in it (retrying while a child that just ended still holds files).
    ~ScratchInstall();
    ScratchInstall(const ScratchInstall&) = delete;
    ScratchInstall& operator=(const ScratchInstall&) = delete;

    // No CorvDebug.dll at all.
    void WithoutSink(const char* file = __builtin_FILE(), int line = __builtin_LINE());
    // `dllName` from the test directory installed as CorvDebug.dll.
    void UseSink(const std::string& dllName, const char* file = __builtin_FILE(), int line = __builtin_LINE());
    // Writes `bytes` to a file below the directory (creating subdirectories); '/' or '\' separate.
    void WriteFile(const std::string& relativePath, const std::string& bytes, const char* file = __builtin_FILE(),
                   int line = __builtin_LINE());
    // Copies a file of the test directory to a path below the directory.
    void CopyFile(const std::string& fromTestDir, const std::string& relativeTo, const char* file = __builtin_FILE(),
                  int line = __builtin_LINE());
    // The directory's Windows path, without a trailing backslash.
    std::string Path() const { return path_; }
    // How long Run waits before it terminates the child and fails the case (30 s unless set: a child
    // takes about a second, several where 32-bit code is emulated).
    void SetTimeout(DWORD milliseconds) { timeoutMs_ = milliseconds; }
    // Runs the child under another file name (a copy of the test program made here), e.g. so that
    // settings the platform keys by program name reach this child only. The default is the test
    // program's own name.
    void SetProgramName(const std::string& exeName, const char* file = __builtin_FILE(), int line = __builtin_LINE());

    // Runs the registered case `childCase` in the scratch copy of the test program, current
    // directory the scratch directory; `args` reach the case through ChildArgs().
    ChildResult Run(const std::string& childCase, const std::vector<std::string>& args = {},
                    const char* file = __builtin_FILE(), int line = __builtin_LINE()) const;

private:
    std::string Below(const std::string& relativePath, const char* file, int line) const;

    std::string path_;
    std::string testDir_;
    std::string exeName_;
    DWORD timeoutMs_ = 30000;
    std::string runName_;  // the program Run starts; exeName_ when empty
};

// Inside a child case: reports `key=value` on a line of its own, flushed at once. Keys are letters,
// digits and "_.-"; line breaks and backslashes in values are escaped and come back unchanged.
void ChildReport(const std::string& key, const std::string& value);
void ChildReport(const std::string& key, const char* value);
void ChildReport(const std::string& key, long long value);
void ChildReport(const std::string& key, unsigned long long value);
inline void ChildReport(const std::string& key, int value) { ChildReport(key, static_cast<long long>(value)); }
inline void ChildReport(const std::string& key, long value) { ChildReport(key, static_cast<long long>(value)); }
inline void ChildReport(const std::string& key, unsigned value) { ChildReport(key, static_cast<unsigned long long>(value)); }
inline void ChildReport(const std::string& key, unsigned long value)
{
    ChildReport(key, static_cast<unsigned long long>(value));
}
inline void ChildReport(const std::string& key, bool value) { ChildReport(key, value ? "true" : "false"); }
// Pointers as 0x followed by eight hex digits.
void ChildReport(const std::string& key, const void* value);

// Inside a child case: the arguments given to Run.
const std::vector<std::string>& ChildArgs();

using ChildCaseFunction = int (*)();
bool RegisterChildCase(const char* name, ChildCaseFunction function, const char* file, int line);

namespace detail {
// For the test program's main(): runs the case named by a --tavo-child=NAME argument and returns
// true with its exit code; false when the program was not started as a child.
bool RunChildIfAsked(int argc, char** argv, int& exitCode);
// Every case name registered once; prints the clashes otherwise.
bool ChildCasesAreUnique();
} // namespace detail

} // namespace tavo::test

// Registers the body that follows as the child case `name` (an identifier, unique in the program);
// the body returns the child's exit code.
#define TAVO_CHILD_CASE(name)                                                                                \
    static int TavoChildCase_##name();                                                                       \
    [[maybe_unused]] static const bool tavoChildCaseRegistered_##name =                                      \
        ::tavo::test::RegisterChildCase(#name, &TavoChildCase_##name, __FILE__, __LINE__);                   \
    static int TavoChildCase_##name()

#endif
