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
TCachedString<wchar_t> s_installDirectoryW, s_helpFilePathW, s_mainExeFileW, s_mainExePathW, s_mainRegistryKeyW;
TCachedString<char> s_installDirectoryA, s_helpFilePathA, s_mainExeFileA, s_mainExePathA, s_mainRegistryKeyA;
TCachedString<wchar_t> s_userDataDirectoryW, s_appDataDirectoryW, s_interAppDataDirectoryW;
TCachedString<char> s_userDataDirectoryA, s_appDataDirectoryA, s_interAppDataDirectoryA;
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

// A directory that cannot be made is still handed out: the caller meets the failure when it uses it.
void ComputeAppDataDirectory(CStringW& strAppDataDirectoryW)
{
    TAVO_FUNCTION("Tavo::GetAppDataDirectoryW");
    strAppDataDirectoryW = IsPortable() ? GetAppDataPathW()
                                        : PathCombineW(GetSpecialFolderW(CSIDL_COMMON_APPDATA, NULL), GetAppDataPathW());
    VERIFY_HRESULT(Tavo::CreateDirectoryW(strAppDataDirectoryW));
}

void ComputeUserDataDirectory(CStringW& strUserDataDirectoryW)
{
    TAVO_FUNCTION("Tavo::GetUserDataDirectoryW");
    strUserDataDirectoryW = IsPortable() ? PathCombineW(GetAppDataDirectoryW(), L"UserData")
                                         : PathCombineW(GetSpecialFolderW(CSIDL_APPDATA, NULL), GetAppDataPathW());
    VERIFY_HRESULT(Tavo::CreateDirectoryW(strUserDataDirectoryW));
}

// Shared by the company's products, so the portable switch of one product does not move it.
void ComputeInterAppDataDirectory(CStringW& strInterAppDataDirectoryW)
{
    TAVO_FUNCTION("Tavo::GetInterAppDataDirectoryW");
    strInterAppDataDirectoryW =
        PathCombineW(GetSpecialFolderW(CSIDL_COMMON_APPDATA, NULL),
                     GetConfigString(L"InterAppDataPath", PathCombineW(GetCompanyW(), L"Common"), nullptr));
    VERIFY_HRESULT(Tavo::CreateDirectoryW(strInterAppDataDirectoryW));
}

} // namespace

CStringW GetAppDataPathW() { return CStringW(CachedOnce(s_appDataPathW, &ComputeAppDataPath)); }
const wchar_t* GetHelpFileW() { return CachedOnce(s_helpFileW, &ComputeHelpFile); }
const wchar_t* GetRegKeyW() { return CachedOnce(s_regKeyW, &ComputeRegKey); }

const wchar_t* GetInstallDirectoryW() { return CachedOnce(s_installDirectoryW, &ComputeInstallDirectory); }
const char* GetInstallDirectoryA() { return CachedOnceNarrow(s_installDirectoryA, &GetInstallDirectoryW); }

const wchar_t* GetUserDataDirectoryW() { return CachedWhileEmpty(s_userDataDirectoryW, &ComputeUserDataDirectory); }
const char* GetUserDataDirectoryA() { return CachedOnceNarrow(s_userDataDirectoryA, &GetUserDataDirectoryW); }

const wchar_t* GetAppDataDirectoryW() { return CachedWhileEmpty(s_appDataDirectoryW, &ComputeAppDataDirectory); }
const char* GetAppDataDirectoryA() { return CachedOnceNarrow(s_appDataDirectoryA, &GetAppDataDirectoryW); }

const wchar_t* GetInterAppDataDirectoryW()
{
    return CachedWhileEmpty(s_interAppDataDirectoryW, &ComputeInterAppDataDirectory);
}
const char* GetInterAppDataDirectoryA() { return CachedOnceNarrow(s_interAppDataDirectoryA, &GetInterAppDataDirectoryW); }

const wchar_t* GetHelpFilePathW() { return CachedOnce(s_helpFilePathW, &ComputeHelpFilePath); }
const char* GetHelpFilePathA() { return CachedOnceNarrow(s_helpFilePathA, &GetHelpFilePathW); }

const wchar_t* GetMainExeFileW() { return CachedOnce(s_mainExeFileW, &ComputeMainExeFile); }
const char* GetMainExeFileA() { return CachedOnceNarrow(s_mainExeFileA, &GetMainExeFileW); }

const wchar_t* GetMainExePathW() { return CachedOnce(s_mainExePathW, &ComputeMainExePath); }
const char* GetMainExePathA() { return CachedOnceNarrow(s_mainExePathA, &GetMainExePathW); }

const wchar_t* GetMainRegistryKeyW() { return CachedOnce(s_mainRegistryKeyW, &ComputeMainRegistryKey); }
const char* GetMainRegistryKeyA() { return CachedOnceNarrow(s_mainRegistryKeyA, &GetMainRegistryKeyW); }

// A refused id leaves no entry, so the shell is asked again at the next call. The key is the id
// alone: hWnd only matters at the call that fills an entry.
const wchar_t* GetSpecialFolderW(int nFolder, HWND hWnd)
{
    TAVO_FUNCTION("Tavo::GetSpecialFolderW");
    return CachedByKey(s_specialFoldersW, nFolder, [&](CStringW& strFolder) {
        wchar_t wzFolder[MAX_PATH] = {0};
        if (!::SHGetSpecialFolderPathW(hWnd, wzFolder, nFolder, TRUE)) {
            TAVO_TRACE(TRACE_ERROR, "SHGetSpecialFolderPathW(%d) failed", nFolder);
            return false;
        }
        VERIFY_HRESULT(Tavo::CreateDirectoryW(wzFolder));
        strFolder = wzFolder;
        return true;
    });
}

const char* GetSpecialFolderA(int nFolder, HWND hWnd)
{
    TAVO_FUNCTION("Tavo::GetSpecialFolderA");
    return CachedByKey(s_specialFoldersA, nFolder, [&](CStringA& strFolder) {
        char szFolder[MAX_PATH] = {0};
        if (!::SHGetSpecialFolderPathA(hWnd, szFolder, nFolder, TRUE)) {
            TAVO_TRACE(TRACE_ERROR, "SHGetSpecialFolderPathW(%d) failed", nFolder);
            return false;
        }
        VERIFY_HRESULT(Tavo::CreateDirectoryA(szFolder));
        strFolder = szFolder;
        return true;
    });
}

} // namespace Tavo
