// Toasts: the library composes MetroToast.exe's command line and starts the tool in the logged-on
// user's session; the tool draws the toast.
#include "TavoCommon.h"

#include "Argument.h"

namespace Tavo {

namespace {

// " "Key=value"": the quote opens before the key, so key and value are one argument. Nothing in
// the value is escaped.
void AppendQuoted(CStringA& strArguments, const char* szKey, const CStringA& strValue)
{
    strArguments += " \"";
    strArguments += szKey;
    strArguments += strValue;
    strArguments += "\"";
}

} // namespace

METRO_TOAST_APP_EXIT_CODES_ENUM ShowMetroToastIfWin8orNewerW(int nDuration, const wchar_t* szType,
                                                             const wchar_t* szImage, const wchar_t* szLine1,
                                                             const wchar_t* szLine2, const wchar_t* szLine3,
                                                             int bAllowConcurrent)
{
    if (GetOS() < OS_WIN8) return METRO_TOAST_OS_TOO_OLD;
    if (!bAllowConcurrent && IsProgramRunningW(L"MetroToast.exe")) return METRO_TOAST_OK;
    const CStringA strProgram = CStringA(GetInstallDirectoryA()) + "\\MetroToast.exe";

    // The shortcut's name without its ".lnk".
    const CStringA strShortcut(GetShortcutNameW());
    const int cchBase = strShortcut.GetLength() > 4 ? strShortcut.GetLength() - 4 : 0;

    CStringA strArguments;
    AppendQuoted(strArguments, "CompanyName=", CStringA(GetCompanyW()));
    AppendQuoted(strArguments, "ShortcutFileBaseName=", strShortcut.Left(cchBase));
    strArguments += nDuration == 1 ? " Duration=long" : " Duration=short";
    if (!szType) return METRO_TOAST_NO_TYPE;
    strArguments += " Type=";
    strArguments += CStringA(szType);
    if (szImage) AppendQuoted(strArguments, "Image=", CStringA(szImage));
    if (!szLine1) return METRO_TOAST_NO_LINE1;
    AppendQuoted(strArguments, "Line1=", CStringA(szLine1));
    if (szLine2) AppendQuoted(strArguments, "Line2=", CStringA(szLine2));
    if (szLine3) AppendQuoted(strArguments, "Line3=", CStringA(szLine3));

    return static_cast<METRO_TOAST_APP_EXIT_CODES_ENUM>(
        UseImpersonateToExecuteProcessAndWaitA(strProgram, strArguments, INFINITE, 0));
}

METRO_TOAST_APP_EXIT_CODES_ENUM ShowMetroToastIfWin8orNewerA(int nDuration, const char* szType, const char* szImage,
                                                             const char* szLine1, const char* szLine2,
                                                             const char* szLine3, int bAllowConcurrent)
{
    TAVO_WIDE_ARGUMENT(wszType, szType);
    TAVO_WIDE_ARGUMENT(wszImage, szImage);
    TAVO_WIDE_ARGUMENT(wszLine1, szLine1);
    TAVO_WIDE_ARGUMENT(wszLine2, szLine2);
    TAVO_WIDE_ARGUMENT(wszLine3, szLine3);
    return ShowMetroToastIfWin8orNewerW(nDuration, wszType, wszImage, wszLine1, wszLine2, wszLine3,
                                        bAllowConcurrent);
}

} // namespace Tavo
