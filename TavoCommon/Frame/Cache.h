// The global lock and the four shapes of a cached string. A cached value is computed under the one
// recursive lock, handed out as a constant pointer, and lives until the library unloads. A family
// declares a static cache and a compute function and calls one shape; it never repeats the steps.
//
//   shape 1  CachedOnce        computed once; a throwing computation is retried at the next call
//   shape 2  CachedWhileEmpty  computed at every call that finds the value empty
//   shape 3  CachedInArray     fixed zeroed array; computed while its first character is 0
//   shape 4  CachedByKey       map from an integer key; a failed lookup is not stored
#ifndef TAVO_CACHE_H
#define TAVO_CACHE_H

#include "TavoCommon.h"

namespace Tavo {

// The library's one lock, created at load by the module object and deleted last at unload.
extern CRITICAL_SECTION g_globalLock;

// Holds the library's one lock for a scope. Recursive: computations call other cached forms.
// Inline, so that a cached getter costs the lock pair and little more.
class CGlobalLock {
public:
    CGlobalLock() { ::EnterCriticalSection(&g_globalLock); }
    ~CGlobalLock() { ::LeaveCriticalSection(&g_globalLock); }

private:
    CGlobalLock(const CGlobalLock&);
    CGlobalLock& operator=(const CGlobalLock&);
};

// A destructor to run at unload, last registered first. The node lives in the cache it destroys,
// so registering allocates nothing.
struct CCleanup {
    void (*pfnDestroy)(void*);
    void* pv;
    CCleanup* pNext;
};

class CCleanupList {
public:
    void Add(CCleanup& node, void (*pfnDestroy)(void*), void* pv)
    {
        node.pfnDestroy = pfnDestroy;
        node.pv = pv;
        node.pNext = m_pHead;
        m_pHead = &node;
    }
    // Runs each destructor once, last added first, and forgets it.
    void RunAll()
    {
        while (CCleanup* pNode = m_pHead) {
            m_pHead = pNode->pNext;
            pNode->pfnDestroy(pNode->pv);
        }
    }

private:
    CCleanup* m_pHead;  // static storage: zero at load, no constructor
};

// The module's list. Register with the lock held; the module runs them all at unload.
void RegisterCleanup(CCleanup& node, void (*pfnDestroy)(void*), void* pv);

template <typename T> void DestroyObject(void* pv) { static_cast<T*>(pv)->~T(); }

// Storage of shapes 1 and 2: zero-initialised static memory, no constructor to run at load.
template <typename XCHAR>
struct TCachedString {
    DWORD dwGuard;
    CCleanup cleanup;
    alignas(CStringT<XCHAR>) unsigned char abValue[sizeof(CStringT<XCHAR>)];

    CStringT<XCHAR>& Value() { return *reinterpret_cast<CStringT<XCHAR>*>(abValue); }
};

// Shape 1's first computation, with the lock held; out of line, so that every later call is the
// lock pair around a test and a pointer read.
template <typename XCHAR, typename Compute>
__attribute__((noinline)) void ComputeOnce(TCachedString<XCHAR>& cache, Compute compute)
{
    cache.dwGuard |= 1;
    CStringT<XCHAR>* pValue = new (PlacementTag(), cache.abValue) CStringT<XCHAR>();
    try {
        compute(*pValue);
    } catch (...) {
        pValue->~CStringT<XCHAR>();
        cache.dwGuard &= ~1u;
        throw;
    }
    RegisterCleanup(cache.cleanup, &DestroyObject<CStringT<XCHAR> >, pValue);
}

// Shape 1. compute(CStringT<XCHAR>&) fills the value; if it throws, the guard is cleared again and
// the exception goes on to the caller.
template <typename XCHAR, typename Compute>
const XCHAR* CachedOnce(TCachedString<XCHAR>& cache, Compute compute)
{
    CGlobalLock lock;
    if (!(cache.dwGuard & 1)) ComputeOnce(cache, compute);
    return cache.Value().GetString();
}

// Shape 1 for a narrow twin: the wide value converted in the code page of the first caller.
template <typename WideGetter>
const char* CachedOnceNarrow(TCachedString<char>& cache, WideGetter getWide)
{
    return CachedOnce(cache, [&](CStringA& strValue) { strValue = getWide(); });
}

// Shape 2. compute(CStringW&) runs while the value is empty; what it leaves stays, even if partial.
template <typename Compute>
const wchar_t* CachedWhileEmpty(TCachedString<wchar_t>& cache, Compute compute)
{
    CGlobalLock lock;
    if (!(cache.dwGuard & 1)) {
        cache.dwGuard |= 1;
        CStringW* pValue = new (PlacementTag(), cache.abValue) CStringW();
        RegisterCleanup(cache.cleanup, &DestroyObject<CStringW>, pValue);
    }
    if (cache.Value().IsEmpty()) compute(cache.Value());
    return cache.Value().GetString();
}

// Shape 3. compute(XCHAR* sz, int cch) returns false on failure (after its own soft check); the
// array is then left empty, so the empty string is returned and the next call tries again.
template <typename XCHAR, int N, typename Compute>
const XCHAR* CachedInArray(XCHAR (&sz)[N], Compute compute)
{
    CGlobalLock lock;
    if (sz[0] == 0 && !compute(sz, N)) sz[0] = 0;
    return sz;
}

// Shape 4 storage: separately allocated nodes, so a pointer handed out survives the map's growth.
template <typename XCHAR>
struct TCachedMap {
    struct Node {
        Node* pNext;
        int nKey;
        CStringT<XCHAR> strValue;
    };
    DWORD dwGuard;
    CCleanup cleanup;
    Node** ppBuckets;
    unsigned nBuckets;
    unsigned nCount;

    static void Destroy(void* pv)
    {
        TCachedMap& map = *static_cast<TCachedMap*>(pv);
        for (unsigned i = 0; i < map.nBuckets; ++i) {
            for (Node* p = map.ppBuckets[i]; p;) {
                Node* pNext = p->pNext;
                p->~Node();
                MemFree(p);
                p = pNext;
            }
        }
        MemFree(map.ppBuckets);
        map.ppBuckets = nullptr;
        map.nBuckets = map.nCount = 0;
    }

    Node* Find(int nKey) const
    {
        unsigned nSeen = 0;
        for (Node* p = ppBuckets[Bucket(nKey, nBuckets)]; p; p = p->pNext) {
            if (++nSeen > nCount) AtlThrow(E_FAIL);  // a cycle: the node list is corrupt
            if (p->nKey == nKey) return p;
        }
        return nullptr;
    }

    static unsigned Bucket(int nKey, unsigned nBuckets)
    {
        return (static_cast<unsigned>(nKey) * 2654435761u) % nBuckets;
    }

    // Doubles the table when it is full on average; nodes stay where they are.
    void GrowIfFull()
    {
        if (nCount < nBuckets * 2) return;
        const unsigned nNew = nBuckets * 2 + 1;
        Node** ppNew = static_cast<Node**>(MemAllocate(nNew * sizeof(Node*)));
        for (unsigned i = 0; i < nNew; ++i) ppNew[i] = nullptr;
        for (unsigned i = 0; i < nBuckets; ++i) {
            for (Node* p = ppBuckets[i]; p;) {
                Node* pNext = p->pNext;
                Node*& pHead = ppNew[Bucket(p->nKey, nNew)];
                p->pNext = pHead;
                pHead = p;
                p = pNext;
            }
        }
        MemFree(ppBuckets);
        ppBuckets = ppNew;
        nBuckets = nNew;
    }
};

// Shape 4. compute(CStringT<XCHAR>&) returns false on failure (after its own report): nothing is
// stored and null is returned, so the next call asks again.
template <typename XCHAR, typename Compute>
const XCHAR* CachedByKey(TCachedMap<XCHAR>& map, int nKey, Compute compute)
{
    typedef typename TCachedMap<XCHAR>::Node Node;
    CGlobalLock lock;
    if (!(map.dwGuard & 1)) {
        const unsigned nBuckets = 17;
        Node** ppBuckets = static_cast<Node**>(MemAllocate(nBuckets * sizeof(Node*)));
        for (unsigned i = 0; i < nBuckets; ++i) ppBuckets[i] = nullptr;
        map.ppBuckets = ppBuckets;
        map.nBuckets = nBuckets;
        map.nCount = 0;
        map.dwGuard |= 1;
        RegisterCleanup(map.cleanup, &TCachedMap<XCHAR>::Destroy, &map);
    }
    if (Node* pFound = map.Find(nKey)) return pFound->strValue.GetString();

    CStringT<XCHAR> strValue;
    if (!compute(strValue)) return nullptr;
    map.GrowIfFull();
    Node* pNode = new (PlacementTag(), MemAllocate(sizeof(Node))) Node{nullptr, nKey, strValue};
    Node*& pHead = map.ppBuckets[TCachedMap<XCHAR>::Bucket(nKey, map.nBuckets)];
    pNode->pNext = pHead;
    pHead = pNode;
    ++map.nCount;
    return pNode->strValue.GetString();
}

} // namespace Tavo

#endif
