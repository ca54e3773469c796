// THandle: the scoped owner of one platform handle, for a function with many ways out. A local
// variable, never a member, never copied, never released without closing.
//
//   THandle<HANDLE, 0> hDevice;
//   CHECK_WIN32(hDevice = ::CreateFileW(...));   // null and INVALID_HANDLE_VALUE both test false
//
// Misuse (assigning to, or taking the address of, an owner that holds a handle) writes one
// TRACE_VERIFY line through Tavo::TraceOutput and goes on; the held handle is then overwritten, not
// closed. Code outside the library that uses this header provides Tavo::TraceOutput itself.
#ifndef TAVO_HANDLES_H
#define TAVO_HANDLES_H

#include <windows.h>
#include <stdarg.h>

namespace Tavo {

void TraceOutput(DWORD dwLevel, const char* szFile, const char* szFunction, int nLine,
                 const char* szStamp, const char* szFormat, ...);

// How each kind of handle closes, and the names its diagnostic lines carry.
template <typename T> struct THandleTraits;

template <> struct THandleTraits<HANDLE> {
    static void Close(HANDLE h) { ::CloseHandle(h); }
    static const char* AssignName() { return "Tavo::THandle<void *,0>::operator ="; }
    static const char* AddressName() { return "Tavo::THandle<void *,0>::operator &"; }
};

template <> struct THandleTraits<HINSTANCE> {
    static void Close(HINSTANCE h) { ::FreeLibrary(h); }
    static const char* AssignName() { return "Tavo::THandle<struct HINSTANCE__ *,0>::operator ="; }
    static const char* AddressName() { return "Tavo::THandle<struct HINSTANCE__ *,0>::operator &"; }
};

template <typename T, int N>
class THandle {
public:
    THandle() : m_h(NULL) {}
    ~THandle() { Close(); }

    // Closes a held handle; the platform's result is not read.
    void Close()
    {
        if (m_h != NULL) THandleTraits<T>::Close(m_h);
        m_h = NULL;
    }

    // Takes ownership; INVALID_HANDLE_VALUE is stored as empty.
    THandle& operator=(T h)
    {
        VerifyEmpty(THandleTraits<T>::AssignName(), __LINE__);
        m_h = (h == (T)INVALID_HANDLE_VALUE) ? NULL : h;
        return *this;
    }

    // For a platform call that writes the handle through an out-parameter.
    T* operator&()
    {
        VerifyEmpty(THandleTraits<T>::AddressName(), __LINE__);
        return &m_h;
    }

    operator T() const { return m_h; }
    explicit operator bool() const { return m_h != NULL; }

    T m_h;

private:
    THandle(const THandle&);
    THandle& operator=(const THandle&);

    void VerifyEmpty(const char* szFunction, int nLine) const
    {
        if (NULL == m_h) return;
        const DWORD dwError = ::GetLastError();
        TraceOutput(1 /* TRACE_VERIFY */, "TavoHandles.h", szFunction, nLine, __TIMESTAMP__,
                    "%s - %lu", "NULL == m_h", dwError);
    }
};

} // namespace Tavo

#endif
