// Prints, for each measured operation, its cost per call against its floor: the platform work that
// the library's contract makes the operation do (its platform and run-time calls, and the heap block
// of the string value it hands back), written out by hand and timed in the same run.
//
// Each side is calibrated on its own: the call count grows until a round lasts at least 50 ms, then
// the two sides take turns for a few rounds and each keeps its best, which sheds scheduler noise and
// any drift between them. Every line goes out as soon as it is measured.
#include "Global.h"
#include "Trace.h"
#include "TavoCommon.h"

#include <shlwapi.h>
#include <wbemcli.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <wchar.h>

namespace {

const double kRoundSeconds = 0.05;
const int kRounds = 5;
// Getters are a lock and a pointer: anything above the lock pair is overhead of their own.
const double kGoalGetter = 1.1;
const double kGoal = 1.3;

CRITICAL_SECTION s_cs;
volatile int s_nSink;
LARGE_INTEGER s_frequency;

// Inputs read through volatile pointers, so that the floors cannot fold them at compile time any
// more than the library can.
const wchar_t* volatile s_szPath = L"C:\\Program Files\\";
const wchar_t* volatile s_szFile = L"Bench\\file.txt";
const wchar_t* volatile s_szGuid = L"{4C1D2E3F-0A1B-4C5D-8E9F-A0B1C2D3E4F5}";

// The trace call with no sink is one test and a return: its floor is a call with the same arguments.
__attribute__((noinline)) void EmptyCall(DWORD, const char*, const char*, int, const char*, const char*, ...)
{
    __asm__ __volatile__("" ::: "memory");
}

double Now()
{
    LARGE_INTEGER counter;
    QueryPerformanceCounter(&counter);
    return static_cast<double>(counter.QuadPart) / static_cast<double>(s_frequency.QuadPart);
}

template <typename Body>
double RoundSeconds(Body& body, long nCalls)
{
    const double dStart = Now();
    for (long i = 0; i < nCalls; ++i) body();
    return Now() - dStart;
}

// The call count at which one round lasts at least kRoundSeconds (aiming at 1.5 times that), or
// nMaxCalls for an operation too slow to repeat much.
template <typename Body>
long Calibrate(Body& body, long nMaxCalls)
{
    for (long nCalls = 1;;) {
        const double dSeconds = RoundSeconds(body, nCalls);
        if (dSeconds >= kRoundSeconds || nCalls >= nMaxCalls) return nCalls;
        double dNext = dSeconds > 0 ? nCalls * 1.5 * kRoundSeconds / dSeconds : nCalls * 100.0;
        if (dNext < 2.0 * nCalls) dNext = 2.0 * nCalls;
        nCalls = dNext < nMaxCalls ? static_cast<long>(dNext) : nMaxCalls;
    }
}

void PrintRow(const char* szOperation, double ns, const char* szFloor, double nsFloor, double dGoal, const char* szUnit)
{
    const double dRatio = nsFloor > 0 ? ns / nsFloor : 0.0;
    printf("%-36s %11.1f %-2s %11.1f %-2s %6.2f %5.1f %-4s  %s\n", szOperation, ns, szUnit, nsFloor, szUnit, dRatio,
           dGoal, dRatio > dGoal ? "OVER" : "", szFloor);
    fflush(stdout);
}

// One row: the operation and its floor, each at its own calibrated count, in alternating rounds.
template <typename Operation, typename Floor>
void Row(const char* szOperation, Operation operation, const char* szFloor, Floor floor, double dGoal = kGoal,
         long nMaxCalls = 100000000, int nRounds = kRounds)
{
    const long nOperationCalls = Calibrate(operation, nMaxCalls);
    const long nFloorCalls = Calibrate(floor, nMaxCalls);
    double dOperation = 1e30, dFloor = 1e30;
    for (int iRound = 0; iRound < nRounds; ++iRound) {
        const double dO = RoundSeconds(operation, nOperationCalls) / nOperationCalls;
        const double dF = RoundSeconds(floor, nFloorCalls) / nFloorCalls;
        if (dO < dOperation) dOperation = dO;
        if (dF < dFloor) dFloor = dF;
    }
    PrintRow(szOperation, dOperation * 1e9, szFloor, dFloor * 1e9, dGoal, "ns");
}

// ---- Files the library reads, written beside the bench --------------------------------------

// Wine re-reads a profile file at every call while its write time is less than 2.1 s old (a guard
// for the 2-second clock of FAT), so a file just written would be timed parsing itself. Its time is
// set an hour back: the reads then see a settled file, as a product's do.
bool WriteSettledFile(const wchar_t* szFile, const char* pchContent, DWORD cbContent)
{
    HANDLE hFile = CreateFileW(szFile, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (hFile == INVALID_HANDLE_VALUE) return false;
    DWORD cbWritten = 0;
    bool bWritten = WriteFile(hFile, pchContent, cbContent, &cbWritten, nullptr) && cbWritten == cbContent;
    FILETIME ft;
    GetSystemTimeAsFileTime(&ft);
    ULARGE_INTEGER t = {{ft.dwLowDateTime, ft.dwHighDateTime}};
    t.QuadPart -= 3600ull * 10000000ull;
    ft.dwLowDateTime = t.LowPart;
    ft.dwHighDateTime = t.HighPart;
    bWritten = SetFileTime(hFile, nullptr, nullptr, &ft) && bWritten;
    CloseHandle(hFile);
    if (!bWritten) fprintf(stderr, "warning: %ls was not written\n", szFile);
    return bWritten;
}

// The static build's module is this program, so the library reads the Product.cfg beside it.
Tavo::CStringW WriteBenchConfig()
{
    const Tavo::CStringW strFile = Tavo::PathCombineW(Tavo::GetModulePathNameW(nullptr), L"Product.cfg");
    const char szContent[] = "[Config]\r\nCompany=Bench Company\r\nProduct=Bench Product\r\n";
    WriteSettledFile(strFile, szContent, sizeof(szContent) - 1);
    return strFile;
}

// A string value of the text, as a value form hands one back: one heap block and the copy.
int StringOf(const wchar_t* sz, int cch)
{
    Tavo::CStringW str;
    memcpy(str.GetBuffer(cch), sz, cch * sizeof(wchar_t));
    str.ReleaseBuffer(cch);
    return str.GetLength();
}

// ---- Rows ---------------------------------------------------------------------------------

// Both getters hand out a constant pointer, no string copy: the floor is the lock pair alone.
void CachedGetters()
{
    if (!*Tavo::GetLibraryVersionW()) fprintf(stderr, "warning: the version resource was not read\n");
    auto lockPair = [] {
        EnterCriticalSection(&s_cs);
        LeaveCriticalSection(&s_cs);
    };
    Row("GetLibraryVersionW, cached", [] { s_nSink = *Tavo::GetLibraryVersionW(); },
        "EnterCriticalSection+LeaveCriticalSection", lockPair, kGoalGetter);
    // The first call reads the bench's own Product.cfg; after it the getter is a lock and a pointer.
    Row("GetProductW, cached", [] { s_nSink = *Tavo::GetProductW(); }, "EnterCriticalSection+LeaveCriticalSection",
        lockPair, kGoalGetter);
    s_nSink = Tavo::GetOS();
    Row("GetOS, cached", [] { s_nSink = Tavo::GetOS(); }, "EnterCriticalSection+LeaveCriticalSection", lockPair,
        kGoalGetter);
    Row("IsWin7OrNewer, cached", [] { s_nSink = Tavo::IsWin7OrNewer(); }, "EnterCriticalSection+LeaveCriticalSection",
        lockPair, kGoalGetter);
}

void TraceWithoutSink()
{
    Row("TraceOutput, no sink", [] { Tavo::TraceOutput(TRACE_INFO, "Bench.cpp", "main", 1, __TIMESTAMP__, "%d", 1); },
        "call of an empty function, same arguments",
        [] { EmptyCall(TRACE_INFO, "Bench.cpp", "main", 1, __TIMESTAMP__, "%d", 1); });
}

// The locale items in the order and sizes the formatter asks for them; false on the first failure.
bool ReadNumberFormat(NUMBERFMTW& fmt, wchar_t (&szDecimal)[8], wchar_t (&szThousand)[8])
{
    wchar_t szGrouping[32];
    if (!GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_ILZERO | LOCALE_RETURN_NUMBER, reinterpret_cast<LPWSTR>(&fmt.LeadingZero),
                        sizeof(fmt.LeadingZero)) ||
        !GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_INEGNUMBER | LOCALE_RETURN_NUMBER,
                        reinterpret_cast<LPWSTR>(&fmt.NegativeOrder), sizeof(fmt.NegativeOrder)) ||
        !GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_SDECIMAL, szDecimal, 8) ||
        !GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_STHOUSAND, szThousand, 8) ||
        !GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_SGROUPING, szGrouping, 32))
        return false;
    fmt.Grouping = wcstoul(szGrouping, nullptr, 10);  // "3;0" reads as 3, which is what it means
    fmt.lpDecimalSep = szDecimal;
    fmt.lpThousandSep = szThousand;
    return true;
}

void Numbers(const wchar_t* szLanguageFile)
{
    // The value form's result is the 128 characters it reserves for the formatter.
    Row("FormatNumberW(int)", [] { s_nSink = Tavo::FormatNumberW(1234567).GetLength(); },
        "print %I64d, 5 GetLocaleInfoW, GetNumberFormatW, 128-char result", [] {
            wchar_t szDigits[24], szDecimal[8], szThousand[8];
            _snwprintf(szDigits, 24, L"%I64d", static_cast<__int64>(1234567));
            NUMBERFMTW fmt = {};
            if (!ReadNumberFormat(fmt, szDecimal, szThousand)) return;
            Tavo::CStringW strNumber;
            GetNumberFormatW(LOCALE_USER_DEFAULT, 0, szDigits, &fmt, strNumber.GetBuffer(128), 128);
            strNumber.ReleaseBuffer();
            s_nSink = strNumber.GetLength();
        });

    // 1536 MB: the unit string 103 of the library's own module (this program, statically linked).
    const HINSTANCE hModule = GetModuleHandleW(nullptr);
    const wchar_t* szCode = Tavo::GetLanguageCodeW();
    Row("FormatBytesW(1536 MB)", [] { s_nSink = Tavo::FormatBytesW(1536ull << 20).GetLength(); },
        "LoadStringW's calls, print %.2f, FormatNumberW's calls, print, result",
        [=] {
            wchar_t szUnit[256], szDigits[64], szNumber[128], szText[256];
            const DWORD dwAttributes = GetFileAttributesW(szLanguageFile);
            ::LoadStringW(hModule, 103, szUnit, 256);
            s_nSink = dwAttributes + lstrcmpiW(L"xx", szCode);
            _snwprintf(szDigits, 64, L"%.2f", 1536.0);
            NUMBERFMTW fmt = {};
            wchar_t szDecimal[8], szThousand[8];
            fmt.NumDigits = 2;
            szNumber[0] = 0;
            if (ReadNumberFormat(fmt, szDecimal, szThousand))
                GetNumberFormatW(LOCALE_USER_DEFAULT, 0, szDigits, &fmt, szNumber, 128);
            const int cchText = _snwprintf(szText, 256, szUnit, szNumber);
            s_nSink = StringOf(szText, cchText > 0 ? cchText : 0);
        });
}

void GuidsAndPaths()
{
    Row("GuidFromString, braced", [] { s_nSink = Tavo::GuidFromString(s_szGuid).Data1; }, "CLSIDFromString", [] {
        GUID guid = {};
        CLSIDFromString(s_szGuid, &guid);
        s_nSink = guid.Data1;
    });

    Row("PathCombineW", [] { s_nSink = Tavo::PathCombineW(s_szPath, s_szFile).GetLength(); },
        "wcslen of both, one CStringW of the result length, the copies", [] {
            const wchar_t* szPath = s_szPath;
            const wchar_t* szFile = s_szFile;
            const int cchPath = static_cast<int>(wcslen(szPath));
            const int cchFile = static_cast<int>(wcslen(szFile));
            Tavo::CStringW str;
            wchar_t* p = str.GetBuffer(cchPath + cchFile);
            memcpy(p, szPath, cchPath * sizeof(wchar_t));
            memcpy(p + cchPath, szFile, cchFile * sizeof(wchar_t));
            str.ReleaseBuffer(cchPath + cchFile);
            s_nSink = str.GetLength();
        });
}

void Configuration(const wchar_t* szConfigFile)
{
    Row("GetConfigString, present key", [] { s_nSink = Tavo::GetConfigString(L"Product", L"x").GetLength(); },
        "GetPrivateProfileStringW, result string", [=] {
            wchar_t sz[256];
            s_nSink = StringOf(sz, ::GetPrivateProfileStringW(L"Config", L"Product", L"x", sz, 256, szConfigFile));
        });
}

// A load asks for the language file's attributes every time and, when the file is there, reads it.
// The bench's own file is written beside it (its install directory) and removed at the end.
void LanguageStrings(const wchar_t* szLanguageFile)
{
    const HINSTANCE hModule = GetModuleHandleW(nullptr);
    const wchar_t* szCode = Tavo::GetLanguageCodeW();
    Row("LoadStringW, no language file", [=] { s_nSink = Tavo::LoadStringW(102, hModule).GetLength(); },
        "GetFileAttributesW, LoadStringW, lstrcmpiW, result string", [=] {
            wchar_t sz[256];
            const DWORD dwAttributes = GetFileAttributesW(szLanguageFile);
            const int cch = ::LoadStringW(hModule, 102, sz, 256);
            s_nSink = dwAttributes + lstrcmpiW(L"xx", szCode) + StringOf(sz, cch);
        });

    const Tavo::CStringA strContent = "[" + Tavo::GetLanguageSectionA(hModule) + "]\r\n102=%s Kilobyte\r\n";
    if (!WriteSettledFile(szLanguageFile, strContent.GetString(), static_cast<DWORD>(strContent.GetLength()))) return;
    Row("LoadStringW, from the language file", [=] { s_nSink = Tavo::LoadStringW(102, hModule).GetLength(); },
        "GetFileAttributesW, GetModuleFileNameW, print %u, GetPrivateProfileStringW, result string", [=] {
            wchar_t szModule[520], szKey[16], sz[256];
            const DWORD dwAttributes = GetFileAttributesW(szLanguageFile);
            GetModuleFileNameW(hModule, szModule, 520);
            _snwprintf(szKey, 16, L"%u", 102u);
            const int cch = ::GetPrivateProfileStringW(PathFindFileNameW(szModule), szKey, L"", sz, 256, szLanguageFile);
            s_nSink = dwAttributes + StringOf(sz, cch);
        });
    DeleteFileW(szLanguageFile);
}

// Words of 1 to 12 letters between single delimiters, cb bytes in all.
Tavo::CStringA SplitInput(int cb)
{
    Tavo::CStringA str;
    char* p = str.GetBuffer(cb);
    for (int i = 0; i < cb; ++i) p[i] = (i % 13 == 12) ? (i % 2 ? ' ' : ',') : static_cast<char>('a' + i % 26);
    str.ReleaseBuffer(cb);
    return str;
}

// Splitting costs the same per megabyte at any size: the floor of 2 MB is twice the time of 1 MB.
void SplitGrowth()
{
    const int kMB = 1024 * 1024;
    const Tavo::CStringA strOne = SplitInput(kMB);
    const Tavo::CStringA strTwo = SplitInput(2 * kMB);
    auto split = [](const Tavo::CStringA& str) {
        Tavo::CAtlArray<Tavo::CStringA> aTokens;
        Tavo::SplitString(str, " ,", aTokens);
        s_nSink = static_cast<int>(aTokens.GetCount());
    };
    double dOne = 1e30, dTwo = 1e30;
    for (int iRound = 0; iRound < kRounds; ++iRound) {
        const double dStart = Now();
        split(strOne);
        const double dMiddle = Now();
        split(strTwo);
        const double dEnd = Now();
        if (dMiddle - dStart < dOne) dOne = dMiddle - dStart;
        if (dEnd - dMiddle < dTwo) dTwo = dEnd - dMiddle;
    }
    PrintRow("SplitString, 2 MB", dTwo * 1e3, "twice SplitString of 1 MB (linear growth)", 2 * dOne * 1e3, kGoal, "ms");
}

void DatesAndTimes()
{
    static const SYSTEMTIME st = {2012, 1, 5, 13, 15, 41, 52, 0};
    Row("FormatDateTimeW", [] { s_nSink = Tavo::FormatDateTimeW(st, true).GetLength(); },
        "GetDateFormatW, GetTimeFormatW, one result string", [] {
            wchar_t szDate[128], szTime[128];
            const int cchDate = ::GetDateFormatW(LOCALE_USER_DEFAULT, DATE_SHORTDATE, &st, nullptr, szDate, 128);
            const int cchTime = ::GetTimeFormatW(LOCALE_USER_DEFAULT, 0, &st, nullptr, szTime, 128);
            if (cchDate <= 0 || cchTime <= 0) return;
            Tavo::CStringW str;
            wchar_t* p = str.GetBuffer(cchDate + cchTime - 1);
            memcpy(p, szDate, (cchDate - 1) * sizeof(wchar_t));
            p[cchDate - 1] = L' ';
            memcpy(p + cchDate, szTime, (cchTime - 1) * sizeof(wchar_t));
            str.ReleaseBuffer(cchDate + cchTime - 1);
            s_nSink = str.GetLength();
        });

    Row("MakeTime", [] { s_nSink = static_cast<int>(Tavo::MakeTime(2012, 1, 13, 15, 41, 52)); }, "_mkgmtime64", [] {
        struct tm fields = {52, 41, 15, 13, 0, 112, 0, 0, 0};
        s_nSink = static_cast<int>(_mkgmtime64(&fields));
    });
}

// The same one-property query written straight against the WMI interfaces, with the same COM
// start-up per call; the length of the first value, or -1.
int DirectWmiCaption()
{
    const HRESULT hrInit = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    int nLength = -1;
    IWbemLocator* pLocator = nullptr;
    IWbemServices* pServices = nullptr;
    IEnumWbemClassObject* pEnum = nullptr;
    BSTR bstrNamespace = SysAllocString(L"ROOT\\CIMV2");
    BSTR bstrLanguage = SysAllocString(L"WQL");
    BSTR bstrQuery = SysAllocString(L"SELECT * FROM Win32_OperatingSystem");
    if (SUCCEEDED(CoCreateInstance(__uuidof(WbemLocator), nullptr, CLSCTX_INPROC_SERVER, __uuidof(IWbemLocator),
                                   reinterpret_cast<void**>(&pLocator))) &&
        SUCCEEDED(pLocator->ConnectServer(bstrNamespace, nullptr, nullptr, nullptr, 0, nullptr, nullptr, &pServices)) &&
        SUCCEEDED(CoSetProxyBlanket(pServices, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                                    RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE)) &&
        SUCCEEDED(pServices->ExecQuery(bstrLanguage, bstrQuery, WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY,
                                       nullptr, &pEnum))) {
        IWbemClassObject* pObject = nullptr;
        ULONG uReturned = 0;
        if (pEnum->Next(WBEM_INFINITE, 1, &pObject, &uReturned) == S_OK && pObject) {
            VARIANT v;
            VariantInit(&v);
            if (SUCCEEDED(pObject->Get(L"Caption", 0, &v, nullptr, nullptr)) && v.vt == VT_BSTR)
                nLength = static_cast<int>(SysStringLen(v.bstrVal));
            VariantClear(&v);
            pObject->Release();
        }
    }
    if (pEnum) pEnum->Release();
    if (pServices) pServices->Release();
    if (pLocator) pLocator->Release();
    SysFreeString(bstrQuery);
    SysFreeString(bstrLanguage);
    SysFreeString(bstrNamespace);
    if (SUCCEEDED(hrInit)) CoUninitialize();
    return nLength;
}

// A query costs milliseconds: a few calls per round, three rounds.
void WmiQuery()
{
    if (DirectWmiCaption() < 0) fprintf(stderr, "warning: the direct WMI query found no caption\n");
    Row("QueryWMI, one property",
        [] { s_nSink = Tavo::QueryWMI(L"SELECT * FROM Win32_OperatingSystem", L"Caption", L"ROOT\\CIMV2", L"").GetLength(); },
        "IWbemServices::ExecQuery written out", [] { s_nSink = DirectWmiCaption(); }, kGoal, 20, 3);
}

} // namespace

int main()
{
    setvbuf(stdout, nullptr, _IONBF, 0);
    QueryPerformanceFrequency(&s_frequency);
    const double dStart = Now();
    InitializeCriticalSectionAndSpinCount(&s_cs, 0);

    const Tavo::CStringW strConfigFile = WriteBenchConfig();
    const wchar_t* szLanguageFile = Tavo::GetLanguageFileW();
    if (GetFileAttributesW(szLanguageFile) != INVALID_FILE_ATTRIBUTES) {
        fprintf(stderr, "error: %ls is in the way; the loads would not be measured as meant\n", szLanguageFile);
        return 1;
    }

    printf("%-36s %14s %14s %6s %5s %-4s  %s\n", "operation", "per call", "floor", "ratio", "goal", "",
           "floor: the platform work the contract asks for");
    fflush(stdout);
    CachedGetters();
    TraceWithoutSink();
    Numbers(szLanguageFile);
    GuidsAndPaths();
    Configuration(strConfigFile);
    LanguageStrings(szLanguageFile);
    SplitGrowth();
    DatesAndTimes();
    WmiQuery();
    DeleteFileW(strConfigFile);
    printf("measured in %.1f s\n", Now() - dStart);
    fflush(stdout);
    return 0;
}
