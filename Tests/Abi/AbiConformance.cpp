// A program of the Microsoft ABI, as one built with Microsoft's compiler would be, using what crosses
// the boundary of the Microsoft-ABI TavoCommon.dll: cached pointers, string values returned and
// then owned by the caller, an exception thrown inside the library, an array on the library's heap,
// the header-only handle owner, and a diagnostic line reaching the recorder CorvDebug.dll beside it.
// No C++ standard library and no start-up code: it prints one line per failed check, then
// "N passed, M failed", and exits with the number of failures. With --faulting-sink it checks the
// library's guard against a sink that faults instead of the recorded line.
#include "TavoCommon.h"
#include "TavoHandles.h"
#include "CorvDebug.h"
#include "TavoVersion.h"

// The recorder's record only; the reader half of this header is for the MinGW tests.
#define CORVDEBUG_BUILDING
#include "Recorder.h"
#undef CORVDEBUG_BUILDING

#include <stdio.h>

namespace {

int s_nPassed;
int s_nFailed;

void Print(const char* szFormat, ...)
{
    char sz[1024];
    va_list args;
    va_start(args, szFormat);
    int n = _vsnprintf(sz, sizeof(sz) - 1, szFormat, args);
    va_end(args);
    sz[sizeof(sz) - 1] = 0;
    if (n < 0 || n > static_cast<int>(sizeof(sz)) - 1) n = static_cast<int>(strlen(sz));
    DWORD dwWritten = 0;
    ::WriteFile(::GetStdHandle(STD_OUTPUT_HANDLE), sz, static_cast<DWORD>(n), &dwWritten, NULL);
}

// szActual: a printf template for the values that show what was found instead.
void Check(bool bOk, int nLine, const char* szExpression, const char* szActual, ...)
{
    if (bOk) {
        ++s_nPassed;
        return;
    }
    ++s_nFailed;
    char sz[768];
    va_list args;
    va_start(args, szActual);
    _vsnprintf(sz, sizeof(sz) - 1, szActual, args);
    va_end(args);
    sz[sizeof(sz) - 1] = 0;
    Print("FAIL AbiConformance.cpp:%d: %s - actual: %s\n", nLine, szExpression, sz);
}

#define CHECK(condition, ...) Check(!!(condition), __LINE__, #condition, __VA_ARGS__)

bool EndsWith(const wchar_t* sz, const wchar_t* szTail)
{
    const size_t cch = wcslen(sz), cchTail = wcslen(szTail);
    return cch >= cchTail && _wcsicmp(sz + cch - cchTail, szTail) == 0;
}

// The handle owner's diagnostic lines, as TavoHandles.h asks of code outside the library.
struct CTraceSeen {
    int nCalls;
    DWORD dwLevel;
    char szFile[64];
    char szFunction[128];
    char szFormat[64];
};
CTraceSeen s_trace;

void CopyText(char* szDest, size_t cchDest, const char* szSource)
{
    if (!szSource) szSource = "(null)";
    size_t i = 0;
    for (; i + 1 < cchDest && szSource[i]; ++i) szDest[i] = szSource[i];
    szDest[i] = 0;
}

HMODULE LibraryModule() { return ::GetModuleHandleW(L"TavoCommon.dll"); }

void CheckLibraryVersion()
{
    const wchar_t* pszW = Tavo::GetLibraryVersionW();
    const wchar_t* pszW2 = Tavo::GetLibraryVersionW();
    const char* pszA = Tavo::GetLibraryVersionA();
    const char* pszA2 = Tavo::GetLibraryVersionA();
    CHECK(pszW != nullptr && pszA != nullptr, "%p %p", pszW, pszA);
    if (!pszW || !pszA) return;
    CHECK(pszW == pszW2, "%p then %p", pszW, pszW2);
    CHECK(pszA == pszA2, "%p then %p", pszA, pszA2);
    CHECK(static_cast<const void*>(pszW) != static_cast<const void*>(pszA), "both %p", pszW);

    // major.minor.patch.tweak: four decimal fields, as the version resource of this build has them.
    int nFields = 1, nDigits = 0;
    bool bShape = true;
    for (const wchar_t* p = pszW; *p; ++p) {
        if (*p == L'.') {
            bShape = bShape && nDigits > 0;
            ++nFields;
            nDigits = 0;
        } else {
            bShape = bShape && *p >= L'0' && *p <= L'9';
            ++nDigits;
        }
    }
    CHECK(bShape && nDigits > 0 && nFields == 4, "\"%ls\"", pszW);
    CHECK(wcscmp(pszW, L"" TAVO_VERSION_TEXT) == 0, "\"%ls\", built as %s", pszW, TAVO_VERSION_TEXT);
    CHECK(strcmp(pszA, TAVO_VERSION_TEXT) == 0, "\"%s\"", pszA);
}

void CheckModuleFileNames()
{
    const HMODULE hLibrary = LibraryModule();
    CHECK(hLibrary != NULL, "GetModuleHandleW: error %lu", ::GetLastError());
    wchar_t szExpected[MAX_PATH] = {};
    ::GetModuleFileNameW(hLibrary, szExpected, MAX_PATH);

    Tavo::CStringW strName = Tavo::GetModuleFileNameW(hLibrary);
    CHECK(EndsWith(strName, L"\\TavoCommon.dll"), "\"%ls\"", strName.GetString());
    CHECK(strName == szExpected, "\"%ls\", the platform says \"%ls\"", strName.GetString(), szExpected);
    {
        // A copy shares the text until one side changes; the other side never sees the change.
        Tavo::CStringW strCopy(strName);
        CHECK(strCopy.GetString() == strName.GetString(), "%p and %p", strCopy.GetString(), strName.GetString());
        strCopy += L"|appended";
        CHECK(strCopy.GetLength() == strName.GetLength() + 9, "%d after %d", strCopy.GetLength(), strName.GetLength());
        CHECK(EndsWith(strCopy, L"TavoCommon.dll|appended"), "\"%ls\"", strCopy.GetString());
        CHECK(EndsWith(strName, L"\\TavoCommon.dll"), "\"%ls\"", strName.GetString());
        Tavo::CStringW strAssigned;
        strAssigned = strCopy;
        strAssigned = strAssigned + L"!";
        CHECK(EndsWith(strAssigned, L"|appended!"), "\"%ls\"", strAssigned.GetString());
    }

    char szExpectedA[MAX_PATH] = {};
    ::GetModuleFileNameA(hLibrary, szExpectedA, MAX_PATH);
    Tavo::CStringA strNameA = Tavo::GetModuleFileNameA(hLibrary);
    CHECK(strNameA == szExpectedA, "\"%s\", the platform says \"%s\"", strNameA.GetString(), szExpectedA);
    Tavo::CStringA strCopyA;
    strCopyA = strNameA;
    strCopyA += "+";
    CHECK(strCopyA.GetLength() == strNameA.GetLength() + 1, "%d", strCopyA.GetLength());

    Tavo::CStringW strPath = Tavo::GetModulePathNameW(hLibrary);
    const int iSlash = strName.ReverseFind(L'\\');
    CHECK(iSlash > 0 && strPath == strName.Left(iSlash), "\"%ls\" for \"%ls\"", strPath.GetString(),
          strName.GetString());
    Tavo::CStringA strPathA = Tavo::GetModulePathNameA(hLibrary);
    CHECK(strPathA.GetLength() == strPath.GetLength(), "\"%s\"", strPathA.GetString());

    Tavo::CStringW strProgram = Tavo::GetModuleFileNameW(NULL);
    CHECK(EndsWith(strProgram, L"\\AbiConformance.exe"), "\"%ls\"", strProgram.GetString());
}

void CheckExceptions()
{
    HRESULT hr = S_OK;
    try {
        Tavo::CStringW str(L"abc", -1);
        Print("not reached: \"%ls\"\n", str.GetString());
    } catch (const Tavo::CAtlException& e) {
        hr = e.m_hr;
    }
    CHECK(hr == E_INVALIDARG, "%#lx", hr);

    hr = S_OK;
    try {
        Tavo::AtlThrow(E_OUTOFMEMORY);
    } catch (Tavo::CAtlException e) {
        hr = e;
    }
    CHECK(hr == E_OUTOFMEMORY, "%#lx", hr);

    // An exception of another type passes a non-matching handler on its way out.
    bool bCaughtOuter = false, bCaughtWrong = false;
    try {
        try {
            Tavo::CStringA str("x");
            str.GetAt(5);
        } catch (int) {
            bCaughtWrong = true;
        }
    } catch (...) {
        bCaughtOuter = true;
    }
    CHECK(bCaughtOuter && !bCaughtWrong, "outer %d, int handler %d", bCaughtOuter, bCaughtWrong);
}

void CheckArray()
{
    Tavo::CAtlArray<Tavo::CStringW> array;
    const wchar_t* const apsz[] = {L"zero", L"one", L"two", L"three", L"four"};
    for (size_t i = 0; i < sizeof(apsz) / sizeof(apsz[0]); ++i) {
        const size_t iAdded = array.Add(Tavo::CStringW(apsz[i]));
        CHECK(iAdded == i, "index %u for element %u", static_cast<unsigned>(iAdded), static_cast<unsigned>(i));
    }
    CHECK(array.GetCount() == 5, "%u", static_cast<unsigned>(array.GetCount()));
    for (size_t i = 0; i < array.GetCount(); ++i)
        CHECK(array[i] == apsz[i], "[%u] \"%ls\"", static_cast<unsigned>(i), array[i].GetString());

    // Five elements grew the block twice (4, then 8): a block of the process heap, from MemAllocate.
    const SIZE_T cb = ::HeapSize(::GetProcessHeap(), 0, array.GetData());
    CHECK(cb != static_cast<SIZE_T>(-1) && cb >= 8 * sizeof(Tavo::CStringW), "HeapSize %lu",
          static_cast<unsigned long>(cb));

    HRESULT hr = S_OK;
    try {
        array[5];
    } catch (const Tavo::CAtlException& e) {
        hr = e.m_hr;
    }
    CHECK(hr == E_INVALIDARG, "%#lx", hr);
    array.RemoveAll();
    CHECK(array.IsEmpty() && array.GetData() == nullptr, "%u", static_cast<unsigned>(array.GetCount()));
}

// Values of the formatting, path, token and configuration families as a Microsoft-ABI caller gets
// them: variadic calls, the printf dialect of the library's run-time, a buffer form that cuts, an
// array filled inside the library, a GUID returned by value, defaults of an absent Product.cfg.
void CheckFamilies()
{
    Tavo::CStringW strFormatted = Tavo::FormatStringW(L"%s|%hs|%d", L"wide", "narrow", -7);
    CHECK(strFormatted == L"wide|narrow|-7", "\"%ls\"", strFormatted.GetString());
    Tavo::CStringA strMessage = Tavo::FormatStringA("%1 and %2!d!", "one", 2);
    CHECK(strMessage == "one and 2", "\"%s\"", strMessage.GetString());

    wchar_t szError[6];
    for (size_t i = 0; i < sizeof(szError) / sizeof(szError[0]); ++i) szError[i] = L'#';
    const long hrCut = Tavo::FormatErrorW(5, szError, 4);
    CHECK(hrCut == static_cast<long>(0x8007007A), "%#lx", hrCut);  // the text was cut
    CHECK(wcscmp(szError, L"5 -") == 0 && szError[4] == L'#', "\"%ls\"", szError);

    Tavo::CAtlArray<Tavo::CStringA> aTokens;
    aTokens.Add(Tavo::CStringA("kept"));
    const long hrSplit = Tavo::SplitString(",,a,b;;c,", ",;", aTokens);
    CHECK(hrSplit == S_OK && aTokens.GetCount() == 4, "%#lx, %u tokens", hrSplit,
          static_cast<unsigned>(aTokens.GetCount()));
    CHECK(aTokens.GetCount() == 4 && aTokens[0] == "kept" && aTokens[3] == "c", "\"%s\"",
          aTokens.GetCount() ? aTokens[aTokens.GetCount() - 1].GetString() : "");

    const GUID guid = {0x12345678, 0x9abc, 0xdef0, {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}};
    const Tavo::CStringW strGuid = Tavo::StringFromGuidW(guid);
    CHECK(strGuid == L"{12345678-9ABC-DEF0-1122-334455667788}", "\"%ls\"", strGuid.GetString());
    const GUID guidBack = Tavo::GuidFromString("12345678-9abc-def0-1122-334455667788");
    CHECK(memcmp(&guidBack, &guid, sizeof(GUID)) == 0, "%08lx", guidBack.Data1);

    const Tavo::CStringW strPath = Tavo::PathCombineW(L"C:\\a\\", L"\\b");
    CHECK(strPath == L"C:\\a\\b", "\"%ls\"", strPath.GetString());

    // No Product.cfg beside the library here: every reader gives its default.
    CHECK(Tavo::GetConfigString(L"Company", L"default") == L"default", "a value without a file");
    CHECK(Tavo::GetConfigDWORD("Missing", 42) == 42, "%lu", Tavo::GetConfigDWORD("Missing", 42));
    const GUID guidDefault = Tavo::GetConfigGuid(L"Missing", guid);
    CHECK(memcmp(&guidDefault, &guid, sizeof(GUID)) == 0, "%08lx", guidDefault.Data1);

    // Identity and locations: cached pointers of both widths, a map entry kept by id.
    const wchar_t* pszProduct = Tavo::GetProductW();
    CHECK(wcscmp(pszProduct, L"Harbell") == 0 && pszProduct == Tavo::GetProductW(), "\"%ls\"", pszProduct);
    const char* pszProductA = Tavo::GetProductA();
    CHECK(strcmp(pszProductA, "Harbell") == 0 && static_cast<const void*>(pszProductA) != pszProduct, "\"%s\"",
          pszProductA);
    const wchar_t* pszInstall = Tavo::GetInstallDirectoryW();
    CHECK(Tavo::GetModulePathNameW(LibraryModule()) == pszInstall, "\"%ls\"", pszInstall);
    const int kCommonAppData = 35;  // CSIDL_COMMON_APPDATA
    const wchar_t* pszFolder = Tavo::GetSpecialFolderW(kCommonAppData, NULL);
    CHECK(pszFolder && *pszFolder && pszFolder == Tavo::GetSpecialFolderW(kCommonAppData, NULL), "%p", pszFolder);

    // String loading: the library's own unit words, a buffer form that cuts and still gives the full
    // length, and re-texting a window that no longer exists.
    const Tavo::CStringW strKilobytes = Tavo::LoadStringW(102, LibraryModule());
    CHECK(strKilobytes == L"%s KB", "\"%ls\"", strKilobytes.GetString());
    char szWord[4] = {'#', '#', '#', '#'};
    const int nLength = Tavo::LoadStringA(LibraryModule(), 101, szWord, 3);
    CHECK(nLength == 8 && strcmp(szWord, "%s") == 0 && szWord[3] == '#', "%d \"%s\"", nLength, szWord);
    const long hrGone = Tavo::ResetText(reinterpret_cast<HWND>(static_cast<INT_PTR>(0x1234)), NULL);
    CHECK(hrGone < 0, "%#lx", hrGone);

    // Time and number formatting: 64-bit values by value, a SYSTEMTIME returned by value, and the
    // formatters' value forms under the prefix's en-US settings.
    const Tavo::Time time = Tavo::MakeTime(2012, 1, 13, 15, 41, 52);
    CHECK(time == 1326469312, "%I64d", time);
    const SYSTEMTIME st = Tavo::TimeToSystemTime(time);
    CHECK(st.wYear == 2012 && st.wDayOfWeek == 5 && st.wHour == 15, "%u-%u %u", st.wYear, st.wDayOfWeek, st.wHour);
    CHECK(Tavo::StringToTime("2012-01-13T15:41:52Z", Tavo::TIME_FORMAT_ISO8601) != -1, "a valid text refused");
    const Tavo::CStringW strNumber = Tavo::FormatNumberW(-1234567);
    CHECK(strNumber == L"-1,234,567", "\"%ls\"", strNumber.GetString());
    const Tavo::CStringW strBytes = Tavo::FormatBytesW(1536);
    CHECK(strBytes == L"1.50 KB", "\"%ls\"", strBytes.GetString());
    const Tavo::CStringW strDate = Tavo::FormatDateW(st, false);
    CHECK(strDate == L"1/13/2012", "\"%ls\"", strDate.GetString());

    // System inspection: bools and ints by value, cached pointers, a string value made in the DLL.
    int nServicePack = -2;
    const int nOs = Tavo::GetOS(&nServicePack);
    CHECK(nOs == Tavo::GetOS() && nServicePack >= -1 && Tavo::IsWin7OrNewer() == (nOs >= 4), "%d %d", nOs,
          nServicePack);
    CHECK(Tavo::Is64BitWindows() == Tavo::IsWow64Process(), "%d", static_cast<int>(Tavo::Is64BitWindows()));
    const wchar_t* pszWow64 = Tavo::GetSystemWow64DirectoryW();
    CHECK(pszWow64 && *pszWow64 && pszWow64 == Tavo::GetSystemWow64DirectoryW(), "%p", pszWow64);
    const wchar_t* pszRefused = Tavo::GetComputerNameExW(static_cast<COMPUTER_NAME_FORMAT>(99));
    CHECK(pszRefused && !*pszRefused, "%p", pszRefused);
    const Tavo::CStringW strTemp = Tavo::GetTempFileNameW();
    CHECK(!strTemp.IsEmpty() && DeleteFileW(strTemp), "\"%ls\"", strTemp.GetString());
    WIN32_FIND_DATAW fd;
    CHECK(Tavo::FindFirstFileW(L"C:\\no-such-directory\\*", &fd) == INVALID_HANDLE_VALUE, "a search found");
    const long hrNoDrive = Tavo::IsDriveSSDW(static_cast<const wchar_t*>(NULL));
    CHECK(hrNoDrive == E_POINTER && Tavo::IsDriveSSDA("") == E_INVALIDARG, "%#lx", hrNoDrive);
    // No rows or a failure: the wide value form gives its default back, as it was.
    const Tavo::CStringW strWmi = Tavo::QueryWMI(L"SELECT * FROM NoSuchClass", L"X", L"ROOT\\CIMV2", L"D");
    CHECK(strWmi == L"D", "\"%ls\"", strWmi.GetString());

    // Processes and components: an enum by value, HRESULTs and untouched out-arguments.
    CHECK(Tavo::IsProgramRunningA("no-such-program.exe") == 0, "a missing program runs");
    CHECK(Tavo::UseImpersonateToExecuteProcessAndWaitA(NULL, NULL, 0, 0) == 0, "a code for nothing started");
    const Tavo::METRO_TOAST_APP_EXIT_CODES_ENUM eToast =
        Tavo::ShowMetroToastIfWin8orNewerA(1, NULL, NULL, NULL, NULL, NULL, 0);
    CHECK(eToast == (Tavo::GetOS() < 5 ? 12 : 6), "%d", static_cast<int>(eToast));
    HINSTANCE hModule = reinterpret_cast<HINSTANCE>(static_cast<INT_PTR>(0x4321));
    void* pv = NULL;
    const long hrEmpty = Tavo::CoCreateInstance(L"", guid, &hModule, &pv);
    CHECK(hrEmpty == E_INVALIDARG && hModule == reinterpret_cast<HINSTANCE>(static_cast<INT_PTR>(0x4321)), "%#lx",
          hrEmpty);
    const long hrNoFactory = Tavo::CoCreateInstance(GetModuleHandleW(L"kernel32.dll"), guid, guid, &pv);
    CHECK(hrNoFactory == static_cast<long>(0x8007007F), "%#lx", hrNoFactory);
}

void CheckHandleOwner()
{
    HANDLE hFirst = ::CreateEventW(NULL, TRUE, FALSE, NULL);
    HANDLE hSecond = ::CreateEventW(NULL, TRUE, FALSE, NULL);
    CHECK(hFirst && hSecond, "error %lu", ::GetLastError());
    DWORD dwFlags = 0;
    s_trace = CTraceSeen();
    {
        Tavo::THandle<HANDLE, 0> h;
        h = INVALID_HANDLE_VALUE;
        CHECK(h.m_h == NULL && !h, "%p", h.m_h);
        h = hFirst;
        CHECK(h.m_h == hFirst && s_trace.nCalls == 0, "%p, %d lines", h.m_h, s_trace.nCalls);
        // Reassigning a held handle is misuse: one line, and the first handle is not closed.
        h = hSecond;
        CHECK(h.m_h == hSecond, "%p", h.m_h);
        CHECK(s_trace.nCalls == 1, "%d lines", s_trace.nCalls);
        CHECK(s_trace.dwLevel == TRACE_VERIFY, "level %lu", s_trace.dwLevel);
        CHECK(strcmp(s_trace.szFile, "TavoHandles.h") == 0, "\"%s\"", s_trace.szFile);
        CHECK(strcmp(s_trace.szFunction, "Tavo::THandle<void *,0>::operator =") == 0, "\"%s\"",
              s_trace.szFunction);
        CHECK(strcmp(s_trace.szFormat, "%s - %lu") == 0, "\"%s\"", s_trace.szFormat);
        CHECK(::GetHandleInformation(hFirst, &dwFlags), "error %lu", ::GetLastError());
    }
    CHECK(!::GetHandleInformation(hSecond, &dwFlags), "the held handle is still open after the owner");
    ::CloseHandle(hFirst);
}

void CheckRecorderLine()
{
    HMODULE hRecorder = ::GetModuleHandleW(L"CorvDebug.dll");
    PFN_CORV_RECORDER_COUNT pfnCount = nullptr;
    if (hRecorder)
        pfnCount = reinterpret_cast<PFN_CORV_RECORDER_COUNT>(
            reinterpret_cast<void*>(::GetProcAddress(hRecorder, "CorvRecorderCount")));
    const int nBefore = pfnCount ? pfnCount() : 0;

    // No module lies at this address: the library gives an empty name and traces the failure.
    Tavo::CStringW strNone = Tavo::GetModuleFileNameW(reinterpret_cast<HINSTANCE>(0x10000));
    CHECK(strNone.IsEmpty(), "\"%ls\"", strNone.GetString());

    hRecorder = ::GetModuleHandleW(L"CorvDebug.dll");
    CHECK(hRecorder != NULL, "the library did not load CorvDebug.dll beside it");
    if (!hRecorder) return;
    pfnCount = reinterpret_cast<PFN_CORV_RECORDER_COUNT>(
        reinterpret_cast<void*>(::GetProcAddress(hRecorder, "CorvRecorderCount")));
    PFN_CORV_RECORDER_GET pfnGet = reinterpret_cast<PFN_CORV_RECORDER_GET>(
        reinterpret_cast<void*>(::GetProcAddress(hRecorder, "CorvRecorderGet")));
    CHECK(pfnCount && pfnGet, "%p %p: not the recorder build", pfnCount, pfnGet);
    if (!pfnCount || !pfnGet) return;
    const int nAfter = pfnCount();
    CHECK(nAfter == nBefore + 1, "%d lines, %d before", nAfter, nBefore);
    if (nAfter < 1) return;

    static CorvRecord record;  // large: off the stack
    CHECK(pfnGet(nAfter - 1, &record), "CorvRecorderGet(%d) failed", nAfter - 1);
    char szLibrary[MAX_PATH] = {};
    ::GetModuleFileNameA(LibraryModule(), szLibrary, MAX_PATH);
    CHECK(_stricmp(record.module, szLibrary) == 0, "\"%s\", the library is \"%s\"", record.module, szLibrary);
    CHECK(strcmp(record.function, "Tavo::GetModuleFileNameW") == 0, "\"%s\"", record.function);
    CHECK(strcmp(record.file, "ModuleFileName.cpp") == 0, "\"%s\"", record.file);
    CHECK(record.level == TRACE_ERROR, "level %lu", record.level);
    CHECK(strcmp(record.format, "GetModuleFileName failed, GetLastError = %ld") == 0, "\"%s\"", record.format);
    const char kPrefix[] = "GetModuleFileName failed, GetLastError = ";
    const bool bPrefix = strncmp(record.text, kPrefix, sizeof(kPrefix) - 1) == 0;
    CHECK(bPrefix && record.text[sizeof(kPrefix) - 1] >= '1' && record.text[sizeof(kPrefix) - 1] <= '9',
          "\"%s\"", record.text);
    CHECK(record.stamp[0] != 0 && record.line > 0, "stamp \"%s\", line %d", record.stamp, record.line);
}

// The shims' module entry, seen through ShimProbe.dll's global object: constructed before DllMain's
// attach, destroyed after its detach, each once.
void CheckModuleEntry()
{
    HMODULE hProbe = ::LoadLibraryW(L"ShimProbe.dll");
    CHECK(hProbe != NULL, "LoadLibraryW: error %lu", ::GetLastError());
    if (!hProbe) return;
    typedef void(__cdecl * PFN_WATCH)(char*);
    PFN_WATCH pfnWatch = reinterpret_cast<PFN_WATCH>(reinterpret_cast<void*>(::GetProcAddress(hProbe, "ShimProbeWatch")));
    CHECK(pfnWatch != nullptr, "no ShimProbeWatch");
    static char szSteps[8];
    if (pfnWatch) pfnWatch(szSteps);
    CHECK(strcmp(szSteps, "ca") == 0, "\"%s\" after the load", szSteps);
    ::FreeLibrary(hProbe);
    CHECK(strcmp(szSteps, "caxd") == 0, "\"%s\" after the unload", szSteps);
}

// Run beside the MinGW build's faulting sink (CorvDebugFaults.dll as CorvDebug.dll): the library's
// hand-made structured-exception frame takes the sink's access violation, and leaves the frame
// chain as it found it, so a C++ exception still finds its handler afterwards.
void CheckFaultingSink()
{
    // Earlier checks may have traced already; these two lines must each reach the sink and fault.
    const HMODULE hSinkBefore = ::GetModuleHandleW(L"CorvDebug.dll");
    PFN_CORV_RECORDER_COUNT pfnBefore = hSinkBefore ? reinterpret_cast<PFN_CORV_RECORDER_COUNT>(
        reinterpret_cast<void*>(::GetProcAddress(hSinkBefore, "CorvRecorderCount"))) : nullptr;
    const int nBefore = pfnBefore ? pfnBefore() : 0;

    Tavo::CStringW strNone = Tavo::GetModuleFileNameW(reinterpret_cast<HINSTANCE>(0x10000));
    CHECK(strNone.IsEmpty(), "\"%ls\"", strNone.GetString());
    strNone = Tavo::GetModuleFileNameW(reinterpret_cast<HINSTANCE>(0x10000));
    CHECK(strNone.IsEmpty(), "\"%ls\"", strNone.GetString());

    const HMODULE hSink = ::GetModuleHandleW(L"CorvDebug.dll");
    CHECK(hSink != NULL, "the library did not load CorvDebug.dll beside it");
    PFN_CORV_RECORDER_COUNT pfnCount = hSink ? reinterpret_cast<PFN_CORV_RECORDER_COUNT>(
        reinterpret_cast<void*>(::GetProcAddress(hSink, "CorvRecorderCount"))) : nullptr;
    CHECK(pfnCount != nullptr, "no CorvRecorderCount: not the faulting sink");
    if (pfnCount) CHECK(pfnCount() - nBefore == 2, "the sink was called %d times", pfnCount() - nBefore);

    HRESULT hr = S_OK;
    try {
        Tavo::CStringA str("abc", -2);
    } catch (const Tavo::CAtlException& e) {
        hr = e.m_hr;
    }
    CHECK(hr == E_INVALIDARG, "%#lx", hr);
}

} // namespace

namespace Tavo {

void TraceOutput(DWORD dwLevel, const char* szFile, const char* szFunction, int, const char*,
                 const char* szFormat, ...)
{
    ++s_trace.nCalls;
    s_trace.dwLevel = dwLevel;
    CopyText(s_trace.szFile, sizeof(s_trace.szFile), szFile);
    CopyText(s_trace.szFunction, sizeof(s_trace.szFunction), szFunction);
    CopyText(s_trace.szFormat, sizeof(s_trace.szFormat), szFormat);
}

} // namespace Tavo

extern "C" int __cdecl mainCRTStartup()
{
    try {
        CheckLibraryVersion();
        CheckModuleFileNames();
        CheckExceptions();
        CheckArray();
        CheckFamilies();
        CheckHandleOwner();
        CheckModuleEntry();
        if (wcsstr(::GetCommandLineW(), L"--faulting-sink")) CheckFaultingSink();
        else CheckRecorderLine();
        // Every string the library made and this program freed went back to the one heap intact.
        CHECK(::HeapValidate(::GetProcessHeap(), 0, NULL), "the process heap is damaged");
    } catch (const Tavo::CAtlException& e) {
        ++s_nFailed;
        Print("FAIL: unexpected CAtlException %#lx\n", e.m_hr);
    } catch (...) {
        ++s_nFailed;
        Print("FAIL: unexpected exception\n");
    }
    Print("%d passed, %d failed\n", s_nPassed, s_nFailed);
    ::ExitProcess(static_cast<UINT>(s_nFailed));
}
