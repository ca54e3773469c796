// What the library looks up for itself and shares between its families: the configuration file's
// place and the library's own directory. Not exported.
#ifndef TAVO_GLOBAL_H
#define TAVO_GLOBAL_H

#include "TavoCommon.h"

// The configuration file, beside the library's own module.
#define CONFIG_FILE "Product.cfg"
// The wide form of a narrow literal, also of one given by a macro.
#define _W(sz) TAVO_WIDE_LITERAL_(sz)
#define TAVO_WIDE_LITERAL_(sz) L##sz

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

} // namespace Tavo

#endif
