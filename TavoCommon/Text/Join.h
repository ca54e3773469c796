// Two pieces of text and one character between them, as a string value in one heap block: paths and
// date-and-time texts are joined so.
#ifndef TAVO_JOIN_H
#define TAVO_JOIN_H

#include "TavoCommon.h"

#include <string.h>

namespace Tavo {

template <typename XCHAR>
CStringT<XCHAR> JoinText(const XCHAR* pchFirst, int cchFirst, XCHAR chBetween, const XCHAR* pchSecond, int cchSecond)
{
    CStringT<XCHAR> strResult;
    XCHAR* p = strResult.GetBuffer(cchFirst + 1 + cchSecond);
    memcpy(p, pchFirst, cchFirst * sizeof(XCHAR));
    p[cchFirst] = chBetween;
    memcpy(p + cchFirst + 1, pchSecond, cchSecond * sizeof(XCHAR));
    strResult.ReleaseBuffer(cchFirst + 1 + cchSecond);
    return strResult;
}

} // namespace Tavo

#endif
