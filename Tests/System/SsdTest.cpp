// The SSD decision through scripted device answers: Wine's storage queries fail with error 50, so the
// library's opens, device requests and closes are patched in its imports and checked byte by byte.
#include <TavoCommon.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "ImportPatch.h"
#include "Recorder.h"

namespace {

const DWORD kExtents = 0x560000, kSeekPenalty = 0x2D1400, kAtaPassThrough = 0x4D02C;

struct Script {
    DWORD openError[2];  // of the volume's and the disk's open, 0 to succeed
    int extentsError;    // -1 to succeed, else the last error the failure leaves (0 included)
    int penalty;         // -1: the query fails; else IncursSeekPenalty
    int rotationRate;    // -1: the ATA request fails; else word 217
};

struct Device {
    explicit Device(const Script& s) : script(s) {}
    Script script;
    std::vector<std::wstring> opened;
    std::vector<DWORD> codes;
    std::vector<unsigned char> queryBytes, ataBytes;
    int closes = 0;
};
Device* g_device;

HANDLE WINAPI FakeCreateFileW(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES sa, DWORD disposition,
                              DWORD flags, HANDLE tmpl)
{
    EXPECT_TRUE(access == 0xC0000000 && share == 3 && sa && sa->nLength == 12 && !sa->lpSecurityDescriptor &&
                !sa->bInheritHandle && disposition == 3 && flags == 0x80 && !tmpl);
    const size_t n = g_device->opened.size();
    g_device->opened.push_back(name);
    if (n < 2 && g_device->script.openError[n]) return SetLastError(g_device->script.openError[n]), INVALID_HANDLE_VALUE;
    return reinterpret_cast<HANDLE>(0x100 + 4 * n);
}

BOOL WINAPI FakeDeviceIoControl(HANDLE, DWORD code, LPVOID in, DWORD cbIn, LPVOID out, DWORD cbOut, LPDWORD, LPOVERLAPPED)
{
    const Script& s = g_device->script;
    g_device->codes.push_back(code);
    auto* pbIn = static_cast<unsigned char*>(in);
    auto* pbOut = static_cast<unsigned char*>(out);
    int answer = -1;
    if (code == kExtents) {
        EXPECT_EQ(32u, cbOut);
        if (s.extentsError >= 0) return SetLastError(s.extentsError), FALSE;
        pbOut[0] = 1;
        pbOut[8] = 12;  // DiskNumber of the first extent
        return TRUE;
    } else if (code == kSeekPenalty) {
        g_device->queryBytes.assign(pbIn, pbIn + cbIn);
        EXPECT_TRUE(cbOut == 64 && pbOut[8] == 0) << "a zeroed answer of 64 bytes";
        answer = s.penalty;
        pbOut[8] = static_cast<unsigned char>(answer);
    } else {
        g_device->ataBytes.assign(pbIn, pbIn + cbIn);
        EXPECT_TRUE(in == out && cbOut == 552);
        answer = s.rotationRate;
        pbOut[40 + 434] = static_cast<unsigned char>(answer);
        pbOut[40 + 435] = static_cast<unsigned char>(answer >> 8);
    }
    return answer < 0 ? SetLastError(ERROR_NOT_SUPPORTED), FALSE : TRUE;
}

BOOL WINAPI FakeCloseHandle(HANDLE) { return ++g_device->closes, TRUE; }

template <typename F>
long WithDevice(Device& d, F f)
{
    HMODULE lib = tavo::test::LoadedModule("TavoCommon.dll");
    TAVO_PATCH_IMPORT(open, lib, "KERNEL32.dll", CreateFileW, FakeCreateFileW);
    TAVO_PATCH_IMPORT(control, lib, "KERNEL32.dll", DeviceIoControl, FakeDeviceIoControl);
    TAVO_PATCH_IMPORT(close, lib, "KERNEL32.dll", CloseHandle, FakeCloseHandle);
    g_device = &d;
    tavo::test::ClearRecordedLines();
    return f();
}

// "level|function|template|text" of each line.
std::vector<std::string> Lines()
{
    std::vector<std::string> out;
    for (const auto& l : tavo::test::RecordedLines())
        out.push_back(std::to_string(l.level) + "|" + l.function + "|" + l.format + "|" + l.text);
    return out;
}

} // namespace

// Every road of the decision; each opened handle is closed once, nothing more is asked after an answer.
TEST(Ssd, DecisionFollowsTheDeviceAnswers)
{
    const std::string open = "128|Tavo::IsDriveSSDW|FAILED: %s - GetLastError = %lu|FAILED: hDrive = CreateFileW(strDrive, "
                             "(0x80000000L) | (0x40000000L), 0x00000001 | 0x00000002, &sa, 3, 0x00000080, 0) - GetLastError = ";
    const std::string extents = "128|Tavo::IsDriveSSDW|FAILURE: %s - %#08lx|FAILURE: DeviceIoControl(hDrive, "
                                "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, NULL, 0, &vdeOutBuffer, sizeof(vdeOutBuffer), "
                                "&dwBytesReturned, NULL) - ";
    const std::string penalty = "32|Tavo::IsDriveSSDW|Drive %lc has%s seek penalty|Drive C has";
    const std::vector<DWORD> all = {kExtents, kSeekPenalty, kAtaPassThrough};
    struct Row {
        Script script;
        long expected;
        size_t codes;  // how many of `all` were sent
        std::string line;
    };
    const Row rows[] = {
        {{{2, 0}, -1, -1, -1}, static_cast<long>(0x80070002), 0, open + "2"},
        {{{0, 5}, -1, -1, -1}, static_cast<long>(0x80070005), 1, open + "5"},
        {{{0, 0}, 50, -1, -1}, static_cast<long>(0x80070032), 1, extents + "0x80070032"},
        {{{0, 0}, 0, -1, -1}, static_cast<long>(0x8007001F), 1, extents + "0x8007001f"},  // never read as an SSD
        {{{0, 0}, -1, 1, -1}, 1, 2, penalty + " seek penalty"},
        {{{0, 0}, -1, 0, -1}, 0, 2, penalty + " no seek penalty"},
        {{{0, 0}, -1, -1, 1}, 0, 3, ""},
        {{{0, 0}, -1, -1, 0}, 1, 3, ""},
        {{{0, 0}, -1, -1, 0x101}, 1, 3, ""},
        {{{0, 0}, -1, -1, -1}, 1, 3, "64|Tavo::IsDriveSSDW|Cannot tell if drive %lc is a SSD or not!|Cannot tell if drive C is a SSD or not!"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << (&row - rows));
        Device d{row.script};
        EXPECT_EQ(row.expected, WithDevice(d, [] { return Tavo::IsDriveSSDW(L'C'); }));
        EXPECT_EQ(std::vector<DWORD>(all.begin(), all.begin() + row.codes), d.codes);
        EXPECT_EQ(row.codes > 1 ? 2 : row.codes, static_cast<size_t>(d.closes));
        EXPECT_EQ(row.line.empty() ? std::vector<std::string>{} : std::vector<std::string>{row.line}, Lines());
    }
}

// The paths and request bytes the system is given; a string names its drive by its first character.
TEST(Ssd, RequestsCarryTheExactBytes)
{
    Device d{{{0, 0}, -1, -1, 1}};
    EXPECT_EQ(0, WithDevice(d, [] { return Tavo::IsDriveSSDA("e:\\some\\path"); }));
    EXPECT_EQ((std::vector<std::wstring>{L"\\\\.\\e:", L"\\\\.\\physicaldrive12"}), d.opened);
    EXPECT_EQ((std::vector<unsigned char>{7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}), d.queryBytes);
    std::vector<unsigned char> ata(552, 0);
    ata[0] = 40;     // Length
    ata[2] = 2;      // AtaFlags: data in
    ata[9] = 2;      // DataTransferLength 512
    ata[12] = 30;    // TimeOutValue
    ata[20] = 40;    // DataBufferOffset
    ata[38] = 0xEC;  // IDENTIFY DEVICE
    EXPECT_EQ(ata, d.ataBytes);
}

// Null and empty strings are refused before anything is opened; a narrow letter is sign-extended.
TEST(Ssd, StringFormsCheckTheirArgument)
{
    struct Row {
        long (*call)();
        long expected;
        const char* line;  // "function|text" of the refusal, or null when the path below was opened
        const wchar_t* opened;
    };
    const Row rows[] = {
        {[] { return Tavo::IsDriveSSDW(static_cast<const wchar_t*>(nullptr)); }, E_POINTER, "Tavo::IsDriveSSDW|Invalid null pointer: szDrive", nullptr},
        {[] { return Tavo::IsDriveSSDW(L""); }, E_INVALIDARG, "Tavo::IsDriveSSDW|Invalid string argument: szDrive", nullptr},
        {[] { return Tavo::IsDriveSSDA(static_cast<const char*>(nullptr)); }, E_POINTER, "Tavo::IsDriveSSDA|Invalid null pointer: szDrive", nullptr},
        {[] { return Tavo::IsDriveSSDA(""); }, E_INVALIDARG, "Tavo::IsDriveSSDA|Invalid string argument: szDrive", nullptr},
        {[] { return Tavo::IsDriveSSDW(L"Q:\\x"); }, static_cast<long>(0x80070002), nullptr, L"\\\\.\\Q:"},
        {[] { return Tavo::IsDriveSSDA('\xE9'); }, static_cast<long>(0x80070002), nullptr, L"\\\\.\\\xFFE9:"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << (&row - rows));
        Device d{{{ERROR_FILE_NOT_FOUND, 0}, -1, -1, -1}};
        EXPECT_EQ(row.expected, WithDevice(d, row.call));
        EXPECT_EQ(row.opened ? std::vector<std::wstring>{row.opened} : std::vector<std::wstring>{}, d.opened);
        if (row.line) {
            const auto lines = tavo::test::RecordedLines();
            ASSERT_EQ(1u, lines.size());
            EXPECT_EQ(row.line, lines[0].function + "|" + lines[0].text);
        }
    }
}
