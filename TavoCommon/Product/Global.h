// What the library looks up for itself and shares between its families: the configuration file's
// place, the library's own directory and its language. Not exported.
#ifndef TAVO_GLOBAL_H
#define TAVO_GLOBAL_H

#include "TavoCommon.h"

namespace Tavo {

// The full path of Product.cfg, computed at the first call of each twin; never null.
const wchar_t* GetConfigFileW();
const char* GetConfigFileA();

// The directory of the library's own module (not of the process's executable).
CStringW GetModulePathNameW();
CStringA GetModulePathNameA();

// Product.cfg's AppDataPath (default Company\Product), as a copy.
CStringW GetAppDataPathW();
// Product.cfg's HelpFile (default Product.chm) and RegKey (default Company\Product); cached.
const wchar_t* GetHelpFileW();
const wchar_t* GetRegKeyW();

// The ISO 639 language of the locale of the thread that asked first (empty while the platform gives
// none), and Language.<code>.lng in the install directory built from it, existing or not; cached.
const wchar_t* GetLanguageCodeW();
const char* GetLanguageCodeA();
const wchar_t* GetLanguageFileW();
const char* GetLanguageFileA();
// The language file's section of a module: its file name with the extension; empty without one.
CStringW GetLanguageSectionW(HINSTANCE hInstance);
CStringA GetLanguageSectionA(HINSTANCE hInstance);

// The module holding pvReturnAddress: the code that called the library, when an export takes it with
// __builtin_return_address(0) at its entry. The default is evaluated in the calling function, so a
// call made directly in the body of an export means the same. Null if the platform cannot tell.
HINSTANCE GetCallersModuleHandle(const void* pvReturnAddress = __builtin_return_address(0));
// Letters masked to X and x, except inside a printf directive (from "%" up to the next space).
CStringW MaskTextW(const wchar_t* szText);
CStringA MaskTextA(const char* szText);

} // namespace Tavo

#endif
