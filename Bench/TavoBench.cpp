// Prints, for each measured operation, its cost per call and the ratio against the raw platform
// operation it rests on, timed in the same run (best of several rounds, to shed scheduler noise).
#include "Global.h"
#include "Trace.h"
#include "TavoCommon.h"

#include <shlwapi.h>
#include <wbemcli.h>
#include <stdio.h>
#include <time.h>

namespace {

const int kCalls = 2000000;
const int kRounds = 7;

CRITICAL_SECTION s_cs;

__attribute__((noinline)) void EmptyCall(DWORD, const char*, const char*, int, const char*, const char*)
{
    __asm__ __volatile__("" ::: "memory");
}

template <typename Body>
double BestNanosecondsPerCall(Body body, int nCalls = kCalls)
{
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    double best = 1e30;
    for (int round = 0; round < kRounds; ++round) {
        LARGE_INTEGER start, stop;
        QueryPerformanceCounter(&start);
        for (int i = 0; i < nCalls; ++i) body();
        QueryPerformanceCounter(&stop);
        const double ns = (stop.QuadPart - start.QuadPart) * 1e9 / frequency.QuadPart / nCalls;
        if (ns < best) best = ns;
    }
    return best;
}

void Report(const char* szOperation, double ns, const char* szBaseline, double nsBaseline)
{
    printf("%-44s %8.2f ns   %-36s %8.2f ns   ratio %6.2f\n", szOperation, ns, szBaseline, nsBaseline,
           nsBaseline > 0 ? ns / nsBaseline : 0.0);
}

// The static build's module is this program, so the library reads the Product.cfg beside it.
Tavo::CStringW WriteBenchConfig()
{
    const Tavo::CStringW strFile = Tavo::PathCombineW(Tavo::GetModulePathNameW(nullptr), L"Product.cfg");
    const char szContent[] = "[Config]\r\nCompany=Bench Company\r\nProduct=Bench Product\r\n";
    HANDLE hFile = CreateFileW(strFile, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD cb = 0;
    if (hFile == INVALID_HANDLE_VALUE || !WriteFile(hFile, szContent, sizeof(szContent) - 1, &cb, nullptr))
        fprintf(stderr, "warning: %ls was not written\n", strFile.GetString());
    if (hFile != INVALID_HANDLE_VALUE) CloseHandle(hFile);
    return strFile;
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

void ConfigAndPaths()
{
    const Tavo::CStringW strFile = WriteBenchConfig();
    volatile int nSink = 0;
    const int kFileCalls = 5000;
    const double nsConfig = BestNanosecondsPerCall([&] { nSink = Tavo::GetConfigString(L"Product", L"x").GetLength(); }, kFileCalls);
    const double nsProfile = BestNanosecondsPerCall([&] {
        wchar_t sz[256];
        nSink = ::GetPrivateProfileStringW(L"Config", L"Product", L"x", sz, 256, strFile);
    }, kFileCalls);
    Report("GetConfigString, present key", nsConfig, "::GetPrivateProfileStringW", nsProfile);

    // The first call reads the bench's own Product.cfg; after it the getter is a lock and a pointer.
    volatile const wchar_t* szProduct = Tavo::GetProductW();
    const double nsLockPair = BestNanosecondsPerCall([] {
        EnterCriticalSection(&s_cs);
        LeaveCriticalSection(&s_cs);
    });
    const double nsProduct = BestNanosecondsPerCall([&] { szProduct = Tavo::GetProductW(); });
    Report("cached getter (GetProductW)", nsProduct, "EnterCriticalSection+Leave", nsLockPair);
    (void)szProduct;

    const double nsCombine = BestNanosecondsPerCall([&] { nSink = Tavo::PathCombineW(L"C:\\Program Files\\", L"Bench\\file.txt").GetLength(); });
    const double nsPlatformCombine = BestNanosecondsPerCall([&] {
        wchar_t sz[MAX_PATH];
        nSink = ::PathCombineW(sz, L"C:\\Program Files\\", L"Bench\\file.txt") != nullptr;
    });
    Report("Tavo::PathCombineW", nsCombine, "::PathCombineW", nsPlatformCombine);
    DeleteFileW(strFile);
    (void)nSink;
}

// A load asks for the language file's attributes every time and, when the file is there, reads it.
// The bench's own file is written beside it (its install directory) and removed at the end.
void LanguageStrings()
{
    const HINSTANCE hBench = GetModuleHandleW(nullptr);
    const wchar_t* szFile = Tavo::GetLanguageFileW();
    if (GetFileAttributesW(szFile) != INVALID_FILE_ATTRIBUTES) {
        fprintf(stderr, "warning: %ls is in the way; LoadStringW not measured\n", szFile);
        return;
    }
    volatile int nSink = 0;
    const int kLoadCalls = 20000;
    const double nsTable = BestNanosecondsPerCall([&] { nSink = Tavo::LoadStringW(102, hBench).GetLength(); }, kLoadCalls);
    const double nsPlatformTable = BestNanosecondsPerCall([&] {
        wchar_t sz[256];
        nSink = ::LoadStringW(hBench, 102, sz, 256) + (GetFileAttributesW(szFile) != INVALID_FILE_ATTRIBUTES);
    }, kLoadCalls);
    Report("LoadStringW, no language file", nsTable, "::LoadStringW+GetFileAttributesW", nsPlatformTable);

    const Tavo::CStringA strContent = "[" + Tavo::GetLanguageSectionA(hBench) + "]\r\n102=%s Kilobyte\r\n";
    HANDLE hFile = CreateFileW(szFile, GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
    DWORD cb = 0;
    const bool bWritten = hFile != INVALID_HANDLE_VALUE &&
                          WriteFile(hFile, strContent.GetString(), static_cast<DWORD>(strContent.GetLength()), &cb, nullptr);
    if (hFile != INVALID_HANDLE_VALUE) CloseHandle(hFile);
    if (!bWritten) fprintf(stderr, "warning: %ls was not written\n", szFile);
    const Tavo::CStringW strSection = Tavo::GetLanguageSectionW(hBench);
    const int kFileCalls = 5000;
    const double nsFile = BestNanosecondsPerCall([&] { nSink = Tavo::LoadStringW(102, hBench).GetLength(); }, kFileCalls);
    const double nsProfile = BestNanosecondsPerCall([&] {
        wchar_t sz[256];
        nSink = ::GetPrivateProfileStringW(strSection, L"102", L"", sz, 256, szFile);
    }, kFileCalls);
    Report("LoadStringW, from the language file", nsFile, "::GetPrivateProfileStringW", nsProfile);
    if (bWritten) DeleteFileW(szFile);
    (void)nSink;
}

// Splitting should cost the same per megabyte at any size: twice the text, twice the time.
void SplitGrowth()
{
    const int kMB = 1024 * 1024;
    double msPerMB[2];
    for (int i = 0; i < 2; ++i) {
        const Tavo::CStringA strInput = SplitInput((i + 1) * kMB);
        const double ns = BestNanosecondsPerCall([&] {
            Tavo::CAtlArray<Tavo::CStringA> aTokens;
            Tavo::SplitString(strInput, " ,", aTokens);
        }, 3);
        msPerMB[i] = ns / 1e6 / (i + 1);
    }
    printf("%-44s %8.2f ms/MB at 1 MB %8.2f ms/MB at 2 MB   ratio %6.2f\n", "Tavo::SplitString", msPerMB[0], msPerMB[1],
           msPerMB[0] > 0 ? msPerMB[1] / msPerMB[0] : 0.0);
}

// FormatDateTimeW is the two platform calls plus two small strings; MakeTime is one _mkgmtime64.
void DatesAndTimes()
{
    const SYSTEMTIME st = {2012, 1, 5, 13, 15, 41, 52, 0};
    volatile int nSink = 0;
    const int kFormatCalls = 50000;
    const double nsFormat = BestNanosecondsPerCall([&] { nSink = Tavo::FormatDateTimeW(st, true).GetLength(); }, kFormatCalls);
    const double nsPlatformFormat = BestNanosecondsPerCall([&] {
        wchar_t szDate[128], szTime[128];
        nSink = ::GetDateFormatW(LOCALE_USER_DEFAULT, DATE_SHORTDATE, &st, nullptr, szDate, 128) +
                ::GetTimeFormatW(LOCALE_USER_DEFAULT, 0, &st, nullptr, szTime, 128);
    }, kFormatCalls);
    Report("Tavo::FormatDateTimeW", nsFormat, "::GetDateFormatW+GetTimeFormatW", nsPlatformFormat);

    volatile __int64 tSink = 0;
    const double nsMake = BestNanosecondsPerCall([&] { tSink = Tavo::MakeTime(2012, 1, 13, 15, 41, 52); });
    const double nsPlatformMake = BestNanosecondsPerCall([&] {
        struct tm fields = {52, 41, 15, 13, 0, 112, 0, 0, 0};
        tSink = _mkgmtime64(&fields);
    });
    Report("Tavo::MakeTime", nsMake, "_mkgmtime64", nsPlatformMake);
    (void)nSink;
    (void)tSink;
}

// FormatNumberW is five locale queries and the formatter; FormatBytesW adds a string load and a format.
void NumbersAndBytes()
{
    volatile int nSink = 0;
    const int kNumberCalls = 50000;
    const double nsNumber = BestNanosecondsPerCall([&] { nSink = Tavo::FormatNumberW(1234567).GetLength(); }, kNumberCalls);
    wchar_t szDecimal[8], szThousand[8];
    GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_SDECIMAL, szDecimal, 8);
    GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_STHOUSAND, szThousand, 8);
    NUMBERFMTW fmt = {0, 1, 3, szDecimal, szThousand, 1};
    const double nsPlatformNumber = BestNanosecondsPerCall([&] {
        wchar_t sz[128];
        nSink = ::GetNumberFormatW(LOCALE_USER_DEFAULT, 0, L"1234567", &fmt, sz, 128);
    }, kNumberCalls);
    Report("Tavo::FormatNumberW(int)", nsNumber, "::GetNumberFormatW, NUMBERFMT ready", nsPlatformNumber);

    const double nsBytes = BestNanosecondsPerCall([&] { nSink = Tavo::FormatBytesW(1536ull << 20).GetLength(); }, kNumberCalls);
    const double nsDouble = BestNanosecondsPerCall([&] { nSink = Tavo::FormatNumberW(1536.0, 2).GetLength(); }, kNumberCalls);
    Report("Tavo::FormatBytesW", nsBytes, "Tavo::FormatNumberW(double, 2)", nsDouble);
    (void)nSink;
}


// The OS code and its predicates, cached, against the bare lock pair.
void OperatingSystem(double nsLockPair)
{
    volatile int nSink = Tavo::GetOS();  // the first call asks the platform; the rest read the cache
    const double nsOS = BestNanosecondsPerCall([&] { nSink = Tavo::GetOS(); });
    Report("cached OS code (GetOS)", nsOS, "EnterCriticalSection+Leave", nsLockPair);
    const double nsWin7 = BestNanosecondsPerCall([&] { nSink = Tavo::IsWin7OrNewer(); });
    Report("predicate (IsWin7OrNewer)", nsWin7, "EnterCriticalSection+Leave", nsLockPair);
    (void)nSink;
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

// One WMI property through the library against the same query written against the WMI interfaces.
// A query costs milliseconds, so few calls are timed.
void WmiQuery()
{
    volatile int nSink = 0;
    const int kQueryCalls = 5;
    const double nsLibrary = BestNanosecondsPerCall([&] {
        nSink = Tavo::QueryWMI(L"SELECT * FROM Win32_OperatingSystem", L"Caption", L"ROOT\\CIMV2", L"").GetLength();
    }, kQueryCalls);
    const double nsDirect = BestNanosecondsPerCall([&] { nSink = DirectWmiCaption(); }, kQueryCalls);
    if (nSink < 0) fprintf(stderr, "warning: the direct WMI query found no caption\n");
    Report("Tavo::QueryWMI, one property", nsLibrary, "IWbemServices::ExecQuery direct", nsDirect);
}

} // namespace

int main()
{
    InitializeCriticalSectionAndSpinCount(&s_cs, 0);
    if (!*Tavo::GetLibraryVersionW()) fprintf(stderr, "warning: the version resource was not read\n");

    volatile const wchar_t* sink = nullptr;
    const double nsLockPair = BestNanosecondsPerCall([] {
        EnterCriticalSection(&s_cs);
        LeaveCriticalSection(&s_cs);
    });
    const double nsGetter = BestNanosecondsPerCall([&] { sink = Tavo::GetLibraryVersionW(); });
    Report("cached getter (GetLibraryVersionW)", nsGetter, "EnterCriticalSection+Leave", nsLockPair);

    const double nsEmpty = BestNanosecondsPerCall([] { EmptyCall(TRACE_INFO, "f", "g", 1, "s", "x"); });
    const double nsTrace = BestNanosecondsPerCall([] {
        Tavo::TraceOutput(TRACE_INFO, "Bench.cpp", "main", 1, __TIMESTAMP__, "%d", 1);
    });
    Report("trace call, no sink (TraceOutput)", nsTrace, "empty function call", nsEmpty);
    ConfigAndPaths();
    LanguageStrings();
    SplitGrowth();
    NumbersAndBytes();
    DatesAndTimes();
    OperatingSystem(nsLockPair);
    WmiQuery();
    (void)sink;
    return 0;
}
