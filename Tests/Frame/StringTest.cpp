// The string layer: value semantics, copy-on-write, conversions in the thread's code page, and the
// exceptions it owes its callers.
#include <TavoCommon.h>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "ImportPatch.h"
#include "TavoTest.h"

using Tavo::CAtlArray;
using Tavo::CAtlException;
using Tavo::CStringA;
using Tavo::CStringW;

namespace {

using tavo::test::kEnglishLocale;
using tavo::test::kRussianLocale;
using tavo::test::ThrownBy;
using tavo::test::WithThreadLocale;

int s_failAllocations;
LPVOID WINAPI FailingHeapAlloc(HANDLE, DWORD, SIZE_T)
{
    ++s_failAllocations;
    return nullptr;
}

} // namespace

TEST(String, CopiesShareStorageUntilOneIsWritten)
{
    CStringW a(L"shared text");
    CStringW b = a;
    EXPECT_EQ(a.GetString(), b.GetString());

    b.SetAt(0, L'S');
    EXPECT_NE(a.GetString(), b.GetString());
    EXPECT_STREQ(L"shared text", a);
    EXPECT_STREQ(L"Shared text", b);

    CStringW c;
    c = a;
    a.Empty();
    EXPECT_TRUE(a.IsEmpty());
    EXPECT_STREQ(L"shared text", c);
}

TEST(String, NullSourceIsEmptyAndBadLengthsThrow)
{
    EXPECT_TRUE(CStringW(static_cast<const wchar_t*>(nullptr)).IsEmpty());
    EXPECT_TRUE(CStringA(static_cast<const wchar_t*>(nullptr)).IsEmpty());
    EXPECT_TRUE(CStringW(static_cast<const wchar_t*>(nullptr), 0).IsEmpty());

    EXPECT_EQ(E_INVALIDARG, ThrownBy([] { CStringW s(L"abc", -1); }));
    EXPECT_EQ(E_INVALIDARG, ThrownBy([] { CStringA s(static_cast<const char*>(nullptr), 2); }));
    EXPECT_EQ(E_INVALIDARG, ThrownBy([] { CStringW s(L"abc"); s.GetAt(3); }));
    EXPECT_EQ(E_INVALIDARG, ThrownBy([] { CStringW s(L"abc"); s.ReleaseBuffer(s.GetBuffer(4) ? 100 : 0); }));
    EXPECT_EQ(E_FAIL, ThrownBy([] { CStringW s(L"abc"); s.Compare(nullptr); }));
    EXPECT_EQ(E_FAIL, ThrownBy([] { CStringA s("abc"); (void)(s == static_cast<const char*>(nullptr)); }));
    EXPECT_EQ(L'\0', CStringW(L"abc")[3]) << "the terminator is readable through operator[]";
}

TEST(String, EditingOperations)
{
    CStringW s(L"  path\\to\\file.txt  ");
    s.Trim();
    EXPECT_STREQ(L"path\\to\\file.txt", s);
    EXPECT_EQ(4, s.Find(L'\\'));
    EXPECT_EQ(7, s.ReverseFind(L'\\'));
    EXPECT_EQ(8, s.Find(L"file"));
    EXPECT_EQ(-1, s.Find(L"file", 9));
    EXPECT_EQ(-1, s.Find(static_cast<const wchar_t*>(nullptr)));
    EXPECT_STREQ(L"path", s.Left(4));
    EXPECT_STREQ(L"txt", s.Right(3));
    EXPECT_STREQ(L"to", s.Mid(5, 2));
    EXPECT_STREQ(L"", s.Mid(100));
    EXPECT_STREQ(s, s.Left(1000));

    EXPECT_EQ(2, s.Replace(L'\\', L'/'));
    EXPECT_STREQ(L"path/to/file.txt", s);
    EXPECT_EQ(1, s.Replace(L"file.txt", L"other"));
    EXPECT_STREQ(L"path/to/other", s);
    EXPECT_EQ(0, s.Replace(L"", L"x"));

    CStringW slashes(L"\\\\dir\\\\");
    EXPECT_STREQ(L"dir\\\\", CStringW(slashes).TrimLeft(L'\\'));
    EXPECT_STREQ(L"\\\\dir", CStringW(slashes).TrimRight(L'\\'));
    EXPECT_STREQ(L"dir", slashes.Trim(L'\\'));

    EXPECT_TRUE(CStringA("abc") < "abd");
    EXPECT_EQ(0, CStringW(L"MiXeD").CompareNoCase(L"mixed"));
    EXPECT_STREQ(L"ab", CStringW(L"a") + L"b");
    EXPECT_STREQ(L"ab", L"a" + CStringW(L"b"));
}

TEST(String, AppendingItselfSurvivesTheReallocation)
{
    CStringW s(L"0123456789");
    for (int i = 0; i < 6; ++i) s += s;
    ASSERT_EQ(640, s.GetLength());
    for (int i = 0; i < s.GetLength(); ++i) ASSERT_EQ(L'0' + i % 10, s[i]) << "at " << i;

    CStringA a("abc");
    a.Append(a.GetString() + 1, 2);
    EXPECT_STREQ("abcbc", a);
}

TEST(String, FormatFollowsThePlatformDialect)
{
    CStringW w;
    w.Format(L"%s|%hs|%d|%c", L"wide", "narrow", -5, L'x');
    EXPECT_STREQ(L"wide|narrow|-5|x", w);

    CStringA a;
    a.Format("%s|%ls|%#08lx", "narrow", L"wide", 0x80070005ul);
    EXPECT_STREQ("narrow|wide|0x80070005", a);

    CStringW big;
    big.Format(L"%0600d", 7);
    EXPECT_EQ(600, big.GetLength());
}

TEST(String, BufferTakesItsLengthFromTheFirstZero)
{
    CStringW s(L"old");
    wchar_t* p = s.GetBuffer(260);
    ASSERT_TRUE(GetWindowsDirectoryW(p, 261) > 0);
    s.ReleaseBuffer();
    EXPECT_EQ(static_cast<int>(wcslen(s)), s.GetLength());
    EXPECT_GT(s.GetLength(), 2);

    CStringA t;
    char* q = t.GetBuffer(10);
    memcpy(q, "abc\0def", 8);
    t.ReleaseBuffer();
    EXPECT_STREQ("abc", t);
    EXPECT_EQ(3, t.GetLength());
}

TEST(String, ConvertsInTheCallingThreadsCodePage)
{
    // 0xE9 is e-acute in 1252 and the short i (U+0439) in 1251.
    EXPECT_EQ(CStringW(L"\x00E9"), WithThreadLocale(kEnglishLocale, [] { return CStringW("\xE9"); }));
    EXPECT_EQ(CStringW(L"\x0439"), WithThreadLocale(kRussianLocale, [] { return CStringW("\xE9"); }));
    EXPECT_EQ(CStringA("\xE9"), WithThreadLocale(kRussianLocale, [] { return CStringA(L"\x0439"); }));
    EXPECT_EQ(CStringA("?"), WithThreadLocale(kEnglishLocale, [] { return CStringA(L"\x0439"); }))
        << "a character the code page lacks becomes its default, as the platform converts it";
}

TEST(String, StorageIsOnTheProcessHeap)
{
    CStringW s(L"heap");
    const void* pBlock = reinterpret_cast<const Tavo::CStringData*>(s.GetString()) - 1;
    EXPECT_TRUE(HeapValidate(GetProcessHeap(), 0, pBlock));
}

TEST(String, ReferenceCountsAreAtomic)
{
    CStringW original(L"shared between threads");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&original] {
            for (int i = 0; i < 20000; ++i) {
                CStringW copy = original;
                CStringW second(copy);
                copy.Empty();
            }
        });
    }
    for (auto& t : threads) t.join();
    const Tavo::CStringData* pData = reinterpret_cast<const Tavo::CStringData*>(original.GetString()) - 1;
    EXPECT_EQ(1, pData->nRefs);
    EXPECT_STREQ(L"shared between threads", original);
}

TEST(String, AllocationFailureThrowsOutOfMemory)
{
    CStringW kept(L"kept");
    const CStringW sharer = kept;  // so that writing to `kept` needs a new block
    s_failAllocations = 0;
    tavo::test::ScopedImportPatch patch(GetModuleHandleW(nullptr), "KERNEL32.dll", "HeapAlloc",
                                        reinterpret_cast<const void*>(&FailingHeapAlloc));
    ASSERT_TRUE(patch.Patched());
    EXPECT_EQ(E_OUTOFMEMORY, ThrownBy([] { CStringW s(L"needs a block"); }));
    EXPECT_EQ(E_OUTOFMEMORY, ThrownBy([&] { kept += L" and more text than fits"; }));
    EXPECT_STREQ(L"kept", kept) << "a failed append leaves the value as it was";
    EXPECT_GE(s_failAllocations, 2);
}

TEST(Array, GrowsKeepsOrderAndChecksIndexes)
{
    CAtlArray<CStringW> array;
    EXPECT_TRUE(array.IsEmpty());
    for (int i = 0; i < 50; ++i) {
        CStringW s;
        s.Format(L"item %d", i);
        EXPECT_EQ(static_cast<size_t>(i), array.Add(s));
    }
    // An element of the array itself, added while the block must move.
    while (array.GetCount() < 64) array.Add(array[0]);
    array.Add(array[3]);
    ASSERT_EQ(65u, array.GetCount());
    EXPECT_STREQ(L"item 49", array[49]);
    EXPECT_STREQ(L"item 0", array[63]);
    EXPECT_STREQ(L"item 3", array[64]);
    EXPECT_EQ(E_INVALIDARG, ThrownBy([&] { array.GetAt(65); }));

    array.RemoveAll();
    EXPECT_EQ(0u, array.GetCount());
    EXPECT_EQ(nullptr, array.GetData());
}
