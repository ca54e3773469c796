// Scoped fakes for a module's platform calls, through its import address table. A patch that cannot
// be applied fails the test. Optimised code reads a slot once: a function that patches an import of
// its own module must call it from another function (noipa).
#ifndef TAVO_TESTS_IMPORT_PATCH_H
#define TAVO_TESTS_IMPORT_PATCH_H

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>

namespace tavo::test {

// The module of that name loaded in this process; a test failure and NULL when it is not loaded.
inline HMODULE LoadedModule(const char* name, const char* file = __builtin_FILE(), int line = __builtin_LINE())
{
    const HMODULE module = ::GetModuleHandleA(name);
    if (!module) ADD_FAILURE_AT(file, line) << name << " is not loaded in this process";
    return module;
}
// The library under test, as this program loaded it.
inline HMODULE Library() { return LoadedModule("TavoCommon.dll"); }

// Live patches, oldest first, a record per slot with what the slot held beneath it; an override's
// records also hold the name it answers and its answer. The lock is for fakes on any thread.
struct PatchRecord { void** slot; const void* original; const void* owner; std::string function; const void* answer; };
inline std::vector<PatchRecord> g_patches;
inline std::mutex g_patchLock;

// Replaces the import `function` of `importedDll` (any case) in `module` by `replacement` until
// destruction. Patches of one import nest and may end in any order.
class ScopedImportPatch {
public:
    ScopedImportPatch(HMODULE module, const char* importedDll, const char* function, const void* replacement,
                      const char* file = __builtin_FILE(), int line = __builtin_LINE())
    {
        BYTE* const base = reinterpret_cast<BYTE*>(module);
        const auto* dos = reinterpret_cast<IMAGE_DOS_HEADER*>(module);
        const auto* nt = reinterpret_cast<IMAGE_NT_HEADERS*>(base + (dos ? dos->e_lfanew : 0));
        const DWORD imports = module ? nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress : 0;
        std::lock_guard<std::mutex> guard(g_patchLock);
        for (auto* d = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports); imports && d->Name; ++d) {
            if (::lstrcmpiA(reinterpret_cast<const char*>(base + d->Name), importedDll) != 0) continue;
            // Names from the lookup table: the address table holds addresses once bound (and is writable).
            auto* name = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + d->OriginalFirstThunk);
            for (auto* slot = reinterpret_cast<IMAGE_THUNK_DATA*>(base + d->FirstThunk); name->u1.AddressOfData; ++name, ++slot) {
                const auto* byName = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData);
                if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal) || ::lstrcmpA(byName->Name, function) != 0) continue;
                void** entry = reinterpret_cast<void**>(&slot->u1.Function);
                g_patches.push_back({entry, *entry, this, "", nullptr});
                ::InterlockedExchangePointer(entry, const_cast<void*>(replacement));
                patched_ = true;
            }
        }
        if (!patched_) ADD_FAILURE_AT(file, line) << "import patch: no " << importedDll << "!" << function << " in " << module;
    }
    template <class F, class = std::enable_if_t<std::is_function_v<F>>>
    ScopedImportPatch(HMODULE module, const char* importedDll, const char* function, F* replacement,
                      const char* file = __builtin_FILE(), int line = __builtin_LINE())
        : ScopedImportPatch(module, importedDll, function, reinterpret_cast<const void*>(replacement), file, line) {}
    ScopedImportPatch(const ScopedImportPatch&) = delete;

    ~ScopedImportPatch()
    {
        std::lock_guard<std::mutex> guard(g_patchLock);
        for (auto it = g_patches.end(); it != g_patches.begin();) {
            if ((--it)->owner != this) continue;
            // A later patch of the slot now lies on what this one lay on; without one, the slot gets it back.
            const auto later = std::find_if(it + 1, g_patches.end(), [&](const PatchRecord& r) { return r.slot == it->slot; });
            if (later != g_patches.end()) later->original = it->original;
            else ::InterlockedExchangePointer(it->slot, const_cast<void*>(it->original));
            it = g_patches.erase(it);
        }
    }

    // What the import held beneath this patch, to call through; null if the patch failed.
    template <class F>
    F Original() const { return reinterpret_cast<F>(const_cast<void*>(OriginalAddress())); }
    const void* OriginalAddress() const
    {
        std::lock_guard<std::mutex> guard(g_patchLock);
        const auto self = std::find_if(g_patches.begin(), g_patches.end(), [this](const auto& r) { return r.owner == this; });
        return self != g_patches.end() ? self->original : nullptr;
    }
    bool Patched() const { return patched_; }

private:
    bool patched_ = false;
};

// Entries a DLL binds at run time: its GetProcAddress answers `function` with `replacement` (null: NULL,
// ERROR_PROC_NOT_FOUND), the latest override first; other lookups go on through this program's import.
class ScopedProcAddressOverride : public ScopedImportPatch {
public:
    ScopedProcAddressOverride(HMODULE module, const char* function, const void* replacement,
                              const char* file = __builtin_FILE(), int line = __builtin_LINE())
        : ScopedImportPatch(module, "KERNEL32.dll", "GetProcAddress", &StandIn, file, line)
    {
        std::lock_guard<std::mutex> guard(g_patchLock);
        for (PatchRecord& r : g_patches) {
            if (r.owner == this) r = {r.slot, r.original, this, function, replacement};
        }
    }
    template <class F, class = std::enable_if_t<std::is_function_v<F>>>
    ScopedProcAddressOverride(HMODULE module, const char* function, F* replacement,
                              const char* file = __builtin_FILE(), int line = __builtin_LINE())
        : ScopedProcAddressOverride(module, function, reinterpret_cast<const void*>(replacement), file, line) {}

private:
    static FARPROC WINAPI StandIn(HMODULE module, LPCSTR name)
    {
        std::unique_lock<std::mutex> guard(g_patchLock);
        for (auto it = g_patches.rbegin(); !IS_INTRESOURCE(name) && it != g_patches.rend(); ++it) {
            if (it->function != name) continue;
            if (!it->answer) ::SetLastError(ERROR_PROC_NOT_FOUND);
            return reinterpret_cast<FARPROC>(const_cast<void*>(it->answer));
        }
        guard.unlock();
        return ::GetProcAddress(module, name);
    }
};

} // namespace tavo::test

// A ScopedImportPatch `variable` of `function` by `fake` of the very type (a missing WINAPI corrupts).
#define TAVO_PATCH_IMPORT(variable, module, importedDll, function, fake)                                      \
    static_assert(sizeof(static_cast<decltype(&::function)>(&fake)) != 0, #fake " must have the type of " #function); \
    ::tavo::test::ScopedImportPatch variable((module), (importedDll), #function, &fake)

#endif
