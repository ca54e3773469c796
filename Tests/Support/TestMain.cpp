// main() of every test program: a child case when started with --tavo-child=NAME (see
// ChildProcess.h), the GoogleTest run otherwise.
#include "ChildProcess.h"

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    int exitCode = 0;
    if (tavo::test::detail::RunChildIfAsked(argc, argv, exitCode)) return exitCode;

    // A crash ends the run with its code rather than waiting on a crash dialog.
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    ::testing::InitGoogleTest(&argc, argv);
    if (!tavo::test::detail::ChildCasesAreUnique()) return 1;
    return RUN_ALL_TESTS();
}
