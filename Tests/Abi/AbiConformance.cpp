// A program of the Microsoft ABI, as one of Microsoft's compiler would be: a check per kind of thing that crosses
// the boundary of the Microsoft-ABI TavoCommon.dll. No C++ standard library, no start-up code: it prints a FAIL
// line per failed check, then "N passed, M failed", and exits with the number of failures.
#include "TavoCommon.h"
#include "TavoHandles.h"
#include "CorvDebug.h"
#include "TavoVersion.h"
#define CORVDEBUG_BUILDING  // the recorder's record only: the reader half of this header is for the MinGW tests
#include "Recorder.h"
#undef CORVDEBUG_BUILDING

#include <stdio.h>

namespace {

int s_nPassed, s_nFailed, s_nTraces;
char s_szTrace[256];  // the last line of the handle owner, "level|file|function|template"

void Print(const char* szFormat, ...)
{
    char sz[1024] = "";
    va_list args;
    va_start(args, szFormat);
    _vsnprintf(sz, sizeof(sz) - 1, szFormat, args);
    va_end(args);
    DWORD dwWritten = 0;
    ::WriteFile(::GetStdHandle(STD_OUTPUT_HANDLE), sz, static_cast<DWORD>(strlen(sz)), &dwWritten, NULL);
}

// Counts a check; a failed one prints a FAIL line with what was found instead (szActual: a printf template).
#define CHECK(condition, szActual, ...)                                                                                \
    (void)((condition) ? ++s_nPassed : (Print("FAIL AbiConformance.cpp:%d: %s - actual: " szActual "\n", __LINE__, \
                                              #condition, ##__VA_ARGS__), ++s_nFailed))

template <typename PFN>
PFN SinkExport(const char* szName)
{
    const HMODULE hSink = ::GetModuleHandleW(L"CorvDebug.dll");
    return hSink ? reinterpret_cast<PFN>(reinterpret_cast<void*>(::GetProcAddress(hSink, szName))) : nullptr;
}

// A line of the library reaches the sink: no module lies at this address, so the name is empty and traced.
// Beside the faulting sink, the library's structured guard takes each access violation and leaves the frame
// chain as it found it; the C++ exceptions of the later checks still find their handlers.
void CheckSinkLine(bool bFaulting)
{
    const auto SinkLines = [] {  // the lines the sink was given: the recorder counts them, and so does the faulting one
        const PFN_CORV_RECORDER_COUNT pfnCount = SinkExport<PFN_CORV_RECORDER_COUNT>("CorvRecorderCount");
        return pfnCount ? pfnCount() : 0;
    };
    const int nBefore = SinkLines(), nCalls = bFaulting ? 2 : 1;
    for (int i = 0; i < nCalls; ++i)
        CHECK(Tavo::GetModuleFileNameW(reinterpret_cast<HINSTANCE>(0x10000)).IsEmpty(), "a name for no module");
    CHECK(SinkLines() == nBefore + nCalls, "%d lines, %d before: is CorvDebug.dll beside it?", SinkLines(), nBefore);
    const PFN_CORV_RECORDER_GET pfnGet = SinkExport<PFN_CORV_RECORDER_GET>("CorvRecorderGet");
    static CorvRecord record;  // large: off the stack
    if (bFaulting || !pfnGet || !pfnGet(SinkLines() - 1, &record)) return;
    char szLine[1024] = "", szLibrary[MAX_PATH] = "";
    _snprintf(szLine, sizeof(szLine) - 1, "%lu|%s|%s|%s|%.41s", record.level, record.file, record.function,
              record.format, record.text);
    ::GetModuleFileNameA(::GetModuleHandleW(L"TavoCommon.dll"), szLibrary, MAX_PATH);
    CHECK(strcmp(szLine, "128|ModuleFileName.cpp|Tavo::GetModuleFileNameW|GetModuleFileName failed, GetLastError = "
                         "%ld|GetModuleFileName failed, GetLastError = ") == 0 && record.text[41] >= '1' &&
              record.text[41] <= '9' && _stricmp(record.module, szLibrary) == 0,
          "\"%s\", text \"%s\" from \"%s\"", szLine, record.text, record.module);
}

void CheckKinds()
{
    // Cached pointers, one per width, the same at every call.
    const wchar_t* pszVersion = Tavo::GetLibraryVersionW();
    const char* pszVersionA = Tavo::GetLibraryVersionA();
    CHECK(pszVersion == Tavo::GetLibraryVersionW() && pszVersionA == Tavo::GetLibraryVersionA() &&
              !wcscmp(pszVersion, L"" TAVO_VERSION_TEXT) && !strcmp(pszVersionA, TAVO_VERSION_TEXT),
          "\"%ls\" \"%s\", built as %s", pszVersion, pszVersionA, TAVO_VERSION_TEXT);

    // A string value of each width made in the library, then owned here: a copy shares the text until one side
    // changes, and the other side never sees the change.
    const HMODULE hLibrary = ::GetModuleHandleW(L"TavoCommon.dll");
    wchar_t szPath[MAX_PATH] = L"";
    char szPathA[MAX_PATH] = "";
    ::GetModuleFileNameW(hLibrary, szPath, MAX_PATH);
    ::GetModuleFileNameA(hLibrary, szPathA, MAX_PATH);
    const Tavo::CStringW strName = Tavo::GetModuleFileNameW(hLibrary);
    const Tavo::CStringA strNameA = Tavo::GetModuleFileNameA(hLibrary);
    CHECK(strName == szPath && wcsstr(szPath, L"\\TavoCommon.dll"), "\"%ls\" for \"%ls\"", strName.GetString(), szPath);
    CHECK(strNameA == szPathA, "\"%s\" for \"%s\"", strNameA.GetString(), szPathA);
    Tavo::CStringW strCopy(strName);
    const bool bShared = strCopy.GetString() == strName.GetString();
    strCopy += L"|appended";
    strCopy = strCopy + L"!";
    CHECK(bShared && strCopy.GetLength() == strName.GetLength() + 10 && strName == szPath, "\"%ls\" shared %d",
          strCopy.GetString(), bShared);

    // An exception thrown in the library passes a handler of another type and is caught by its own, HRESULT kept.
    HRESULT hr = S_OK;
    bool bWrongHandler = false;
    try {
        try {
            Tavo::CStringW strBad(L"abc", -1);
        } catch (int) {
            bWrongHandler = true;
        }
    } catch (const Tavo::CAtlException& e) {
        hr = e.m_hr;
    }
    CHECK(hr == E_INVALIDARG && !bWrongHandler, "%#lx, the int handler %d", hr, bWrongHandler);

    // A variadic call in the printf dialect of the library's run-time.
    const Tavo::CStringW strFormatted = Tavo::FormatStringW(L"%s|%hs|%d", L"wide", "narrow", -7);
    CHECK(strFormatted == L"wide|narrow|-7", "\"%ls\"", strFormatted.GetString());

    // A buffer form that cuts: the HRESULT says so, the marker past the size stays.
    wchar_t szError[6] = {L'#', L'#', L'#', L'#', L'#', L'#'};
    const long hrCut = Tavo::FormatErrorW(5, szError, 4);
    CHECK(hrCut == static_cast<long>(0x8007007A) && wcscmp(szError, L"5 -") == 0 && szError[4] == L'#', "%#lx \"%ls\"",
          hrCut, szError);

    // An array grown by the library on the process heap, beside an element added here.
    Tavo::CAtlArray<Tavo::CStringA> aTokens;
    aTokens.Add(Tavo::CStringA("kept"));
    const long hrSplit = Tavo::SplitString(",,a,b;;c,", ",;", aTokens);
    const SIZE_T cb = ::HeapSize(::GetProcessHeap(), 0, aTokens.GetData());
    CHECK(hrSplit == S_OK && aTokens.GetCount() == 4 && aTokens[0] == "kept" && aTokens[3] == "c" &&
              cb != static_cast<SIZE_T>(-1) && cb >= 4 * sizeof(Tavo::CStringA), "%#lx, %u tokens, %lu bytes", hrSplit,
          static_cast<unsigned>(aTokens.GetCount()), static_cast<unsigned long>(cb));

    // A 64-bit Time and a SYSTEMTIME by value; floating point inside the library (_fltused).
    const Tavo::Time time = Tavo::MakeTime(2012, 1, 13, 15, 41, 52);
    const SYSTEMTIME st = Tavo::TimeToSystemTime(time);
    CHECK(time == 1326469312 && st.wYear == 2012 && st.wDayOfWeek == 5 && st.wHour == 15, "%I64d %u-%u %u", time,
          st.wYear, st.wDayOfWeek, st.wHour);
    const Tavo::CStringW strBytes = Tavo::FormatBytesW(1536);
    CHECK(strBytes == L"1.50 KB", "\"%ls\"", strBytes.GetString());

    // An out-argument, a bool and an enum by value.
    int nServicePack = -2;
    const int nOs = Tavo::GetOS(&nServicePack);
    CHECK(nOs == Tavo::GetOS() && nServicePack >= -1 && Tavo::Is64BitWindows() == Tavo::IsWow64Process(), "%d %d %d",
          nOs, nServicePack, static_cast<int>(Tavo::Is64BitWindows()));
    const Tavo::METRO_TOAST_APP_EXIT_CODES_ENUM eToast = Tavo::ShowMetroToastIfWin8orNewerA(1, 0, 0, 0, 0, 0, 0);
    CHECK(eToast == (nOs < 5 ? 12 : 6), "%d", static_cast<int>(eToast));

    // The handle owner of the public header, compiled here: misuse writes its line through this program's
    // TraceOutput, the handle it held is left open, the one it holds at the end is closed.
    HANDLE hFirst = ::CreateEventW(NULL, TRUE, FALSE, NULL), hSecond = ::CreateEventW(NULL, TRUE, FALSE, NULL);
    DWORD dwFlags = 0;
    {
        Tavo::THandle<HANDLE, 0> h;
        h = INVALID_HANDLE_VALUE;
        CHECK(!h && s_nTraces == 0, "%p, %d lines", h.m_h, s_nTraces);
        h = hFirst;
        h = hSecond;
        CHECK(h.m_h == hSecond && s_nTraces == 1 && ::GetHandleInformation(hFirst, &dwFlags) &&
                  strcmp(s_szTrace, "1|TavoHandles.h|Tavo::THandle<void *,0>::operator =|%s - %lu") == 0,
              "%p, %d lines, \"%s\"", h.m_h, s_nTraces, s_szTrace);
    }
    CHECK(hSecond && !::GetHandleInformation(hSecond, &dwFlags), "the held handle is still open after the owner");
    ::CloseHandle(hFirst);

    // The shims' module entry, seen through ShimProbe.dll's global object: constructed before DllMain's attach,
    // destroyed after its detach, each once.
    static char szSteps[8];
    const HMODULE hProbe = ::LoadLibraryW(L"ShimProbe.dll");
    const FARPROC pfnWatch = hProbe ? ::GetProcAddress(hProbe, "ShimProbeWatch") : nullptr;
    if (pfnWatch) reinterpret_cast<void(__cdecl*)(char*)>(reinterpret_cast<void*>(pfnWatch))(szSteps);
    CHECK(strcmp(szSteps, "ca") == 0, "\"%s\" after the load, error %lu", szSteps, ::GetLastError());
    if (hProbe) ::FreeLibrary(hProbe);
    CHECK(strcmp(szSteps, "caxd") == 0, "\"%s\" after the unload", szSteps);
}

} // namespace

namespace Tavo {

void TraceOutput(DWORD dwLevel, const char* szFile, const char* szFunction, int, const char*, const char* szFormat, ...)
{
    ++s_nTraces;
    _snprintf(s_szTrace, sizeof(s_szTrace) - 1, "%lu|%s|%s|%s", dwLevel, szFile, szFunction, szFormat);
}

} // namespace Tavo

extern "C" int __cdecl mainCRTStartup()
{
    try {
        CheckSinkLine(wcsstr(::GetCommandLineW(), L"--faulting-sink") != nullptr);
        CheckKinds();
        // Every string the library made and this program freed went back to the one heap intact.
        CHECK(::HeapValidate(::GetProcessHeap(), 0, NULL), "the process heap is damaged");
    } catch (...) {
        ++s_nFailed;
        Print("FAIL: unexpected exception\n");
    }
    Print("%d passed, %d failed\n", s_nPassed, s_nFailed);
    ::ExitProcess(static_cast<UINT>(s_nFailed));
}
