// Argument conversion for a narrow twin that calls its wide form: each narrow argument becomes a
// wide one on the caller's stack, in the calling thread's code page, read afresh at each call.
//
//   TAVO_WIDE_ARGUMENT(wszDrive, szDrive);
//   return IsDriveSSDW(wszDrive);
//
// A null argument stays null; so does one whose length plus one reaches 0x40000000, and one the code
// page cannot convert: the wide form's own checks then decide. Up to kMaxStackChars characters the
// buffer is on the stack; a longer argument goes to the process heap instead, since a stack that
// large would overflow rather than fail.
#ifndef TAVO_ARGUMENT_H
#define TAVO_ARGUMENT_H

#include "TavoCommon.h"

#include <malloc.h>

namespace Tavo {

class CWideArgument {
public:
    enum { kMaxStackChars = 32 * 1024, kMaxChars = 0x40000000 };

    explicit CWideArgument(const char* sz) : m_sz(sz), m_cch(0), m_pszWide(nullptr), m_pvHeap(nullptr)
    {
        if (sz) {
            const size_t cch = strlen(sz) + 1;
            if (cch < kMaxChars) m_cch = static_cast<int>(cch);
        }
    }
    ~CWideArgument() { MemFree(m_pvHeap); }

    // Bytes to reserve on the stack, 0 when the stack is not used.
    size_t StackBytes() const { return m_cch && m_cch <= kMaxStackChars ? m_cch * sizeof(wchar_t) : 0; }

    // pvStack: StackBytes() bytes of the caller's frame, or null.
    void Convert(void* pvStack)
    {
        if (!m_cch) return;
        wchar_t* psz = static_cast<wchar_t*>(pvStack);
        if (!psz) psz = static_cast<wchar_t*>(m_pvHeap = ::HeapAlloc(::GetProcessHeap(), 0, m_cch * sizeof(wchar_t)));
        if (psz && StringConvert(m_sz, -1, psz, m_cch) > 0) m_pszWide = psz;
    }

    operator const wchar_t*() const { return m_pszWide; }

private:
    CWideArgument(const CWideArgument&);
    CWideArgument& operator=(const CWideArgument&);

    const char* m_sz;
    int m_cch;
    const wchar_t* m_pszWide;
    void* m_pvHeap;
};

} // namespace Tavo

// Declares `name`, the wide form of the narrow argument `sz`, valid until the function returns.
#define TAVO_WIDE_ARGUMENT(name, sz)                                                  \
    ::Tavo::CWideArgument name(sz);                                                   \
    name.Convert(name.StackBytes() ? _alloca(name.StackBytes()) : nullptr)

#endif
