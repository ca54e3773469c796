// One property of a WQL query against the local WMI service, all rows joined by "|". Each attempt is
// self-contained, from COM start-up on the calling thread to its end; a failed one is tried once more
// against the 64-bit provider on 64-bit Windows, where a 32-bit process otherwise sees the 32-bit view.
#include "Argument.h"
#include "Cache.h"
#include "Check.h"
#include "ComPtr.h"
#include "StrSafe.h"

#include <objbase.h>
#include <oleauto.h>
#include <wbemcli.h>

namespace Tavo {
namespace {

// Defined here rather than taken from an import library, so every build links alike.
const CLSID kClsidWbemLocator = {0x4590F811, 0x1D3A, 0x11D0, {0x89, 0x1F, 0x00, 0xAA, 0x00, 0x4B, 0x2E, 0x24}};
const IID kIidWbemLocator = {0xDC12A687, 0x737F, 0x11CF, {0x88, 0x4D, 0x00, 0xAA, 0x00, 0x4B, 0x2E, 0x24}};
const CLSID kClsidWbemContext = {0x674B6698, 0xEE92, 0x11D0, {0xAD, 0x71, 0x00, 0xC0, 0x4F, 0xD8, 0xFD, 0xFF}};
const IID kIidWbemContext = {0x44ACA674, 0xE8FC, 0x11D0, {0xA0, 0x7C, 0x00, 0xC0, 0x4F, 0xB6, 0x88, 0x20}};

const HRESULT kEmptyFirstValue = static_cast<HRESULT>(0x800710D2);  // HRESULT_FROM_WIN32(ERROR_EMPTY)

// Owns one VARIANT for a scope.
class CVariant : public VARIANT {
public:
    CVariant() { ::VariantInit(this); }
    ~CVariant() { ::VariantClear(this); }
    HRESULT ChangeType(VARTYPE vtNew) { return ::VariantChangeType(this, this, 0, vtNew); }

private:
    CVariant(const CVariant&);
    CVariant& operator=(const CVariant&);
};

// Owns one BSTR for the length of a call; a null text gives a null BSTR.
class CComBSTR {
public:
    explicit CComBSTR(const wchar_t* sz) : m_bstr(::SysAllocString(sz))
    {
        if (sz && !m_bstr) AtlThrow(E_OUTOFMEMORY);
    }
    explicit CComBSTR(const char* sz) : CComBSTR(CStringW(sz).GetString()) {}
    ~CComBSTR() { ::SysFreeString(m_bstr); }
    operator BSTR() const { return m_bstr; }

private:
    CComBSTR(const CComBSTR&);
    CComBSTR& operator=(const CComBSTR&);
    BSTR m_bstr;
};

// COM on the calling thread for one attempt. A thread already in another apartment keeps it and is
// not uninitialised; a successful start-up, S_FALSE included, is balanced.
class CComStartup {
public:
    CComStartup() : m_hr(::CoInitializeEx(NULL, COINIT_MULTITHREADED)) {}
    ~CComStartup()
    {
        if (SUCCEEDED(m_hr)) ::CoUninitialize();
    }

private:
    CComStartup(const CComStartup&);
    CComStartup& operator=(const CComStartup&);
    HRESULT m_hr;
};

TCachedString<wchar_t> s_platformW;
TCachedString<char> s_platformA;

// One attempt. Appends to strValue and never clears it. The holders are declared in the order of
// their making, so they are released in reverse, the COM start-up last.
HRESULT _QueryWMI(const wchar_t* szQuery, const wchar_t* szItem, CStringW& strValue, const wchar_t* szNamespace,
                  bool b64BitProvider)
{
    TAVO_FUNCTION("Tavo::_QueryWMI");
    TAVO_TRACE(TRACE_INFO, "szQuery = %ls, szItem = %ls, szNamespace = %ls)", szQuery, szItem, szNamespace);
    CComStartup comStartup;
    // Fails for a process that has set its own security already; that one stays.
    ::CoInitializeSecurity(NULL, -1, NULL, NULL, RPC_C_AUTHN_LEVEL_DEFAULT, RPC_C_IMP_LEVEL_IMPERSONATE, NULL,
                           EOAC_NONE, NULL);

    TComPtr<IWbemLocator> pWbemLocator;
    CHECK_HRESULT_AS(::CoCreateInstance(kClsidWbemLocator, 0, CLSCTX_INPROC_SERVER, kIidWbemLocator,
                                        reinterpret_cast<LPVOID*>(&pWbemLocator)),
                     "::CoCreateInstance(__uuidof(WbemLocator), 0, CLSCTX_INPROC_SERVER, __uuidof(IWbemLocator), "
                     "(LPVOID*)&pWbemLocator)");

    TComPtr<IWbemContext> pWbemContext;
    CVariant vt;
    if (b64BitProvider) {
        CHECK_HRESULT_AS(::CoCreateInstance(kClsidWbemContext, NULL, CLSCTX_INPROC_SERVER, kIidWbemContext,
                                            reinterpret_cast<LPVOID*>(&pWbemContext)),
                         "CoCreateInstance(__uuidof(WbemContext), NULL, CLSCTX_INPROC_SERVER, __uuidof(IWbemContext), "
                         "(LPVOID*)&pWbemContext)");
        vt.vt = VT_I4;
        vt.lVal = 64;
        CHECK_HRESULT(pWbemContext->SetValue(L"__ProviderArchitecture", 0, &vt));
    }

    TComPtr<IWbemServices> pWbemServices;
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion-null"  // the security flags are given as NULL, meaning 0
#endif
    CHECK_HRESULT(pWbemLocator->ConnectServer(CComBSTR(szNamespace), NULL, NULL, 0, NULL, 0, pWbemContext,
                                              &pWbemServices));
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
    CHECK_HRESULT(::CoSetProxyBlanket(pWbemServices, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, NULL, RPC_C_AUTHN_LEVEL_CALL,
                                      RPC_C_IMP_LEVEL_IMPERSONATE, NULL, EOAC_NONE));

    TComPtr<IEnumWbemClassObject> pEnumWbemClassObject;
    CHECK_HRESULT(pWbemServices->ExecQuery(CComBSTR("WQL"), CComBSTR(szQuery),
                                           WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, NULL,
                                           &pEnumWbemClassObject));
    // A provider that answers success and no enumerator has no rows.
    if (!pEnumWbemClassObject) return S_OK;

    bool bFirstValue = true;
    HRESULT hrStatus = S_OK;
    while (hrStatus == S_OK) {
        TComPtr<IWbemClassObject> pWbemClassObject;
        ULONG uReturned = 0;
        hrStatus = pEnumWbemClassObject->Next(WBEM_INFINITE, 1, &pWbemClassObject, &uReturned);
        if (FAILED(hrStatus) || hrStatus == WBEM_S_FALSE) continue;
        if (!pWbemClassObject) break;  // success without an object: nothing more to read

        CVariant vtProp;
        CHECK_HRESULT(pWbemClassObject->Get(szItem, 0, &vtProp, 0, 0));
        if (vtProp.vt == VT_NULL) {
            if (bFirstValue) return kEmptyFirstValue;
            strValue += L'|';
            continue;
        }
        CHECK_HRESULT(vtProp.ChangeType(VT_BSTR));
        if (!bFirstValue) strValue += L'|';
        strValue += vtProp.bstrVal;
        bFirstValue = false;
    }
    // A failing enumerator in mid-walk keeps the rows read so far.
    return S_OK;
}

} // namespace

// Wide worker: the natural view first, then the 64-bit provider where there is one. strValue keeps
// what the first attempt appended.
static HRESULT QueryWMI(const wchar_t* szQuery, const wchar_t* szItem, CStringW& strValue, const wchar_t* szNamespace)
{
    const HRESULT hr = _QueryWMI(szQuery, szItem, strValue, szNamespace, false);
    if (FAILED(hr) && Is64BitWindows()) return _QueryWMI(szQuery, szItem, strValue, szNamespace, true);
    return hr;
}

// Narrow worker: replaces strValue only on success.
static HRESULT QueryWMI(const char* szQuery, const char* szItem, CStringA& strValue, const char* szNamespace)
{
    TAVO_FUNCTION("Tavo::QueryWMI");
    TAVO_WIDE_ARGUMENT(wszQuery, szQuery);
    TAVO_WIDE_ARGUMENT(wszItem, szItem);
    TAVO_WIDE_ARGUMENT(wszNamespace, szNamespace);
    CStringW strTemp;
    // The line names the converted arguments as the conversion macro spells them.
#define A2CW(sz) w##sz
    CHECK_HRESULT(Tavo::QueryWMI(A2CW(szQuery), A2CW(szItem), strTemp, A2CW(szNamespace)));
#undef A2CW
    strValue = strTemp;
    return S_OK;
}

namespace {

template <typename XCHAR>
CStringT<XCHAR> QueryValue(const XCHAR* szQuery, const XCHAR* szItem, const XCHAR* szNamespace, const XCHAR* szDefault)
{
    TAVO_FUNCTION("Tavo::QueryWMI");
    CStringT<XCHAR> strValue(szDefault);
    VERIFY_HRESULT(Tavo::QueryWMI(szQuery, szItem, strValue, szNamespace));
    return strValue;
}

void ComputePlatform(CStringW& strValue)
{
    strValue = Tavo::QueryWMI(L"SELECT * FROM Win32_OperatingSystem", L"Caption", L"ROOT\\CIMV2", L"");
}

} // namespace

CStringW QueryWMI(const wchar_t* szQuery, const wchar_t* szItem, const wchar_t* szNamespace, const wchar_t* szDefault)
{
    return QueryValue(szQuery, szItem, szNamespace, szDefault);
}

CStringA QueryWMI(const char* szQuery, const char* szItem, const char* szNamespace, const char* szDefault)
{
    return QueryValue(szQuery, szItem, szNamespace, szDefault);
}

long QueryWMI(const wchar_t* szQuery, const wchar_t* szItem, wchar_t* szBuffer, int cchBufferMax,
              const wchar_t* szNamespace)
{
    TAVO_FUNCTION("Tavo::QueryWMI");
    CStringW strValue;
    CHECK_HRESULT(Tavo::QueryWMI(szQuery, szItem, strValue, szNamespace));
    CHECK_HRESULT(StringCchCopyW(szBuffer, cchBufferMax, strValue));
    return S_OK;
}

long QueryWMI(const char* szQuery, const char* szItem, char* szBuffer, int cchBufferMax, const char* szNamespace)
{
    TAVO_FUNCTION("Tavo::QueryWMI");
    CStringA strValue;
    CHECK_HRESULT(Tavo::QueryWMI(szQuery, szItem, strValue, szNamespace));
    CHECK_HRESULT(StringCchCopyA(szBuffer, cchBufferMax, strValue));
    return S_OK;
}

const wchar_t* GetWindowsPlatformW() { return CachedOnce(s_platformW, &ComputePlatform); }
const char* GetWindowsPlatformA() { return CachedOnceNarrow(s_platformA, &GetWindowsPlatformW); }

} // namespace Tavo
