// Strings by number. A value in the language file is final text; otherwise the module's string table
// is read, its product macros filled in and, under the pseudo-language "xx", its letters masked.
// Each twin runs the whole road over the platform's calls of its own width, so narrow text reaches
// the caller through the platform's own conversion.
#include "Check.h"
#include "Global.h"
#include "Module.h"
#include "StrSafe.h"

#include <ctype.h>
#include <wctype.h>

// The reports spell the module look-up as written for the platform's intrinsic; here the return
// address is the one the export captured at its entry and handed down.
#define _ReturnAddress() pvReturnAddress

namespace Tavo {
namespace {

// The reports name the library's module as the ATL base module would.
struct CBaseModule {
    HINSTANCE GetModuleInstance() const { return g_module.m_hInstance; }
};
const CBaseModule _AtlBaseModule = {};

// A string table string is at most 65535 characters, so the doubling ends at this capacity whatever
// the platform answers.
const int kFirstCapacity = 256;
const int kLastCapacity = 0x20000;

template <typename XCHAR> struct TText;

template <> struct TText<wchar_t> {
    static constexpr const char* kLoadName = "Tavo::LoadStringW";
    static constexpr const wchar_t* kProduct = L"%PRODUCT%";
    static constexpr const wchar_t* kCompany = L"%COMPANY%";
    static const wchar_t* LanguageFile() { return GetLanguageFileW(); }
    static bool Exists(const wchar_t* szFile) { return ::GetFileAttributesW(szFile) != INVALID_FILE_ATTRIBUTES; }
    static CStringW Override(const wchar_t* szFile, HINSTANCE hInstance, UINT uID)
    {
        return Tavo::GetPrivateProfileStringW(szFile, GetLanguageSectionW(hInstance), FormatStringW(L"%u", uID), L"");
    }
    static int ReadTable(HINSTANCE hInstance, UINT uID, wchar_t* szBuffer, int cch)
    {
        return ::LoadStringW(hInstance, uID, szBuffer, cch);
    }
    static const wchar_t* ProductName() { return GetProductNameW(); }
    static const wchar_t* CompanyName() { return GetCompanyNameW(); }
    static bool IsPseudoLanguage() { return ::lstrcmpiW(L"xx", GetLanguageCodeW()) == 0; }
    static CStringW Mask(const wchar_t* szText) { return MaskTextW(szText); }
    static HRESULT Copy(wchar_t* szBuffer, int cch, const wchar_t* szText) { return StringCchCopyW(szBuffer, cch, szText); }
    static wchar_t* Next(wchar_t* pch) { return ::CharNextW(pch); }
    static bool IsLetter(wchar_t ch) { return iswalpha(ch) != 0; }
    static bool IsUpper(wchar_t ch) { return iswupper(ch) != 0; }
};

template <> struct TText<char> {
    static constexpr const char* kLoadName = "Tavo::LoadStringA";
    static constexpr const char* kProduct = "%PRODUCT%";
    static constexpr const char* kCompany = "%COMPANY%";
    static const char* LanguageFile() { return GetLanguageFileA(); }
    static bool Exists(const char* szFile) { return ::GetFileAttributesA(szFile) != INVALID_FILE_ATTRIBUTES; }
    static CStringA Override(const char* szFile, HINSTANCE hInstance, UINT uID)
    {
        return Tavo::GetPrivateProfileStringA(szFile, GetLanguageSectionA(hInstance), FormatStringA("%u", uID), "");
    }
    static int ReadTable(HINSTANCE hInstance, UINT uID, char* szBuffer, int cch)
    {
        return ::LoadStringA(hInstance, uID, szBuffer, cch);
    }
    static const char* ProductName() { return GetProductNameA(); }
    static const char* CompanyName() { return GetCompanyNameA(); }
    static bool IsPseudoLanguage() { return ::lstrcmpiA("xx", GetLanguageCodeA()) == 0; }
    static CStringA Mask(const char* szText) { return MaskTextA(szText); }
    static HRESULT Copy(char* szBuffer, int cch, const char* szText) { return StringCchCopyA(szBuffer, cch, szText); }
    static char* Next(char* pch) { return ::CharNextA(pch); }
    // Classified as unsigned: a negative char is outside what the run-time's tables cover.
    static bool IsLetter(char ch) { return isalpha(static_cast<unsigned char>(ch)) != 0; }
    static bool IsUpper(char ch) { return isupper(static_cast<unsigned char>(ch)) != 0; }
};

// The value form's work, on a module already resolved.
template <typename XCHAR>
CStringT<XCHAR> LoadText(UINT uID, HINSTANCE hInstance)
{
    typedef TText<XCHAR> Text;
    TAVO_FUNCTION(Text::kLoadName);
    const XCHAR* szFile = Text::LanguageFile();
    if (*szFile && Text::Exists(szFile)) {
        const CStringT<XCHAR> strValue = Text::Override(szFile, hInstance, uID);
        if (!strValue.IsEmpty()) return strValue;
    }

    // The platform tells a cut only by a length of capacity minus 1, so that length is read again.
    CStringT<XCHAR> strText;
    int nLength = 0;
    DWORD dwError = 0;
    for (int nCapacity = kFirstCapacity;; nCapacity *= 2) {
        nLength = Text::ReadTable(hInstance, uID, strText.GetBuffer(nCapacity), nCapacity);
        dwError = ::GetLastError();
        if (nCapacity - 1 > nLength || nCapacity >= kLastCapacity) break;
    }
    strText.ReleaseBuffer();
    if (nLength <= 0) {
        if (dwError != ERROR_RESOURCE_NAME_NOT_FOUND)
            TAVO_TRACE(TRACE_ERROR, "LoadString failed, GetLastError = %lu, uID = %u, hInstance = %s", dwError, uID,
                       Tavo::GetModuleFileNameA(hInstance).GetString());
        return CStringT<XCHAR>();
    }
    strText.Replace(Text::kProduct, Text::ProductName());
    strText.Replace(Text::kCompany, Text::CompanyName());
    if (Text::IsPseudoLanguage()) strText = Text::Mask(strText);
    return strText;
}

// hGiven is the module as the caller named it, for the report: null names the main executable.
template <typename XCHAR>
int LoadTextInto(HINSTANCE hGiven, HINSTANCE hInstance, UINT uID, XCHAR* szBuffer, int cchBufferMax)
{
    typedef TText<XCHAR> Text;
    TAVO_FUNCTION(Text::kLoadName);
    const CStringT<XCHAR> strText = LoadText<XCHAR>(uID, hInstance);
    // No buffer to write to is the same failure as no room in it.
    const HRESULT hr = szBuffer ? Text::Copy(szBuffer, cchBufferMax, strText) : E_POINTER;
    if (FAILED(hr))
        TAVO_TRACE(TRACE_ERROR, "StringCchCopy = %#08lx, uID = %u, hInstance = %s", hr, uID,
                   Tavo::GetModuleFileNameA(hGiven).GetString());
    return strText.GetLength();
}

// A directive runs from its percent sign up to the next space, which is itself a normal character.
template <typename XCHAR>
CStringT<XCHAR> MaskText(const XCHAR* szText)
{
    typedef TText<XCHAR> Text;
    CStringT<XCHAR> strText(szText);
    const int nLength = strText.GetLength();
    bool bInDirective = false;
    for (XCHAR* pch = strText.GetBuffer(); *pch; pch = Text::Next(pch)) {
        if (bInDirective && *pch != ' ') continue;
        bInDirective = *pch == '%';
        if (Text::IsLetter(*pch)) *pch = Text::IsUpper(*pch) ? 'X' : 'x';
    }
    strText.ReleaseBuffer(nLength);
    return strText;
}

} // namespace

HINSTANCE GetCallersModuleHandle(const void* pvReturnAddress)
{
    TAVO_FUNCTION("Tavo::GetCallersModuleHandle");
    HINSTANCE hInstance = nullptr;
    VERIFY_WIN32(GetModuleHandleEx(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, (LPCTSTR)_ReturnAddress(), &hInstance));
    VERIFY_WIN32(hInstance != _AtlBaseModule.GetModuleInstance());
    return hInstance;
}

CStringW MaskTextW(const wchar_t* szText) { return MaskText(szText); }
CStringA MaskTextA(const char* szText) { return MaskText(szText); }

CStringW LoadStringW(UINT uID, HINSTANCE hInstance)
{
    const void* pvReturnAddress = __builtin_return_address(0);
    return LoadText<wchar_t>(uID, hInstance ? hInstance : GetCallersModuleHandle(pvReturnAddress));
}

CStringA LoadStringA(UINT uID, HINSTANCE hInstance)
{
    const void* pvReturnAddress = __builtin_return_address(0);
    return LoadText<char>(uID, hInstance ? hInstance : GetCallersModuleHandle(pvReturnAddress));
}

int LoadStringW(HINSTANCE hInstance, UINT uID, wchar_t* szBuffer, int cchBufferMax)
{
    const void* pvReturnAddress = __builtin_return_address(0);
    return LoadTextInto(hInstance, hInstance ? hInstance : GetCallersModuleHandle(pvReturnAddress), uID, szBuffer,
                        cchBufferMax);
}

int LoadStringA(HINSTANCE hInstance, UINT uID, char* szBuffer, int cchBufferMax)
{
    const void* pvReturnAddress = __builtin_return_address(0);
    return LoadTextInto(hInstance, hInstance ? hInstance : GetCallersModuleHandle(pvReturnAddress), uID, szBuffer,
                        cchBufferMax);
}

} // namespace Tavo
