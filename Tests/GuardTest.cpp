// The hand-installed structured-exception frame that keeps a faulting sink from ending the process.
#include "Trace.h"

#include <gtest/gtest.h>

namespace {

void Completes(void* pv) { *static_cast<int*>(pv) = 7; }
void WritesThroughNull(void*) { *static_cast<volatile int*>(nullptr) = 1; }
void Raises(void* pv) { RaiseException(*static_cast<DWORD*>(pv), 0, 0, nullptr); }

void FaultsTwoLevelsDown(void* pv)
{
    // An inner guard catches its own fault; the outer one then catches the second.
    *static_cast<DWORD*>(pv) = Tavo::CallWithStructuredGuard(&WritesThroughNull, nullptr);
    WritesThroughNull(nullptr);
}

// A frame of someone else's between the guard and the fault, as a sink's own __try would leave.
struct Registration {
    Registration* pNext;
    void* pfnHandler;
};

int s_searches;
int s_unwinds;

EXCEPTION_DISPOSITION __cdecl PassingHandler(EXCEPTION_RECORD* pRecord, void*, CONTEXT*, void*)
{
    if (pRecord->ExceptionFlags & (EXCEPTION_UNWINDING | EXCEPTION_EXIT_UNWIND)) {
        ++s_unwinds;
    } else {
        ++s_searches;
    }
    return ExceptionContinueSearch;
}

Registration* FrameChain()
{
    Registration* p;
    __asm__ __volatile__("movl %%fs:0, %0" : "=r"(p));
    return p;
}

void FaultsUnderAForeignFrame(void*)
{
    Registration frame = {FrameChain(), reinterpret_cast<void*>(&PassingHandler)};
    __asm__ __volatile__("movl %0, %%fs:0" : : "r"(&frame) : "memory");
    WritesThroughNull(nullptr);
}

} // namespace

TEST(StructuredGuard, ReturnsZeroWhenTheCallCompletes)
{
    int n = 0;
    EXPECT_EQ(0u, Tavo::CallWithStructuredGuard(&Completes, &n));
    EXPECT_EQ(7, n);
}

TEST(StructuredGuard, CatchesFaultsAndRaisedCodesAgainAndAgain)
{
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION), Tavo::CallWithStructuredGuard(&WritesThroughNull, nullptr));
    }
    DWORD dwCode = 0xE0001234;
    EXPECT_EQ(0xE0001234u, Tavo::CallWithStructuredGuard(&Raises, &dwCode));
}

TEST(StructuredGuard, NestedGuardsEachCatchTheirOwn)
{
    DWORD dwInner = 0;
    EXPECT_EQ(static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION), Tavo::CallWithStructuredGuard(&FaultsTwoLevelsDown, &dwInner));
    EXPECT_EQ(static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION), dwInner);
    // The frame chain is intact afterwards: C++ exceptions and further guards still work.
    EXPECT_THROW(throw 5, int);
    EXPECT_EQ(static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION), Tavo::CallWithStructuredGuard(&WritesThroughNull, nullptr));
}

TEST(StructuredGuard, UnwindsForeignFramesBeforeResuming)
{
    s_searches = s_unwinds = 0;
    Registration* pBefore = FrameChain();
    EXPECT_EQ(static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION), Tavo::CallWithStructuredGuard(&FaultsUnderAForeignFrame, nullptr));
    EXPECT_EQ(1, s_searches);
    EXPECT_EQ(1, s_unwinds) << "the frame above the guard is told that it is unwound";
    EXPECT_EQ(pBefore, FrameChain()) << "no dead frame is left on the chain";
}
