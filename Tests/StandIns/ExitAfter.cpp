// Stand-in child for the launcher's tests: ExitAfter.exe CODE [MILLISECONDS] sleeps that long, then
// exits with CODE.
#include <windows.h>

#include <stdlib.h>

int main(int argc, char** argv)
{
    if (argc > 2) Sleep(strtoul(argv[2], nullptr, 10));
    return argc > 1 ? static_cast<int>(strtoul(argv[1], nullptr, 10)) : 2;
}
