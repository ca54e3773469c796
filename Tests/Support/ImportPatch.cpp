#include "ImportPatch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <mutex>

namespace tavo::test {
namespace {

// The mapped image of a loaded module, every read bounded by SizeOfImage.
class Image {
public:
    explicit Image(HMODULE module) : base_(reinterpret_cast<const BYTE*>(module)), size_(0)
    {
        if (!base_) return;
        const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base_);
        if (dos->e_magic != IMAGE_DOS_SIGNATURE || dos->e_lfanew <= 0) return;
        const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base_ + dos->e_lfanew);
        if (nt->Signature != IMAGE_NT_SIGNATURE || nt->OptionalHeader.Magic != IMAGE_NT_OPTIONAL_HDR_MAGIC) return;
        if (static_cast<DWORD>(dos->e_lfanew) + sizeof(IMAGE_NT_HEADERS) > nt->OptionalHeader.SizeOfImage) return;
        nt_ = nt;
        size_ = nt->OptionalHeader.SizeOfImage;
    }

    bool Valid() const { return size_ != 0; }

    const IMAGE_DATA_DIRECTORY& Directory(int index) const { return nt_->OptionalHeader.DataDirectory[index]; }

    // `count` objects of T at `rva`, or null when they do not lie inside the image.
    template <class T>
    T* At(DWORD rva, DWORD count = 1) const
    {
        if (rva == 0 || rva >= size_ || count > (size_ - rva) / sizeof(T)) return nullptr;
        return reinterpret_cast<T*>(const_cast<BYTE*>(base_) + rva);
    }

    // A terminated string at `rva`, or null.
    const char* String(DWORD rva) const
    {
        if (rva == 0 || rva >= size_) return nullptr;
        const char* s = reinterpret_cast<const char*>(base_ + rva);
        return std::memchr(s, 0, size_ - rva) ? s : nullptr;
    }

private:
    const BYTE* base_;
    const IMAGE_NT_HEADERS* nt_ = nullptr;
    DWORD size_;
};

std::string ModuleName(HMODULE module)
{
    char path[MAX_PATH] = {};
    const DWORD n = ::GetModuleFileNameA(module, path, MAX_PATH);
    if (n == 0 || n >= MAX_PATH) return std::string();
    const char* slash = std::strrchr(path, '\\');
    return slash ? slash + 1 : path;
}

// The IAT slots of `function` imported from `dll`; `importedDlls` collects what the module does import,
// for the failure message.
std::vector<const void**> FindSlots(const Image& image, const char* dll, const char* function, bool& dllSeen,
                                    std::string& importedDlls)
{
    std::vector<const void**> slots;
    const IMAGE_DATA_DIRECTORY& dir = image.Directory(IMAGE_DIRECTORY_ENTRY_IMPORT);
    const DWORD capacity = dir.Size / sizeof(IMAGE_IMPORT_DESCRIPTOR);
    for (DWORD d = 0; d < capacity; ++d) {
        const auto* desc = image.At<const IMAGE_IMPORT_DESCRIPTOR>(dir.VirtualAddress + d * sizeof(IMAGE_IMPORT_DESCRIPTOR));
        if (!desc || desc->Name == 0) break;
        const char* name = image.String(desc->Name);
        if (!name) continue;
        importedDlls += importedDlls.empty() ? name : std::string(", ") + name;
        if (::lstrcmpiA(name, dll) != 0) continue;
        dllSeen = true;
        // Names come from the lookup table: the address table may already hold bound addresses.
        for (DWORD i = 0;; ++i) {
            const auto* lookup = image.At<const IMAGE_THUNK_DATA>(desc->OriginalFirstThunk + i * sizeof(IMAGE_THUNK_DATA));
            auto* address = image.At<IMAGE_THUNK_DATA>(desc->FirstThunk + i * sizeof(IMAGE_THUNK_DATA));
            if (!lookup || !address || lookup->u1.AddressOfData == 0) break;
            if (IMAGE_SNAP_BY_ORDINAL(lookup->u1.Ordinal)) continue;
            const DWORD nameRva = static_cast<DWORD>(lookup->u1.AddressOfData) + offsetof(IMAGE_IMPORT_BY_NAME, Name);
            const char* imported = image.String(nameRva);
            if (imported && std::strcmp(imported, function) == 0) {
                slots.push_back(reinterpret_cast<const void**>(&address->u1.Function));
            }
        }
    }
    return slots;
}

bool WriteSlot(const void** slot, const void* value)
{
    DWORD old = 0;
    if (!::VirtualProtect(slot, sizeof(*slot), PAGE_EXECUTE_READWRITE, &old)) return false;
    ::InterlockedExchangePointer(static_cast<void**>(static_cast<void*>(slot)), const_cast<void*>(value));
    ::VirtualProtect(slot, sizeof(*slot), old, &old);
    ::FlushInstructionCache(::GetCurrentProcess(), slot, sizeof(*slot));
    return true;
}

} // namespace

// Live patches, so that one ending out of order hands its original to the patch stacked on it.
struct PatchRegistry {
    static std::mutex& Lock()
    {
        static std::mutex lock;
        return lock;
    }
    static std::vector<ScopedImportPatch*>& Live()
    {
        static std::vector<ScopedImportPatch*> live;
        return live;
    }
};

HMODULE LoadedModule(const char* name, const char* file, int line)
{
    HMODULE module = name ? ::GetModuleHandleA(name) : NULL;
    if (!module) {
        ADD_FAILURE_AT(file, line) << (name ? name : "(null)") << " is not loaded in this process";
    }
    return module;
}

ScopedImportPatch::ScopedImportPatch(HMODULE module, const char* importedDll, const char* function,
                                     const void* replacement, const char* file, int line)
    : replacement_(replacement), fallback_(nullptr)
{
    const std::string moduleName = module ? ModuleName(module) : std::string("(null module)");
    const char* dll = importedDll ? importedDll : "(null)";
    const char* fn = function ? function : "(null)";
    what_ = moduleName + "!" + dll + "!" + fn;

    if (HMODULE exporter = importedDll ? ::GetModuleHandleA(importedDll) : NULL; exporter && function) {
        fallback_ = reinterpret_cast<const void*>(::GetProcAddress(exporter, function));
    }
    if (!module || !importedDll || !function || !replacement) {
        ADD_FAILURE_AT(file, line) << "import patch " << what_ << ": module, DLL, function and replacement are all required";
        return;
    }
    if (moduleName.empty()) {
        ADD_FAILURE_AT(file, line) << "import patch of " << dll << "!" << fn << ": the handle is not a loaded module";
        return;
    }
    const Image image(module);
    if (!image.Valid()) {
        ADD_FAILURE_AT(file, line) << "import patch " << what_ << ": " << moduleName << " has no valid PE headers";
        return;
    }

    bool dllSeen = false;
    std::string importedDlls;
    const std::vector<const void**> found = FindSlots(image, importedDll, function, dllSeen, importedDlls);
    if (found.empty()) {
        if (dllSeen) {
            ADD_FAILURE_AT(file, line) << "import patch: " << moduleName << " does not import " << fn << " from " << dll
                                       << " by name";
        } else {
            ADD_FAILURE_AT(file, line) << "import patch: " << moduleName << " imports nothing from " << dll
                                       << " (it imports from: " << importedDlls << ")";
        }
        return;
    }

    std::lock_guard<std::mutex> guard(PatchRegistry::Lock());
    for (const void** address : found) {
        const void* original = *address;
        if (!WriteSlot(address, replacement)) {
            ADD_FAILURE_AT(file, line) << "import patch " << what_ << ": VirtualProtect failed, error "
                                       << ::GetLastError();
            continue;
        }
        slots_.push_back(Slot{address, original});
    }
    if (!slots_.empty()) PatchRegistry::Live().push_back(this);
}

ScopedImportPatch::~ScopedImportPatch()
{
    if (slots_.empty()) return;
    std::lock_guard<std::mutex> guard(PatchRegistry::Lock());
    auto& live = PatchRegistry::Live();
    live.erase(std::remove(live.begin(), live.end(), this), live.end());
    for (const Slot& slot : slots_) {
        if (*slot.address == replacement_) {
            WriteSlot(slot.address, slot.original);
            continue;
        }
        // A later patch of the same entry is still alive: it restores our original when it ends.
        bool handedOn = false;
        for (ScopedImportPatch* later : live) {
            for (Slot& other : later->slots_) {
                if (other.address == slot.address && other.original == replacement_) {
                    other.original = slot.original;
                    handedOn = true;
                }
            }
        }
        if (!handedOn) {
            ADD_FAILURE() << "import patch " << what_
                          << ": the entry was overwritten behind the patch's back; it is left as found";
        }
    }
}

const void* ScopedImportPatch::OriginalAddress() const
{
    if (slots_.empty()) return fallback_;
    std::lock_guard<std::mutex> guard(PatchRegistry::Lock());
    return slots_.front().original;
}

// --- GetProcAddress ------------------------------------------------------------------------------

namespace {

using GetProcAddressFn = FARPROC(WINAPI*)(HMODULE, LPCSTR);

struct Override {
    unsigned id;
    HMODULE module;           // whose imports are patched
    std::string function;
    const void* replacement;  // null: "not found"
    GetProcAddressFn forward; // the real GetProcAddress
};

std::mutex& OverrideLock()
{
    static std::mutex lock;
    return lock;
}

std::vector<Override>& Overrides()
{
    static std::vector<Override> overrides;
    return overrides;
}

HMODULE ModuleAt(const void* address)
{
    HMODULE module = NULL;
    if (!::GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                              static_cast<LPCSTR>(address), &module)) {
        return NULL;
    }
    return module;
}

FARPROC WINAPI GetProcAddressStandIn(HMODULE target, LPCSTR name)
{
    const HMODULE caller = ModuleAt(__builtin_return_address(0));
    bool answer = false;
    const void* replacement = nullptr;
    GetProcAddressFn forward = nullptr;
    {
        std::lock_guard<std::mutex> guard(OverrideLock());
        const auto& all = Overrides();
        // The caller's own overrides first; any module's when the caller is not one we know (a call
        // reached through a stub elsewhere). Latest first, so nested overrides win.
        for (int pass = 0; pass < 2 && !answer && !forward; ++pass) {
            for (auto it = all.rbegin(); it != all.rend(); ++it) {
                if (pass == 0 && it->module != caller) continue;
                if (!forward) forward = it->forward;
                if (IS_INTRESOURCE(name) || it->function != name) continue;
                answer = true;
                replacement = it->replacement;
                break;
            }
        }
    }
    if (answer) {
        if (!replacement) {
            ::SetLastError(ERROR_PROC_NOT_FOUND);
            return NULL;
        }
        return reinterpret_cast<FARPROC>(const_cast<void*>(replacement));
    }
    if (!forward) {  // an override ended while this call was on its way
        ::SetLastError(ERROR_PROC_NOT_FOUND);
        return NULL;
    }
    return forward(target, name);
}

unsigned NextOverrideId()
{
    static unsigned next = 0;
    return ++next;
}

} // namespace

ScopedProcAddressOverride::ScopedProcAddressOverride(HMODULE module, const char* function, const void* replacement,
                                                     const char* file, int line)
    // Without a name there is nothing to answer: no patch either, or every lookup would go unanswered.
    : patch_(function ? module : NULL, "KERNEL32.dll", "GetProcAddress", &GetProcAddressStandIn, file, line), id_(0)
{
    if (!function) {
        ADD_FAILURE_AT(file, line) << "GetProcAddress override: a function name is required";
        return;
    }
    if (!patch_.Patched()) return;  // already reported
    std::lock_guard<std::mutex> guard(OverrideLock());
    auto forward = patch_.Original<GetProcAddressFn>();
    if (forward == &GetProcAddressStandIn) {
        // Stacked on another override of this module: the real one is what that one forwards to.
        for (const Override& other : Overrides()) {
            if (other.module == module) forward = other.forward;
        }
    }
    id_ = NextOverrideId();
    Overrides().push_back(Override{id_, module, function, replacement, forward});
}

ScopedProcAddressOverride::~ScopedProcAddressOverride()
{
    std::lock_guard<std::mutex> guard(OverrideLock());
    auto& all = Overrides();
    all.erase(std::remove_if(all.begin(), all.end(), [this](const Override& o) { return o.id == id_; }), all.end());
}

} // namespace tavo::test
