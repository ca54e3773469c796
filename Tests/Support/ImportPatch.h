// Scoped fakes for the platform calls a module makes: its import address table is patched for the
// lifetime of a scope object, so a failing case cannot leak a fake into the next one.
//
//   DWORD WINAPI FakeGetTickCount() { return 42; }
//   TAVO_PATCH_IMPORT(patch, tavo::test::LoadedModule("TavoCommon.dll"), "KERNEL32.dll", GetTickCount, FakeGetTickCount);
//
// A patch that cannot be applied fails the current test. A patch is seen by every call that reads
// the slot after it was made: an optimised function reads a slot once, so a function that patches
// an import of its own module and then calls it must call it from a function of its own (noipa).
#ifndef TAVO_TESTS_IMPORT_PATCH_H
#define TAVO_TESTS_IMPORT_PATCH_H

#include <windows.h>

#include <type_traits>

namespace tavo::test {

// The module of that name loaded in this process; a test failure and NULL when it is not loaded.
HMODULE LoadedModule(const char* name, const char* file = __builtin_FILE(), int line = __builtin_LINE());

// Replaces the import `function` of `importedDll` (any case) in `module` by `replacement` until
// destruction. Patches of one entry nest and may end in any order.
class ScopedImportPatch {
public:
    ScopedImportPatch(HMODULE module, const char* importedDll, const char* function, const void* replacement,
                      const char* file = __builtin_FILE(), int line = __builtin_LINE());
    template <class F, class = std::enable_if_t<std::is_function_v<F>>>
    ScopedImportPatch(HMODULE module, const char* importedDll, const char* function, F* replacement,
                      const char* file = __builtin_FILE(), int line = __builtin_LINE())
        : ScopedImportPatch(module, importedDll, function, reinterpret_cast<const void*>(replacement), file, line) {}
    ~ScopedImportPatch();
    ScopedImportPatch(const ScopedImportPatch&) = delete;

    // What the entry held beneath this patch, for a fake to call through; when the patch failed,
    // the function as the DLL exports it (or null), so that a forwarding fake does not crash too.
    template <class F>
    F Original() const { return reinterpret_cast<F>(const_cast<void*>(OriginalAddress())); }
    const void* OriginalAddress() const;
    bool Patched() const { return patched_; }

private:
    const void* fallback_ = nullptr;
    bool patched_ = false;
};

// Entries a module binds at run time: its GetProcAddress import answers `function` with
// `replacement` (null: NULL and ERROR_PROC_NOT_FOUND) and forwards every other lookup to the real
// GetProcAddress. The latest live override of a name answers.
class ScopedProcAddressOverride {
public:
    ScopedProcAddressOverride(HMODULE module, const char* function, const void* replacement,
                              const char* file = __builtin_FILE(), int line = __builtin_LINE());
    template <class F, class = std::enable_if_t<std::is_function_v<F>>>
    ScopedProcAddressOverride(HMODULE module, const char* function, F* replacement,
                              const char* file = __builtin_FILE(), int line = __builtin_LINE())
        : ScopedProcAddressOverride(module, function, reinterpret_cast<const void*>(replacement), file, line) {}
    ~ScopedProcAddressOverride();
    bool Patched() const { return patch_.Patched(); }

private:
    ScopedImportPatch patch_;
};

} // namespace tavo::test

// Declares `variable`, a ScopedImportPatch of `function` by `fake`, and refuses at compile time a fake
// whose type differs from the real declaration (on i686 a missing WINAPI corrupts the stack).
#define TAVO_PATCH_IMPORT(variable, module, importedDll, function, fake)                              \
    static_assert(sizeof(static_cast<decltype(&::function)>(&fake)) != 0,                            \
                  #fake " must have the type of " #function);                                        \
    ::tavo::test::ScopedImportPatch variable((module), (importedDll), #function, &fake)

#endif
