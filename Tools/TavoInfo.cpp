// tavoinfo: prints what TavoCommon.dll reports on this machine, one section per family.
//   tavoinfo [--trace]
// --trace sends the library's diagnostic lines (through CorvDebug.dll) to standard error, unless
// CORVDEBUG_FILE already says where they go.
#include <TavoCommon.h>

#include <stdio.h>
#include <string.h>

namespace {

void Field(const char* szName, const wchar_t* szValue)
{
    printf("  %-18s %ls\n", szName, szValue && *szValue ? szValue : L"(empty)");
}

void Section(const char* szTitle) { printf("\n%s\n", szTitle); }

int Usage()
{
    fprintf(stderr, "usage: tavoinfo [--trace]\n");
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--trace") == 0) {
            if (!GetEnvironmentVariableA("CORVDEBUG_FILE", nullptr, 0)) SetEnvironmentVariableA("CORVDEBUG_FILE", "-");
        } else {
            return Usage();
        }
    }

    try {
        HMODULE hLibrary = GetModuleHandleW(L"TavoCommon.dll");
        printf("TavoCommon %ls\n", Tavo::GetLibraryVersionW());

        Section("Library");
        Field("Version", Tavo::GetLibraryVersionW());
        Field("File", Tavo::GetModuleFileNameW(hLibrary));
        Field("Directory", Tavo::GetModulePathNameW(hLibrary));
        Field("Program", Tavo::GetModuleFileNameW(nullptr));

        Section("Diagnostic channel");
        HMODULE hSink = GetModuleHandleW(L"CorvDebug.dll");
        Field("CorvDebug.dll", hSink ? Tavo::GetModuleFileNameW(hSink).GetString()
                                     : L"not loaded (the library loads it at its first line)");
    } catch (const Tavo::CAtlException& e) {
        fprintf(stderr, "tavoinfo: the library threw CAtlException %#lx\n", static_cast<unsigned long>(e.m_hr));
        return 1;
    }
    return 0;
}
