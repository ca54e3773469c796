// Queries against scripted WMI objects: the library's CoCreateInstance hands out small fakes written
// here (raw vtables, only the slots the library calls), so rows, nulls, failures at every step and the
// retry are under the test's control. One query runs against the real provider, which Wine has.
#include <TavoCommon.h>

#include <objbase.h>
#include <oleauto.h>
#include <wbemcli.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "ChildProcess.h"
#include "ImportPatch.h"
#include "Recorder.h"

using Tavo::CStringA;
using Tavo::CStringW;

namespace {

const CLSID kLocatorClass = {0x4590F811, 0x1D3A, 0x11D0, {0x89, 0x1F, 0x00, 0xAA, 0x00, 0x4B, 0x2E, 0x24}};
const IID kLocatorIid = {0xDC12A687, 0x737F, 0x11CF, {0x88, 0x4D, 0x00, 0xAA, 0x00, 0x4B, 0x2E, 0x24}};
const CLSID kContextClass = {0x674B6698, 0xEE92, 0x11D0, {0xAD, 0x71, 0x00, 0xC0, 0x4F, 0xD8, 0xFD, 0xFF}};
const IID kContextIid = {0x44ACA674, 0xE8FC, 0x11D0, {0xA0, 0x7C, 0x00, 0xC0, 0x4F, 0xB6, 0x88, 0x20}};

enum Kind { kText, kNull, kArray };
struct Cell {
    Kind kind;
    const wchar_t* text;
};
const Cell A = {kText, L"A"}, B = {kText, L"B"}, C = {kText, L"C"}, Null = {kNull, nullptr}, Array = {kArray, nullptr};

// One case's script, and what the library asked of the fakes.
struct Wmi {
    explicit Wmi(std::vector<Cell> r = {}, HRESULT e = WBEM_S_FALSE) : rows(r), end(e) {}
    HRESULT locator = S_OK, context = S_OK, setValue = S_OK, connect = S_OK, blanket = S_OK, exec = S_OK, get = S_OK;
    std::vector<Cell> rows;
    HRESULT end = WBEM_S_FALSE;  // Next's answer after the rows

    int locators = 0, contexts = 0, live = 0;
    size_t next = 0;
    std::vector<std::string> connects;  // "namespace|with context"
    std::vector<std::string> queries;   // "language|query|flags|context"
    std::string arch;                   // "name|type|value" of the context's value
    std::wstring item;
};
Wmi* g_wmi = nullptr;

// Reality of this machine, asked of the system itself rather than of the library.
bool Is64BitSystem()
{
    BOOL b = FALSE;
    return IsWow64Process(GetCurrentProcess(), &b) && b;
}

struct Fake {
    const void* const* vtbl;
    LONG refs;
    size_t row;
};

std::string Narrow(const wchar_t* sz) { return sz ? std::string(CStringA(sz)) : "(null)"; }

HRESULT STDMETHODCALLTYPE QueryInterface(Fake*, REFIID, void** ppv) { return *ppv = nullptr, E_NOINTERFACE; }
ULONG STDMETHODCALLTYPE AddRef(Fake* p) { return ++p->refs; }
ULONG STDMETHODCALLTYPE Release(Fake* p)
{
    const LONG refs = --p->refs;
    if (refs == 0) --g_wmi->live, delete p;
    return refs;
}
void Unused() { std::abort(); }

// Each fake answers one method, the last slot of its vtable; the library calls no other.
struct Vtbl {
    std::vector<const void*> slots;
    Vtbl(size_t n, const void* method) : slots(n, reinterpret_cast<const void*>(Unused))
    {
        slots[0] = reinterpret_cast<const void*>(QueryInterface);
        slots[1] = reinterpret_cast<const void*>(AddRef);
        slots[2] = reinterpret_cast<const void*>(Release);
        slots[n - 1] = method;
    }
};

template <typename T = void>
T* Make(const Vtbl& vtbl, size_t row = 0)
{
    ++g_wmi->live;
    return reinterpret_cast<T*>(new Fake{vtbl.slots.data(), 1, row});
}

HRESULT STDMETHODCALLTYPE Get(Fake* p, LPCWSTR name, LONG, VARIANT* v, CIMTYPE*, LONG*)
{
    g_wmi->item = name;
    const Cell& cell = g_wmi->rows[p->row];
    v->vt = cell.kind == kText ? VT_BSTR : cell.kind == kNull ? VT_NULL : VT_ARRAY | VT_I4;
    if (cell.kind == kText) v->bstrVal = SysAllocString(cell.text);
    if (cell.kind == kArray) v->parray = SafeArrayCreateVector(VT_I4, 0, 2);
    return g_wmi->get;
}
const Vtbl kObject(5, reinterpret_cast<const void*>(Get));

HRESULT STDMETHODCALLTYPE Next(Fake*, LONG timeout, ULONG count, IWbemClassObject** out, ULONG* returned)
{
    EXPECT_TRUE(timeout == -1 && count == 1);
    *returned = g_wmi->next < g_wmi->rows.size();
    if (!*returned) return g_wmi->end;
    *out = Make<IWbemClassObject>(kObject, g_wmi->next++);
    return S_OK;
}
const Vtbl kEnum(5, reinterpret_cast<const void*>(Next));

HRESULT STDMETHODCALLTYPE ExecQuery(Fake*, BSTR language, BSTR query, LONG flags, IWbemContext* context,
                                    IEnumWbemClassObject** out)
{
    g_wmi->queries.push_back(Narrow(language) + "|" + Narrow(query) + "|" + std::to_string(flags) + "|" +
                             std::to_string(context != nullptr));
    g_wmi->next = 0;
    if (SUCCEEDED(g_wmi->exec)) *out = Make<IEnumWbemClassObject>(kEnum);
    return g_wmi->exec;
}
const Vtbl kServices(21, reinterpret_cast<const void*>(ExecQuery));

HRESULT STDMETHODCALLTYPE ConnectServer(Fake*, BSTR ns, BSTR user, BSTR password, BSTR locale, LONG flags, BSTR authority,
                                        IWbemContext* context, IWbemServices** out)
{
    EXPECT_TRUE(!user && !password && !locale && !flags && !authority);
    g_wmi->connects.push_back(Narrow(ns) + "|" + std::to_string(context != nullptr));
    if (SUCCEEDED(g_wmi->connect)) *out = Make<IWbemServices>(kServices);
    return g_wmi->connect;
}
const Vtbl kLocator(4, reinterpret_cast<const void*>(ConnectServer));

HRESULT STDMETHODCALLTYPE SetValue(Fake*, LPCWSTR name, LONG flags, VARIANT* v)
{
    g_wmi->arch = Narrow(name) + "|" + std::to_string(flags) + "|" + std::to_string(v->vt) + "|" + std::to_string(v->lVal);
    return g_wmi->setValue;
}
const Vtbl kContext(9, reinterpret_cast<const void*>(SetValue));

HRESULT WINAPI FakeCoCreateInstance(REFCLSID clsid, LPUNKNOWN, DWORD context, REFIID iid, LPVOID* out)
{
    EXPECT_EQ(static_cast<DWORD>(CLSCTX_INPROC_SERVER), context);
    const bool locator = IsEqualCLSID(clsid, kLocatorClass) && IsEqualIID(iid, kLocatorIid);
    EXPECT_TRUE(locator || (IsEqualCLSID(clsid, kContextClass) && IsEqualIID(iid, kContextIid)));
    ++(locator ? g_wmi->locators : g_wmi->contexts);
    const HRESULT hr = locator ? g_wmi->locator : g_wmi->context;
    if (SUCCEEDED(hr)) *out = Make(locator ? kLocator : kContext);
    return hr;
}

HRESULT WINAPI FakeCoSetProxyBlanket(IUnknown*, DWORD authn, DWORD authz, OLECHAR* principal, DWORD level, DWORD imp,
                                     RPC_AUTH_IDENTITY_HANDLE identity, DWORD caps)
{
    EXPECT_TRUE(authn == 10 && authz == 0 && !principal && level == 3 && imp == 3 && !identity && caps == 0);
    return g_wmi->blanket;
}

// Runs f against the fakes of `wmi`; every fake it made must be released by the end.
template <typename F>
auto WithWmi(Wmi& wmi, F f)
{
    HMODULE lib = tavo::test::LoadedModule("TavoCommon.dll");
    TAVO_PATCH_IMPORT(create, lib, "ole32.dll", CoCreateInstance, FakeCoCreateInstance);
    TAVO_PATCH_IMPORT(blanket, lib, "ole32.dll", CoSetProxyBlanket, FakeCoSetProxyBlanket);
    g_wmi = &wmi;
    tavo::test::ClearRecordedLines();
    auto result = f();
    EXPECT_EQ(0, wmi.live) << "COM objects left unreleased";
    g_wmi = nullptr;
    return result;
}

const wchar_t kQuery[] = L"SELECT * FROM Thing";
const wchar_t kItem[] = L"Name";
const wchar_t kNamespace[] = L"ROOT\\TEST";

} // namespace

// Rows joined by "|", the default of each value form, and the retry, which appends to what the first
// attempt left.
TEST(QueryWMI, RowsAreJoinedBehindTheDefault)
{
    const int attemptsOnFailure = Is64BitSystem() ? 2 : 1;
    struct Row {
        const char* name;
        std::vector<Cell> rows;
        HRESULT end;
        HRESULT hr;
        std::string joined;  // what one attempt appends
    };
    const Row rows[] = {
        {"three", {A, B, C}, WBEM_S_FALSE, S_OK, "A|B|C"},
        {"null inside", {A, Null, C}, WBEM_S_FALSE, S_OK, "A||C"},
        {"null last", {A, Null}, WBEM_S_FALSE, S_OK, "A|"},
        {"no rows", {}, WBEM_S_FALSE, S_OK, ""},
        {"enumerator fails midway", {A, B}, static_cast<HRESULT>(WBEM_E_FAILED), S_OK, "A|B"},
        {"null first", {Null, B}, WBEM_S_FALSE, static_cast<HRESULT>(0x800710D2), ""},
        {"not a string", {A, Array}, WBEM_S_FALSE, DISP_E_TYPEMISMATCH, "A"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const int attempts = FAILED(row.hr) ? attemptsOnFailure : 1;
        std::string appended;
        for (int i = 0; i < attempts; ++i) appended += row.joined;

        Wmi wide(row.rows, row.end), narrow(row.rows, row.end), buffer(row.rows, row.end);
        const CStringW w = WithWmi(wide, [] { return Tavo::QueryWMI(kQuery, kItem, kNamespace, L"D:"); });
        EXPECT_EQ("D:" + appended, std::string(CStringA(w)));
        EXPECT_EQ(attempts, wide.locators);
        EXPECT_EQ(attempts - 1, wide.contexts);
        EXPECT_EQ(row.rows.empty() ? "" : "Name", Narrow(wide.item.c_str()));
        const CStringA a = WithWmi(narrow, [] { return Tavo::QueryWMI("SELECT * FROM Thing", "Name", "ROOT\\TEST", "d"); });
        EXPECT_EQ(SUCCEEDED(row.hr) ? row.joined : "d", std::string(a));
        EXPECT_EQ(std::vector<std::string>(attempts, "WQL|SELECT * FROM Thing|48|0"), narrow.queries);
        wchar_t sz[32] = L"#";
        EXPECT_EQ(row.hr, WithWmi(buffer, [&] { return Tavo::QueryWMI(kQuery, kItem, sz, 32, kNamespace); }));
        EXPECT_EQ(SUCCEEDED(row.hr) ? row.joined : "#", Narrow(sz));
    }
}

// A failure at each step is that step's HRESULT with its line; 64-bit Windows asks once more, with a
// context for the 64-bit provider, 32-bit Windows does not.
TEST(QueryWMI, EachFailingStepIsReportedAndRetriedOn64Bit)
{
    const bool is64 = Is64BitSystem();
    struct Row {
        HRESULT Wmi::*step;
        const char* text;
    };
    const Row rows[] = {
        {&Wmi::locator, "::CoCreateInstance(__uuidof(WbemLocator), 0, CLSCTX_INPROC_SERVER, __uuidof(IWbemLocator), "
                        "(LPVOID*)&pWbemLocator)"},
        {&Wmi::connect, "pWbemLocator->ConnectServer(CComBSTR(szNamespace), NULL, NULL, 0, NULL, 0, pWbemContext, "
                        "&pWbemServices)"},
        {&Wmi::blanket, "::CoSetProxyBlanket(pWbemServices, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, NULL, "
                        "RPC_C_AUTHN_LEVEL_CALL, RPC_C_IMP_LEVEL_IMPERSONATE, NULL, EOAC_NONE)"},
        {&Wmi::exec, "pWbemServices->ExecQuery(CComBSTR(\"WQL\"), CComBSTR(szQuery), WBEM_FLAG_FORWARD_ONLY | "
                     "WBEM_FLAG_RETURN_IMMEDIATELY, NULL, &pEnumWbemClassObject)"},
        {&Wmi::get, "pWbemClassObject->Get(szItem, 0, &vtProp, 0, 0)"},
    };
    const HRESULT failure = static_cast<HRESULT>(0x80041010);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        Wmi wmi({A});
        wmi.*row.step = failure;
        char sz[8] = "#######";
        EXPECT_EQ(failure, WithWmi(wmi, [&] { return Tavo::QueryWMI("q", "i", sz, 8, nullptr); }));
        EXPECT_STREQ("#######", sz) << "the buffer is left alone";

        std::vector<std::string> expected;
        for (int i = 0; i < (is64 ? 2 : 1); ++i) {
            expected.push_back("32|Tavo::_QueryWMI|szQuery = q, szItem = i, szNamespace = (null))");
            expected.push_back("128|Tavo::_QueryWMI|FAILURE: " + std::string(row.text) + " - 0x80041010");
        }
        expected.push_back("128|Tavo::QueryWMI|FAILURE: Tavo::QueryWMI(A2CW(szQuery), A2CW(szItem), strTemp, "
                           "A2CW(szNamespace)) - 0x80041010");
        expected.push_back("128|Tavo::QueryWMI|FAILURE: Tavo::QueryWMI(szQuery, szItem, strValue, szNamespace) - 0x80041010");
        std::vector<std::string> lines;
        for (const auto& l : tavo::test::RecordedLines())
            lines.push_back(std::to_string(l.level) + "|" + l.function + "|" + l.text);
        EXPECT_EQ(expected, lines);
        if (row.step != &Wmi::locator) {
            std::vector<std::string> connects = {"(null)|0"};
            if (is64) connects.push_back("(null)|1");
            EXPECT_EQ(connects, wmi.connects);
        }
    }

    // The 64-bit provider is asked for by the context's one value; its failures end the retry.
    if (!is64) return;
    Wmi wmi;
    wmi.connect = failure;
    EXPECT_EQ(failure, WithWmi(wmi, [] { wchar_t sz[4]; return Tavo::QueryWMI(kQuery, kItem, sz, 4, kNamespace); }));
    EXPECT_EQ("__ProviderArchitecture|0|3|64", wmi.arch);
    for (HRESULT Wmi::*step : {&Wmi::context, &Wmi::setValue}) {
        Wmi w;
        w.connect = failure;
        w.*step = E_ACCESSDENIED;
        EXPECT_EQ(E_ACCESSDENIED, WithWmi(w, [] { wchar_t sz[4]; return Tavo::QueryWMI(kQuery, kItem, sz, 4, kNamespace); }));
        EXPECT_EQ(1u, w.connects.size());
    }
}

// The buffer forms cut with the bounded copy's result and leave a refused buffer untouched.
TEST(QueryWMI, BufferFormsCutTheText)
{
    Wmi wmi({{kText, L"abcdef"}});
    char sz[7] = "xxxxxx";
    EXPECT_EQ(E_INVALIDARG, WithWmi(wmi, [&] { return Tavo::QueryWMI("q", "i", sz, 0, "n"); }));
    EXPECT_STREQ("xxxxxx", sz);
    EXPECT_EQ(static_cast<HRESULT>(0x8007007A), WithWmi(wmi, [&] { return Tavo::QueryWMI("q", "i", sz, 6, "n"); }));
    EXPECT_STREQ("abcde", sz);
    wchar_t szW[4];
    EXPECT_EQ(static_cast<HRESULT>(0x8007007A), WithWmi(wmi, [&] { return Tavo::QueryWMI(kQuery, kItem, szW, 4, kNamespace); }));
    EXPECT_EQ("abc", Narrow(szW));
}

namespace {

int g_uninitializations = 0;
void WINAPI CountingCoUninitialize()
{
    ++g_uninitializations;
    CoUninitialize();
}

} // namespace

// COM start-up on a thread in a single-threaded apartment fails with a changed mode and is not
// undone; on a thread already in the multi-threaded one it succeeds and is balanced.
TEST(QueryWMI, ComStartUpIsBalancedPerThread)
{
    TAVO_PATCH_IMPORT(uninit, tavo::test::LoadedModule("TavoCommon.dll"), "ole32.dll", CoUninitialize, CountingCoUninitialize);
    struct Row {
        DWORD apartment;  // -1: COM not started on the thread
        int uninitializations;
    };
    for (const Row& row : {Row{COINIT_APARTMENTTHREADED, 0}, Row{COINIT_MULTITHREADED, 1}, Row{DWORD(-1), 1}}) {
        SCOPED_TRACE(row.apartment);
        g_uninitializations = 0;
        HRESULT again = E_FAIL;
        std::thread([&] {
            if (row.apartment != DWORD(-1)) {
                ASSERT_EQ(S_OK, CoInitializeEx(nullptr, row.apartment));
            }
            Wmi wmi({A});
            EXPECT_EQ("A", std::string(CStringA(WithWmi(wmi, [] { return Tavo::QueryWMI(kQuery, kItem, kNamespace, L""); }))));
            // The thread's own start-up is still there, in its own mode.
            if (row.apartment != DWORD(-1)) {
                again = CoInitializeEx(nullptr, row.apartment);
                CoUninitialize();
                CoUninitialize();
            }
        }).join();
        EXPECT_EQ(row.uninitializations, g_uninitializations);
        if (row.apartment != DWORD(-1)) {
            EXPECT_EQ(S_FALSE, again);
        }
    }
}

// The real provider: the platform name is the Caption of the operating system, kept once asked.
TEST(QueryWMI, PlatformNameComesFromTheProvider)
{
    const CStringW caption = Tavo::QueryWMI(L"SELECT * FROM Win32_OperatingSystem", L"Caption", L"ROOT\\CIMV2", L"");
    EXPECT_FALSE(caption.IsEmpty());
    const wchar_t* szPlatform = Tavo::GetWindowsPlatformW();
    EXPECT_EQ(std::string(CStringA(caption)), Narrow(szPlatform));
    EXPECT_EQ(szPlatform, Tavo::GetWindowsPlatformW());
    EXPECT_EQ(std::string(CStringA(caption)), std::string(Tavo::GetWindowsPlatformA()));
}

// A failed first query is kept too: the name stays empty and the provider is not asked again.
TAVO_CHILD_CASE(PlatformFailureIsCached)
{
    Wmi wmi;
    wmi.locator = REGDB_E_CLASSNOTREG;
    const wchar_t* szFirst = WithWmi(wmi, [] { return Tavo::GetWindowsPlatformW(); });
    tavo::test::ChildReport("first", Narrow(szFirst));
    tavo::test::ChildReport("locators", wmi.locators);
    tavo::test::ChildReport("same", szFirst == Tavo::GetWindowsPlatformW());
    tavo::test::ChildReport("narrow", Tavo::GetWindowsPlatformA());
    return 0;
}

TEST(QueryWMI, PlatformFailureIsCached)
{
    tavo::test::ScratchInstall install;
    const tavo::test::ChildResult r = install.Run("PlatformFailureIsCached");
    ASSERT_EQ(0u, r.exitCode) << r.output;
    EXPECT_EQ("", r.Value("first"));
    EXPECT_EQ(std::to_string(Is64BitSystem() ? 2 : 1), r.Value("locators"));
    EXPECT_EQ("true", r.Value("same"));
    EXPECT_EQ("", r.Value("narrow"));
}
