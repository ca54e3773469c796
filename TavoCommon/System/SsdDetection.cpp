// Whether a drive letter stands on a solid-state disk: the volume leads to its physical disk, which is
// asked for its seek penalty, or, where the system cannot tell, for its rotation rate by ATA IDENTIFY.
// Not knowing counts as not an SSD (S_FALSE); only a failed open or extent query is an error.
#include "Check.h"
#include "TavoCommon.h"
#include "TavoHandles.h"

#include <stddef.h>
#include <winioctl.h>
#include <ntddscsi.h>

namespace Tavo {
namespace {

// Not every SDK names these; the values are the system's.
const DWORD kSeekPenaltyProperty = 7;  // StorageDeviceSeekPenaltyProperty
const UCHAR kAtaIdentifyDevice = 0xEC;
const USHORT kAtaFlagsDataIn = 2;    // ATA_FLAGS_DATA_IN

// STORAGE_PROPERTY_QUERY, 12 bytes.
struct PropertyQuery {
    DWORD PropertyId;
    DWORD QueryType;  // 0: PropertyStandardQuery
    BYTE AdditionalParameters[4];
};

// DEVICE_SEEK_PENALTY_DESCRIPTOR, read from a zeroed 64-byte answer.
struct SeekPenaltyDescriptor {
    DWORD Version;
    DWORD Size;
    BOOLEAN IncursSeekPenalty;
};

// ATA_PASS_THROUGH_EX (40 bytes on i686) with the 512 bytes of IDENTIFY data right behind it.
struct AtaIdentifyRequest {
    USHORT Length;
    USHORT AtaFlags;
    UCHAR PathId, TargetId, Lun, ReservedAsUchar;
    ULONG DataTransferLength;
    ULONG TimeOutValue;
    ULONG ReservedAsUlong;
    ULONG_PTR DataBufferOffset;
    UCHAR PreviousTaskFile[8];
    UCHAR CurrentTaskFile[8];
    BYTE abData[512];
};
static_assert(offsetof(AtaIdentifyRequest, abData) == 40 && sizeof(AtaIdentifyRequest) == 552,
              "the ATA request is the 40-byte header and 512 bytes of data");
static_assert(sizeof(PropertyQuery) == 12, "the query the system expects");
static_assert(sizeof(VOLUME_DISK_EXTENTS) == 32, "room for the count and one extent");

// Word 217 of IDENTIFY DEVICE: the nominal media rotation rate, 1 for a non-rotating medium.
const int kRotationRateByte = 217 * 2;

// A volume or a disk, opened for the queries. The line shows the call as the platform's headers
// expand it.
const char kOpenText[] =
    "hDrive = CreateFileW(strDrive, (0x80000000L) | (0x40000000L), 0x00000001 | 0x00000002, &sa, 3, 0x00000080, 0)";
HANDLE OpenDevice(const wchar_t* szDevice, SECURITY_ATTRIBUTES& sa)
{
    return ::CreateFileW(szDevice, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &sa, OPEN_EXISTING,
                         FILE_ATTRIBUTE_NORMAL, 0);
}

} // namespace

long IsDriveSSDW(wchar_t cDrive)
{
    TAVO_FUNCTION("Tavo::IsDriveSSDW");
    CStringW strDrive = FormatStringW(L"\\\\.\\%c:", cDrive);
    SECURITY_ATTRIBUTES sa = {};
    sa.nLength = sizeof(sa);
    THandle<HANDLE, 0> hDrive;
    CHECK_WIN32_AS(hDrive = OpenDevice(strDrive, sa), kOpenText);

    VOLUME_DISK_EXTENTS vdeOutBuffer = {};
    DWORD dwBytesReturned = 0;
    CHECK_HRESULT_AS(::DeviceIoControl(hDrive, IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, NULL, 0, &vdeOutBuffer,
                                       sizeof(vdeOutBuffer), &dwBytesReturned, NULL)
                         ? S_OK
                         : HResultFromLastError(),
                     "DeviceIoControl(hDrive, IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, NULL, 0, &vdeOutBuffer, "
                     "sizeof(vdeOutBuffer), &dwBytesReturned, NULL)");

    hDrive.Close();
    strDrive = FormatStringW(L"\\\\.\\physicaldrive%d", static_cast<int>(vdeOutBuffer.Extents[0].DiskNumber));
    CHECK_WIN32_AS(hDrive = OpenDevice(strDrive, sa), kOpenText);

    PropertyQuery query = {};
    query.PropertyId = kSeekPenaltyProperty;
    BYTE abPenalty[64] = {};
    if (::DeviceIoControl(hDrive, IOCTL_STORAGE_QUERY_PROPERTY, &query, sizeof(query), abPenalty, sizeof(abPenalty),
                          &dwBytesReturned, NULL)) {
        const bool bPenalty = reinterpret_cast<const SeekPenaltyDescriptor*>(abPenalty)->IncursSeekPenalty != 0;
        TAVO_TRACE(TRACE_INFO, "Drive %lc has%s seek penalty", cDrive, bPenalty ? "" : " no");
        return bPenalty ? S_FALSE : S_OK;
    }

    // Systems without the seek penalty query: ask the disk itself.
    AtaIdentifyRequest request = {};
    request.Length = offsetof(AtaIdentifyRequest, abData);
    request.AtaFlags = kAtaFlagsDataIn;
    request.DataTransferLength = sizeof(request.abData);
    request.TimeOutValue = 30;
    request.DataBufferOffset = offsetof(AtaIdentifyRequest, abData);
    request.CurrentTaskFile[6] = kAtaIdentifyDevice;
    if (::DeviceIoControl(hDrive, IOCTL_ATA_PASS_THROUGH, &request, sizeof(request), &request, sizeof(request),
                          &dwBytesReturned, NULL)) {
        const WORD wRotationRate =
            static_cast<WORD>(request.abData[kRotationRateByte] | (request.abData[kRotationRateByte + 1] << 8));
        return wRotationRate == 1 ? S_OK : S_FALSE;
    }

    TAVO_TRACE(TRACE_WARNING, "Cannot tell if drive %lc is a SSD or not!", cDrive);
    return S_FALSE;
}

long IsDriveSSDA(char cDrive)
{
    return IsDriveSSDW(static_cast<wchar_t>(static_cast<signed char>(cDrive)));
}

long IsDriveSSDW(const wchar_t* szDrive)
{
    TAVO_FUNCTION("Tavo::IsDriveSSDW");
    CHECK_STRING(szDrive);
    return IsDriveSSDW(szDrive[0]);
}

long IsDriveSSDA(const char* szDrive)
{
    TAVO_FUNCTION("Tavo::IsDriveSSDA");
    CHECK_STRING(szDrive);
    return IsDriveSSDA(szDrive[0]);
}

} // namespace Tavo
