// The string layer's out-of-line half: allocation, width conversion and printf, in one module so
// that every string, wherever its inline half was compiled, lives on the same heap and converts
// and formats the same way.
#include "TavoCommon.h"

#include <stdio.h>

namespace Tavo {

void AtlThrow(HRESULT hr)
{
    throw CAtlException(hr);
}

void* MemAllocate(size_t cb)
{
    void* pv = ::HeapAlloc(::GetProcessHeap(), 0, cb ? cb : 1);
    if (!pv) AtlThrow(E_OUTOFMEMORY);
    return pv;
}

void MemFree(void* pv)
{
    if (pv) ::HeapFree(::GetProcessHeap(), 0, pv);
}

namespace {

// Bytes for a block of nChars characters plus terminator; 0 when it cannot be represented.
size_t BlockSize(int nChars, int cbChar)
{
    if (nChars < 0) AtlThrow(E_INVALIDARG);
    if (cbChar != 1 && cbChar != 2) AtlThrow(E_INVALIDARG);
    const size_t nMax = (0x7FFFFFFF - sizeof(CStringData)) / static_cast<size_t>(cbChar) - 1;
    if (static_cast<size_t>(nChars) > nMax) AtlThrow(E_OUTOFMEMORY);
    return sizeof(CStringData) + (static_cast<size_t>(nChars) + 1) * cbChar;
}

} // namespace

CStringData* StringAllocate(int nChars, int cbChar)
{
    if (nChars < 0) AtlThrow(E_INVALIDARG);
    // Round the room up so that short appends do not reallocate every time.
    int nRoom = nChars < 0x3FFFFFF0 ? (nChars + 8) & ~7 : nChars;
    CStringData* pData = static_cast<CStringData*>(MemAllocate(BlockSize(nRoom, cbChar)));
    pData->nRefs = 1;
    pData->nDataLength = 0;
    pData->nAllocLength = nRoom;
    static_cast<char*>(static_cast<void*>(pData + 1))[0] = 0;
    static_cast<char*>(static_cast<void*>(pData + 1))[cbChar - 1] = 0;
    return pData;
}

CStringData* StringReallocate(CStringData* pData, int nChars, int cbChar)
{
    if (!pData || pData->nRefs != 1) AtlThrow(E_INVALIDARG);
    const size_t cb = BlockSize(nChars, cbChar);
    void* pv = ::HeapReAlloc(::GetProcessHeap(), 0, pData, cb);
    if (!pv) AtlThrow(E_OUTOFMEMORY);  // the old block stays valid and owned
    pData = static_cast<CStringData*>(pv);
    pData->nAllocLength = nChars;
    return pData;
}

void StringFree(CStringData* pData)
{
    MemFree(pData);
}

int StringConvert(const char* szSource, int cchSource, wchar_t* szDest, int cchDest)
{
    return ::MultiByteToWideChar(CP_THREAD_ACP, 0, szSource, cchSource, szDest, cchDest);
}

int StringConvert(const wchar_t* szSource, int cchSource, char* szDest, int cchDest)
{
    return ::WideCharToMultiByte(CP_THREAD_ACP, 0, szSource, cchSource, szDest, cchDest, NULL, NULL);
}

int StringFormatLength(const wchar_t* szFormat, va_list args)
{
    return _vscwprintf(szFormat, args);
}

int StringFormatLength(const char* szFormat, va_list args)
{
    return _vscprintf(szFormat, args);
}

int StringFormatPrint(wchar_t* szDest, int cchDest, const wchar_t* szFormat, va_list args)
{
    if (cchDest <= 0) return -1;
    int n = _vsnwprintf(szDest, cchDest, szFormat, args);
    szDest[cchDest - 1] = 0;
    return n;
}

int StringFormatPrint(char* szDest, int cchDest, const char* szFormat, va_list args)
{
    if (cchDest <= 0) return -1;
    int n = _vsnprintf(szDest, cchDest, szFormat, args);
    szDest[cchDest - 1] = 0;
    return n;
}

} // namespace Tavo
