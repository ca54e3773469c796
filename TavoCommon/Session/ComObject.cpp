// COM objects straight from a DLL that nobody registered: its DllGetClassObject and class factory,
// with the system's class registration and object-creation service left out. The module belongs to
// the caller, who must keep it loaded for as long as the object lives.
#include "Argument.h"
#include "Check.h"
#include "ComPtr.h"

#include <objbase.h>
#include <shlwapi.h>

#ifdef _MSC_VER
// Wine's headers, which the Microsoft-ABI build compiles against, leave the interface without its id.
struct __declspec(uuid("00000001-0000-0000-C000-000000000046")) IClassFactory;
#endif

namespace Tavo {
namespace {

typedef HRESULT(STDAPICALLTYPE* DLLGETCLASSOBJECT)(REFCLSID rclsid, REFIID riid, LPVOID* ppv);

} // namespace

long CoCreateInstance(HINSTANCE hModule, const GUID& rclsid, const GUID& riid, void** ppv)
{
    TAVO_FUNCTION("Tavo::CoCreateInstance");
    DLLGETCLASSOBJECT DllGetClassObject;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wcast-function-type"  // FARPROC is the platform's generic entry type
    CHECK_WIN32(DllGetClassObject = (DLLGETCLASSOBJECT)::GetProcAddress(hModule, "DllGetClassObject"));
#pragma GCC diagnostic pop
    // The object keeps whatever reference the factory gave it; the factory itself goes at the end.
    TComPtr<IClassFactory> pFactory;
    CHECK_HRESULT(DllGetClassObject(rclsid, __uuidof(IClassFactory), (LPVOID*)&pFactory));
    // A DLL that claims success without a factory has failed all the same.
    CHECK_WIN32(pFactory);
    CHECK_HRESULT(pFactory->CreateInstance(NULL, riid, ppv));
    return S_OK;
}

long CoCreateInstance(HINSTANCE hModule, const GUID& riid, void** ppv)
{
    TAVO_FUNCTION("Tavo::CoCreateInstance");
    CHECK_HRESULT(Tavo::CoCreateInstance(hModule, riid, riid, ppv));
    return S_OK;
}

long CoCreateInstance(const wchar_t* szModule, const GUID& rclsid, const GUID& riid, HINSTANCE* pModule, void** ppv)
{
    TAVO_FUNCTION("Tavo::CoCreateInstance");
    CHECK_STRING(szModule);
    CHECK_POINTER(pModule);
    CHECK_POINTER(ppv);
    *pModule = NULL;

    // The DLL loads with its own directory as the current one, so that the DLLs it imports are found
    // beside it. A bare name means the copy in the install directory, if there is one.
    CStringW strModule;
    CStringW strDirectory;
    if (::PathIsFileSpecW(szModule)) {
        strDirectory = GetInstallDirectoryW();
        strModule = PathCombineW(strDirectory, szModule);
        if (!::PathFileExistsW(strModule)) {
            TAVO_TRACE(TRACE_WARNING, "File not found: %s", CStringA(strModule).GetString());
            strModule = szModule;
        }
    } else {
        strModule = szModule;
        strDirectory = szModule;
        VERIFY_WIN32(::PathRemoveFileSpecW(strDirectory.GetBuffer(MAX_PATH * 2)));
        strDirectory.ReleaseBuffer();
    }

    wchar_t szCurDir[MAX_PATH * 2] = {};
    VERIFY_WIN32(::GetCurrentDirectoryW(_countof(szCurDir), szCurDir));
    VERIFY_WIN32(::SetCurrentDirectoryW(strDirectory));
    *pModule = ::LoadLibraryW(strModule);
    VERIFY_WIN32(::SetCurrentDirectoryW(szCurDir));

    // Last, the platform's own search from the caller's current directory.
    if (*pModule == NULL) CHECK_WIN32(*pModule = ::LoadLibraryW(szModule));

    CHECK_HRESULT(Tavo::CoCreateInstance(*pModule, rclsid, riid, ppv));
    return S_OK;
}

long CoCreateInstance(const char* szModule, const GUID& rclsid, const GUID& riid, HINSTANCE* pModule, void** ppv)
{
    TAVO_WIDE_ARGUMENT(wszModule, szModule);
    return CoCreateInstance(wszModule, rclsid, riid, pModule, ppv);
}

long CoCreateInstance(const wchar_t* szModule, const GUID& riid, HINSTANCE* pModule, void** ppv)
{
    return CoCreateInstance(szModule, riid, riid, pModule, ppv);
}

long CoCreateInstance(const char* szModule, const GUID& riid, HINSTANCE* pModule, void** ppv)
{
    return CoCreateInstance(szModule, riid, riid, pModule, ppv);
}

} // namespace Tavo
