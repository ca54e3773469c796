// Where the product lives: its install directory, its data directories (created on first use, and
// moved out of the profile by the portable switch), its help file, main program, registry key and
// the shell's special folders.
#include "Cache.h"
#include "Check.h"
#include "Global.h"

#include <shlobj.h>

namespace Tavo {
namespace {

TCachedString<wchar_t> s_appDataPathW, s_helpFileW, s_regKeyW;
TCachedMap<wchar_t> s_specialFoldersW;
TCachedMap<char> s_specialFoldersA;

// Read at each computation of a data directory, and by the narrow reader: a build with only a
// narrow configuration path still decides the same way.
bool IsPortable() { return GetConfigBOOL("IsPortable", FALSE, "CONFIG") != FALSE; }

CStringW CompanyAndProduct() { return PathCombineW(GetCompanyW(), GetProductW()); }

void ComputeAppDataPath(CStringW& strValue) { strValue = GetConfigString(L"AppDataPath", CompanyAndProduct(), nullptr); }
void ComputeHelpFile(CStringW& strValue) { strValue = GetConfigString(L"HelpFile", GetProductW() + CStringW(L".chm"), nullptr); }
void ComputeRegKey(CStringW& strValue) { strValue = GetConfigString(L"RegKey", CompanyAndProduct(), nullptr); }

void ComputeInstallDirectory(CStringW& strValue) { strValue = GetModulePathNameW(); }
void ComputeHelpFilePath(CStringW& strValue) { strValue = PathCombineW(GetInstallDirectoryW(), GetHelpFileW()); }
void ComputeMainExeFile(CStringW& strValue) { strValue = GetConfigString(L"MainExe", GetProductW() + CStringW(L".exe"), nullptr); }
void ComputeMainExePath(CStringW& strValue) { strValue = PathCombineW(GetInstallDirectoryW(), GetMainExeFileW()); }
void ComputeMainRegistryKey(CStringW& strValue) { strValue = PathCombineW(L"Software", GetRegKeyW()); }

// A data directory is made at its computation. One that cannot be made is still handed out: the
// caller meets the failure when it uses it.
void MakeDirectory(CStringW& strDirectory, const CStringW& strPath, const char* const tavoFunctionName_,
                   const char* szText)
{
    strDirectory = strPath;
    VERIFY_HRESULT_AS(Tavo::CreateDirectoryW(strDirectory), szText);
}

void ComputeAppDataDirectory(CStringW& strDirectory)
{
    MakeDirectory(strDirectory,
                  IsPortable() ? GetAppDataPathW()
                               : PathCombineW(GetSpecialFolderW(CSIDL_COMMON_APPDATA, NULL), GetAppDataPathW()),
                  "Tavo::GetAppDataDirectoryW", "Tavo::CreateDirectoryW(strAppDataDirectoryW)");
}

void ComputeUserDataDirectory(CStringW& strDirectory)
{
    MakeDirectory(strDirectory,
                  IsPortable() ? PathCombineW(GetAppDataDirectoryW(), L"UserData")
                               : PathCombineW(GetSpecialFolderW(CSIDL_APPDATA, NULL), GetAppDataPathW()),
                  "Tavo::GetUserDataDirectoryW", "Tavo::CreateDirectoryW(strUserDataDirectoryW)");
}

// Shared by the company's products, so the portable switch of one product does not move it.
void ComputeInterAppDataDirectory(CStringW& strDirectory)
{
    MakeDirectory(strDirectory,
                  PathCombineW(GetSpecialFolderW(CSIDL_COMMON_APPDATA, NULL),
                               GetConfigString(L"InterAppDataPath", PathCombineW(GetCompanyW(), L"Common"), nullptr)),
                  "Tavo::GetInterAppDataDirectoryW", "Tavo::CreateDirectoryW(strInterAppDataDirectoryW)");
}

// A refused id leaves no entry, so the shell is asked again at the next call. The key is the id
// alone: hWnd only matters at the call that fills an entry. Both widths report the wide call.
#define TAVO_SPECIAL_FOLDER(XCHAR, AW, BUFFER)                                                         \
    const XCHAR* SpecialFolder(TCachedMap<XCHAR>& folders, int nFolder, HWND hWnd)                     \
    {                                                                                                  \
        TAVO_FUNCTION("Tavo::GetSpecialFolder" #AW);                                                   \
        return CachedByKey(folders, nFolder, [&](CStringT<XCHAR>& strFolder) {                         \
            XCHAR BUFFER[MAX_PATH] = {0};                                                              \
            if (!::SHGetSpecialFolderPath##AW(hWnd, BUFFER, nFolder, TRUE)) {                          \
                TAVO_TRACE(TRACE_ERROR, "SHGetSpecialFolderPathW(%d) failed", nFolder);                \
                return false;                                                                          \
            }                                                                                          \
            VERIFY_HRESULT(Tavo::CreateDirectory##AW(BUFFER));                                         \
            strFolder = BUFFER;                                                                        \
            return true;                                                                               \
        });                                                                                            \
    }

TAVO_SPECIAL_FOLDER(wchar_t, W, wzFolder)
TAVO_SPECIAL_FOLDER(char, A, szFolder)

#undef TAVO_SPECIAL_FOLDER

} // namespace

CStringW GetAppDataPathW() { return CStringW(CachedOnce(s_appDataPathW, &ComputeAppDataPath)); }
const wchar_t* GetHelpFileW() { return CachedOnce(s_helpFileW, &ComputeHelpFile); }
const wchar_t* GetRegKeyW() { return CachedOnce(s_regKeyW, &ComputeRegKey); }

// A location's twins: the wide value cached in its shape, the narrow one converted from it once.
#define TAVO_LOCATION(NAME, SHAPE, COMPUTE)                                                            \
    static TCachedString<wchar_t> s_##NAME##W;                                                         \
    static TCachedString<char> s_##NAME##A;                                                            \
    const wchar_t* Get##NAME##W() { return SHAPE(s_##NAME##W, &COMPUTE); }                             \
    const char* Get##NAME##A() { return CachedOnceNarrow(s_##NAME##A, &Get##NAME##W); }

TAVO_LOCATION(InstallDirectory, CachedOnce, ComputeInstallDirectory)
TAVO_LOCATION(UserDataDirectory, CachedWhileEmpty, ComputeUserDataDirectory)
TAVO_LOCATION(AppDataDirectory, CachedWhileEmpty, ComputeAppDataDirectory)
TAVO_LOCATION(InterAppDataDirectory, CachedWhileEmpty, ComputeInterAppDataDirectory)
TAVO_LOCATION(HelpFilePath, CachedOnce, ComputeHelpFilePath)
TAVO_LOCATION(MainExeFile, CachedOnce, ComputeMainExeFile)
TAVO_LOCATION(MainExePath, CachedOnce, ComputeMainExePath)
TAVO_LOCATION(MainRegistryKey, CachedOnce, ComputeMainRegistryKey)

#undef TAVO_LOCATION

const wchar_t* GetSpecialFolderW(int nFolder, HWND hWnd) { return SpecialFolder(s_specialFoldersW, nFolder, hWnd); }
const char* GetSpecialFolderA(int nFolder, HWND hWnd) { return SpecialFolder(s_specialFoldersA, nFolder, hWnd); }

} // namespace Tavo
