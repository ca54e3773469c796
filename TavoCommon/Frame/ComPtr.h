// Scope ownership of one COM interface pointer, released on every way out.
#ifndef TAVO_COM_PTR_H
#define TAVO_COM_PTR_H

namespace Tavo {

template <typename T>
class TComPtr {
public:
    TComPtr() : m_p(nullptr) {}
    ~TComPtr()
    {
        if (m_p) m_p->Release();
    }
    T* operator->() const { return m_p; }
    operator T*() const { return m_p; }
    // Only for an out-parameter: the holder is empty whenever it is asked.
    T** operator&() { return &m_p; }

private:
    TComPtr(const TComPtr&);
    TComPtr& operator=(const TComPtr&);
    T* m_p;
};

} // namespace Tavo

#endif
