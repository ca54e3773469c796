// THandle: each rule observed through what it leaves behind - the handles closed (counted through
// the test program's own imports, which the inline owner uses) and the lines on the channel.
#include <TavoHandles.h>
#include "Check.h"

#include <gtest/gtest.h>

#include "ImportPatch.h"
#include "Recorder.h"

using Tavo::THandle;
using tavo::test::RecordedLine;
using tavo::test::RecordedLines;

namespace {

int s_closes;
decltype(&CloseHandle) s_realCloseHandle;
BOOL WINAPI CountingCloseHandle(HANDLE h)
{
    ++s_closes;
    return s_realCloseHandle(h);
}

int s_frees;
decltype(&FreeLibrary) s_realFreeLibrary;
BOOL WINAPI CountingFreeLibrary(HMODULE h)
{
    ++s_frees;
    return s_realFreeLibrary(h);
}

class Handle : public ::testing::Test {
protected:
    void SetUp() override
    {
        s_closes = s_frees = 0;
        s_realCloseHandle = m_close.Original<decltype(&CloseHandle)>();
        s_realFreeLibrary = m_free.Original<decltype(&FreeLibrary)>();
        ASSERT_TRUE(m_close.Patched());
        ASSERT_TRUE(m_free.Patched());
        Tavo::TraceOutput(TRACE_INFO, "", "", 0, "", "");  // makes sure the recorder is loaded
        tavo::test::ClearRecordedLines();
    }

    static HANDLE NewEvent() { return CreateEventW(nullptr, TRUE, FALSE, nullptr); }

    tavo::test::ScopedImportPatch m_close{GetModuleHandleW(nullptr), "KERNEL32.dll", "CloseHandle",
                                          reinterpret_cast<const void*>(&CountingCloseHandle)};
    tavo::test::ScopedImportPatch m_free{GetModuleHandleW(nullptr), "KERNEL32.dll", "FreeLibrary",
                                         reinterpret_cast<const void*>(&CountingFreeLibrary)};
};

long OpenThenFail(HANDLE hEvent)
{
    TAVO_FUNCTION("Tavo::OpenThenFail");
    THandle<HANDLE, 0> h;
    CHECK_WIN32(h = hEvent);
    SetLastError(ERROR_NOT_READY);
    CHECK_WIN32(!h);  // fails: the function leaves, the owner closes
    return S_OK;
}

} // namespace

TEST_F(Handle, InvalidHandleValueIsStoredAsEmpty)
{
    {
        THandle<HANDLE, 0> h;
        h = INVALID_HANDLE_VALUE;
        EXPECT_FALSE(static_cast<bool>(h));
        EXPECT_EQ(nullptr, static_cast<HANDLE>(h));
        h = nullptr;
        EXPECT_FALSE(static_cast<bool>(h));
    }
    EXPECT_EQ(0, s_closes);
    EXPECT_TRUE(RecordedLines().empty()) << "assigning to an empty owner is no misuse";
}

TEST_F(Handle, ClosesOnceWhateverTheNumberOfCloses)
{
    {
        THandle<HANDLE, 0> h;
        h.Close();
        EXPECT_EQ(0, s_closes);
        h = NewEvent();
        ASSERT_TRUE(static_cast<bool>(h));
        h.Close();
        h.Close();
        EXPECT_FALSE(static_cast<bool>(h));
    }
    EXPECT_EQ(1, s_closes);
    {
        THandle<HANDLE, 0> h;
        h = NewEvent();
    }
    EXPECT_EQ(2, s_closes) << "the end of the scope closes";
}

TEST_F(Handle, AssigningToAHoldingOwnerWritesOneVerifyLine)
{
    HANDLE hFirst = NewEvent();
    HANDLE hSecond = NewEvent();
    {
        THandle<HANDLE, 0> h;
        h = hFirst;
        SetLastError(0xDEADBEEF);
        h = hSecond;
        EXPECT_EQ(hSecond, static_cast<HANDLE>(h));
        std::vector<RecordedLine> lines = RecordedLines();
        ASSERT_EQ(1u, lines.size());
        EXPECT_EQ(TRACE_VERIFY, lines[0].level);
        EXPECT_EQ("TavoHandles.h", lines[0].file);
        EXPECT_EQ("Tavo::THandle<void *,0>::operator =", lines[0].function);
        EXPECT_EQ("%s - %lu", lines[0].format);
        EXPECT_EQ("NULL == m_h - 3735928559", lines[0].text);
        EXPECT_EQ(0, s_closes) << "the held handle is overwritten, not closed";
    }
    EXPECT_EQ(1, s_closes);
    s_realCloseHandle(hFirst);
}

TEST_F(Handle, TakingTheAddressOfAHoldingOwnerWritesItsOwnLine)
{
    THandle<HANDLE, 0> h;
    HANDLE* p = &h;
    EXPECT_TRUE(RecordedLines().empty()) << "an empty owner gives its address silently";
    *p = NewEvent();
    EXPECT_TRUE(static_cast<bool>(h));
    (void)&h;
    std::vector<RecordedLine> lines = RecordedLines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("Tavo::THandle<void *,0>::operator &", lines[0].function);
    EXPECT_EQ("%s - %lu", lines[0].format);
}

TEST_F(Handle, ModuleOwnerFreesTheLibrary)
{
    {
        THandle<HINSTANCE, 0> h;
        h = LoadLibraryW(L"shlwapi.dll");
        ASSERT_TRUE(static_cast<bool>(h));
        h = LoadLibraryW(L"shlwapi.dll");
        std::vector<RecordedLine> lines = RecordedLines();
        ASSERT_EQ(1u, lines.size());
        EXPECT_EQ("Tavo::THandle<struct HINSTANCE__ *,0>::operator =", lines[0].function);
    }
    EXPECT_EQ(1, s_frees);
    EXPECT_EQ(0, s_closes);
}

TEST_F(Handle, ACheckReturnClosesTheOwnedHandleOnce)
{
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_NOT_READY), OpenThenFail(NewEvent()));
    EXPECT_EQ(1, s_closes);
}
