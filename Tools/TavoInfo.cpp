// tavoinfo: prints what TavoCommon.dll reports on this machine, one section per family.
//   tavoinfo [--trace] [--lang-test MODULE ID] [--run "COMMAND LINE"]
// --lang-test prints string ID of MODULE as the library loads it, language file first, so that a
// translator can check a language file without running the program. --trace sends the library's diagnostic lines (through CorvDebug.dll) to standard error, unless
// CORVDEBUG_FILE already says where they go. --run starts COMMAND LINE as the logged-on user, waits for
// it and prints its exit code, with the launcher's numbered steps on the channel.
#include <TavoCommon.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

namespace {

void Field(const char* szName, const wchar_t* szValue)
{
    printf("  %-18s %ls\n", szName, szValue && *szValue ? szValue : L"(empty)");
}

void Section(const char* szTitle) { printf("\n%s\n", szTitle); }

// Given as the default, it tells an absent key from a present one (an empty value included).
const wchar_t kAbsent[] = L"\x01(absent)";

// A key of Product.cfg: its value, or "(default)" behind the library's default.
Tavo::CStringW ConfigValue(const wchar_t* szKey, const wchar_t* szSection, const Tavo::CStringW& strDefault)
{
    const Tavo::CStringW strValue = Tavo::GetConfigString(szKey, kAbsent, szSection);
    return strValue == kAbsent ? strDefault + L" (default)" : strValue;
}

// A yes-or-no key: the reading, with the text it came from.
Tavo::CStringW ConfigBool(const wchar_t* szKey, const wchar_t* szSection, BOOL bDefault)
{
    const Tavo::CStringW strValue = Tavo::GetConfigString(szKey, kAbsent, szSection);
    const wchar_t* szReading = Tavo::GetConfigBOOL(szKey, bDefault, szSection) ? L"yes" : L"no";
    if (strValue == kAbsent) return Tavo::CStringW(szReading) + L" (default)";
    return Tavo::CStringW(szReading) + L" (\"" + strValue + L"\")";
}

void ProductSection()
{
    Section("Product");
    Field("Company", Tavo::GetCompanyW());
    Field("CompanyName", Tavo::GetCompanyNameW());
    Field("Product", Tavo::GetProductW());
    Field("ProductName", Tavo::GetProductNameW());
    Field("ShortcutName", Tavo::GetShortcutNameW());
}

// Asking for a data directory or a special folder creates it, as it does for any program.
void LocationsSection()
{
    Section("Locations");
    Field("Install", Tavo::GetInstallDirectoryW());
    Field("UserData", Tavo::GetUserDataDirectoryW());
    Field("AppData", Tavo::GetAppDataDirectoryW());
    Field("InterAppData", Tavo::GetInterAppDataDirectoryW());
    Field("HelpFile", Tavo::GetHelpFilePathW());
    Field("MainExe", Tavo::GetMainExeFileW());
    Field("MainExePath", Tavo::GetMainExePathW());
    Field("RegistryKey", Tavo::GetMainRegistryKeyW());
    const wchar_t* szAppData = Tavo::GetSpecialFolderW(26, nullptr);
    Field("Folder 26", szAppData ? szAppData : L"(refused by the shell)");
    const wchar_t* szCommonAppData = Tavo::GetSpecialFolderW(35, nullptr);
    Field("Folder 35", szCommonAppData ? szCommonAppData : L"(refused by the shell)");
}

// The library keeps its language code to itself; it is the ISO 639 name of the first calling
// thread's locale, which this program's main thread is.
void LanguageSection()
{
    Section("Language");
    wchar_t szCode[32] = {};
    GetLocaleInfoW(GetThreadLocale(), LOCALE_SISO639LANGNAME, szCode, 32);
    szCode[31] = 0;
    const Tavo::CStringW strFile =
        Tavo::PathCombineW(Tavo::GetInstallDirectoryW(), Tavo::CStringW(L"Language.") + szCode + L".lng");
    Field("Code", szCode);
    Field("File", strFile);
    Field("Exists", GetFileAttributesW(strFile) != INVALID_FILE_ATTRIBUTES ? L"yes" : L"no (string tables are used)");
}

// Samples under the user's regional settings. The formatters do no zone arithmetic, so the local
// clock is shown from the local reading of the time value.
void FormatsSection()
{
    Section("Formats");
    const Tavo::Time tUniversal = Tavo::GetUniversalTime();
    const Tavo::Time tLocal = Tavo::UniversalToLocalTime(tUniversal);
    Field("Now (UTC)", Tavo::FormatStringW(L"%ls (%I64d)", Tavo::FormatDateTimeW(tUniversal, true).GetString(), tUniversal));
    Field("Now (local)", Tavo::FormatStringW(L"%ls (%I64d)", Tavo::FormatDateTimeW(tLocal, true).GetString(), tLocal));
    Field("Today (local)", Tavo::FormatDateW(Tavo::GetToday(true), false));
    Field("Date, short", Tavo::FormatDateW(tLocal, false));
    Field("Date, long", Tavo::FormatDateW(tLocal, true));
    Field("Time", Tavo::FormatTimeW(tLocal, true));
    Field("Time, no seconds", Tavo::FormatTimeW(tLocal, false));
    Field("Date and time", Tavo::FormatDateTimeW(tLocal, false));
    Field("Number", Tavo::FormatNumberW(static_cast<__int64>(-1234567)));
    Field("Number, 2 places", Tavo::FormatNumberW(1234567.891, 2));
    Field("Bytes", Tavo::FormatBytesW(1023));
    Field("Bytes, KB", Tavo::FormatBytesW(1536));
    Field("Bytes, GB", Tavo::FormatBytesW(5368709120ULL));
    Field("Version", Tavo::FormatVersionW(0x0001000200030004ULL, 4));
}

// Mapped as an image without running its code, so that its file name (the language file's section)
// is known; a file the loader refuses as an image is opened as data, where the section is unknown.
int LanguageTest(const char* szModule, const char* szId)
{
    char* pEnd = nullptr;
    const unsigned long uID = strtoul(szId, &pEnd, 10);
    if (!*szId || *pEnd) return -1;
    const Tavo::CStringW strModule(szModule);
    HMODULE hModule = LoadLibraryExW(strModule, nullptr, DONT_RESOLVE_DLL_REFERENCES);
    if (!hModule) hModule = LoadLibraryExW(strModule, nullptr, LOAD_LIBRARY_AS_DATAFILE);
    if (!hModule) {
        fprintf(stderr, "tavoinfo: cannot load %s (error %lu)\n", szModule, GetLastError());
        return 1;
    }
    const Tavo::CStringW strText = Tavo::LoadStringW(static_cast<UINT>(uID), hModule);
    printf("%lu %ls\n", uID, strText.IsEmpty() ? L"(no such string)" : strText.GetString());
    FreeLibrary(hModule);
    return 0;
}

void ConfigurationSection(HMODULE hLibrary)
{
    Section("Configuration");
    const Tavo::CStringW strFile = Tavo::PathCombineW(Tavo::GetModulePathNameW(hLibrary), L"Product.cfg");
    Field("File", strFile);
    Field("Exists", GetFileAttributesW(strFile) != INVALID_FILE_ATTRIBUTES ? L"yes" : L"no (every key has its default)");

    const Tavo::CStringW strCompany = ConfigValue(L"Company", L"Config", L"Brenmoor");
    const Tavo::CStringW strProduct = ConfigValue(L"Product", L"Config", L"Harbell");
    // The defaults that are built from the company and the product take their values as read.
    const Tavo::CStringW strCompanyValue = Tavo::GetConfigString(L"Company", L"Brenmoor", L"Config");
    const Tavo::CStringW strProductValue = Tavo::GetConfigString(L"Product", L"Harbell", L"Config");
    const Tavo::CStringW strCompanyProduct = Tavo::PathCombineW(strCompanyValue, strProductValue);
    Field("Company", strCompany);
    Field("CompanyName", ConfigValue(L"CompanyName", L"Config", L"Brenmoor Software"));
    Field("Product", strProduct);
    Field("ProductName", ConfigValue(L"ProductName", L"Config", L"Harbell Professional"));
    Field("ShortcutName", ConfigValue(L"ShortcutName", L"Config", L"Harbell Professional.lnk"));
    Field("AppDataPath", ConfigValue(L"AppDataPath", L"Config", strCompanyProduct));
    Field("InterAppDataPath", ConfigValue(L"InterAppDataPath", L"Config", Tavo::PathCombineW(strCompanyValue, L"Common")));
    Field("HelpFile", ConfigValue(L"HelpFile", L"Config", strProductValue + L".chm"));
    Field("MainExe", ConfigValue(L"MainExe", L"Config", strProductValue + L".exe"));
    Field("RegKey", ConfigValue(L"RegKey", L"Config", strCompanyProduct));
    Field("IsPortable", ConfigBool(L"IsPortable", L"CONFIG", FALSE));
    Field("UseOnlineHelp", ConfigBool(L"UseOnlineHelp", L"Config", TRUE));
    Field("[URL] Help", ConfigValue(L"Help", L"URL", Tavo::CStringW(TAVO_DEFAULT_HELP_ADDRESS)));
}

const wchar_t* OsName(int nOS)
{
    switch (nOS) {
    case Tavo::OS_WIN2000: return L"Windows 2000";
    case Tavo::OS_WINXP: return L"Windows XP";
    case Tavo::OS_VISTA: return L"Windows Vista";
    case Tavo::OS_WIN7: return L"Windows 7";
    case Tavo::OS_WIN8: return L"Windows 8";
    case Tavo::OS_NEWER_THAN_WIN8: return L"newer than Windows 8";
    default: return L"other";
    }
}

// What the library learns of this machine's Windows.
void SystemSection()
{
    Section("System");
    int nServicePack = -1;
    const int nOS = Tavo::GetOS(&nServicePack);
    Field("OS", Tavo::FormatStringW(L"%d (%ls)", nOS, OsName(nOS)));
    Field("Service pack", nServicePack < 0 ? L"none (not NT)" : Tavo::FormatStringW(L"%d", nServicePack).GetString());
    Field("64-bit Windows", Tavo::Is64BitWindows() ? L"yes" : L"no");
    Field("WOW64 process", Tavo::IsWow64Process() ? L"yes" : L"no");
    Field("Windows", Tavo::GetWindowsDirectoryW());
    Field("System", Tavo::GetSystemDirectoryW());
    Field("System (WOW64)", Tavo::GetSystemWow64DirectoryW());
    Field("Temp", Tavo::GetTempPathW());
    Field("Computer", Tavo::GetComputerNameW());
    Field("DNS host", Tavo::GetComputerNameExW(ComputerNameDnsHostname));
    Field("DNS domain", Tavo::GetComputerNameExW(ComputerNameDnsDomain));
    Field("DNS full name", Tavo::GetComputerNameExW(ComputerNameDnsFullyQualified));
    Field("Physical NetBIOS", Tavo::GetComputerNameExW(ComputerNamePhysicalNetBIOS));
    // Platform name from WMI: added with the WMI family.
    Field("Platform (WMI)", Tavo::GetWindowsPlatformW());
}

// Each fixed drive letter with its SSD answer. Opening a disk needs administrator rights on Windows, and
// Wine answers no storage query: then the reason is shown.
void DrivesSection()
{
    Section("Drives");
    const DWORD dwDrives = GetLogicalDrives();
    for (int i = 0; i < 26; ++i) {
        if (!(dwDrives & (1u << i))) continue;
        const wchar_t szRoot[] = {static_cast<wchar_t>(L'A' + i), L':', L'\\', 0};
        if (GetDriveTypeW(szRoot) != DRIVE_FIXED) continue;
        const long hr = Tavo::IsDriveSSDW(szRoot[0]);
        const char szName[] = {static_cast<char>('A' + i), ':', 0};
        if (hr == S_OK)
            Field(szName, L"SSD");
        else if (hr == S_FALSE)
            Field(szName, L"not an SSD, or nothing could tell");
        else
            Field(szName, Tavo::CStringW(L"cannot tell: ") + Tavo::FormatErrorW(static_cast<unsigned long>(hr)).TrimRight());
    }
}

// This process's session and the user's.
void SessionSection()
{
    Section("Session");
    wchar_t sz[64];
    DWORD dwSession = 0;
    if (ProcessIdToSessionId(GetCurrentProcessId(), &dwSession))
        swprintf(sz, 64, L"%lu", dwSession);
    else
        swprintf(sz, 64, L"unknown (error %lu)", GetLastError());
    Field("This process", sz);
    const DWORD dwConsole = WTSGetActiveConsoleSessionId();
    swprintf(sz, 64, L"%lu", dwConsole);
    Field("Console", sz);
    // Bound at run time, as the launcher binds it: a system without it has no user token to give.
    typedef BOOL(WINAPI * PFN_WTSQueryUserToken)(ULONG, PHANDLE);
    HMODULE hWts = LoadLibraryW(L"wtsapi32.dll");
    void* pvQuery = hWts ? reinterpret_cast<void*>(GetProcAddress(hWts, "WTSQueryUserToken")) : nullptr;
    const PFN_WTSQueryUserToken pfnQuery = reinterpret_cast<PFN_WTSQueryUserToken>(pvQuery);
    HANDLE hToken = nullptr;
    if (!pfnQuery)
        swprintf(sz, 64, L"not available");
    else if (pfnQuery(dwConsole, &hToken))
        swprintf(sz, 64, L"yes");
    else
        swprintf(sz, 64, L"no (error %lu)", GetLastError());
    Field("User token", sz);
    if (hToken) CloseHandle(hToken);
    if (hWts) FreeLibrary(hWts);
    Field("Main window", Tavo::GetMainAppWindow() ? L"up" : L"not found");
}

// --run: the launcher as a support engineer tries it; its numbered steps go to the channel.
int RunAsUser(const char* szCommandLine)
{
    unsigned long dwExitCode = 0;
    const bool bStarted = Tavo::RunAsLoggedOnUser_2012(dwExitCode, nullptr, szCommandLine, nullptr, INFINITE, TRUE);
    printf("Started: %s\nExit code: %lu\n", bStarted ? "yes" : "no", dwExitCode);
    return bStarted ? 0 : 1;
}

int Usage()
{
    fprintf(stderr, "usage: tavoinfo [--trace] [--lang-test MODULE ID] [--run \"COMMAND LINE\"]\n");
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    const char* szTestModule = nullptr;
    const char* szTestId = nullptr;
    const char* szRun = nullptr;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--trace") == 0) {
            if (!GetEnvironmentVariableA("CORVDEBUG_FILE", nullptr, 0)) SetEnvironmentVariableA("CORVDEBUG_FILE", "-");
        } else if (strcmp(argv[i], "--run") == 0 && i + 1 < argc) {
            szRun = argv[++i];
            if (!GetEnvironmentVariableA("CORVDEBUG_FILE", nullptr, 0)) SetEnvironmentVariableA("CORVDEBUG_FILE", "-");
        } else if (strcmp(argv[i], "--lang-test") == 0 && i + 2 < argc) {
            szTestModule = argv[++i];
            szTestId = argv[++i];
        } else {
            return Usage();
        }
    }

    try {
        if (szRun) return RunAsUser(szRun);
        if (szTestModule) {
            const int nResult = LanguageTest(szTestModule, szTestId);
            return nResult < 0 ? Usage() : nResult;
        }
        HMODULE hLibrary = GetModuleHandleW(L"TavoCommon.dll");
        printf("TavoCommon %ls\n", Tavo::GetLibraryVersionW());

        Section("Library");
        Field("Version", Tavo::GetLibraryVersionW());
        Field("File", Tavo::GetModuleFileNameW(hLibrary));
        Field("Directory", Tavo::GetModulePathNameW(hLibrary));
        Field("Program", Tavo::GetModuleFileNameW(nullptr));

        ProductSection();
        LocationsSection();
        LanguageSection();
        FormatsSection();
        ConfigurationSection(hLibrary);
        SystemSection();
        DrivesSection();
        SessionSection();

        Section("Diagnostic channel");
        HMODULE hSink = GetModuleHandleW(L"CorvDebug.dll");
        Field("CorvDebug.dll", hSink ? Tavo::GetModuleFileNameW(hSink).GetString()
                                     : L"not loaded (the library loads it at its first line)");
    } catch (const Tavo::CAtlException& e) {
        fprintf(stderr, "tavoinfo: the library threw CAtlException %#lx\n", static_cast<unsigned long>(e.m_hr));
        return 1;
    }
    return 0;
}
