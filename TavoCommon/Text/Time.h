// The time family's building blocks, shared with the date and time formatting. Not exported.
#ifndef TAVO_TIME_H
#define TAVO_TIME_H

#include <time.h>
#include "TavoCommon.h"

namespace Tavo {

// _mkgmtime64 of the fields (normalising them), with a line when it gives -1.
Time TmStructToTime(struct tm* ptm);
// The fields as a SYSTEMTIME, each cut to 16 bits; wMilliseconds 0.
SYSTEMTIME TmStructToSystemTime(const struct tm& tm);
// The text scanned by the format's pattern: month counting from 0, year less 1900 and tm_isdst -1
// once a date field was read; all zero for null or empty text or an unknown format.
struct tm StringToTmStructW(const wchar_t* szTime, TIME_FORMAT format);
struct tm StringToTmStructA(const char* szTime, TIME_FORMAT format);

} // namespace Tavo

#endif
