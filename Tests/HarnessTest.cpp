// The test harness itself: import patches on this program's own imports, GetProcAddress overrides,
// and child cases in a scratch install.
#include "ChildProcess.h"
#include "ImportPatch.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <optional>
#include <string>

using tavo::test::ChildReport;
using tavo::test::ChildResult;
using tavo::test::ScopedImportPatch;
using tavo::test::ScopedProcAddressOverride;
using tavo::test::ScratchInstall;

namespace {

const DWORD kOuterTicks = 0x7a40c0de;
const DWORD kInnerTicks = 0x1badf00d;
int g_outerCalls = 0;
int g_innerCalls = 0;

DWORD WINAPI OuterGetTickCount()
{
    ++g_outerCalls;
    return kOuterTicks;
}

DWORD WINAPI InnerGetTickCount()
{
    ++g_innerCalls;
    return kInnerTicks;
}

int __cdecl HarnessAnswer()
{
    return 42;
}

std::string DirectoryOf(const std::string& path)
{
    const size_t slash = path.find_last_of('\\');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

std::string ProgramPath()
{
    char path[MAX_PATH] = {};
    const DWORD n = ::GetModuleFileNameA(NULL, path, MAX_PATH);
    return n && n < MAX_PATH ? std::string(path, n) : std::string();
}

bool Exists(const std::string& path)
{
    return ::GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

} // namespace

TEST(ImportPatch, ReplacesOwnImportForItsScope)
{
    g_outerCalls = 0;
    {
        TAVO_PATCH_IMPORT(patch, ::GetModuleHandleA(NULL), "kernel32.DLL", GetTickCount, OuterGetTickCount);
        ASSERT_TRUE(patch.Patched());
        EXPECT_EQ(kOuterTicks, ::GetTickCount());
        EXPECT_EQ(1, g_outerCalls);
        const auto real = patch.Original<decltype(&::GetTickCount)>();
        ASSERT_NE(nullptr, real);
        EXPECT_NE(kOuterTicks, real());
        EXPECT_EQ(1, g_outerCalls);
    }
    EXPECT_NE(kOuterTicks, ::GetTickCount());
    EXPECT_EQ(1, g_outerCalls);
}

TEST(ImportPatch, OverlappingPatchesRestoreInAnyOrder)
{
    const HMODULE self = ::GetModuleHandleA(NULL);
    {
        ScopedImportPatch outer(self, "KERNEL32.dll", "GetTickCount", &OuterGetTickCount);
        {
            ScopedImportPatch inner(self, "KERNEL32.dll", "GetTickCount", &InnerGetTickCount);
            EXPECT_EQ(kInnerTicks, ::GetTickCount());
            EXPECT_EQ(kOuterTicks, inner.Original<decltype(&::GetTickCount)>()());
        }
        EXPECT_EQ(kOuterTicks, ::GetTickCount());
    }
    EXPECT_NE(kOuterTicks, ::GetTickCount());

    // The first patch ends while the second is alive: the second then restores the real entry.
    std::optional<ScopedImportPatch> first, second;
    first.emplace(self, "KERNEL32.dll", "GetTickCount", &OuterGetTickCount);
    second.emplace(self, "KERNEL32.dll", "GetTickCount", &InnerGetTickCount);
    first.reset();
    EXPECT_EQ(kInnerTicks, ::GetTickCount());
    const DWORD real = second->Original<decltype(&::GetTickCount)>()();
    EXPECT_NE(kOuterTicks, real);
    EXPECT_NE(kInnerTicks, real);
    second.reset();
    const DWORD after = ::GetTickCount();
    EXPECT_NE(kOuterTicks, after);
    EXPECT_NE(kInnerTicks, after);
}

TEST(ImportPatch, WhatCannotBeFoundFailsLoudly)
{
    const HMODULE self = ::GetModuleHandleA(NULL);
    EXPECT_NONFATAL_FAILURE(
        {
            ScopedImportPatch patch(self, "KERNEL32.dll", "TavoNoSuchFunction", &OuterGetTickCount);
            EXPECT_FALSE(patch.Patched());
        },
        "does not import TavoNoSuchFunction from KERNEL32.dll");
    EXPECT_NONFATAL_FAILURE(
        {
            ScopedImportPatch patch(self, "TavoNoSuch.dll", "GetTickCount", &OuterGetTickCount);
            EXPECT_FALSE(patch.Patched());
        },
        "imports nothing from TavoNoSuch.dll");
    EXPECT_NONFATAL_FAILURE(ScopedImportPatch(NULL, "KERNEL32.dll", "GetTickCount", &OuterGetTickCount), "required");
    EXPECT_NONFATAL_FAILURE(tavo::test::LoadedModule("TavoNoSuch.dll"), "TavoNoSuch.dll is not loaded");
}

TEST(ProcAddressOverride, AnswersRegisteredNamesAndForwardsTheRest)
{
    const HMODULE self = ::GetModuleHandleA(NULL);
    const HMODULE kernel = ::GetModuleHandleA("kernel32.dll");
    ASSERT_NE(nullptr, kernel);
    const FARPROC realPid = ::GetProcAddress(kernel, "GetCurrentProcessId");
    ASSERT_NE(nullptr, realPid);
    {
        ScopedProcAddressOverride answer(self, "TavoHarnessAnswer", &HarnessAnswer);
        ScopedProcAddressOverride missing(self, "GetTickCount", nullptr);
        ASSERT_TRUE(answer.Patched());
        ASSERT_TRUE(missing.Patched());

        EXPECT_EQ(reinterpret_cast<const void*>(&HarnessAnswer),
                  reinterpret_cast<const void*>(::GetProcAddress(kernel, "TavoHarnessAnswer")));
        ::SetLastError(0xdeadbeef);
        EXPECT_EQ(nullptr, ::GetProcAddress(kernel, "GetTickCount"));
        EXPECT_EQ(static_cast<DWORD>(ERROR_PROC_NOT_FOUND), ::GetLastError());
        EXPECT_EQ(realPid, ::GetProcAddress(kernel, "GetCurrentProcessId"));
        {
            ScopedProcAddressOverride later(self, "TavoHarnessAnswer", nullptr);
            EXPECT_EQ(nullptr, ::GetProcAddress(kernel, "TavoHarnessAnswer"));
        }
        EXPECT_NE(nullptr, ::GetProcAddress(kernel, "TavoHarnessAnswer"));
    }
    EXPECT_EQ(nullptr, ::GetProcAddress(kernel, "TavoHarnessAnswer"));
    EXPECT_NE(nullptr, ::GetProcAddress(kernel, "GetTickCount"));
}

// --- child processes -----------------------------------------------------------------------------

TAVO_CHILD_CASE(ReportsItsSurroundings)
{
    char dir[MAX_PATH] = {};
    ::GetCurrentDirectoryA(MAX_PATH, dir);
    ChildReport("cwd", dir);
    ChildReport("program", ProgramPath());
    const auto& args = tavo::test::ChildArgs();
    ChildReport("argc", args.size());
    for (size_t i = 0; i < args.size(); ++i) ChildReport("arg" + std::to_string(i), args[i]);
    ChildReport("multiline", "one\r\ntwo\\n");
    ChildReport("pointer", reinterpret_cast<const void*>(0x1234abcd));

    std::string content;
    if (FILE* f = std::fopen("conf\\Product.cfg", "rb")) {
        char buffer[256];
        content.assign(buffer, std::fread(buffer, 1, sizeof(buffer), f));
        std::fclose(f);
    }
    ChildReport("config", content);
    return 7;
}

TAVO_CHILD_CASE(WritesALot)
{
    const std::string block(1023, 'x');
    for (int i = 0; i < 1024; ++i) std::printf("%s\n", block.c_str());
    ChildReport("done", true);
    return 0;
}

TAVO_CHILD_CASE(FailsAnAssertion)
{
    EXPECT_EQ(1, 2) << "child marker";
    return 0;
}

TAVO_CHILD_CASE(RaisesAnException)
{
    ::RaiseException(0xe0000001, 0, 0, NULL);
    return 0;
}

TAVO_CHILD_CASE(Hangs)
{
    ::Sleep(30000);
    return 0;
}

TEST(ChildProcess, RunsInTheScratchInstallAndReportsBack)
{
    std::string path;
    {
        ScratchInstall install;
        path = install.Path();
        ASSERT_FALSE(path.empty());
        EXPECT_NE(0, ::lstrcmpiA(path.c_str(), DirectoryOf(ProgramPath()).c_str()));
        install.WriteFile("conf/Product.cfg", "Company=Example\n");

        const ChildResult r = install.Run("ReportsItsSurroundings", {"plain", "two words", "quote\"and\\", ""});
        EXPECT_EQ(7u, r.exitCode) << r.output;
        EXPECT_EQ(0, ::lstrcmpiA(path.c_str(), r.Value("cwd").c_str())) << r.Value("cwd");
        EXPECT_EQ(0, ::lstrcmpiA(path.c_str(), DirectoryOf(r.Value("program")).c_str())) << r.Value("program");
        EXPECT_EQ("4", r.Value("argc"));
        EXPECT_EQ("plain", r.Value("arg0"));
        EXPECT_EQ("two words", r.Value("arg1"));
        EXPECT_EQ("quote\"and\\", r.Value("arg2"));
        EXPECT_EQ("", r.Value("arg3"));
        EXPECT_EQ("one\r\ntwo\\n", r.Value("multiline"));
        EXPECT_EQ("0x1234abcd", r.Value("pointer"));
        EXPECT_EQ("Company=Example\n", r.Value("config"));
        EXPECT_NONFATAL_FAILURE(r.Value("absent"), "no \"absent\"");
    }
    EXPECT_FALSE(Exists(path)) << path;
}

TEST(ChildProcess, LargeOutputDoesNotStallTheChild)
{
    ScratchInstall install;
    const ChildResult r = install.Run("WritesALot");
    EXPECT_EQ(0u, r.exitCode);
    EXPECT_EQ("true", r.Value("done"));
    EXPECT_LE(1024u * 1024u, r.output.size());
}

TEST(ChildProcess, FailuresInTheChildFailTheParent)
{
    ScratchInstall install;
    ChildResult r;
    EXPECT_NONFATAL_FAILURE(r = install.Run("FailsAnAssertion"), "child marker");
    EXPECT_EQ(static_cast<DWORD>(tavo::test::kChildTestFailure), r.exitCode);

    EXPECT_NONFATAL_FAILURE(r = install.Run("RaisesAnException"), "unhandled exception 0xe0000001");
    EXPECT_EQ(0xe0000001u, r.exitCode);

    install.SetTimeout(500);
    EXPECT_NONFATAL_FAILURE(r = install.Run("Hangs"), "did not finish within 500 ms");

    EXPECT_NONFATAL_FAILURE(install.Run("NoSuchCase"), "no child case named \"NoSuchCase\"");
}

TEST(ChildProcess, PathsStayBelowTheScratchDirectory)
{
    ScratchInstall install;
    const std::string parent = DirectoryOf(install.Path());
    EXPECT_NONFATAL_FAILURE(install.WriteFile("../tavo-escaped.txt", "x"), "not a file path below");
    EXPECT_NONFATAL_FAILURE(install.WriteFile("C:\\tavo-escaped.txt", "x"), "not a file path below");
    EXPECT_NONFATAL_FAILURE(install.WriteFile("", "x"), "not a file path below");
    EXPECT_NONFATAL_FAILURE(install.CopyFile("TavoNoSuchFile.dll", "x.dll"), "cannot copy");
    EXPECT_FALSE(Exists(parent + "\\tavo-escaped.txt"));

    install.WithoutSink();
    EXPECT_FALSE(Exists(install.Path() + "\\CorvDebug.dll"));
}
