// A directory search that takes the faster form - basic information, large fetches - where the
// system has it, so callers walking many files need not ask.
#include "TavoCommon.h"

namespace Tavo {
namespace {

// Per form, asked at the first call and kept for the process. No lock: threads racing at the
// first call all get the same answer.
volatile LONG s_nWin7W = -1;
volatile LONG s_nWin7A = -1;

bool IsWin7OrNewerOnce(volatile LONG& nWin7)
{
    if (nWin7 == -1) ::InterlockedExchange(&nWin7, IsWin7OrNewer() ? 1 : 0);
    return nWin7 == 1;
}

// Before Windows 7 the platform knows neither the basic level nor the large fetch.
FINDEX_INFO_LEVELS SearchLevel(bool bWin7) { return bWin7 ? FindExInfoBasic : FindExInfoStandard; }
DWORD SearchFlags(bool bWin7) { return bWin7 ? FIND_FIRST_EX_LARGE_FETCH : 0; }

} // namespace

// A failure leaves the platform's last error for the caller and reports nothing.
void* FindFirstFileW(const wchar_t* szPath, WIN32_FIND_DATAW* pData)
{
    const bool bWin7 = IsWin7OrNewerOnce(s_nWin7W);
    return ::FindFirstFileExW(szPath, SearchLevel(bWin7), pData, FindExSearchNameMatch, nullptr, SearchFlags(bWin7));
}

void* FindFirstFileA(const char* szPath, WIN32_FIND_DATAA* pData)
{
    const bool bWin7 = IsWin7OrNewerOnce(s_nWin7A);
    return ::FindFirstFileExA(szPath, SearchLevel(bWin7), pData, FindExSearchNameMatch, nullptr, SearchFlags(bWin7));
}

} // namespace Tavo
