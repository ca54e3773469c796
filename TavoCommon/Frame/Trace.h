// The one diagnostic path: every line the library tells goes through TraceOutput to the optional
// sibling CorvDebug.dll, unformatted. Not exported.
#ifndef TAVO_TRACE_H
#define TAVO_TRACE_H

#include <windows.h>
#include <stdarg.h>
#include "CorvDebug.h"

namespace Tavo {

void TraceOutput(DWORD dwLevel, const char* szFile, const char* szFunction, int nLine,
                 const char* szStamp, const char* szFormat, ...);
void TraceOutputV(DWORD dwLevel, const char* szFile, const char* szFunction, int nLine,
                  const char* szStamp, const char* szFormat, va_list args);

// What the guard's filter answers. GUARD_EXECUTE_HANDLER: the exception ends pfn and the guard
// returns its code. GUARD_CONTINUE_EXECUTION: execution goes on right behind the point that raised
// it, for an exception that is only a message to a debugger.
enum GuardFilter { GUARD_EXECUTE_HANDLER = 0, GUARD_CONTINUE_EXECUTION = 1 };

// Runs pfn(pv) under a structured-exception frame of its own. Returns 0 when pfn returned, or the
// code of the structured exception that ended it (the frames below are unwound first).
DWORD CallWithStructuredGuard(void (*pfn)(void*), void* pv, GuardFilter filter = GUARD_EXECUTE_HANDLER);

} // namespace Tavo

// Each function names itself once, as the diagnostic lines show it ("Tavo::GetCompanyW").
#define TAVO_FUNCTION(name) static const char* const tavoFunctionName_ = name
// The call site of a line: file, qualified function, line, build stamp of the file.
#define TAVO_SITE __FILE_NAME__, tavoFunctionName_, __LINE__, __TIMESTAMP__
// A line of its own (not a check form).
#define TAVO_TRACE(level, ...) ::Tavo::TraceOutput((level), TAVO_SITE, __VA_ARGS__)

#endif
