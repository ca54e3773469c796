// The four shapes of a cached string and the global lock, on caches of the test's own.
#include "Cache.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "ImportPatch.h"
#include "TavoTest.h"

using Tavo::CStringA;
using Tavo::CStringW;
using tavo::test::ThrownBy;

namespace {

// Releases every thread that waits on it at once, so that first calls really race.
class StartLine {
public:
    void Wait()
    {
        ++m_waiting;
        while (!m_go) Sleep(0);
    }
    void Go(int nThreads)
    {
        while (m_waiting < nThreads) Sleep(0);
        m_go = true;
    }

private:
    std::atomic<int> m_waiting{0};
    std::atomic<bool> m_go{false};
};

} // namespace

// ---- Shape 1 ------------------------------------------------------------------------------------

namespace {
Tavo::TCachedString<wchar_t> s_once;
Tavo::TCachedString<char> s_onceNarrow;
int s_onceComputed;

const wchar_t* OnceW()
{
    return Tavo::CachedOnce(s_once, [](CStringW& v) {
        ++s_onceComputed;
        v = L"computed once";
    });
}
const char* OnceA() { return Tavo::CachedOnceNarrow(s_onceNarrow, &OnceW); }
} // namespace

TEST(CachedOnce, SamePointerEveryTimeAndOwnStorageForTheTwin)
{
    const wchar_t* p = OnceW();
    EXPECT_STREQ(L"computed once", p);
    EXPECT_EQ(p, OnceW());
    EXPECT_EQ(1, s_onceComputed);

    const char* q = OnceA();
    EXPECT_STREQ("computed once", q);
    EXPECT_EQ(q, OnceA());
    EXPECT_NE(static_cast<const void*>(p), static_cast<const void*>(q));
    EXPECT_EQ(1, s_onceComputed) << "the narrow twin reads the wide cache";
}

namespace {
Tavo::TCachedString<wchar_t> s_empty;
int s_emptyComputed;
const wchar_t* EmptyOnce()
{
    return Tavo::CachedOnce(s_empty, [](CStringW&) { ++s_emptyComputed; });
}
} // namespace

TEST(CachedOnce, AnEmptyResultIsKeptForGood)
{
    EXPECT_STREQ(L"", EmptyOnce());
    EXPECT_STREQ(L"", EmptyOnce());
    EXPECT_EQ(1, s_emptyComputed);
}

namespace {
Tavo::TCachedString<wchar_t> s_throwing;
int s_throwingComputed;
HRESULT s_throwWith;
const wchar_t* ThrowingOnce()
{
    return Tavo::CachedOnce(s_throwing, [](CStringW& v) {
        ++s_throwingComputed;
        v = L"partial";
        if (s_throwWith) Tavo::AtlThrow(s_throwWith);
        v += L" and complete";
    });
}

LPVOID WINAPI FailingHeapAlloc(HANDLE, DWORD, SIZE_T) { return nullptr; }
} // namespace

TEST(CachedOnce, AThrowingComputationIsRetriedAtTheNextCall)
{
    s_throwWith = E_OUTOFMEMORY;
    EXPECT_EQ(E_OUTOFMEMORY, ThrownBy(ThrowingOnce));
    s_throwWith = S_OK;
    {
        // A real allocation failure inside the computation, as the library meets it.
        tavo::test::ScopedImportPatch patch(GetModuleHandleW(nullptr), "KERNEL32.dll", "HeapAlloc",
                                            reinterpret_cast<const void*>(&FailingHeapAlloc));
        ASSERT_TRUE(patch.Patched());
        EXPECT_EQ(E_OUTOFMEMORY, ThrownBy(ThrowingOnce));
    }
    EXPECT_STREQ(L"partial and complete", ThrowingOnce());
    EXPECT_STREQ(L"partial and complete", ThrowingOnce());
    EXPECT_EQ(3, s_throwingComputed);
}

namespace {
Tavo::TCachedString<wchar_t> s_raced;
std::atomic<int> s_racedComputed{0};
const wchar_t* RacedOnce()
{
    return Tavo::CachedOnce(s_raced, [](CStringW& v) {
        ++s_racedComputed;
        Sleep(50);  // hold the lock long enough for the other threads to arrive
        v = L"raced";
    });
}
} // namespace

TEST(CachedOnce, ThreadsRacingTheFirstCallComputeOnce)
{
    const int kThreads = 4;
    StartLine start;
    std::vector<const wchar_t*> results(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            start.Wait();
            results[i] = RacedOnce();
        });
    }
    start.Go(kThreads);
    for (auto& t : threads) t.join();
    EXPECT_EQ(1, s_racedComputed.load());
    for (int i = 0; i < kThreads; ++i) EXPECT_EQ(results[0], results[i]) << "thread " << i;
    EXPECT_STREQ(L"raced", results[0]);
}

namespace {
Tavo::TCachedString<wchar_t> s_cyrillic;
Tavo::TCachedString<char> s_cyrillicNarrow;
const wchar_t* CyrillicW()
{
    return Tavo::CachedOnce(s_cyrillic, [](CStringW& v) { v = L"\x0439"; });
}
const char* CyrillicA() { return Tavo::CachedOnceNarrow(s_cyrillicNarrow, &CyrillicW); }
} // namespace

TEST(CachedOnce, NarrowTwinKeepsTheFirstCallersCodePage)
{
    using tavo::test::WithThreadLocale;
    const std::string first = WithThreadLocale(tavo::test::kRussianLocale, [] { return std::string(CyrillicA()); });
    std::string second;
    std::thread other([&] {
        second = WithThreadLocale(tavo::test::kEnglishLocale, [] { return std::string(CyrillicA()); });
    });
    other.join();
    EXPECT_EQ("\xE9", first);
    EXPECT_EQ("\xE9", second);
}

namespace {
Tavo::TCachedString<wchar_t> s_outer;
Tavo::TCachedString<wchar_t> s_inner;
const wchar_t* Inner()
{
    return Tavo::CachedOnce(s_inner, [](CStringW& v) { v = L"inner"; });
}
const wchar_t* Outer()
{
    return Tavo::CachedOnce(s_outer, [](CStringW& v) { v = CStringW(Inner()) + L" in outer"; });
}
} // namespace

TEST(CachedOnce, AComputationMayCallAnotherCachedForm)
{
    EXPECT_STREQ(L"inner in outer", Outer());
    // Last computed first: the outer value was registered after the inner one.
    ASSERT_NE(nullptr, s_outer.cleanup.pNext);
    EXPECT_EQ(&s_inner.cleanup, s_outer.cleanup.pNext);
}

TEST(Cleanups, RunLastAddedFirstAndOnlyOnce)
{
    static Tavo::CCleanupList list;  // static, as the module's: zero-initialised
    static std::vector<int> order;
    auto record = [](void* pv) { order.push_back(static_cast<int>(reinterpret_cast<INT_PTR>(pv))); };
    Tavo::CCleanup nodes[3] = {};
    for (int i = 0; i < 3; ++i) list.Add(nodes[i], record, reinterpret_cast<void*>(static_cast<INT_PTR>(i + 1)));
    list.RunAll();
    list.RunAll();
    EXPECT_EQ((std::vector<int>{3, 2, 1}), order);
}

// ---- Shape 2 ------------------------------------------------------------------------------------

namespace {
Tavo::TCachedString<wchar_t> s_whileEmpty;
int s_whileEmptyComputed;
const wchar_t* s_whileEmptyResult = L"";
const wchar_t* WhileEmpty()
{
    return Tavo::CachedWhileEmpty(s_whileEmpty, [](CStringW& v) {
        ++s_whileEmptyComputed;
        v = s_whileEmptyResult;
    });
}
} // namespace

TEST(CachedWhileEmpty, ComputesUntilItGetsAValue)
{
    EXPECT_STREQ(L"", WhileEmpty());
    EXPECT_STREQ(L"", WhileEmpty());
    EXPECT_EQ(2, s_whileEmptyComputed);
    s_whileEmptyResult = L"C:\\Data";
    const wchar_t* p = WhileEmpty();
    EXPECT_STREQ(L"C:\\Data", p);
    s_whileEmptyResult = L"other";
    EXPECT_EQ(p, WhileEmpty());
    EXPECT_EQ(3, s_whileEmptyComputed);
}

// ---- Shape 3 ------------------------------------------------------------------------------------

namespace {
wchar_t s_array[16];
int s_arrayComputed;
bool s_arraySucceeds;
const wchar_t* InArray()
{
    return Tavo::CachedInArray(s_array, [](wchar_t* sz, int cch) {
        ++s_arrayComputed;
        EXPECT_EQ(16, cch);
        wcscpy(sz, L"half");  // a failing platform call may leave text behind
        return s_arraySucceeds;
    });
}
} // namespace

TEST(CachedInArray, StaysEmptyAndRetriesAfterAFailure)
{
    s_arraySucceeds = false;
    const wchar_t* p = InArray();
    EXPECT_STREQ(L"", p);
    EXPECT_EQ(s_array, p);
    InArray();
    EXPECT_EQ(2, s_arrayComputed);
    s_arraySucceeds = true;
    EXPECT_STREQ(L"half", InArray());
    EXPECT_EQ(p, InArray());
    EXPECT_EQ(3, s_arrayComputed);
}

// ---- Shape 4 ------------------------------------------------------------------------------------

namespace {
Tavo::TCachedMap<wchar_t> s_map;
int s_mapComputed;
const wchar_t* ByKey(int nKey)
{
    return Tavo::CachedByKey(s_map, nKey, [nKey](CStringW& v) {
        ++s_mapComputed;
        if (nKey < 0) return false;
        v.Format(L"value %d", nKey);
        return true;
    });
}
} // namespace

TEST(CachedByKey, StoresSuccessesOnlyAndKeepsPointersAcrossGrowth)
{
    const wchar_t* p5 = ByKey(5);
    EXPECT_STREQ(L"value 5", p5);
    EXPECT_EQ(p5, ByKey(5));
    EXPECT_EQ(1, s_mapComputed);

    EXPECT_EQ(nullptr, ByKey(-1));
    EXPECT_EQ(nullptr, ByKey(-1));
    EXPECT_EQ(3, s_mapComputed) << "a failed lookup is asked again";

    std::vector<const wchar_t*> pointers;
    for (int key = 0; key < 300; ++key) pointers.push_back(ByKey(key));
    EXPECT_GT(s_map.nBuckets, 17u) << "the table grew";
    for (int key = 0; key < 300; ++key) {
        SCOPED_TRACE(key);
        EXPECT_EQ(pointers[key], ByKey(key));
        EXPECT_EQ(L"value " + std::to_wstring(key), std::wstring(pointers[key]));
    }
    EXPECT_EQ(p5, pointers[5]);
    EXPECT_EQ(3 + 299, s_mapComputed);
}
