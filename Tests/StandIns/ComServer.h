// The private COM server stand-in, shared with its tests: one interface, also a class id so that the short
// forms (one GUID for both) create it; a class whose factory fails with kComServerFailure, one created with
// S_FALSE, one whose DllGetClassObject answers S_OK without a factory (last error 0). COM_SERVER_BUILD tells
// the two builds apart.
#ifndef TAVO_TESTS_COM_SERVER_H
#define TAVO_TESTS_COM_SERVER_H

#include <objbase.h>

const GUID kComServerObject = {0x3f6a2c41, 0x8d0e, 0x4b7a, {0x9c, 0x15, 0x27, 0x60, 0xe4, 0xd1, 0x0b, 0x93}};
const GUID kComServerFailing = {0x3f6a2c42, 0x8d0e, 0x4b7a, {0x9c, 0x15, 0x27, 0x60, 0xe4, 0xd1, 0x0b, 0x93}};
const GUID kComServerSFalse = {0x3f6a2c43, 0x8d0e, 0x4b7a, {0x9c, 0x15, 0x27, 0x60, 0xe4, 0xd1, 0x0b, 0x93}};
const GUID kComServerNoFactory = {0x3f6a2c44, 0x8d0e, 0x4b7a, {0x9c, 0x15, 0x27, 0x60, 0xe4, 0xd1, 0x0b, 0x93}};
const HRESULT kComServerFailure = static_cast<HRESULT>(0x80040201);

struct IComServerObject : public IUnknown {
    // COM_SERVER_BUILD of the DLL that made the object.
    virtual int STDMETHODCALLTYPE Build() = 0;
};

// Export "ComServerLiveObjects": factories and objects not yet released.
typedef LONG(__cdecl* PFN_COM_SERVER_LIVE_OBJECTS)(void);

#endif
