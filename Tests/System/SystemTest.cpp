// The OS code, WOW64 and the directory caches fill once per process, so each answer the platform is
// made to give is read by a fresh child; what does not cache is checked in this process.
#include <TavoCommon.h>
#include <CorvDebug.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "ChildProcess.h"
#include "ImportPatch.h"
#include "Recorder.h"

using tavo::test::ChildReport;
using tavo::test::RecordedLine;
using tavo::test::ScratchInstall;

namespace {

HMODULE Library() { return tavo::test::LoadedModule("TavoCommon.dll"); }

std::vector<std::string> TextsAtLevel(unsigned level)
{
    std::vector<std::string> texts;
    for (const RecordedLine& line : tavo::test::RecordedLines())
        if (line.level == level) texts.push_back(line.text);
    return texts;
}

// Independent of the library: Windows tells a WOW64 process the native architecture.
bool OnWow64() { return GetEnvironmentVariableA("PROCESSOR_ARCHITEW6432", nullptr, 0) != 0; }

OSVERSIONINFOEXA g_version;  // dwOSVersionInfoSize 0: the query fails
int g_versionCalls;
BOOL WINAPI FakeGetVersionExA(LPOSVERSIONINFOA pInfo)
{
    ++g_versionCalls;
    if (!g_version.dwOSVersionInfoSize) return SetLastError(ERROR_INVALID_PARAMETER), FALSE;
    memcpy(pInfo, &g_version, sizeof(g_version));
    return TRUE;
}

template <typename CHAR>
std::string g_search;  // "level/flags" of the last search of that width
template <typename CHAR>
HANDLE WINAPI FakeFindFirstFileEx(const CHAR*, FINDEX_INFO_LEVELS level, LPVOID, FINDEX_SEARCH_OPS, LPVOID, DWORD flags)
{
    g_search<CHAR> = std::to_string(level) + "/" + std::to_string(flags);
    return INVALID_HANDLE_VALUE;
}

// Args: none (the platform's own version), or "PLATFORM MAJOR MINOR SERVICEPACK" injected, or "fail".
TAVO_CHILD_CASE(OsProbe)
{
    const std::vector<std::string>& args = tavo::test::ChildArgs();
    if (args.size() == 4) {
        g_version.dwOSVersionInfoSize = sizeof(g_version);
        g_version.dwPlatformId = std::stoul(args[0]);
        g_version.dwMajorVersion = std::stoul(args[1]);
        g_version.dwMinorVersion = std::stoul(args[2]);
        g_version.wServicePackMajor = static_cast<WORD>(std::stoul(args[3]));
    }
    std::unique_ptr<tavo::test::ScopedImportPatch> version;
    if (!args.empty())
        version = std::make_unique<tavo::test::ScopedImportPatch>(Library(), "KERNEL32.dll", "GetVersionExA", &FakeGetVersionExA);
    TAVO_PATCH_IMPORT(findW, Library(), "KERNEL32.dll", FindFirstFileExW, FakeFindFirstFileEx<wchar_t>);
    TAVO_PATCH_IMPORT(findA, Library(), "KERNEL32.dll", FindFirstFileExA, FakeFindFirstFileEx<char>);

    int servicePack = 12345;
    const int os = Tavo::GetOS(&servicePack);
    std::string bits;
    for (bool b : {Tavo::IsXP(), Tavo::IsWinXPOrNewer(), Tavo::IsVista(), Tavo::IsWinVistaOrNewer(), Tavo::IsWin7(),
                   Tavo::IsWin7OrNewer(), Tavo::IsWin8(), Tavo::IsWin8OrNewer()})
        bits += b ? '1' : '0';
    ChildReport("os", std::to_string(os) + " sp " + std::to_string(servicePack) + " again " + std::to_string(Tavo::GetOS()));
    ChildReport("predicates", bits);
    ChildReport("versionCalls", g_versionCalls);
    std::string verify;
    for (const std::string& text : TextsAtLevel(TRACE_VERIFY)) verify += text + ";";
    ChildReport("verify", verify);
    WIN32_FIND_DATAW dataW;
    WIN32_FIND_DATAA dataA;
    Tavo::FindFirstFileW(L"C:\\*", &dataW);
    Tavo::FindFirstFileA("C:\\*", &dataA);
    ChildReport("search", g_search<wchar_t> + " " + g_search<char>);
    return 0;
}

// What the child must report for an OS code: the predicates ("XP, XP or newer, Vista, ...") and the
// search level and flags of both forms.
void ExpectProbe(const tavo::test::ChildResult& r, int os, int servicePack)
{
    ASSERT_EQ(0u, r.exitCode) << r.output;
    EXPECT_EQ(std::to_string(os) + " sp " + std::to_string(servicePack) + " again " + std::to_string(os), r.Value("os"));
    std::string bits;
    for (int code : {Tavo::OS_WINXP, Tavo::OS_VISTA, Tavo::OS_WIN7, Tavo::OS_WIN8})
        bits += std::string(1, os == code ? '1' : '0') + (os >= code ? '1' : '0');
    EXPECT_EQ(bits, r.Value("predicates"));
    const std::string search = os >= Tavo::OS_WIN7 ? "1/2" : "0/0";
    EXPECT_EQ(search + " " + search, r.Value("search"));
}

} // namespace

// The version is set for one program name that only this test runs, and removed afterwards.
TEST(OsVersion, CodeFollowsTheVersionThePlatformReports)
{
    const std::string exe = "TavoSysVersionProbe.exe", key = "Software\\Wine\\AppDefaults\\" + exe;
    // With the last service pack each version had.
    const std::tuple<const char*, int, int> rows[] = {
        {"winxp", Tavo::OS_WINXP, 3}, {"vista", Tavo::OS_VISTA, 2}, {"win7", Tavo::OS_WIN7, 1}, {"win8", Tavo::OS_WIN8, 0}};
    for (const auto& [version, os, servicePack] : rows) {
        SCOPED_TRACE(version);
        ASSERT_EQ(ERROR_SUCCESS, RegSetKeyValueA(HKEY_CURRENT_USER, key.c_str(), "Version", REG_SZ, version,
                                                 static_cast<DWORD>(strlen(version) + 1)));
        ScratchInstall install;
        install.SetProgramName(exe);
        const tavo::test::ChildResult r = install.Run("OsProbe");
        EXPECT_EQ(ERROR_SUCCESS, RegDeleteKeyA(HKEY_CURRENT_USER, key.c_str()));
        ExpectProbe(r, os, servicePack);
        EXPECT_EQ("", r.Value("verify"));
    }
}

TEST(OsVersion, CodeFromInjectedVersionAskedOnce)
{
    const struct {
        std::vector<std::string> args;
        int os, servicePack;
        const char* verify;
    } rows[] = {
        {{"2", "6", "3", "0"}, Tavo::OS_NEWER_THAN_WIN8, 0, ""},
        {{"2", "6", "4", "1"}, Tavo::OS_NEWER_THAN_WIN8, 1, ""},
        {{"2", "10", "0", "0"}, Tavo::OS_OTHER, 0, ""},
        {{"2", "5", "2", "2"}, Tavo::OS_WINXP, 2, ""},
        {{"2", "5", "0", "4"}, Tavo::OS_WIN2000, 4, ""},
        {{"1", "4", "10", "3"}, Tavo::OS_OTHER, -1, ""},
        {{"fail"}, Tavo::OS_OTHER, -1, "::GetVersionEx((LPOSVERSIONINFO)&ovi) - 87;"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.args.size() == 4 ? row.args[1] + "." + row.args[2] + " platform " + row.args[0] : row.args[0]);
        ScratchInstall install;
        const tavo::test::ChildResult r = install.Run("OsProbe", row.args);
        ExpectProbe(r, row.os, row.servicePack);
        EXPECT_EQ("1", r.Value("versionCalls"));
        EXPECT_EQ(row.verify, r.Value("verify"));
    }
}

TEST(Wow64, AnswersMatchTheKindOfWindows)
{
    const bool wow64 = OnWow64();
    EXPECT_EQ(wow64, Tavo::Is64BitWindows());
    EXPECT_EQ(wow64, Tavo::IsWow64Process());
    EXPECT_EQ(wow64, Tavo::IsWow64Process(GetCurrentProcess()));
    int flag = 7;
    EXPECT_NE(0, Tavo::IsWow64Process(GetCurrentProcess(), &flag));
    EXPECT_EQ(wow64 ? 1 : 0, flag);
}

TEST(Wow64, MissingEntriesGiveZeroAndOnlyTheQueryWarns)
{
    tavo::test::ScopedProcAddressOverride isWow64(Library(), "IsWow64Process", nullptr);
    tavo::test::ScopedProcAddressOverride disable(Library(), "Wow64DisableWow64FsRedirection", nullptr);
    tavo::test::ScopedProcAddressOverride revert(Library(), "Wow64RevertWow64FsRedirection", nullptr);
    tavo::test::ClearRecordedLines();
    int flag = 7;
    EXPECT_EQ(0, Tavo::IsWow64Process(GetCurrentProcess(), &flag));
    EXPECT_EQ(0, flag);
    EXPECT_FALSE(Tavo::IsWow64Process(GetCurrentProcess()));
    void* oldValue = &flag;
    EXPECT_EQ(0, Tavo::Wow64DisableWow64FsRedirection(&oldValue));
    EXPECT_EQ(&flag, oldValue);
    EXPECT_EQ(0, Tavo::Wow64RevertWow64FsRedirection(oldValue));
    EXPECT_EQ(std::vector<std::string>(2, "Could not find IsWow64Process"), TextsAtLevel(TRACE_WARNING));
    EXPECT_EQ(2u, tavo::test::RecordedLines().size());
}

TAVO_CHILD_CASE(CachedWow64WithoutEntry)
{
    tavo::test::ScopedProcAddressOverride isWow64(Library(), "IsWow64Process", nullptr);
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(Tavo::IsWow64Process());
        EXPECT_FALSE(Tavo::Is64BitWindows());
    }
    ChildReport("warnings", TextsAtLevel(TRACE_WARNING).size());
    return 0;
}

TEST(Wow64, CachedFormsWarnOnceBetweenThem)
{
    ScratchInstall install;
    const tavo::test::ChildResult r = install.Run("CachedWow64WithoutEntry");
    ASSERT_EQ(0u, r.exitCode) << r.output;
    EXPECT_EQ("1", r.Value("warnings"));
}

DWORD WINAPI FailingGetTempPathW(DWORD, LPWSTR) { return SetLastError(ERROR_ACCESS_DENIED), 0; }

TAVO_CHILD_CASE(FreshDirectories)
{
    {
        TAVO_PATCH_IMPORT(failing, Library(), "KERNEL32.dll", GetTempPathW, FailingGetTempPathW);
        EXPECT_STREQ(L"", Tavo::GetTempPathW());
    }
    EXPECT_EQ(std::vector<std::string>{"::GetTempPathW(_countof(szPath), szPath) - 5"}, TextsAtLevel(TRACE_VERIFY));
    wchar_t temp[MAX_PATH + 1] = {}, system[MAX_PATH] = {};
    GetTempPathW(MAX_PATH + 1, temp);
    EXPECT_STREQ(temp, Tavo::GetTempPathW()) << "a failure is asked again";

    // On 32-bit Windows the platform's own call fails; the library answers without a line.
    tavo::test::ClearRecordedLines();
    OnWow64() ? GetSystemWow64DirectoryW(system, MAX_PATH) : GetSystemDirectoryW(system, MAX_PATH);
    EXPECT_STREQ(system, Tavo::GetSystemWow64DirectoryW());
    EXPECT_STREQ(Tavo::GetSystemWow64DirectoryA(), Tavo::CStringA(system).GetString());
    EXPECT_EQ(0u, tavo::test::RecordedLines().size());
    return 0;
}

TEST(SystemDirectories, Wow64DirectoryFallsBackAndFailuresAreRetried)
{
    ScratchInstall install;
    const tavo::test::ChildResult r = install.Run("FreshDirectories");
    EXPECT_EQ(0u, r.exitCode) << r.output;
}

TEST(SystemDirectories, ComputerNameExKeepsOneEntryPerFormatAndRetriesRefusals)
{
    const wchar_t* netBios = Tavo::GetComputerNameExW(ComputerNameNetBIOS);
    const wchar_t* dnsHost = Tavo::GetComputerNameExW(ComputerNameDnsHostname);
    EXPECT_EQ(netBios, Tavo::GetComputerNameExW(ComputerNameNetBIOS));
    EXPECT_NE(netBios, dnsHost);
    EXPECT_STREQ(Tavo::GetComputerNameW(), netBios);
    EXPECT_STREQ(Tavo::GetComputerNameA(), Tavo::GetComputerNameExA(ComputerNameNetBIOS));

    const auto refused = static_cast<COMPUTER_NAME_FORMAT>(ComputerNameMax + 5);
    tavo::test::ClearRecordedLines();
    EXPECT_STREQ(L"", Tavo::GetComputerNameExW(refused));
    EXPECT_STREQ(L"", Tavo::GetComputerNameExW(refused));
    EXPECT_STREQ("", Tavo::GetComputerNameExA(refused));
    EXPECT_EQ(std::vector<std::string>(3, "GetComputerNameEx failed, GetLastError = 87"), TextsAtLevel(TRACE_ERROR));
}

TEST(SystemDirectories, TempFileNamesAreNewEmptyFiles)
{
    const std::wstring dir = Tavo::GetTempPathW();
    const std::wstring files[] = {Tavo::GetTempFileNameW().GetString(), Tavo::GetTempFileNameW().GetString(),
                                  Tavo::CStringW(Tavo::GetTempFileNameA()).GetString()};
    EXPECT_NE(files[0], files[1]);
    for (const std::wstring& file : files) {
        EXPECT_EQ(dir + L"bmr", file.substr(0, dir.size() + 3));
        WIN32_FILE_ATTRIBUTE_DATA data = {};
        EXPECT_TRUE(GetFileAttributesExW(file.c_str(), GetFileExInfoStandard, &data));
        EXPECT_EQ(0u, data.nFileSizeLow);
        EXPECT_TRUE(DeleteFileW(file.c_str()));
    }
}

TEST(FindFile, NothingFoundGivesInvalidHandleAndNoLine)
{
    const std::wstring missing = std::wstring(Tavo::GetTempPathW()) + L"tavo-no-such-dir-" + std::to_wstring(GetCurrentProcessId());
    tavo::test::ClearRecordedLines();
    WIN32_FIND_DATAW data;
    WIN32_FIND_DATAA dataA;
    EXPECT_EQ(INVALID_HANDLE_VALUE, Tavo::FindFirstFileW((missing + L"\\*").c_str(), &data));
    EXPECT_EQ(INVALID_HANDLE_VALUE, Tavo::FindFirstFileA((Tavo::CStringA(missing.c_str()) + "\\*").GetString(), &dataA));
    EXPECT_EQ(0u, tavo::test::RecordedLines().size());

    HANDLE found = Tavo::FindFirstFileW((std::wstring(Tavo::GetSystemDirectoryW()) + L"\\*.dll").c_str(), &data);
    ASSERT_NE(INVALID_HANDLE_VALUE, found);
    EXPECT_NE(L'\0', data.cFileName[0]);
    FindClose(found);
}
