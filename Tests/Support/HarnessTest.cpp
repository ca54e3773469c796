// The test harness itself: import patches on this program's own imports, GetProcAddress overrides,
// and child cases in a scratch install.
#include "ChildProcess.h"
#include "ImportPatch.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

using namespace tavo::test;

namespace {

const DWORD kOuterTicks = 0x7a40c0de;
const DWORD kInnerTicks = 0x1badf00d;
DWORD WINAPI OuterGetTickCount() { return kOuterTicks; }
DWORD WINAPI InnerGetTickCount() { return kInnerTicks; }
int __cdecl HarnessAnswer() { return 42; }

using GetTickCountFn = decltype(&::GetTickCount);

// This program's own calls of the patched imports, each a function of its own: within one function
// the compiler reads an import slot once (it takes the slot for constant), so a patch made between
// two calls there would go unseen.
__attribute__((noipa)) DWORD Ticks() { return ::GetTickCount(); }
__attribute__((noipa)) FARPROC ProcAddress(HMODULE module, const char* name) { return ::GetProcAddress(module, name); }

std::string DirectoryOf(const std::string& path)
{
    return path.substr(0, std::min(path.find_last_of('\\'), path.size()));
}

std::string ProgramPath()
{
    char path[MAX_PATH] = {};
    return std::string(path, ::GetModuleFileNameA(NULL, path, MAX_PATH));
}

} // namespace

TEST(ImportPatch, IsSeenForItsScopeAndOverlappingPatchesRestoreInAnyOrder)
{
    const HMODULE self = ::GetModuleHandleA(NULL);
    {
        TAVO_PATCH_IMPORT(outer, self, "kernel32.DLL", GetTickCount, OuterGetTickCount);
        ASSERT_TRUE(outer.Patched());
        EXPECT_EQ(kOuterTicks, Ticks());
        ASSERT_NE(nullptr, outer.Original<GetTickCountFn>());
        EXPECT_NE(kOuterTicks, outer.Original<GetTickCountFn>()());
        {
            ScopedImportPatch inner(self, "KERNEL32.dll", "GetTickCount", &InnerGetTickCount);
            EXPECT_EQ(kInnerTicks, Ticks());
            EXPECT_EQ(kOuterTicks, inner.Original<GetTickCountFn>()());
        }
        EXPECT_EQ(kOuterTicks, Ticks());
    }
    EXPECT_NE(kOuterTicks, Ticks());

    // The first patch ends while the second is alive: the second then restores the real entry.
    std::optional<ScopedImportPatch> first, second;
    first.emplace(self, "KERNEL32.dll", "GetTickCount", &OuterGetTickCount);
    second.emplace(self, "KERNEL32.dll", "GetTickCount", &InnerGetTickCount);
    first.reset();
    EXPECT_EQ(kInnerTicks, Ticks());
    const DWORD real = second->Original<GetTickCountFn>()();
    EXPECT_TRUE(real != kOuterTicks && real != kInnerTicks) << real;
    second.reset();
    const DWORD after = Ticks();
    EXPECT_TRUE(after != kOuterTicks && after != kInnerTicks) << after;
}

TEST(ImportPatch, WhatCannotBeFoundFailsLoudly)
{
    const HMODULE self = ::GetModuleHandleA(NULL);
    EXPECT_NONFATAL_FAILURE(EXPECT_FALSE(ScopedImportPatch(self, "KERNEL32.dll", "TavoNoSuchFunction",
                                                           &OuterGetTickCount).Patched()),
                            "does not import TavoNoSuchFunction from KERNEL32.dll");
    EXPECT_NONFATAL_FAILURE(EXPECT_FALSE(ScopedImportPatch(self, "TavoNoSuch.dll", "GetTickCount",
                                                           &OuterGetTickCount).Patched()),
                            "imports nothing from TavoNoSuch.dll");
    EXPECT_NONFATAL_FAILURE(ScopedImportPatch(NULL, "KERNEL32.dll", "GetTickCount", &OuterGetTickCount), "required");
    EXPECT_NONFATAL_FAILURE(LoadedModule("TavoNoSuch.dll"), "TavoNoSuch.dll is not loaded");
}

TEST(ProcAddressOverride, AnswersRegisteredNamesAndForwardsTheRest)
{
    const HMODULE self = ::GetModuleHandleA(NULL);
    const HMODULE kernel = ::GetModuleHandleA("kernel32.dll");
    const FARPROC realPid = ProcAddress(kernel, "GetCurrentProcessId");
    ASSERT_NE(nullptr, realPid);
    {
        ScopedProcAddressOverride answer(self, "TavoHarnessAnswer", &HarnessAnswer);
        ScopedProcAddressOverride missing(self, "GetTickCount", nullptr);
        ASSERT_TRUE(answer.Patched() && missing.Patched());

        EXPECT_EQ(reinterpret_cast<const void*>(&HarnessAnswer),
                  reinterpret_cast<const void*>(ProcAddress(kernel, "TavoHarnessAnswer")));
        ::SetLastError(0xdeadbeef);
        EXPECT_EQ(nullptr, ProcAddress(kernel, "GetTickCount"));
        EXPECT_EQ(static_cast<DWORD>(ERROR_PROC_NOT_FOUND), ::GetLastError());
        EXPECT_EQ(realPid, ProcAddress(kernel, "GetCurrentProcessId"));
        {
            ScopedProcAddressOverride later(self, "TavoHarnessAnswer", nullptr);
            EXPECT_EQ(nullptr, ProcAddress(kernel, "TavoHarnessAnswer"));
        }
        EXPECT_NE(nullptr, ProcAddress(kernel, "TavoHarnessAnswer"));
    }
    EXPECT_EQ(nullptr, ProcAddress(kernel, "TavoHarnessAnswer"));
    EXPECT_NE(nullptr, ProcAddress(kernel, "GetTickCount"));
}

// Writes a megabyte first: a parent that reads the output only after the child ends would stall it.
TAVO_CHILD_CASE(ReportsItsSurroundings)
{
    const std::string block(1023, 'x');
    for (int i = 0; i < 1024; ++i) std::printf("%s\n", block.c_str());
    char dir[MAX_PATH] = {};
    ::GetCurrentDirectoryA(MAX_PATH, dir);
    ChildReport("cwd", dir);
    ChildReport("program", ProgramPath());
    const auto& args = ChildArgs();
    ChildReport("argc", args.size());
    for (size_t i = 0; i < args.size(); ++i) ChildReport("arg" + std::to_string(i), args[i]);
    ChildReport("multiline", "one\r\ntwo\\n");
    ChildReport("pointer", reinterpret_cast<const void*>(0x1234abcd));
    std::ostringstream config;
    config << std::ifstream("conf\\Product.cfg", std::ios::binary).rdbuf();
    ChildReport("config", config.str());
    return 7;
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
        EXPECT_NONFATAL_FAILURE(install.WriteFile("../tavo-escaped.txt", "x"), "not a file path below");
        EXPECT_NONFATAL_FAILURE(install.WriteFile("C:\\tavo-escaped.txt", "x"), "not a file path below");
        EXPECT_EQ(INVALID_FILE_ATTRIBUTES, ::GetFileAttributesA((DirectoryOf(path) + "\\tavo-escaped.txt").c_str()));
        EXPECT_NONFATAL_FAILURE(install.CopyFile("TavoNoSuchFile.dll", "x.dll"), "cannot copy");

        const ChildResult r = install.Run("ReportsItsSurroundings", {"plain", "two words", "quote\"and\\", ""});
        EXPECT_EQ(7u, r.exitCode) << r.output.substr(r.output.size() - std::min<size_t>(r.output.size(), 2000));
        EXPECT_LE(1024u * 1024u, r.output.size());
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
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, ::GetFileAttributesA(path.c_str())) << path;
}

// Fails in the way its argument names.
TAVO_CHILD_CASE(Misbehaves)
{
    const std::string how = ChildArgs().at(0);
    EXPECT_NE("assert", how) << "child marker";
    if (how == "raise") ::RaiseException(0xe0000001, 0, 0, NULL);
    if (how == "hang") ::Sleep(30000);
    return 0;
}

TEST(ChildProcess, FailuresInTheChildFailTheParent)
{
    ScratchInstall install;
    ChildResult r;
    EXPECT_NONFATAL_FAILURE(r = install.Run("Misbehaves", {"assert"}), "child marker");
    EXPECT_EQ(static_cast<DWORD>(kChildTestFailure), r.exitCode);
    EXPECT_NONFATAL_FAILURE(r = install.Run("Misbehaves", {"raise"}), "unhandled exception 0xe0000001");
    EXPECT_EQ(0xe0000001u, r.exitCode);
    install.SetTimeout(500);
    EXPECT_NONFATAL_FAILURE(r = install.Run("Misbehaves", {"hang"}), "did not finish within 500 ms");
    EXPECT_NONFATAL_FAILURE(install.Run("NoSuchCase"), "no child case named \"NoSuchCase\"");
}
