// The library's value types: CStringW / CStringA, CAtlArray and CAtlException.
// Included by TavoCommon.h; compiled by the library, by MinGW callers and by Microsoft's compiler,
// so it uses the Windows API and the C run-time only.
//
// Strings are copy-on-write values with atomic reference counts. Their storage comes from the
// process heap through the library, so a string made inside TavoCommon.dll can be kept, changed and
// destroyed by a caller built with any compiler or run-time. Every failure of the string layer is a
// CAtlException thrown from inside the library:
//   E_OUTOFMEMORY  an allocation failed
//   E_INVALIDARG   a negative length, an index past the end, a null source with a non-zero length
//   E_FAIL         a comparison with a null pointer, a format that gives no character count
#ifndef TAVO_STRINGS_H
#define TAVO_STRINGS_H

#include <windows.h>
#include <stdarg.h>
#include <stddef.h>
#include <string.h>
#include <wchar.h>

#if defined(TAVO_STATIC)
#define TAVO_API
#elif defined(TAVO_BUILDING)
#define TAVO_API __declspec(dllexport)
#else
#define TAVO_API __declspec(dllimport)
#endif

namespace Tavo {

// The one exception type of the library.
class CAtlException {
public:
    CAtlException(HRESULT hr) : m_hr(hr) {}
    operator HRESULT() const { return m_hr; }

    HRESULT m_hr;
};

// Throws CAtlException(hr) from inside the library.
__declspec(noreturn) TAVO_API void AtlThrow(HRESULT hr);

// Process-heap memory; MemAllocate throws E_OUTOFMEMORY instead of returning null.
TAVO_API void* MemAllocate(size_t cb);
TAVO_API void MemFree(void* pv);

// Header in front of a string's characters.
struct CStringData {
    long nRefs;        // below 0: the shared empty string, never freed
    int nDataLength;   // characters, terminator excluded
    int nAllocLength;  // room in characters, terminator excluded
};

// The string layer's entries in the library; CStringT calls them, callers never need to.
// nChars characters of cbChar bytes each plus a terminator, one reference, length 0.
TAVO_API CStringData* StringAllocate(int nChars, int cbChar);
// Grows an unshared block in place or by moving it; the old pointer is dead afterwards.
TAVO_API CStringData* StringReallocate(CStringData* pData, int nChars, int cbChar);
TAVO_API void StringFree(CStringData* pData);
// Width conversion in the calling thread's ANSI code page (CP_THREAD_ACP, flags 0, no default
// character). cchSource -1 means zero-terminated; returns the characters written (or needed when
// cchDest is 0), 0 on failure.
TAVO_API int StringConvert(const char* szSource, int cchSource, wchar_t* szDest, int cchDest);
TAVO_API int StringConvert(const wchar_t* szSource, int cchSource, char* szDest, int cchDest);
// printf in the platform run-time's dialect (a wide format's %s is wide, a narrow one's narrow).
// Length: the characters the format gives, below 0 if it gives none. Print: into cchDest characters
// including the terminator.
TAVO_API int StringFormatLength(const wchar_t* szFormat, va_list args);
TAVO_API int StringFormatLength(const char* szFormat, va_list args);
TAVO_API int StringFormatPrint(wchar_t* szDest, int cchDest, const wchar_t* szFormat, va_list args);
TAVO_API int StringFormatPrint(char* szDest, int cchDest, const char* szFormat, va_list args);

// Placement construction without <new>, whose declarations callers may or may not include.
struct PlacementTag {};

} // namespace Tavo

inline void* operator new(size_t, Tavo::PlacementTag, void* pv) noexcept { return pv; }
inline void operator delete(void*, Tavo::PlacementTag, void*) noexcept {}

namespace Tavo {

// The empty string every module points at; read-only, never counted.
struct CStringNil {
    CStringData data;
    wchar_t ach[2];
};
inline constexpr CStringNil g_stringNil = {{-1, 0, 0}, {0, 0}};

template <typename XCHAR> struct TStringTraits;

template <> struct TStringTraits<wchar_t> {
    typedef char YCHAR;
    static int Length(const wchar_t* sz) { return static_cast<int>(wcslen(sz)); }
    static int Compare(const wchar_t* a, const wchar_t* b) { return wcscmp(a, b); }
    static int CompareNoCase(const wchar_t* a, const wchar_t* b) { return _wcsicmp(a, b); }
    static const wchar_t* FindString(const wchar_t* sz, const wchar_t* szSub) { return wcsstr(sz, szSub); }
    static bool IsSpace(wchar_t ch) { return ch == L' ' || (ch >= L'\t' && ch <= L'\r'); }
};

template <> struct TStringTraits<char> {
    typedef wchar_t YCHAR;
    static int Length(const char* sz) { return static_cast<int>(strlen(sz)); }
    static int Compare(const char* a, const char* b) { return strcmp(a, b); }
    static int CompareNoCase(const char* a, const char* b) { return _stricmp(a, b); }
    static const char* FindString(const char* sz, const char* szSub) { return strstr(sz, szSub); }
    static bool IsSpace(char ch) { return ch == ' ' || (ch >= '\t' && ch <= '\r'); }
};

template <typename XCHAR>
class CStringT {
public:
    typedef XCHAR XCHAR_T;
    typedef typename TStringTraits<XCHAR>::YCHAR YCHAR;
    typedef TStringTraits<XCHAR> Traits;

    CStringT() noexcept : m_pszData(Nil()) {}
    CStringT(const CStringT& str) noexcept : m_pszData(str.m_pszData) { AddRef(GetData()); }
    CStringT(CStringT&& str) noexcept : m_pszData(str.m_pszData) { str.m_pszData = Nil(); }
    CStringT(const XCHAR* psz) : m_pszData(Nil()) { SetString(psz, psz ? Traits::Length(psz) : 0); }
    CStringT(const XCHAR* pch, int nLength) : m_pszData(Nil()) { SetString(pch, nLength); }
    CStringT(const YCHAR* psz) : m_pszData(Nil()) { SetConverted(psz); }
    explicit CStringT(XCHAR ch, int nRepeat = 1) : m_pszData(Nil())
    {
        XCHAR* p = PrepareWrite(nRepeat);
        for (int i = 0; i < nRepeat; ++i) p[i] = ch;
        SetLength(nRepeat);
    }
    ~CStringT() { Release(GetData()); }

    CStringT& operator=(const CStringT& str) noexcept
    {
        CStringData* pOld = GetData();
        AddRef(str.GetData());
        m_pszData = str.m_pszData;
        Release(pOld);
        return *this;
    }
    CStringT& operator=(CStringT&& str) noexcept
    {
        if (this != &str) {
            Release(GetData());
            m_pszData = str.m_pszData;
            str.m_pszData = Nil();
        }
        return *this;
    }
    CStringT& operator=(const XCHAR* psz) { SetString(psz, psz ? Traits::Length(psz) : 0); return *this; }
    CStringT& operator=(const YCHAR* psz) { SetConverted(psz); return *this; }
    CStringT& operator=(XCHAR ch) { SetString(&ch, 1); return *this; }

    int GetLength() const noexcept { return GetData()->nDataLength; }
    bool IsEmpty() const noexcept { return GetLength() == 0; }
    void Empty() noexcept
    {
        Release(GetData());
        m_pszData = Nil();
    }
    const XCHAR* GetString() const noexcept { return m_pszData; }
    operator const XCHAR*() const noexcept { return m_pszData; }

    XCHAR GetAt(int iChar) const
    {
        if (iChar < 0 || iChar >= GetLength()) AtlThrow(E_INVALIDARG);
        return m_pszData[iChar];
    }
    // The terminator may be read too.
    XCHAR operator[](int iChar) const
    {
        if (iChar < 0 || iChar > GetLength()) AtlThrow(E_INVALIDARG);
        return m_pszData[iChar];
    }
    void SetAt(int iChar, XCHAR ch)
    {
        if (iChar < 0 || iChar >= GetLength()) AtlThrow(E_INVALIDARG);
        int nLength = GetLength();
        PrepareWrite(nLength)[iChar] = ch;
    }

    int Compare(const XCHAR* psz) const
    {
        if (!psz) AtlThrow(E_FAIL);
        return Traits::Compare(m_pszData, psz);
    }
    int CompareNoCase(const XCHAR* psz) const
    {
        if (!psz) AtlThrow(E_FAIL);
        return Traits::CompareNoCase(m_pszData, psz);
    }

    CStringT& operator+=(const CStringT& str) { Append(str.m_pszData, str.GetLength()); return *this; }
    CStringT& operator+=(const XCHAR* psz) { Append(psz, psz ? Traits::Length(psz) : 0); return *this; }
    CStringT& operator+=(XCHAR ch) { Append(&ch, 1); return *this; }
    void Append(const XCHAR* pch, int nLength)
    {
        if (nLength < 0 || (!pch && nLength > 0)) AtlThrow(E_INVALIDARG);
        if (nLength == 0) return;
        int nOld = GetLength();
        if (nLength > INT_MAX_CHARS - nOld) AtlThrow(E_OUTOFMEMORY);
        // pch may point into this string: remember its offset across a reallocation.
        const XCHAR* pOldBase = m_pszData;
        bool bInside = pch >= pOldBase && pch <= pOldBase + nOld;
        ptrdiff_t nOffset = pch - pOldBase;
        XCHAR* p = PrepareWrite(nOld + nLength);
        if (bInside) pch = p + nOffset;
        memmove(p + nOld, pch, nLength * sizeof(XCHAR));
        SetLength(nOld + nLength);
    }

    int Find(XCHAR ch, int iStart = 0) const noexcept
    {
        int nLength = GetLength();
        if (iStart < 0 || iStart >= nLength) return -1;
        for (int i = iStart; i < nLength; ++i)
            if (m_pszData[i] == ch) return i;
        return -1;
    }
    int Find(const XCHAR* pszSub, int iStart = 0) const noexcept
    {
        if (!pszSub || iStart < 0 || iStart > GetLength()) return -1;
        const XCHAR* p = Traits::FindString(m_pszData + iStart, pszSub);
        return p ? static_cast<int>(p - m_pszData) : -1;
    }
    int ReverseFind(XCHAR ch) const noexcept
    {
        for (int i = GetLength() - 1; i >= 0; --i)
            if (m_pszData[i] == ch) return i;
        return -1;
    }

    int Replace(XCHAR chOld, XCHAR chNew)
    {
        int nCount = 0;
        for (int i = Find(chOld); i >= 0; i = Find(chOld, i + 1)) {
            SetAt(i, chNew);
            ++nCount;
        }
        return nCount;
    }
    int Replace(const XCHAR* pszOld, const XCHAR* pszNew)
    {
        int nOld = pszOld ? Traits::Length(pszOld) : 0;
        if (nOld == 0) return 0;
        int nNew = pszNew ? Traits::Length(pszNew) : 0;
        CStringT strResult;
        int nCount = 0;
        int iFrom = 0;
        for (int i = Find(pszOld); i >= 0; i = Find(pszOld, iFrom)) {
            strResult.Append(m_pszData + iFrom, i - iFrom);
            strResult.Append(pszNew, nNew);
            iFrom = i + nOld;
            ++nCount;
        }
        if (nCount) {
            strResult.Append(m_pszData + iFrom, GetLength() - iFrom);
            *this = static_cast<CStringT&&>(strResult);
        }
        return nCount;
    }

    CStringT& TrimRight(XCHAR chTarget)
    {
        int nLength = GetLength();
        while (nLength > 0 && m_pszData[nLength - 1] == chTarget) --nLength;
        Truncate(nLength);
        return *this;
    }
    CStringT& TrimLeft(XCHAR chTarget)
    {
        int nSkip = 0;
        while (nSkip < GetLength() && m_pszData[nSkip] == chTarget) ++nSkip;
        return Drop(nSkip);
    }
    CStringT& Trim(XCHAR chTarget) { return TrimRight(chTarget).TrimLeft(chTarget); }
    CStringT& TrimRight()
    {
        int nLength = GetLength();
        while (nLength > 0 && Traits::IsSpace(m_pszData[nLength - 1])) --nLength;
        Truncate(nLength);
        return *this;
    }
    CStringT& TrimLeft()
    {
        int nSkip = 0;
        while (nSkip < GetLength() && Traits::IsSpace(m_pszData[nSkip])) ++nSkip;
        return Drop(nSkip);
    }
    CStringT& Trim() { return TrimRight().TrimLeft(); }

    CStringT Left(int nCount) const { return Mid(0, nCount); }
    CStringT Right(int nCount) const
    {
        if (nCount < 0) nCount = 0;
        int nLength = GetLength();
        return nCount >= nLength ? *this : CStringT(m_pszData + nLength - nCount, nCount);
    }
    CStringT Mid(int iFirst) const { return Mid(iFirst, GetLength()); }
    CStringT Mid(int iFirst, int nCount) const
    {
        int nLength = GetLength();
        if (iFirst < 0) iFirst = 0;
        if (nCount < 0) nCount = 0;
        if (iFirst > nLength) iFirst = nLength;
        if (nCount > nLength - iFirst) nCount = nLength - iFirst;
        if (iFirst == 0 && nCount == nLength) return *this;
        return CStringT(m_pszData + iFirst, nCount);
    }

    void __cdecl Format(const XCHAR* pszFormat, ...)
    {
        va_list args;
        va_start(args, pszFormat);
        FormatV(pszFormat, args);
        va_end(args);
    }
    void FormatV(const XCHAR* pszFormat, va_list args)
    {
        if (!pszFormat) AtlThrow(E_INVALIDARG);
        int nLength = StringFormatLength(pszFormat, args);
        if (nLength < 0) AtlThrow(E_FAIL);
        XCHAR* p = PrepareWrite(nLength);
        StringFormatPrint(p, nLength + 1, pszFormat, args);
        SetLength(nLength);
    }

    // Room for nMinBufferLength characters plus a terminator, for a platform call to fill.
    XCHAR* GetBuffer(int nMinBufferLength)
    {
        int nLength = GetLength();
        return PrepareWrite(nMinBufferLength > nLength ? nMinBufferLength : nLength);
    }
    XCHAR* GetBuffer() { return PrepareWrite(GetLength()); }
    XCHAR* GetBufferSetLength(int nLength)
    {
        XCHAR* p = PrepareWrite(nLength);
        SetLength(nLength);
        return p;
    }
    // nNewLength -1: the length runs to the first zero (within the reserved room).
    void ReleaseBuffer(int nNewLength = -1)
    {
        CStringData* pData = GetData();
        if (pData->nRefs < 0) return;  // nothing was reserved
        if (nNewLength == -1) {
            nNewLength = 0;
            while (nNewLength < pData->nAllocLength && m_pszData[nNewLength]) ++nNewLength;
        }
        if (nNewLength < 0 || nNewLength > pData->nAllocLength) AtlThrow(E_INVALIDARG);
        SetLength(nNewLength);
    }
    void Truncate(int nNewLength)
    {
        if (nNewLength < 0 || nNewLength > GetLength()) AtlThrow(E_INVALIDARG);
        if (nNewLength == GetLength()) return;
        PrepareWrite(nNewLength);
        SetLength(nNewLength);
    }

    friend CStringT operator+(const CStringT& a, const CStringT& b) { CStringT s(a); s += b; return s; }
    friend CStringT operator+(const CStringT& a, const XCHAR* b) { CStringT s(a); s += b; return s; }
    friend CStringT operator+(const XCHAR* a, const CStringT& b) { CStringT s(a); s += b; return s; }
    friend CStringT operator+(const CStringT& a, XCHAR b) { CStringT s(a); s += b; return s; }
    friend bool operator==(const CStringT& a, const CStringT& b) { return a.Compare(b.m_pszData) == 0; }
    friend bool operator==(const CStringT& a, const XCHAR* b) { return a.Compare(b) == 0; }
    friend bool operator==(const XCHAR* a, const CStringT& b) { return b.Compare(a) == 0; }
    friend bool operator!=(const CStringT& a, const CStringT& b) { return !(a == b); }
    friend bool operator!=(const CStringT& a, const XCHAR* b) { return !(a == b); }
    friend bool operator!=(const XCHAR* a, const CStringT& b) { return !(a == b); }
    friend bool operator<(const CStringT& a, const CStringT& b) { return a.Compare(b.m_pszData) < 0; }
    friend bool operator<(const CStringT& a, const XCHAR* b) { return a.Compare(b) < 0; }

private:
    enum { INT_MAX_CHARS = 0x3FFFFFFF };

    static XCHAR* Nil() noexcept
    {
        return reinterpret_cast<XCHAR*>(const_cast<wchar_t*>(g_stringNil.ach));
    }
    CStringData* GetData() const noexcept { return reinterpret_cast<CStringData*>(m_pszData) - 1; }
    static void AddRef(CStringData* pData) noexcept
    {
        if (pData->nRefs >= 0) InterlockedIncrement(reinterpret_cast<LONG volatile*>(&pData->nRefs));
    }
    static void Release(CStringData* pData) noexcept
    {
        if (pData->nRefs >= 0 && InterlockedDecrement(reinterpret_cast<LONG volatile*>(&pData->nRefs)) == 0)
            StringFree(pData);
    }
    void SetLength(int nLength) noexcept
    {
        GetData()->nDataLength = nLength;
        m_pszData[nLength] = 0;
    }
    CStringT& Drop(int nSkip)
    {
        if (nSkip == 0) return *this;
        int nLength = GetLength() - nSkip;
        XCHAR* p = PrepareWrite(GetLength());
        memmove(p, p + nSkip, nLength * sizeof(XCHAR));
        SetLength(nLength);
        return *this;
    }

    // Makes the buffer this string's own with room for nLength characters; keeps the text that fits.
    XCHAR* PrepareWrite(int nLength)
    {
        if (nLength < 0) AtlThrow(E_INVALIDARG);
        CStringData* pOld = GetData();
        if (pOld->nRefs != 1) {
            int nKeep = pOld->nDataLength < nLength ? pOld->nDataLength : nLength;
            CStringData* pNew = StringAllocate(nLength, sizeof(XCHAR));
            XCHAR* pszNew = reinterpret_cast<XCHAR*>(pNew + 1);
            memcpy(pszNew, m_pszData, nKeep * sizeof(XCHAR));
            pNew->nDataLength = nKeep;
            pszNew[nKeep] = 0;
            m_pszData = pszNew;
            Release(pOld);
        } else if (pOld->nAllocLength < nLength) {
            int nGrow = pOld->nAllocLength + pOld->nAllocLength / 2;
            if (nGrow < nLength || nGrow > INT_MAX_CHARS) nGrow = nLength;
            m_pszData = reinterpret_cast<XCHAR*>(StringReallocate(pOld, nGrow, sizeof(XCHAR)) + 1);
        }
        return m_pszData;
    }

    void SetString(const XCHAR* pch, int nLength)
    {
        if (nLength < 0 || (!pch && nLength > 0)) AtlThrow(E_INVALIDARG);
        if (nLength == 0) {
            Empty();
            return;
        }
        CStringData* pData = GetData();
        if (pData->nRefs == 1 && pData->nAllocLength >= nLength) {
            memmove(m_pszData, pch, nLength * sizeof(XCHAR));  // pch may lie inside
        } else {
            CStringData* pNew = StringAllocate(nLength, sizeof(XCHAR));
            memcpy(pNew + 1, pch, nLength * sizeof(XCHAR));
            m_pszData = reinterpret_cast<XCHAR*>(pNew + 1);
            Release(pData);
        }
        SetLength(nLength);
    }

    // A conversion that fails leaves the empty string.
    void SetConverted(const YCHAR* psz)
    {
        int nLength = psz && *psz ? StringConvert(psz, -1, static_cast<XCHAR*>(nullptr), 0) : 0;
        if (nLength <= 0) {
            Empty();
            return;
        }
        CStringT strResult;
        XCHAR* p = strResult.PrepareWrite(nLength);
        nLength = StringConvert(psz, -1, p, nLength + 1);
        // The count includes the source's terminator.
        strResult.SetLength(nLength > 0 ? nLength - 1 : 0);
        *this = static_cast<CStringT&&>(strResult);
    }

    XCHAR* m_pszData;
};

typedef CStringT<wchar_t> CStringW;
typedef CStringT<char> CStringA;

// A growable array of values, storage from the process heap.
template <typename E>
class CAtlArray {
public:
    CAtlArray() noexcept : m_pData(nullptr), m_nSize(0), m_nMaxSize(0) {}
    ~CAtlArray() { RemoveAll(); }
    CAtlArray(const CAtlArray&) = delete;
    CAtlArray& operator=(const CAtlArray&) = delete;

    size_t GetCount() const noexcept { return m_nSize; }
    bool IsEmpty() const noexcept { return m_nSize == 0; }

    size_t Add(const E& element)
    {
        if (m_nSize == m_nMaxSize) {
            E copy(element);  // element may live in the block that is about to move
            Grow();
            new (PlacementTag(), m_pData + m_nSize) E(static_cast<E&&>(copy));
        } else {
            new (PlacementTag(), m_pData + m_nSize) E(element);
        }
        return m_nSize++;
    }
    size_t Add()
    {
        if (m_nSize == m_nMaxSize) Grow();
        new (PlacementTag(), m_pData + m_nSize) E();
        return m_nSize++;
    }

    E& GetAt(size_t iElement)
    {
        if (iElement >= m_nSize) AtlThrow(E_INVALIDARG);
        return m_pData[iElement];
    }
    const E& GetAt(size_t iElement) const
    {
        if (iElement >= m_nSize) AtlThrow(E_INVALIDARG);
        return m_pData[iElement];
    }
    E& operator[](size_t iElement) { return GetAt(iElement); }
    const E& operator[](size_t iElement) const { return GetAt(iElement); }
    E* GetData() noexcept { return m_pData; }
    const E* GetData() const noexcept { return m_pData; }

    void RemoveAll() noexcept
    {
        for (size_t i = 0; i < m_nSize; ++i) m_pData[i].~E();
        MemFree(m_pData);
        m_pData = nullptr;
        m_nSize = m_nMaxSize = 0;
    }

private:
    void Grow()
    {
        size_t nNewMax = m_nMaxSize ? m_nMaxSize * 2 : 4;
        if (nNewMax > static_cast<size_t>(-1) / 2 / sizeof(E)) AtlThrow(E_OUTOFMEMORY);
        E* pNew = static_cast<E*>(MemAllocate(nNewMax * sizeof(E)));
        for (size_t i = 0; i < m_nSize; ++i) {
            new (PlacementTag(), pNew + i) E(static_cast<E&&>(m_pData[i]));
            m_pData[i].~E();
        }
        MemFree(m_pData);
        m_pData = pNew;
        m_nMaxSize = nNewMax;
    }

    E* m_pData;
    size_t m_nSize;
    size_t m_nMaxSize;
};

} // namespace Tavo

#endif
