// The full name of an open registry key, as the native layer reports it: the only way from a handle
// back to its name. The entry is looked up at every call, nothing about ntdll kept.
#include "Check.h"
#include "TavoCommon.h"

#include <ntstatus.h>
#include <stdlib.h>

namespace Tavo {
namespace {

typedef LONG NTSTATUS;
enum { KeyNameInformation = 3 };
typedef NTSTATUS(NTAPI* ZWQUERYKEY)(HANDLE hKey, int nClass, PVOID pvInformation, ULONG cbLength,
                                    PULONG pcbResult);

// A zeroed block of the run-time heap, released on every way out of its scope. One calloc, not
// malloc and memset, which the optimizer would fold into calloc anyway.
class CRuntimeBlock {
public:
    CRuntimeBlock() : m_pb(nullptr), m_cb(0) {}
    ~CRuntimeBlock() { free(m_pb); }

    BYTE* AllocateBytes(size_t cb)
    {
        free(m_pb);
        m_pb = static_cast<BYTE*>(calloc(1, cb));
        m_cb = m_pb ? cb : 0;
        return m_pb;
    }
    size_t Size() const { return m_cb; }
    operator BYTE*() const { return m_pb; }

private:
    CRuntimeBlock(const CRuntimeBlock&);
    CRuntimeBlock& operator=(const CRuntimeBlock&);

    BYTE* m_pb;
    size_t m_cb;
};

long StringFromHKEYW(HKEY hKey, CStringW& strOutput)
{
    TAVO_FUNCTION("Tavo::StringFromHKEYW");
    CHECK_WIN32(hKey);
    HMODULE hModule;
    CHECK_WIN32(hModule = GetModuleHandleA("ntdll.dll"));
    // Looked up at every call: nothing about another module is kept between calls.
    ZWQUERYKEY ZwQueryKey;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wcast-function-type"  // FARPROC is the platform's generic entry type
    CHECK_WIN32(ZwQueryKey = (ZWQUERYKEY)::GetProcAddress(hModule, "ZwQueryKey"));
#pragma GCC diagnostic pop
    ULONG dwSize = 0;
    // The native call leaves the last error alone: the HRESULT is whatever the thread had.
    CHECK_WIN32_AS(STATUS_BUFFER_TOO_SMALL == ZwQueryKey(hKey, KeyNameInformation, 0, 0, &dwSize),
                   "((NTSTATUS)0xC0000023L) == ZwQueryKey(hKey, KeyNameInformation, 0, 0, &dwSize)");
    dwSize += sizeof(wchar_t);
    CRuntimeBlock p;
    CHECK_WIN32(p.AllocateBytes(dwSize));
    const NTSTATUS status = ZwQueryKey(hKey, KeyNameInformation, p, dwSize, &dwSize);
    if (status != 0) {
        TAVO_TRACE(TRACE_ERROR, "ERROR: %s = %lu", "ZwQueryKey(hKey, KeyNameInformation, p, dwSize, &dwSize)",
                   static_cast<unsigned long>(status));
        return HResultFromWin32(static_cast<DWORD>(status));
    }
    // The name follows its 32-bit byte count unterminated; the zeroed room behind it ends it, and
    // the block's last character is forced to zero in case an answer filled it all.
    wchar_t* const pchBlock = reinterpret_cast<wchar_t*>(static_cast<BYTE*>(p));
    const size_t cchBlock = p.Size() / sizeof(wchar_t);
    const size_t cchLength = sizeof(ULONG) / sizeof(wchar_t);
    const wchar_t* szName = L"";
    if (cchBlock > cchLength) {
        pchBlock[cchBlock - 1] = 0;
        szName = pchBlock + cchLength;
    }
    TAVO_TRACE(TRACE_INFO, "%ls", szName);
    strOutput = szName;
    return S_OK;
}

} // namespace

CStringW StringFromHKEYW(HKEY hKey)
{
    TAVO_FUNCTION("Tavo::StringFromHKEYW");
    CStringW strOutput;
    VERIFY_HRESULT(StringFromHKEYW(hKey, strOutput));
    return strOutput;
}

CStringA StringFromHKEYA(HKEY hKey)
{
    TAVO_FUNCTION("Tavo::StringFromHKEYA");
    CStringW strOutput;
    VERIFY_HRESULT(StringFromHKEYW(hKey, strOutput));
    return CStringA(strOutput.GetString());
}

} // namespace Tavo
