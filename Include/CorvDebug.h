// The diagnostic sink's interface: TavoCommon.dll loads "CorvDebug.dll" by name and hands every
// diagnostic line, unformatted, to its export OutputA. A program of the suite never calls it.
#ifndef TAVO_CORVDEBUG_H
#define TAVO_CORVDEBUG_H

#include <windows.h>
#include <stdarg.h>

// Levels: single bits, one per line. 2, 8 and 16 are not used by the library.
#define TRACE_VERIFY     1u    // a soft check of a condition failed; the function goes on
#define TRACE_VERIFY_HR  4u    // a soft check of an HRESULT failed; the function goes on
#define TRACE_INFO       32u   // a fact worth telling on a path that works
#define TRACE_WARNING    64u   // something expected is absent; the operation goes on another way
#define TRACE_ERROR      128u  // an operation failed

#ifdef __cplusplus
extern "C" {
#endif

// szModule is the full path of the tracing module; szFile, szFunction, nLine and szStamp name the
// call site; szFormat is a printf template (msvcrt dialect) whose values are in args.
// The sink may be called from several threads at once.
typedef void (__cdecl *PFN_CORV_OUTPUTA)(DWORD dwLevel, const char* szModule, const char* szFile,
                                         const char* szFunction, int nLine, const char* szStamp,
                                         const char* szFormat, va_list args);

#ifdef CORVDEBUG_BUILDING
__declspec(dllexport)
#endif
void __cdecl OutputA(DWORD dwLevel, const char* szModule, const char* szFile, const char* szFunction,
                     int nLine, const char* szStamp, const char* szFormat, va_list args);

#ifdef __cplusplus
}
#endif

#endif
