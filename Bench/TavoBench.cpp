// Prints, for each measured operation, its cost per call and the ratio against the raw platform
// operation it rests on, timed in the same run (best of several rounds, to shed scheduler noise).
#include "Trace.h"
#include "TavoCommon.h"

#include <stdio.h>

namespace {

const int kCalls = 2000000;
const int kRounds = 7;

CRITICAL_SECTION s_cs;

__attribute__((noinline)) void EmptyCall(DWORD, const char*, const char*, int, const char*, const char*)
{
    __asm__ __volatile__("" ::: "memory");
}

template <typename Body>
double BestNanosecondsPerCall(Body body)
{
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    double best = 1e30;
    for (int round = 0; round < kRounds; ++round) {
        LARGE_INTEGER start, stop;
        QueryPerformanceCounter(&start);
        for (int i = 0; i < kCalls; ++i) body();
        QueryPerformanceCounter(&stop);
        const double ns = (stop.QuadPart - start.QuadPart) * 1e9 / frequency.QuadPart / kCalls;
        if (ns < best) best = ns;
    }
    return best;
}

void Report(const char* szOperation, double ns, const char* szBaseline, double nsBaseline)
{
    printf("%-44s %8.2f ns   %-36s %8.2f ns   ratio %6.2f\n", szOperation, ns, szBaseline, nsBaseline,
           nsBaseline > 0 ? ns / nsBaseline : 0.0);
}

} // namespace

int main()
{
    InitializeCriticalSectionAndSpinCount(&s_cs, 0);
    if (!*Tavo::GetLibraryVersionW()) fprintf(stderr, "warning: the version resource was not read\n");

    volatile const wchar_t* sink = nullptr;
    const double nsLockPair = BestNanosecondsPerCall([] {
        EnterCriticalSection(&s_cs);
        LeaveCriticalSection(&s_cs);
    });
    const double nsGetter = BestNanosecondsPerCall([&] { sink = Tavo::GetLibraryVersionW(); });
    Report("cached getter (GetLibraryVersionW)", nsGetter, "EnterCriticalSection+Leave", nsLockPair);

    const double nsEmpty = BestNanosecondsPerCall([] { EmptyCall(TRACE_INFO, "f", "g", 1, "s", "x"); });
    const double nsTrace = BestNanosecondsPerCall([] {
        Tavo::TraceOutput(TRACE_INFO, "Bench.cpp", "main", 1, __TIMESTAMP__, "%d", 1);
    });
    Report("trace call, no sink (TraceOutput)", nsTrace, "empty function call", nsEmpty);
    (void)sink;
    return 0;
}
