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

// The code the platform dispatched last, seen before any frame handler. A write through null is an
// access violation on Windows; a user-mode emulator under Wine may report it as another fault, and
// the guard must hand back whatever was raised.
DWORD s_dispatched;

LONG CALLBACK RecordsDispatch(EXCEPTION_POINTERS* pInfo)
{
    s_dispatched = pInfo->ExceptionRecord->ExceptionCode;
    return EXCEPTION_CONTINUE_SEARCH;
}

class DispatchRecorder {
public:
    DispatchRecorder() : m_h(AddVectoredExceptionHandler(1, &RecordsDispatch)) { s_dispatched = 0; }
    ~DispatchRecorder() { RemoveVectoredExceptionHandler(m_h); }
    // The last code, which must be a fault's (error severity), not a C++ or user code.
    DWORD Fault() const
    {
        EXPECT_EQ(0xC0000000u, s_dispatched & 0xF0000000u) << std::hex << s_dispatched;
        return s_dispatched;
    }

private:
    void* m_h;
};

} // namespace

TEST(StructuredGuard, ReturnsZeroWhenTheCallCompletes)
{
    int n = 0;
    EXPECT_EQ(0u, Tavo::CallWithStructuredGuard(&Completes, &n));
    EXPECT_EQ(7, n);
}

TEST(StructuredGuard, CatchesFaultsAndRaisedCodesAgainAndAgain)
{
    DispatchRecorder recorder;
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        const DWORD dwCaught = Tavo::CallWithStructuredGuard(&WritesThroughNull, nullptr);
        EXPECT_EQ(recorder.Fault(), dwCaught);
    }
    DWORD dwCode = 0xE0001234;
    EXPECT_EQ(0xE0001234u, Tavo::CallWithStructuredGuard(&Raises, &dwCode));
}

TEST(StructuredGuard, NestedGuardsEachCatchTheirOwn)
{
    DispatchRecorder recorder;
    DWORD dwInner = 0;
    const DWORD dwOuter = Tavo::CallWithStructuredGuard(&FaultsTwoLevelsDown, &dwInner);
    EXPECT_EQ(recorder.Fault(), dwOuter);
    EXPECT_EQ(dwOuter, dwInner);
    // The frame chain is intact afterwards: C++ exceptions and further guards still work.
    EXPECT_THROW(throw 5, int);
    const DWORD dwAgain = Tavo::CallWithStructuredGuard(&WritesThroughNull, nullptr);
    EXPECT_EQ(recorder.Fault(), dwAgain);
}

TEST(StructuredGuard, UnwindsForeignFramesBeforeResuming)
{
    s_searches = s_unwinds = 0;
    Registration* pBefore = FrameChain();
    DispatchRecorder recorder;
    const DWORD dwCaught = Tavo::CallWithStructuredGuard(&FaultsUnderAForeignFrame, nullptr);
    EXPECT_EQ(recorder.Fault(), dwCaught);
    EXPECT_EQ(1, s_searches);
    EXPECT_EQ(1, s_unwinds) << "the frame above the guard is told that it is unwound";
    EXPECT_EQ(pBefore, FrameChain()) << "no dead frame is left on the chain";
}
