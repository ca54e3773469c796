// MetroToast.exe: the suite's toast tool, which the library starts in the logged-on user's session.
//   MetroToast.exe Duration=long|short Type=NAME "CompanyName=..." "ShortcutFileBaseName=..."
//                  ["Image=..."] "Line1=..." ["Line2=..."] ["Line3=..."]
// Each argument is one Key=value (the quote opens before the key). This build does not draw: it
// prints the toast, and when a file MetroToast.log exists beside the program it appends one line
// there, the exit code, a tab and the whole command line (UTF-8), so that what the library asked for
// can be read back. Exit codes: 0 shown, 2 unknown argument, 3 bad Duration, 6 no Type, 8 no Line1,
// 12 older than Windows 8, 4 the log could not be written.
#include <windows.h>
#include <shellapi.h>

#include <stdio.h>
#include <wchar.h>

namespace {

enum {
    kShown = 0, kUnknownArgument = 2, kBadDuration = 3, kLogFailed = 4, kNoType = 6, kNoLine1 = 8, kOsTooOld = 12
};

const wchar_t* const kKeys[] = {L"Duration", L"Type", L"CompanyName", L"ShortcutFileBaseName",
                                L"Image", L"Line1", L"Line2", L"Line3"};
enum { kDuration, kType, kCompany, kShortcut, kImage, kLine1, kLine2, kLine3, kKeyCount };

bool IsWin8OrNewer()
{
    OSVERSIONINFOW ovi = {};
    ovi.dwOSVersionInfoSize = sizeof(ovi);
    if (!GetVersionExW(&ovi)) return false;
    return ovi.dwMajorVersion > 6 || (ovi.dwMajorVersion == 6 && ovi.dwMinorVersion >= 2);
}

// Fills values[] from the arguments; an unknown key gives false.
bool Parse(int argc, wchar_t** argv, const wchar_t* values[kKeyCount])
{
    for (int i = 1; i < argc; ++i) {
        const wchar_t* pszEquals = wcschr(argv[i], L'=');
        if (!pszEquals) return false;
        const size_t cchKey = pszEquals - argv[i];
        int nKey = 0;
        while (nKey < kKeyCount && !(wcslen(kKeys[nKey]) == cchKey && wcsncmp(kKeys[nKey], argv[i], cchKey) == 0))
            ++nKey;
        if (nKey == kKeyCount) return false;
        values[nKey] = pszEquals + 1;
    }
    return true;
}

int Decide(int argc, wchar_t** argv)
{
    const wchar_t* values[kKeyCount] = {};
    if (!Parse(argc, argv, values)) return kUnknownArgument;
    if (values[kDuration] && wcscmp(values[kDuration], L"long") != 0 && wcscmp(values[kDuration], L"short") != 0)
        return kBadDuration;
    if (!values[kType]) return kNoType;
    if (!values[kLine1]) return kNoLine1;
    if (!IsWin8OrNewer()) return kOsTooOld;
    for (int nKey = 0; nKey < kKeyCount; ++nKey)
        if (values[nKey]) wprintf(L"%ls: %ls\n", kKeys[nKey], values[nKey]);
    return kShown;
}

// Appends "code<TAB>command line" to MetroToast.log beside the program, if that file exists.
bool Record(int nCode)
{
    wchar_t szLog[MAX_PATH + 16] = {};
    const DWORD cch = GetModuleFileNameW(nullptr, szLog, MAX_PATH);
    wchar_t* pszSlash = cch && cch < MAX_PATH ? wcsrchr(szLog, L'\\') : nullptr;
    if (!pszSlash) return false;
    wcscpy(pszSlash + 1, L"MetroToast.log");
    HANDLE hLog = CreateFileW(szLog, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                              0, nullptr);
    if (hLog == INVALID_HANDLE_VALUE) return GetLastError() == ERROR_FILE_NOT_FOUND;
    const wchar_t* pszCommandLine = GetCommandLineW();
    const int cbLine = WideCharToMultiByte(CP_UTF8, 0, pszCommandLine, -1, nullptr, 0, nullptr, nullptr);
    char* pszLine = static_cast<char*>(HeapAlloc(GetProcessHeap(), 0, cbLine + 16));
    bool bWritten = false;
    if (pszLine) {
        const int cchPrefix = wsprintfA(pszLine, "%d\t", nCode);
        WideCharToMultiByte(CP_UTF8, 0, pszCommandLine, -1, pszLine + cchPrefix, cbLine, nullptr, nullptr);
        lstrcatA(pszLine, "\r\n");
        DWORD cbWritten = 0;
        bWritten = WriteFile(hLog, pszLine, lstrlenA(pszLine), &cbWritten, nullptr) != FALSE;
        HeapFree(GetProcessHeap(), 0, pszLine);
    }
    CloseHandle(hLog);
    return bWritten;
}

} // namespace

int wmain()
{
    int argc = 0;
    wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &argc);
    if (!argv) return kUnknownArgument;
    const int nCode = Decide(argc, argv);
    LocalFree(argv);
    return Record(nCode) ? nCode : kLogFailed;
}
