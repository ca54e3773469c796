// CoCreateInstance against the stand-in COM server: build 1 (ComServer.dll) in the install directory
// beside TavoCommon.dll, build 2 in a scratch current directory as ComServer.dll and ComServerAway.dll.
// The library's LoadLibraryW is recorded with the current directory it ran in.
#include <TavoCommon.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "ImportPatch.h"
#include "Recorder.h"
#include "StandIns/ComServer.h"

namespace {

std::string Here()
{
    char sz[MAX_PATH] = {};
    GetCurrentDirectoryA(MAX_PATH, sz);
    return sz;
}

std::vector<std::string> g_loads;  // "name in directory"
HMODULE WINAPI RecordingLoadLibraryW(LPCWSTR szName)
{
    g_loads.push_back(std::string(Tavo::CStringA(szName)) + " in " + Here());
    return LoadLibraryW(szName);
}

// The build of the server that made the object, releasing it; 0 for none.
int BuildOf(void* pv)
{
    if (!pv) return 0;
    const int nBuild = static_cast<IComServerObject*>(pv)->Build();
    static_cast<IComServerObject*>(pv)->Release();
    return nBuild;
}

class ComObject : public testing::Test {
protected:
    void SetUp() override
    {
        char sz[MAX_PATH] = {};
        GetModuleFileNameA(tavo::test::LoadedModule("TavoCommon.dll"), sz, MAX_PATH);
        install_.assign(sz, strrchr(sz, '\\'));
        ASSERT_TRUE(CreateDirectoryA(scratch_.c_str(), nullptr));
        for (const char* name : {"\\ComServer.dll", "\\ComServerAway.dll"})
            ASSERT_TRUE(CopyFileA((install_ + "\\ComServerOther.dll").c_str(), (scratch_ + name).c_str(), FALSE));
        ASSERT_TRUE(SetCurrentDirectoryA(scratch_.c_str()));
    }
    void TearDown() override
    {
        SetCurrentDirectoryA(caller_.c_str());
        for (const char* name : {"ComServer.dll", "ComServerAway.dll", "HelpStandIn.dll"})
            EXPECT_EQ(nullptr, GetModuleHandleA(name)) << name << " left loaded";
        for (const char* name : {"\\ComServer.dll", "\\ComServerAway.dll"}) DeleteFileA((scratch_ + name).c_str());
        RemoveDirectoryA(scratch_.c_str());
    }

    // Loads and lines of one call, which leaves the current directory as it found it.
    long Call(const std::function<long()>& call)
    {
        g_loads.clear();
        tavo::test::ClearRecordedLines();
        const long hr = call();
        EXPECT_EQ(scratch_, Here());
        lines_.clear();
        for (const tavo::test::RecordedLine& line : tavo::test::RecordedLines())
            if (line.file == "ComObject.cpp") {
                EXPECT_EQ("Tavo::CoCreateInstance", line.function);
                lines_.push_back(std::to_string(line.level) + "|" + line.text);
            }
        return hr;
    }

    std::string install_, caller_ = Here(), scratch_ = caller_ + "\\ComObject-" + std::to_string(GetCurrentProcessId());
    std::vector<std::string> lines_;
    tavo::test::ScopedImportPatch patch_{tavo::test::LoadedModule("TavoCommon.dll"), "KERNEL32.dll", "LoadLibraryW",
                                         &RecordingLoadLibraryW};
};

} // namespace

TEST_F(ComObject, FindsLoadsAndCreates)
{
    const std::string away = "ComServerAway.dll", inScratch = scratch_ + "\\ComServer.dll", missing = scratch_ + "\\No.dll";
    const std::string loadFailed = "128|FAILED: *pModule = ::LoadLibraryW(szModule) - GetLastError = 126";
    enum Form { kWide, kNarrow, kWideShort, kNarrowShort };
    struct {
        Form form;
        std::string module;
        HRESULT expected;
        int build;
        std::vector<std::string> loads, lines;
    } const rows[] = {
        // A bare name in the install directory comes from there, whatever the current directory holds.
        {kWide, "ComServer.dll", S_OK, 1, {install_ + "\\ComServer.dll in " + install_}, {}},
        {kNarrow, "ComServer.dll", S_OK, 1, {install_ + "\\ComServer.dll in " + install_}, {}},
        {kWideShort, "ComServer.dll", S_OK, 1, {install_ + "\\ComServer.dll in " + install_}, {}},
        {kNarrowShort, "ComServer.dll", S_OK, 1, {install_ + "\\ComServer.dll in " + install_}, {}},
        // Elsewhere: by its bare name, with the install directory current, then from the caller's.
        {kNarrow, away, S_OK, 2, {away + " in " + install_, away + " in " + scratch_},
         {"64|File not found: " + install_ + "\\" + away}},
        {kWide, "No.dll", static_cast<HRESULT>(0x8007007E), 0, {"No.dll in " + install_, "No.dll in " + scratch_},
         {"64|File not found: " + install_ + "\\No.dll", loadFailed}},
        // A directory part: the install directory takes no part.
        {kNarrow, inScratch, S_OK, 2, {inScratch + " in " + scratch_}, {}},
        {kWide, missing, static_cast<HRESULT>(0x8007007E), 0, {missing + " in " + scratch_, missing + " in " + scratch_},
         {loadFailed}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.module << " form " << row.form);
        HINSTANCE hModule = reinterpret_cast<HINSTANCE>(1);
        void* pv = nullptr;
        const std::wstring wide(row.module.begin(), row.module.end());
        const GUID& id = kComServerObject;
        EXPECT_EQ(row.expected, Call([&] {
            switch (row.form) {
            case kWide: return Tavo::CoCreateInstance(wide.c_str(), id, id, &hModule, &pv);
            case kNarrow: return Tavo::CoCreateInstance(row.module.c_str(), id, id, &hModule, &pv);
            case kWideShort: return Tavo::CoCreateInstance(wide.c_str(), id, &hModule, &pv);
            default: return Tavo::CoCreateInstance(row.module.c_str(), id, &hModule, &pv);
            }
        }));
        EXPECT_EQ(row.build, BuildOf(pv));
        EXPECT_EQ(row.loads, g_loads);
        EXPECT_EQ(row.lines, lines_);
        EXPECT_EQ(row.build != 0, hModule != nullptr);
        if (hModule) FreeLibrary(hModule);
    }
}

TEST_F(ComObject, FailuresAfterTheLoadLeaveTheModuleToTheCaller)
{
    struct {
        const char* name;
        const wchar_t* module;
        GUID clsid, iid;
        HRESULT expected;
        const char* line;  // the first of the two lines, or null for none
    } const rows[] = {
        {"CreateInstance fails", L"ComServer.dll", kComServerFailing, kComServerObject, kComServerFailure,
         "FAILURE: pFactory->CreateInstance(NULL, riid, ppv) - 0x80040201"},
        {"unknown class", L"ComServer.dll", __uuidof(IDispatch), kComServerObject, CLASS_E_CLASSNOTAVAILABLE,
         "FAILURE: DllGetClassObject(rclsid, __uuidof(IClassFactory), (LPVOID*)&pFactory) - 0x80040111"},
        {"no interface", L"ComServer.dll", kComServerObject, __uuidof(IDispatch), E_NOINTERFACE,
         "FAILURE: pFactory->CreateInstance(NULL, riid, ppv) - 0x80004002"},
        {"no factory", L"ComServer.dll", kComServerNoFactory, kComServerObject, static_cast<HRESULT>(0x8007001F),
         "FAILED: pFactory - GetLastError = 31"},
        {"no DllGetClassObject", L"HelpStandIn.dll", kComServerObject, kComServerObject, static_cast<HRESULT>(0x8007007F),
         "FAILED: DllGetClassObject = (DLLGETCLASSOBJECT)::GetProcAddress(hModule, \"DllGetClassObject\") - GetLastError = 127"},
        {"S_FALSE", L"ComServer.dll", kComServerSFalse, kComServerObject, S_OK, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        HINSTANCE hModule = nullptr;
        void* pv = nullptr;
        EXPECT_EQ(row.expected, Call([&] { return Tavo::CoCreateInstance(row.module, row.clsid, row.iid, &hModule, &pv); }));
        EXPECT_EQ(row.line ? 0 : 1, BuildOf(pv));
        EXPECT_EQ(row.line ? 2u : 0u, lines_.size());
        if (row.line && !lines_.empty()) {
            EXPECT_EQ(std::string("128|") + row.line, lines_[0]);
        }
        ASSERT_NE(nullptr, hModule);
        const auto live = reinterpret_cast<PFN_COM_SERVER_LIVE_OBJECTS>(
            reinterpret_cast<void*>(GetProcAddress(hModule, "ComServerLiveObjects")));
        EXPECT_EQ(0, live ? live() : 0) << "the factory was not released";
        FreeLibrary(hModule);
    }
    // The module's short form: one id as class and interface.
    const HMODULE hModule = LoadLibraryA((install_ + "\\ComServer.dll").c_str());
    void* pv = nullptr;
    EXPECT_EQ(S_OK, Tavo::CoCreateInstance(hModule, kComServerObject, &pv));
    EXPECT_EQ(1, BuildOf(pv));
    EXPECT_EQ(kComServerFailure, Tavo::CoCreateInstance(hModule, kComServerFailing, &pv));
    FreeLibrary(hModule);
}

TEST_F(ComObject, ArgumentsAreCheckedBeforeAnythingIsTouched)
{
    HINSTANCE hModule = reinterpret_cast<HINSTANCE>(1);
    void* pv = nullptr;
    const GUID& id = kComServerObject;
    const std::pair<std::function<long()>, const char*> rows[] = {
        {[&] { return Tavo::CoCreateInstance(L"", id, id, &hModule, &pv); }, "Invalid string argument: szModule"},
        {[&] { return Tavo::CoCreateInstance("", id, &hModule, &pv); }, "Invalid string argument: szModule"},
        {[&] { return Tavo::CoCreateInstance(static_cast<const wchar_t*>(nullptr), id, &hModule, &pv); },
         "Invalid null pointer: szModule"},
        {[&] { return Tavo::CoCreateInstance(L"ComServer.dll", id, nullptr, &pv); }, "Invalid null pointer: pModule"},
        {[&] { return Tavo::CoCreateInstance("ComServer.dll", id, &hModule, nullptr); }, "Invalid null pointer: ppv"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.second);
        const bool bEmpty = strstr(row.second, "string") != nullptr;
        EXPECT_EQ(bEmpty ? E_INVALIDARG : E_POINTER, Call(row.first));
        EXPECT_EQ(reinterpret_cast<HINSTANCE>(1), hModule);
        EXPECT_EQ(std::vector<std::string>{std::string("128|") + row.second}, lines_);
        EXPECT_EQ(std::vector<std::string>{}, g_loads);
    }
}
