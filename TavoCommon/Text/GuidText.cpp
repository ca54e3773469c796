// GUIDs as text and back, in the platform's braced, upper-case form.
#include "Argument.h"
#include "Check.h"
#include "TavoCommon.h"

#include <objbase.h>

namespace Tavo {

CStringW StringFromGuidW(const GUID& guid)
{
    wchar_t szGuid[64] = {};
    ::StringFromGUID2(guid, szGuid, 64);
    return CStringW(szGuid);
}

CStringA StringFromGuidA(const GUID& guid)
{
    return CStringA(StringFromGuidW(guid).GetString());
}

// Only the first character is looked at: the platform parses braced text alone, and a text without
// its opening brace is given one.
GUID GuidFromString(const wchar_t* szGuid)
{
    TAVO_FUNCTION("Tavo::GuidFromString");
    GUID guid = {};
    if (!szGuid || !*szGuid) {
        TAVO_TRACE(TRACE_ERROR, "Invalid NULL or empty string argument: szGuid");
        return guid;
    }
    // A braced text goes to the platform as it is; only one without its brace is copied.
    const wchar_t* szBraced = szGuid;
    CStringW strGuid;
    if (szGuid[0] != L'{') {
        strGuid = FormatStringW(L"{%s}", szGuid);
        szBraced = strGuid;
    }
    VERIFY_HRESULT_AS(CLSIDFromString(szBraced, &guid), "CLSIDFromString(strGuid, &guid)");
    return guid;
}

GUID GuidFromString(const char* szGuid)
{
    TAVO_WIDE_ARGUMENT(wszGuid, szGuid);
    return GuidFromString(static_cast<const wchar_t*>(wszGuid));
}

} // namespace Tavo
