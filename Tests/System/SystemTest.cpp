// System inspection. Caches fill once per process, so what the platform is made to answer is read by a fresh child;
// Wine fails the SSD queries and has no WMI faults on demand, so fakes patched into the library's imports answer.
#include <TavoCommon.h>

#include <objbase.h>
#include <wbemcli.h>

#include <gtest/gtest.h>

#include "ChildProcess.h"
#include "ImportPatch.h"
#include "Recorder.h"

using namespace tavo::test;

namespace {

bool OnWow64() { return GetEnvironmentVariableA("PROCESSOR_ARCHITEW6432", nullptr, 0) != 0; }  // as Windows tells it
std::string Hex(long hr) { char s[12]; return std::string(s, snprintf(s, sizeof s, "%#lx", hr)); }
std::string Narrow(const wchar_t* sz) { return sz ? std::string(Tavo::CStringA(sz)) : "(null)"; }
std::string Lines()  // "level|function|text" of each line recorded since the last call
{
    std::string s;
    for (const RecordedLine& l : RecordedLines()) s += Brief(l) + "\n";
    return ClearRecordedLines(), s;
}

// GetVersionExA answers the child's "PLATFORM MAJOR MINOR SERVICEPACK" once, fails for "fail", else asks the platform.
const ScopedImportPatch* g_version;
BOOL WINAPI FakeGetVersionExA(LPOSVERSIONINFOA p)
{
    static int calls;
    auto* v = reinterpret_cast<OSVERSIONINFOEXA*>(p);
    EXPECT_TRUE(++calls == 1 && v->dwOSVersionInfoSize == 0x9C);
    if (ChildArgs()[0] == "fail") return SetLastError(ERROR_INVALID_PARAMETER), FALSE;
    return sscanf(ChildArgs()[0].c_str(), "%lu %lu %lu %hu", &v->dwPlatformId, &v->dwMajorVersion, &v->dwMinorVersion,
                  &v->wServicePackMajor) == 4 || g_version->Original<decltype(&GetVersionExA)>()(p);
}
std::string g_search;  // "level/flags " of each search
template <typename CHAR>
HANDLE WINAPI FakeFindFirstFileEx(const CHAR*, FINDEX_INFO_LEVELS level, LPVOID, FINDEX_SEARCH_OPS, LPVOID, DWORD flags)
{
    return g_search += std::to_string(level) + "/" + std::to_string(flags) + " ", INVALID_HANDLE_VALUE;
}

// Reports the OS code and what follows; checks the WOW64 caches, which before NT (no IsWow64Process) see 32-bit Windows.
TAVO_CHILD_CASE(FreshProcess)
{
    const bool beforeNT = ChildArgs()[0][0] == '1', is64 = OnWow64() && !beforeNT;
    ScopedImportPatch version(Library(), "KERNEL32.dll", "GetVersionExA", &FakeGetVersionExA);
    ScopedProcAddressOverride isWow64(Library(), "IsWow64Process", beforeNT ? nullptr : GetProcAddress(GetModuleHandleA("kernel32"), "IsWow64Process"));
    TAVO_PATCH_IMPORT(findW, Library(), "KERNEL32.dll", FindFirstFileExW, FakeFindFirstFileEx<wchar_t>);
    TAVO_PATCH_IMPORT(findA, Library(), "KERNEL32.dll", FindFirstFileExA, FakeFindFirstFileEx<char>);
    int servicePack = 12345, code = (g_version = &version, Tavo::GetOS(&servicePack));
    std::string os = std::to_string(code) + " sp " + std::to_string(servicePack) + " ";
    for (bool b : {Tavo::IsXP(), Tavo::IsWinXPOrNewer(), Tavo::IsVista(), Tavo::IsWinVistaOrNewer(), Tavo::IsWin7(), Tavo::IsWin7OrNewer(),
                   Tavo::IsWin8(), Tavo::IsWin8OrNewer()})
        os += b ? '1' : '0';
    union { WIN32_FIND_DATAW w; WIN32_FIND_DATAA a; } data;
    Tavo::FindFirstFileW(L"C:\\*", &data.w), Tavo::FindFirstFileA("C:\\*", &data.a);
    ChildReport("os", os + " " + g_search + Lines());
    wchar_t system[MAX_PATH] = {};
    is64 ? GetSystemWow64DirectoryW(system, MAX_PATH) : GetSystemDirectoryW(system, MAX_PATH);
    for (int i = 0; i < 2; ++i) EXPECT_TRUE(Tavo::Is64BitWindows() == is64 && Tavo::IsWow64Process() == is64);
    EXPECT_EQ(Narrow(system) + "/" + Narrow(system), Narrow(Tavo::GetSystemWow64DirectoryW()) + "/" + Tavo::GetSystemWow64DirectoryA());
    EXPECT_EQ(beforeNT ? "64|Tavo::IsWow64Process|Could not find IsWow64Process\n" : "", Lines());
    return 0;
}

// The OS code at each threshold and past the ends, its service pack, predicates (XP, +, Vista, +, 7, +, 8, +), searches.
TEST(OsVersion, CodeFollowsTheVersionAskedOnce)
{
    const char* const rows[][2] = {
        {"1 6 1 3", "0 sp -1 00000000 0/0 0/0 "},  // not NT: the service pack stays unread
        {"2 4 0 6", "0 sp 6 00000000 0/0 0/0 "}, {"2 5 0 4", "1 sp 4 00000000 0/0 0/0 "}, {"2 5 1 3", "2 sp 3 11000000 0/0 0/0 "},
        {"2 5 2 2", "2 sp 2 11000000 0/0 0/0 "}, {"2 6 0 2", "3 sp 2 01110000 0/0 0/0 "}, {"2 6 1 1", "4 sp 1 01011100 1/2 1/2 "},
        {"2 6 2 0", "5 sp 0 01010111 1/2 1/2 "}, {"2 6 3 0", "6 sp 0 01010101 1/2 1/2 "}, {"2 6 4 1", "6 sp 1 01010101 1/2 1/2 "},
        {"2 10 0 0", "0 sp 0 00000000 0/0 0/0 "},  // 10.0 is not "6.3 and beyond"
        {"fail", "0 sp -1 00000000 0/0 0/0 1|Tavo::_GetOS|::GetVersionEx((LPOSVERSIONINFO)&ovi) - 87\n"},
        {"winxp", "2 sp 3 11000000 0/0 0/0 "},  // the platform's own answer, set for this row's program name only
    };
    const std::string exe = "TavoSysVersionProbe.exe", key = "Software\\Wine\\AppDefaults\\" + exe;
    for (const auto& row : rows) {
        ScratchInstall install;
        if (!strcmp(row[0], "winxp")) install.SetProgramName(exe), RegSetKeyValueA(HKEY_CURRENT_USER, key.c_str(), "Version", REG_SZ, "winxp", 6);
        const ChildResult r = install.Run("FreshProcess", {row[0]});
        RegDeleteKeyA(HKEY_CURRENT_USER, key.c_str());
        EXPECT_EQ(0u, r.exitCode) << r.output;
        EXPECT_EQ(row[1], r.Value("os")) << row[0];
    }
}

// A format's name is kept; a refused one gives "" and is asked again.
TEST(SystemDirectories, ComputerNamesPerFormat)
{
    const wchar_t* netBios = Tavo::GetComputerNameExW(ComputerNameNetBIOS);
    const auto refused = static_cast<COMPUTER_NAME_FORMAT>(ComputerNameMax + 5);
    EXPECT_TRUE(netBios == Tavo::GetComputerNameExW(ComputerNameNetBIOS) && netBios != Tavo::GetComputerNameExW(ComputerNameDnsHostname) &&
                !wcscmp(netBios, Tavo::GetComputerNameW()));
    Lines();
    EXPECT_TRUE(!*Tavo::GetComputerNameExW(refused) && !*Tavo::GetComputerNameExW(refused) && !*Tavo::GetComputerNameExA(refused));
    const std::string refusal = "|GetComputerNameEx failed, GetLastError = 87\n";
    EXPECT_EQ("128|Tavo::GetComputerNameExW" + refusal + "128|Tavo::GetComputerNameExW" + refusal + "128|Tavo::GetComputerNameExA" + refusal, Lines());
}

// SSD: the library's opens, requests and closes are answered here, and the requests checked byte by byte.
struct Disk {
    DWORD openError[2];      // of the volume's and the disk's open, 0 to succeed
    int extentsError;        // -1 to succeed, else the last error of its failure (0 included)
    int penalty, rotation;   // -1: that request fails; else IncursSeekPenalty, word 217
    std::wstring log = L"";  // per open its name past \\.\ (d: disk 12), ? wrong arguments, ! failed; E/P/A a request; c a close
} *g_disk;
HANDLE WINAPI FakeCreateFileW(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES sa, DWORD how, DWORD flags, HANDLE tmpl)
{
    const bool disk = !wcscmp(name, L"\\\\.\\physicaldrive12"), asked = access == 0xC0000000 && share == 3 && sa->nLength == 12 &&
        !sa->lpSecurityDescriptor && !sa->bInheritHandle && how == OPEN_EXISTING && flags == 0x80 && !tmpl && !wcsncmp(name, L"\\\\.\\", 4);
    g_disk->log += (disk ? L"d" : std::wstring(name + 4)) + (asked ? L"" : L"?") + (g_disk->openError[disk] ? L"!" : L"");
    return g_disk->openError[disk] ? (SetLastError(g_disk->openError[disk]), INVALID_HANDLE_VALUE) : reinterpret_cast<HANDLE>(0x100);
}
BOOL WINAPI FakeDeviceIoControl(HANDLE, DWORD code, LPVOID in, DWORD cbIn, LPVOID out, DWORD cbOut, LPDWORD, LPOVERLAPPED)
{
    auto *pbIn = static_cast<BYTE*>(in), *pbOut = static_cast<BYTE*>(out);
    const int answer = code == 0x560000 ? g_disk->extentsError : code == 0x2D1400 ? g_disk->penalty : g_disk->rotation;
    g_disk->log += code == 0x560000 ? L'E' : code == 0x2D1400 ? L'P' : L'A';
    if (code == 0x560000) return answer >= 0 || cbOut != 32 ? (SetLastError(answer), FALSE) : (pbOut[0] = 1, pbOut[8] = 12, TRUE);
    std::vector<BYTE> request(pbIn, pbIn + cbIn), query(12), ata(552);  // IDENTIFY DEVICE: 40-byte header, data in, 512 bytes, 30 s
    query[0] = 7, ata[0] = 40, ata[2] = 2, ata[9] = 2, ata[12] = 30, ata[20] = 40, ata[38] = 0xEC;
    EXPECT_TRUE(code == 0x2D1400 ? request == query && cbOut == 64 && !pbOut[8] : code == 0x4D02C && in == out && request == ata);
    if (answer < 0) return SetLastError(ERROR_NOT_SUPPORTED), FALSE;
    pbOut[code == 0x2D1400 ? 8 : 474] = static_cast<BYTE>(answer), pbOut[code == 0x2D1400 ? 9 : 475] = static_cast<BYTE>(answer >> 8);
    return TRUE;
}
BOOL WINAPI FakeCloseHandle(HANDLE h) { return g_disk->log += h == reinterpret_cast<HANDLE>(0x100) ? L'c' : L'?', TRUE; }
long DriveC() { return Tavo::IsDriveSSDW(L'C'); }

// Every road of the decision, each handle closed before the next open; string forms take the first character.
TEST(Ssd, DecisionFollowsTheDeviceAnswers)
{
    const std::string open = "128|Tavo::IsDriveSSDW|FAILED: hDrive = CreateFileW(strDrive, (0x80000000L) | (0x40000000L), "
                             "0x00000001 | 0x00000002, &sa, 3, 0x00000080, 0) - GetLastError = ";
    const std::string extents = "128|Tavo::IsDriveSSDW|FAILURE: DeviceIoControl(hDrive, IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, NULL, 0, "
                                "&vdeOutBuffer, sizeof(vdeOutBuffer), &dwBytesReturned, NULL) - ";
    const std::string penalty = "32|Tavo::IsDriveSSDW|Drive C has", invalid = "128|Tavo::IsDriveSSD";
    const struct { long (*call)(); Disk disk; long hr; const wchar_t* log; std::string line; } rows[] = {
        {DriveC, {{2, 0}, -1, -1, -1}, long(0x80070002), L"C:!", open + "2\n"},
        {DriveC, {{0, 5}, -1, -1, -1}, long(0x80070005), L"C:Ecd!", open + "5\n"},
        {DriveC, {{0, 0}, 50, -1, -1}, long(0x80070032), L"C:Ec", extents + "0x80070032\n"},
        {DriveC, {{0, 0}, 0, -1, -1}, long(0x8007001F), L"C:Ec", extents + "0x8007001f\n"},  // never read as an SSD
        {DriveC, {{0, 0}, -1, 1, -1}, S_FALSE, L"C:EcdPc", penalty + " seek penalty\n"},
        {DriveC, {{0, 0}, -1, 0x100, -1}, S_OK, L"C:EcdPc", penalty + " no seek penalty\n"},  // IncursSeekPenalty is one byte
        {DriveC, {{0, 0}, -1, -1, 1}, S_OK, L"C:EcdPAc", ""},
        {DriveC, {{0, 0}, -1, -1, 0}, S_FALSE, L"C:EcdPAc", ""},
        {DriveC, {{0, 0}, -1, -1, 0x101}, S_FALSE, L"C:EcdPAc", ""},
        {DriveC, {{0, 0}, -1, -1, -1}, S_FALSE, L"C:EcdPAc", "64|Tavo::IsDriveSSDW|Cannot tell if drive C is a SSD or not!\n"},
        {[] { return Tavo::IsDriveSSDW(static_cast<const wchar_t*>(nullptr)); }, {{0, 0}, 0, 0, 0}, E_POINTER, L"", invalid + "W|Invalid null pointer: szDrive\n"},
        {[] { return Tavo::IsDriveSSDA(""); }, {{0, 0}, 0, 0, 0}, E_INVALIDARG, L"", invalid + "A|Invalid string argument: szDrive\n"},
        {[] { return Tavo::IsDriveSSDW(L"q:\\x"); }, {{0, 0}, -1, -1, 1}, S_OK, L"q:EcdPAc", ""},
        {[] { return Tavo::IsDriveSSDA("e:\\x"); }, {{0, 0}, -1, -1, 1}, S_OK, L"e:EcdPAc", ""},
        {[] { return Tavo::IsDriveSSDA('\xE9'); }, {{2, 0}, 0, 0, 0}, long(0x80070002), L"\xFFE9:!", open + "2\n"},
    };
    TAVO_PATCH_IMPORT(create, Library(), "KERNEL32.dll", CreateFileW, FakeCreateFileW);
    TAVO_PATCH_IMPORT(control, Library(), "KERNEL32.dll", DeviceIoControl, FakeDeviceIoControl);
    TAVO_PATCH_IMPORT(close, Library(), "KERNEL32.dll", CloseHandle, FakeCloseHandle);
    for (const auto& row : rows) {
        Disk disk = row.disk;
        g_disk = &disk, Lines();
        const long hr = row.call();
        EXPECT_EQ(Hex(row.hr) + row.line, Hex(hr) + Lines()) << row.log;
        EXPECT_EQ(row.log, disk.log);
    }
}

// WMI: the fakes' virtual methods sit in the interfaces' slots; locator, context, services and enumerator share none.
enum Step { kLocator, kContext, kSetValue, kConnect, kBlanket, kExec, kGet, kChangeType, kNullFirst, kNone };
struct Wmi {
    const wchar_t* rows;            // a row per character, '0' null, '*' an array; null: no enumerator at all
    HRESULT end = WBEM_S_FALSE;     // Next's answer after the rows
    Step fail[2] = {kNone, kNone};  // the failing step of the first attempt and of the 64-bit one; injected: 0x80041010
    int attempts = 0, live = 0, next = 0;
    std::string log = "";           // namespace, +64 for the 64-bit provider's context, and query of each attempt
} *g_wmi;
HRESULT Hr(Step step) { return step != kNone && g_wmi->fail[g_wmi->attempts - 1] == step ? 0x80041010 : S_OK; }
template <typename T>
HRESULT Make(Step step, T* fake, void** out) { return SUCCEEDED(Hr(step)) ? (++g_wmi->live, *out = fake, S_OK) : (delete fake, Hr(step)); }
struct Row final {
    explicit Row(const wchar_t* c) : cell(c) {}
    const wchar_t* cell;  // its row of the script
    virtual void S0() {} virtual void S1() {} virtual ULONG WINAPI Release() { return --g_wmi->live, delete this, 0; } virtual void S3() {}
    virtual HRESULT WINAPI Get(LPCWSTR name, LONG, VARIANT* v, void*, void*)
    {
        v->vt = *cell == L'0' ? VT_NULL : *cell == L'*' ? VT_ARRAY | VT_I4 : VT_BSTR;
        if (v->vt == VT_BSTR) v->bstrVal = SysAllocStringLen(cell, 1);
        if (*cell == L'*') v->parray = SafeArrayCreateVector(VT_I4, 0, 2);
        return wcscmp(name, L"Name") ? E_INVALIDARG : Hr(kGet);
    }
};
struct Fake final {
    LONG architecture = 0;  // of a context
    virtual void S0() {} virtual void S1() {} virtual ULONG WINAPI Release() { return --g_wmi->live, delete this, 0; }
    virtual HRESULT WINAPI ConnectServer(BSTR ns, BSTR user, BSTR password, BSTR locale, LONG flags, BSTR authority, Fake* context, void** out)
    {
        g_wmi->log += Narrow(ns) + (context ? "+" + std::to_string(context->architecture) : "") + (user || password || locale || flags || authority ? "? " : " ");
        return Make(kConnect, new Fake, out);
    }
    virtual HRESULT WINAPI Next(LONG timeout, ULONG count, void** out, ULONG* returned)
    {
        *returned = timeout == -1 && count == 1 && g_wmi->rows[g_wmi->next];
        return *returned ? Make(kNone, new Row(g_wmi->rows + g_wmi->next++), out) : g_wmi->end;
    }
    virtual void S5() {} virtual void S6() {} virtual void S7() {}
    virtual HRESULT WINAPI SetValue(LPCWSTR name, LONG flags, VARIANT* v)
    {
        return architecture = !wcscmp(name, L"__ProviderArchitecture") && !flags && v->vt == VT_I4 ? v->lVal : -1, Hr(kSetValue);
    }
    virtual void S9() {} virtual void S10() {} virtual void S11() {} virtual void S12() {} virtual void S13() {} virtual void S14() {}
    virtual void S15() {} virtual void S16() {} virtual void S17() {} virtual void S18() {} virtual void S19() {}
    virtual HRESULT WINAPI ExecQuery(BSTR language, BSTR query, LONG flags, void* context, void** out)
    {
        g_wmi->log += Narrow(query) + (wcscmp(language, L"WQL") || flags != 0x30 || context ? "? " : " ");
        return g_wmi->rows ? (g_wmi->next = 0, Make(kExec, new Fake, out)) : S_OK;
    }
};
HRESULT WINAPI FakeCoCreateInstance(REFCLSID clsid, LPUNKNOWN, DWORD context, REFIID iid, LPVOID* out)
{
    const bool locator = IsEqualCLSID(clsid, __uuidof(WbemLocator)) && IsEqualIID(iid, __uuidof(IWbemLocator)), known = context == 1 &&
        (locator || (IsEqualCLSID(clsid, __uuidof(WbemContext)) && IsEqualIID(iid, __uuidof(IWbemContext))));  // in-process only
    return g_wmi->attempts += locator, known ? Make(locator ? kLocator : kContext, new Fake, out) : E_INVALIDARG;
}
HRESULT WINAPI FakeCoSetProxyBlanket(IUnknown*, DWORD authn, DWORD authz, OLECHAR* principal, DWORD level, DWORD imp,
                                     RPC_AUTH_IDENTITY_HANDLE identity, DWORD caps)
{
    return authn == 10 && !authz && !principal && level == 3 && imp == 3 && !identity && !caps ? Hr(kBlanket) : E_INVALIDARG;
}
template <typename F>
auto WithWmi(Wmi wmi, F f)  // the result and the log; every fake that f made must be released by its end
{
    TAVO_PATCH_IMPORT(create, Library(), "ole32.dll", CoCreateInstance, FakeCoCreateInstance);
    TAVO_PATCH_IMPORT(blanket, Library(), "ole32.dll", CoSetProxyBlanket, FakeCoSetProxyBlanket);
    g_wmi = &wmi, Lines();
    auto result = f();
    EXPECT_EQ(0, wmi.live) << "COM objects left unreleased";
    return std::make_pair(result, wmi.log);
}

// Rows joined by "|", a failure at any step its HRESULT and line; 64-bit Windows retries with the 64-bit provider.
TEST(QueryWMI, RowsAreJoinedAndEachFailureReported)
{
    const char* const texts[] = {
        "::CoCreateInstance(__uuidof(WbemLocator), 0, CLSCTX_INPROC_SERVER, __uuidof(IWbemLocator), (LPVOID*)&pWbemLocator)",
        "CoCreateInstance(__uuidof(WbemContext), NULL, CLSCTX_INPROC_SERVER, __uuidof(IWbemContext), (LPVOID*)&pWbemContext)",
        "pWbemContext->SetValue(L\"__ProviderArchitecture\", 0, &vt)",
        "pWbemLocator->ConnectServer(CComBSTR(szNamespace), NULL, NULL, 0, NULL, 0, pWbemContext, &pWbemServices)",
        "::CoSetProxyBlanket(pWbemServices, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, NULL, RPC_C_AUTHN_LEVEL_CALL, "
        "RPC_C_IMP_LEVEL_IMPERSONATE, NULL, EOAC_NONE)",
        "pWbemServices->ExecQuery(CComBSTR(\"WQL\"), CComBSTR(szQuery), WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, NULL, "
        "&pEnumWbemClassObject)",
        "pWbemClassObject->Get(szItem, 0, &vtProp, 0, 0)", "vtProp.ChangeType(VT_BSTR)", nullptr, nullptr};
    const struct { Wmi wmi; const char* joined; HRESULT hr = 0x80041010; } rows[] = {
        {{L"ABC"}, "A|B|C", S_OK}, {{L"A0C"}, "A||C", S_OK}, {{L"A0"}, "A|", S_OK}, {{L""}, "", S_OK}, {{nullptr}, "", S_OK},
        {{L"AB", HRESULT(WBEM_E_FAILED)}, "A|B", S_OK},  // the enumerator failing midway keeps what was read
        {{L"AB", S_OK}, "A|B", S_OK},                      // success without an object ends the walk
        {{L"0B", WBEM_S_FALSE, {kNullFirst, kNullFirst}}, "", HRESULT(0x800710D2)},
        {{L"A*", WBEM_S_FALSE, {kChangeType, kChangeType}}, "A", DISP_E_TYPEMISMATCH},
        {{L"A", WBEM_S_FALSE, {kLocator, kLocator}}, ""}, {{L"A", WBEM_S_FALSE, {kConnect, kConnect}}, ""},
        {{L"A", WBEM_S_FALSE, {kBlanket, kBlanket}}, ""}, {{L"A", WBEM_S_FALSE, {kExec, kExec}}, ""},
        {{L"A", WBEM_S_FALSE, {kGet, kGet}}, ""}, {{L"A", WBEM_S_FALSE, {kConnect, kContext}}, ""},
        {{L"A", WBEM_S_FALSE, {kConnect, kSetValue}}, ""},
    };
    for (const auto& row : rows) {
        const bool failed = FAILED(row.hr);
        char sz[7] = "######";
        wchar_t szW[7] = L"######";
        const auto buffer = WithWmi(row.wmi, [&] { return Tavo::QueryWMI("SELECT * FROM Thing", "Name", sz, 7, "ROOT\\TEST"); });
        const std::string lines = Lines(), hr = Hex(row.hr), text = failed ? "######" : row.joined;
        const long hrW = WithWmi(row.wmi, [&] { return Tavo::QueryWMI(L"q", L"Name", szW, 7, L"n"); }).first;
        const auto wide = WithWmi(row.wmi, [] { return Tavo::QueryWMI(L"SELECT * FROM Thing", L"Name", nullptr, L"D:"); });
        const auto narrow = WithWmi(row.wmi, [] { return Tavo::QueryWMI("SELECT * FROM Thing", "Name", "ROOT\\TEST", "d"); });
        std::string appended, expectedLines, logs[2];  // logs of the null namespace, of ROOT\TEST
        for (int i = 0; i < (failed && OnWow64() ? 2 : 1); ++i) {
            const Step step = row.wmi.fail[i];
            const std::string query = std::string(i ? "+64 " : " ") + (step >= kExec ? "SELECT * FROM Thing " : "");
            appended += row.joined;
            expectedLines += "32|Tavo::_QueryWMI|szQuery = SELECT * FROM Thing, szItem = Name, szNamespace = ROOT\\TEST)\n" +
                             (texts[step] ? "128|Tavo::_QueryWMI|FAILURE: " + std::string(texts[step]) + " - " + hr + "\n" : "");
            if (step >= kConnect) logs[0] += "(null)" + query, logs[1] += "ROOT\\TEST" + query;
        }
        if (failed)
            expectedLines += "128|Tavo::QueryWMI|FAILURE: Tavo::QueryWMI(A2CW(szQuery), A2CW(szItem), strTemp, A2CW(szNamespace)) - " + hr +
                             "\n128|Tavo::QueryWMI|FAILURE: Tavo::QueryWMI(szQuery, szItem, strValue, szNamespace) - " + hr + "\n";
        SCOPED_TRACE(row.joined + (" " + hr));
        EXPECT_EQ(hr + " " + text + " " + hr + " " + text, Hex(buffer.first) + " " + sz + " " + Hex(hrW) + " " + Narrow(szW));
        EXPECT_EQ("D:" + appended, Narrow(wide.first));                               // behind the wide default
        EXPECT_EQ(failed ? "d" : row.joined, std::string(narrow.first));              // replacing the narrow one
        EXPECT_EQ(expectedLines + logs[1], lines + buffer.second);
        EXPECT_EQ(logs[0] + logs[1], wide.second + narrow.second);
    }
}

} // namespace
