#include "ImportPatch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>

namespace tavo::test {
namespace {

// Live patches of every entry, oldest first, each with what the entry held beneath it; and the
// overrides. The lock guards both: fakes call Original() and lookups come on any thread.
struct Record { void** slot; const void* original; const void* owner; };
struct Override { const void* owner; std::string function; const void* replacement; };
std::vector<Record> g_patches;
std::vector<Override> g_overrides;
std::mutex g_lock;

// The address table slots of `function` imported by name from `dll`. The tables of our modules lie
// in writable sections.
std::vector<void**> FindSlots(HMODULE module, const char* dll, const char* function)
{
    std::vector<void**> slots;
    if (!module) return slots;
    BYTE* const base = reinterpret_cast<BYTE*>(module);
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + reinterpret_cast<IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const DWORD imports = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (auto* d = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports); imports && d->Name; ++d) {
        if (::lstrcmpiA(reinterpret_cast<const char*>(base + d->Name), dll) != 0) continue;
        // Names come from the lookup table: the address table holds addresses once bound.
        auto* name = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + d->OriginalFirstThunk);
        for (auto* slot = reinterpret_cast<IMAGE_THUNK_DATA*>(base + d->FirstThunk); name->u1.AddressOfData; ++name, ++slot) {
            const auto* byName = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData);
            if (!IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal) && ::lstrcmpA(byName->Name, function) == 0) {
                slots.push_back(reinterpret_cast<void**>(&slot->u1.Function));
            }
        }
    }
    return slots;
}

FARPROC WINAPI GetProcAddressStandIn(HMODULE module, LPCSTR name)
{
    std::unique_lock<std::mutex> guard(g_lock);
    for (auto it = g_overrides.rbegin(); !IS_INTRESOURCE(name) && it != g_overrides.rend(); ++it) {
        if (it->function != name) continue;
        if (!it->replacement) ::SetLastError(ERROR_PROC_NOT_FOUND);
        return reinterpret_cast<FARPROC>(const_cast<void*>(it->replacement));
    }
    guard.unlock();
    return ::GetProcAddress(module, name);
}

} // namespace

HMODULE LoadedModule(const char* name, const char* file, int line)
{
    const HMODULE module = ::GetModuleHandleA(name);
    if (!module) ADD_FAILURE_AT(file, line) << name << " is not loaded in this process";
    return module;
}

ScopedImportPatch::ScopedImportPatch(HMODULE module, const char* importedDll, const char* function,
                                     const void* replacement, const char* file, int line)
{
    std::lock_guard<std::mutex> guard(g_lock);
    for (void** slot : FindSlots(module, importedDll, function)) {
        g_patches.push_back(Record{slot, *slot, this});
        ::InterlockedExchangePointer(slot, const_cast<void*>(replacement));
        patched_ = true;
    }
    if (patched_) return;
    ADD_FAILURE_AT(file, line) << "import patch: module " << module << " does not import " << function << " from "
                               << importedDll << " by name";
    fallback_ = reinterpret_cast<const void*>(::GetProcAddress(::GetModuleHandleA(importedDll), function));
}

ScopedImportPatch::~ScopedImportPatch()
{
    std::lock_guard<std::mutex> guard(g_lock);
    for (auto it = g_patches.begin(); it != g_patches.end();) {
        if (it->owner != this) {
            ++it;
            continue;
        }
        // A later patch of the entry now lies on what this one lay on; without one, the entry gets it back.
        const auto later = std::find_if(it + 1, g_patches.end(), [&](const Record& r) { return r.slot == it->slot; });
        if (later != g_patches.end()) later->original = it->original;
        else ::InterlockedExchangePointer(it->slot, const_cast<void*>(it->original));
        it = g_patches.erase(it);
    }
}

const void* ScopedImportPatch::OriginalAddress() const
{
    std::lock_guard<std::mutex> guard(g_lock);
    const auto self = std::find_if(g_patches.begin(), g_patches.end(), [this](const Record& r) { return r.owner == this; });
    return self != g_patches.end() ? self->original : fallback_;
}

ScopedProcAddressOverride::ScopedProcAddressOverride(HMODULE module, const char* function, const void* replacement,
                                                     const char* file, int line)
    : patch_(module, "KERNEL32.dll", "GetProcAddress", &GetProcAddressStandIn, file, line)
{
    std::lock_guard<std::mutex> guard(g_lock);
    g_overrides.push_back(Override{this, function, replacement});
}

ScopedProcAddressOverride::~ScopedProcAddressOverride()
{
    std::lock_guard<std::mutex> guard(g_lock);
    g_overrides.erase(std::find_if(g_overrides.begin(), g_overrides.end(), [this](const Override& o) { return o.owner == this; }));
}

} // namespace tavo::test
