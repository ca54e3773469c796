// The module object: the library's own module and resource handles, set at load.
#ifndef TAVO_MODULE_H
#define TAVO_MODULE_H

#include <windows.h>

namespace Tavo {

class CModule {
public:
    // Creates the global lock; false if it cannot be created (the load then fails).
    bool Initialize(HINSTANCE hInstance);
    // Runs the cached values' destructors, last computed first, and deletes the lock last.
    void Terminate();

    HINSTANCE m_hInstance;
    HINSTANCE m_hInstResource;
};

extern CModule g_module;

} // namespace Tavo

#endif
