// Links the installed library through its CMake package only. Exit 0 when the library's exception
// reached this catch, 1 when nothing was thrown, 2 when the wrong failure arrived; without the
// package's shared libgcc the throw never gets here and the process terminates instead.
#include <TavoCommon.h>

#include <stdio.h>

int main()
{
    printf("%ls\n", Tavo::GetLibraryVersionW());
    try {
        // A negative length: the string layer throws CAtlException(E_INVALIDARG) inside TavoCommon.dll.
        Tavo::CStringW s(L"abc", -1);
        printf("no exception\n");
        return 1;
    } catch (const Tavo::CAtlException& e) {
        printf("caught %#lx\n", static_cast<unsigned long>(e.m_hr));
        return e.m_hr == E_INVALIDARG ? 0 : 2;
    }
}
