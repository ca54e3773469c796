// Stand-in child for the launcher's tests: ExitAfter.exe CODE [MILLISECONDS] sleeps that long, then
// exits with CODE. Without a code it exits with 2.
#include <windows.h>

#include <stdlib.h>

int main(int argc, char** argv)
{
    if (argc < 2) return 2;
    if (argc > 2) Sleep(strtoul(argv[2], nullptr, 10));
    return static_cast<int>(strtoul(argv[1], nullptr, 10));
}
