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
