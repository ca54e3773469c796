// Re-texting: a window's or a menu item's identifier is its string number, so a program's windows
// and menus take the current language without any marker in their texts. Narrow only, as the
// platform's A calls give the text in the active code page.
#include "Check.h"
#include "Global.h"

namespace Tavo {

long ResetText(HWND hWnd, HINSTANCE hInstance)
{
    TAVO_FUNCTION("Tavo::ResetText");
    CHECK_WIN32(IsWindow(hWnd));

    CStringA str;
    const UINT uID = static_cast<UINT>(GetWindowLongA(hWnd, GWL_ID));
    if (uID != 0) str = LoadStringA(uID, hInstance ? hInstance : GetCallersModuleHandle());
    if (str.IsEmpty()) {
        // No string: the window's own text is the template. The length is an upper bound only.
        const int nLength = GetWindowTextLengthA(hWnd);
        if (nLength > 0) {
            char* p = str.GetBuffer(nLength);
            p[0] = 0;
            GetWindowTextA(hWnd, p, nLength + 1);
            str.ReleaseBuffer();
        }
        if (lstrcmpiA("xx", GetLanguageCodeA()) != 0) {
            str.Replace("%PRODUCT%", GetProductNameA());
            str.Replace("%COMPANY%", GetCompanyNameA());
        } else {
            str = MaskTextA(str);
        }
    }
    if (!str.IsEmpty()) CHECK_WIN32(SetWindowTextA(hWnd, str));

    for (HWND hChild = GetWindow(hWnd, GW_CHILD); hChild; hChild = GetWindow(hChild, GW_HWNDNEXT))
        CHECK_HRESULT(ResetText(hChild, hInstance ? hInstance : GetCallersModuleHandle()));
    return S_OK;
}

long ResetText(HMENU hMenu, HINSTANCE hInstance)
{
    TAVO_FUNCTION("Tavo::ResetText");
    CHECK_WIN32(IsMenu(hMenu));
    int nCount;
    CHECK_WIN32(-1 != (nCount = GetMenuItemCount(hMenu)));

    for (int i = 0; i < nCount; ++i) {
        MENUITEMINFOA mii = {};
        mii.cbSize = sizeof(mii);
        mii.fMask = MIIM_ID | MIIM_SUBMENU | MIIM_FTYPE;
        CHECK_WIN32(GetMenuItemInfoA(hMenu, i, 1, &mii));
        if (mii.hSubMenu) {
            // The item that opens a submenu keeps its own caption.
            CHECK_HRESULT(ResetText(mii.hSubMenu, hInstance ? hInstance : GetCallersModuleHandle()));
        } else if (mii.fType == MFT_STRING && mii.wID != 0) {
            // Separators, owner-drawn and radio items carry type bits and are left alone.
            CStringA str = LoadStringA(mii.wID, hInstance ? hInstance : GetCallersModuleHandle());
            if (!str.IsEmpty()) {
                mii.fMask = MIIM_STRING;
                mii.dwTypeData = str.GetBuffer();
                CHECK_WIN32(SetMenuItemInfoA(hMenu, i, 1, &mii));
            }
        }
    }
    return S_OK;
}

} // namespace Tavo
