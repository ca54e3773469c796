// Scoped fakes for the platform calls a module makes: its import address table is patched for the
// lifetime of a scope object, so a failing case cannot leak a fake into the next one.
//
//   static int g_ticks;
//   DWORD WINAPI FakeGetTickCount() { ++g_ticks; return 42; }
//   ...
//   TAVO_PATCH_IMPORT(patch, tavo::test::LoadedModule("TavoCommon.dll"), "KERNEL32.dll",
//                     GetTickCount, FakeGetTickCount);
//
// A patch that cannot be applied fails the current test with the names involved; nothing is
// silently left unpatched. A patch is seen by every call that reads the slot after it was made. An
// optimised function reads a slot once, so a function that patches an import of its own module and
// then calls that import must call it from a function of its own (__attribute__((noipa))).
#ifndef TAVO_TESTS_IMPORT_PATCH_H
#define TAVO_TESTS_IMPORT_PATCH_H

#include <windows.h>

#include <string>
#include <type_traits>
#include <vector>

namespace tavo::test {

// The module of that name loaded in this process; a test failure (and NULL) when it is not loaded.
HMODULE LoadedModule(const char* name, const char* file = __builtin_FILE(), int line = __builtin_LINE());

// Replaces the import `function` of `importedDll` (matched case-insensitively) in `module` by
// `replacement` until destruction. Patches of one entry may overlap freely: each restores what it
// replaced, and one that ends while a later one is still alive hands its original on to it.
class ScopedImportPatch {
public:
    ScopedImportPatch(HMODULE module, const char* importedDll, const char* function, const void* replacement,
                      const char* file = __builtin_FILE(), int line = __builtin_LINE());
    // Takes a fake function directly; prefer TAVO_PATCH_IMPORT, which also checks its type.
    template <class F, class = std::enable_if_t<std::is_function_v<F>>>
    ScopedImportPatch(HMODULE module, const char* importedDll, const char* function, F* replacement,
                      const char* file = __builtin_FILE(), int line = __builtin_LINE())
        : ScopedImportPatch(module, importedDll, function, reinterpret_cast<const void*>(replacement), file, line)
    {
    }
    ~ScopedImportPatch();
    ScopedImportPatch(const ScopedImportPatch&) = delete;
    ScopedImportPatch& operator=(const ScopedImportPatch&) = delete;

    // The entry as it was before this patch, to call through from a fake. When the patch failed,
    // the function as the DLL exports it (or null), so a fake that forwards does not crash too.
    template <class F>
    F Original() const
    {
        static_assert(std::is_pointer_v<F> && std::is_function_v<std::remove_pointer_t<F>>,
                      "Original<F>() wants a function pointer type, e.g. decltype(&::GetTickCount)");
        return reinterpret_cast<F>(const_cast<void*>(OriginalAddress()));
    }
    const void* OriginalAddress() const;
    bool Patched() const { return !slots_.empty(); }

private:
    struct Slot {
        const void** address;
        const void* original;
    };
    friend struct PatchRegistry;

    std::string what_;  // "module!dll!function", for messages
    const void* replacement_;
    const void* fallback_;
    std::vector<Slot> slots_;
};

// Entries a module binds at run time: patches GetProcAddress in `module`'s imports with a stand-in
// that answers `function` with `replacement` for calls made from that module and forwards every
// other name (and ordinals) to the real GetProcAddress. A null replacement answers "not found":
// NULL with last error ERROR_PROC_NOT_FOUND. Overrides nest; the latest one for a name answers.
class ScopedProcAddressOverride {
public:
    ScopedProcAddressOverride(HMODULE module, const char* function, const void* replacement,
                              const char* file = __builtin_FILE(), int line = __builtin_LINE());
    template <class F, class = std::enable_if_t<std::is_function_v<F>>>
    ScopedProcAddressOverride(HMODULE module, const char* function, F* replacement,
                              const char* file = __builtin_FILE(), int line = __builtin_LINE())
        : ScopedProcAddressOverride(module, function, reinterpret_cast<const void*>(replacement), file, line)
    {
    }
    ~ScopedProcAddressOverride();
    ScopedProcAddressOverride(const ScopedProcAddressOverride&) = delete;
    ScopedProcAddressOverride& operator=(const ScopedProcAddressOverride&) = delete;

    bool Patched() const { return patch_.Patched(); }

private:
    ScopedImportPatch patch_;
    unsigned id_;
};

} // namespace tavo::test

// Declares `variable`, a ScopedImportPatch of `function` by `fake`, and refuses at compile time a fake
// whose type differs from the real declaration (on i686 a missing WINAPI corrupts the stack).
#define TAVO_PATCH_IMPORT(variable, module, importedDll, function, fake)                              \
    static_assert(sizeof(static_cast<decltype(&::function)>(&fake)) != 0,                            \
                  #fake " must have the type of " #function);                                        \
    ::tavo::test::ScopedImportPatch variable((module), (importedDll), #function, &fake)

#endif
