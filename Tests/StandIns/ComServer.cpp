// A private COM server that nobody registers, for the library's CoCreateInstance.
#include "ComServer.h"

namespace {

LONG g_nLive = 0;

// Reference counting shared by the factory and the object; both count as live until released.
template <class TInterface>
class TUnknown : public TInterface {
public:
    TUnknown(REFIID iid) : m_iid(iid) { InterlockedIncrement(&g_nLive); }
    virtual ~TUnknown() { InterlockedDecrement(&g_nLive); }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override
    {
        *ppv = IsEqualGUID(riid, IID_IUnknown) || IsEqualGUID(riid, m_iid) ? this : nullptr;
        return *ppv ? (AddRef(), S_OK) : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return InterlockedIncrement(&m_nRefs); }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const LONG nRefs = InterlockedDecrement(&m_nRefs);
        if (nRefs == 0) delete this;
        return nRefs;
    }

private:
    IID m_iid;
    LONG m_nRefs = 1;
};

class CObject final : public TUnknown<IComServerObject> {
public:
    CObject() : TUnknown(kComServerObject) {}
    int STDMETHODCALLTYPE Build() override { return COM_SERVER_BUILD; }
};

class CFactory final : public TUnknown<IClassFactory> {
public:
    explicit CFactory(REFCLSID rclsid) : TUnknown(IID_IClassFactory), m_clsid(rclsid) {}
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID riid, void** ppv) override
    {
        *ppv = nullptr;
        if (IsEqualGUID(m_clsid, kComServerFailing)) return kComServerFailure;
        CObject* pObject = new CObject;
        const HRESULT hr = pObject->QueryInterface(riid, ppv);
        pObject->Release();
        return SUCCEEDED(hr) && IsEqualGUID(m_clsid, kComServerSFalse) ? S_FALSE : hr;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

private:
    CLSID m_clsid;
};

} // namespace

extern "C" HRESULT WINAPI DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv)
{
    *ppv = nullptr;
    if (IsEqualGUID(rclsid, kComServerNoFactory)) return SetLastError(0), S_OK;
    if (!IsEqualGUID(rclsid, kComServerObject) && !IsEqualGUID(rclsid, kComServerFailing) &&
        !IsEqualGUID(rclsid, kComServerSFalse))
        return CLASS_E_CLASSNOTAVAILABLE;
    CFactory* pFactory = new CFactory(rclsid);
    const HRESULT hr = pFactory->QueryInterface(riid, ppv);
    pFactory->Release();
    return hr;
}

extern "C" LONG __cdecl ComServerLiveObjects() { return g_nLive; }
