// Path arithmetic on backslash-separated Windows paths, and the creation of a chain of directories.
// The narrow forms walk double-byte characters of the calling thread's ANSI code page, the code
// page of every narrow text of the library, so that a trail byte equal to '\' or '.' is neither.
#include "Check.h"
#include "Join.h"
#include "TavoCommon.h"

#include <shlwapi.h>
#include <string.h>

namespace Tavo {
namespace {

// The directory test of a created chain, as its line reads it, except that a path that cannot be
// reached (INVALID_FILE_ATTRIBUTES, every bit set) fails it too.
bool IsDirectory(DWORD dwAttributes)
{
    return dwAttributes != INVALID_FILE_ATTRIBUTES && (dwAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// The lead bytes of CP_THREAD_ACP, asked once per operation.
class CLeadBytes {
public:
    CLeadBytes()
    {
        CPINFO info;
        if (!::GetCPInfo(CP_THREAD_ACP, &info)) info.LeadByte[0] = 0;
        memcpy(m_abRanges, info.LeadByte, sizeof(m_abRanges));
    }

    // Behind the character at psz; a lead byte right before the terminator counts alone.
    const char* Next(const char* psz) const
    {
        return IsLead(static_cast<BYTE>(*psz)) && psz[1] ? psz + 2 : psz + 1;
    }

private:
    bool IsLead(BYTE b) const
    {
        for (int i = 0; i + 1 < MAX_LEADBYTES && m_abRanges[i]; i += 2)
            if (b >= m_abRanges[i] && b <= m_abRanges[i + 1]) return true;
        return false;
    }

    BYTE m_abRanges[MAX_LEADBYTES];
};

// The length of sz without its trailing run of backslashes.
int LengthWithoutTrailingBackslashes(const char* sz)
{
    const CLeadBytes leadBytes;
    const char* pEnd = sz;
    for (const char* p = sz; *p; p = leadBytes.Next(p))
        if (*p != '\\') pEnd = leadBytes.Next(p);
    return static_cast<int>(pEnd - sz);
}

// The position of the last character '.' in sz, or -1.
int LastDot(const char* sz)
{
    const CLeadBytes leadBytes;
    const char* pDot = nullptr;
    for (const char* p = sz; *p; p = leadBytes.Next(p))
        if (*p == '.') pDot = p;
    return pDot ? static_cast<int>(pDot - sz) : -1;
}

// Every occurrence of szOld that starts on a character of sz replaced by szNew; szOld is ASCII, so
// a match that starts on a character boundary lies on character boundaries throughout.
CStringA ReplaceCharacters(const CStringA& str, const char* szOld, const char* szNew)
{
    const CLeadBytes leadBytes;
    const size_t cchOld = strlen(szOld);
    CStringA strResult;
    const char* pCopied = str;
    for (const char* p = pCopied; *p;) {
        if (strncmp(p, szOld, cchOld) == 0) {
            strResult.Append(pCopied, static_cast<int>(p - pCopied));
            strResult += szNew;
            p += cchOld;
            pCopied = p;
        } else {
            p = leadBytes.Next(p);
        }
    }
    strResult.Append(pCopied, static_cast<int>(str.GetString() + str.GetLength() - pCopied));
    return strResult;
}

// The first cchPath characters of szPath, one backslash, and szFile without its leading backslashes,
// in one allocation: nearly every family joins paths. A leading backslash is always a character of
// its own, also in a double-byte code page.
template <typename XCHAR>
CStringT<XCHAR> Join(const XCHAR* szPath, int cchPath, const XCHAR* szFile)
{
    while (*szFile == '\\') ++szFile;
    return JoinText(szPath, cchPath, static_cast<XCHAR>('\\'), szFile, TStringTraits<XCHAR>::Length(szFile));
}

HRESULT _CreateDirectory(const CStringW& strDirectory)
{
    TAVO_FUNCTION("Tavo::_CreateDirectory");
    if (strDirectory.IsEmpty()) return E_INVALIDARG;

    CStringW strPath(strDirectory);
    CHECK_WIN32(PathStripToRootW(strPath.GetBuffer()));
    strPath.ReleaseBuffer();

    const int nLength = strDirectory.GetLength();
    for (int iPosition = strPath.GetLength();;) {
        while (iPosition < nLength && strDirectory[iPosition] == L'\\') ++iPosition;
        if (iPosition >= nLength) break;
        int iEnd = strDirectory.Find(L'\\', iPosition);
        if (iEnd < 0) iEnd = nLength;
        strPath = PathCombineW(strPath, strDirectory.Mid(iPosition, iEnd - iPosition));
        iPosition = iEnd + 1;
        if (::GetFileAttributesW(strPath) == INVALID_FILE_ATTRIBUTES) CHECK_WIN32(::CreateDirectoryW(strPath, 0));
    }

    CHECK_WIN32_AS(IsDirectory(::GetFileAttributesW(strDirectory)),
                   "0x00000010 == (0x00000010 & ::GetFileAttributesW(strDirectory))");
    return S_OK;
}

} // namespace

CStringW PathCombineW(const wchar_t* szPath, const wchar_t* szFile)
{
    if (!szFile || !*szFile) return CStringW(szPath);
    if (!szPath || !*szPath) return CStringW(szFile);
    int cchPath = static_cast<int>(wcslen(szPath));
    while (cchPath > 0 && szPath[cchPath - 1] == L'\\') --cchPath;
    return Join(szPath, cchPath, szFile);
}

CStringA PathCombineA(const char* szPath, const char* szFile)
{
    if (!szFile || !*szFile) return CStringA(szPath);
    if (!szPath || !*szPath) return CStringA(szFile);
    return Join(szPath, LengthWithoutTrailingBackslashes(szPath), szFile);
}

CStringW PathRenameExtensionW(const wchar_t* szFile, const wchar_t* szExtension)
{
    TAVO_FUNCTION("Tavo::PathRenameExtensionW");
    VERIFY_WIN32(szFile);
    CStringW strFile(szFile);
    const int iDot = strFile.ReverseFind(L'.');
    if (iDot >= 0) strFile.Truncate(iDot);
    if (!szExtension || !*szExtension) return strFile;
    CStringW strExtension(szExtension);
    strExtension.TrimLeft(L'.');
    return strFile + L'.' + strExtension;
}

CStringA PathRenameExtensionA(const char* szFile, const char* szExtension)
{
    TAVO_FUNCTION("Tavo::PathRenameExtensionA");
    VERIFY_WIN32(szFile);
    CStringA strFile(szFile);
    const int iDot = LastDot(strFile);
    if (iDot >= 0) strFile.Truncate(iDot);
    if (!szExtension || !*szExtension) return strFile;
    CStringA strExtension(szExtension);
    strExtension.TrimLeft('.');
    return strFile + '.' + strExtension;
}

CStringW ConvertWow64Path(const wchar_t* szPath)
{
    CStringW strPath(szPath);
    strPath.Replace(L"\\Program Files (x86)", L"\\Program Files");
    strPath.Replace(L"\\SysWOW64", L"\\System32");
    return strPath;
}

CStringA ConvertWow64Path(const char* szPath)
{
    const CStringA strPath = ReplaceCharacters(CStringA(szPath), "\\Program Files (x86)", "\\Program Files");
    return ReplaceCharacters(strPath, "\\SysWOW64", "\\System32");
}

long CreateDirectoryW(const wchar_t* szPath)
{
    return _CreateDirectory(CStringW(szPath));
}

long CreateDirectoryA(const char* szPath)
{
    return _CreateDirectory(CStringW(szPath));
}

} // namespace Tavo
