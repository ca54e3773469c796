// What the library tells about itself.
#include "Cache.h"
#include "Check.h"
#include "Module.h"

namespace Tavo {
namespace {

TCachedString<wchar_t> s_versionW;
TCachedString<char> s_versionA;

// The fixed part of a version resource: a VS_VERSIONINFO header (6 bytes), the key
// "VS_VERSION_INFO" with its terminator (32 bytes), padding to 4, then VS_FIXEDFILEINFO.
const VS_FIXEDFILEINFO* FixedFileInfo(const void* pvResource, DWORD cbResource)
{
    const DWORD kOffset = 40;
    if (cbResource < kOffset + sizeof(VS_FIXEDFILEINFO)) return nullptr;
    const VS_FIXEDFILEINFO* pInfo = reinterpret_cast<const VS_FIXEDFILEINFO*>(
        static_cast<const BYTE*>(pvResource) + kOffset);
    return pInfo->dwSignature == VS_FFI_SIGNATURE ? pInfo : nullptr;
}

void ComputeVersion(CStringW& strVersion)
{
    TAVO_FUNCTION("Tavo::GetLibraryVersionW");
    const HMODULE hModule = g_module.m_hInstResource;
    HRSRC hResource = ::FindResourceW(hModule, MAKEINTRESOURCEW(VS_VERSION_INFO), MAKEINTRESOURCEW(16));
    VERIFY_WIN32(hResource);
    if (!hResource) return;
    HGLOBAL hData = ::LoadResource(hModule, hResource);
    VERIFY_WIN32(hData);
    const void* pvData = hData ? ::LockResource(hData) : nullptr;
    const VS_FIXEDFILEINFO* pInfo = pvData ? FixedFileInfo(pvData, ::SizeofResource(hModule, hResource)) : nullptr;
    VERIFY_WIN32(pInfo);
    if (!pInfo) return;
    strVersion.Format(L"%u.%u.%u.%u", HIWORD(pInfo->dwFileVersionMS), LOWORD(pInfo->dwFileVersionMS),
                      HIWORD(pInfo->dwFileVersionLS), LOWORD(pInfo->dwFileVersionLS));
}

} // namespace

const wchar_t* GetLibraryVersionW()
{
    return CachedOnce(s_versionW, &ComputeVersion);
}

const char* GetLibraryVersionA()
{
    return CachedOnceNarrow(s_versionA, &GetLibraryVersionW);
}

} // namespace Tavo
