// Links the released library through its CMake package only, built for either C++ ABI. Exit 0 when
// the library's exception reached this catch, 1 when nothing was thrown, 2 when the wrong failure
// arrived; when the program and the library do not share one unwinder the throw never gets here and
// the process terminates instead. It prints through the Windows API alone, so that the same source
// needs no C run-time of either ABI.
#include <TavoCommon.h>

namespace {

void Print(const char* sz)
{
    DWORD cb = 0;
    ::WriteFile(::GetStdHandle(STD_OUTPUT_HANDLE), sz, static_cast<DWORD>(::lstrlenA(sz)), &cb, nullptr);
}

} // namespace

int main()
{
    Print(Tavo::GetLibraryVersionA());
    Print("\n");
    try {
        // A negative length: the string layer throws CAtlException(E_INVALIDARG) inside TavoCommon.dll.
        Tavo::CStringW s(L"abc", -1);
        Print("no exception\n");
        return 1;
    } catch (const Tavo::CAtlException& e) {
        char sz[32];
        ::wsprintfA(sz, "caught 0x%08lx\n", static_cast<unsigned long>(e.m_hr));
        Print(sz);
        return e.m_hr == E_INVALIDARG ? 0 : 2;
    }
}
