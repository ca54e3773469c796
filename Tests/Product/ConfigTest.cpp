// The profile reader on a file of its own, and the typed readers of Product.cfg: the file's path is
// cached per process, so each file content is read in one fresh child process beside its own copy.
#include <CorvDebug.h>
#include <TavoCommon.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ChildProcess.h"
#include "Recorder.h"

using Tavo::CStringA;
using Tavo::CStringW;
using tavo::test::ChildReport;

namespace {

// Text that shows where a cut would fall: "abc...z" repeated.
std::string Value(size_t cch)
{
    std::string s;
    for (size_t i = 0; i < cch; ++i) s += static_cast<char>('a' + i % 26);
    return s;
}

std::string Narrow(const CStringW& s) { return std::string(CStringA(s)); }

// "whole" when the value came back unchanged, else what came back.
std::string Whole(const std::string& actual, size_t cch) { return actual == Value(cch) ? "whole" : actual; }

} // namespace

// The platform cuts a value to the buffer; the reader doubles until it fits (256, 512, 1024, ...).
// Whatever is absent, the section, the key or the file, gives the default, or "" for a null one.
TEST(Config, ProfileReaderGivesValuesWholeOrTheDefault)
{
    const size_t lengths[] = {0, 254, 255, 256, 511, 3000};
    std::string content = "[Sec]\r\nKey=value\r\n";
    for (size_t cch : lengths) content += "L" + std::to_string(cch) + "=" + Value(cch) + "\r\n";
    char szDir[MAX_PATH];
    ASSERT_NE(0u, GetTempPathA(MAX_PATH, szDir));
    const std::string file = std::string(szDir) + "TavoConfigTest-" + std::to_string(GetCurrentProcessId()) + ".ini";
    HANDLE h = CreateFileA(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD cb = 0;
    EXPECT_TRUE(h != INVALID_HANDLE_VALUE && WriteFile(h, content.data(), static_cast<DWORD>(content.size()), &cb, nullptr));
    CloseHandle(h);
    const CStringW wFile(file.c_str());
    for (size_t cch : lengths) {
        SCOPED_TRACE(cch);
        const std::string key = "L" + std::to_string(cch);
        EXPECT_EQ("whole", Whole(Narrow(Tavo::GetPrivateProfileStringW(wFile, L"SEC", CStringW(key.c_str()), L"d")), cch));
        EXPECT_EQ("whole", Whole(std::string(Tavo::GetPrivateProfileStringA(file.c_str(), "sec", key.c_str(), "d")), cch));
    }

    struct Row { const wchar_t* file; const wchar_t* section; const wchar_t* key; const wchar_t* defaultValue; const char* expected; };
    const Row rows[] = {
        {wFile, L"Sec", L"KEY", L"d", "value"},
        {wFile, L"Sec", L"Other", L"d", "d"},
        {wFile, L"Sec", L"Other", nullptr, ""},
        {wFile, L"Other", L"Key", L"d", "d"},
        {L"C:\\no such directory\\none.ini", L"Sec", L"Key", L"d", "d"},
        {L"C:\\no such directory\\none.ini", L"Sec", L"Key", nullptr, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(Narrow(row.file) + " [" + Narrow(row.section) + "] " + Narrow(row.key));
        EXPECT_EQ(row.expected, Narrow(Tavo::GetPrivateProfileStringW(row.file, row.section, row.key, row.defaultValue)));
        const CStringA aDefault(row.defaultValue);
        EXPECT_EQ(row.expected, std::string(Tavo::GetPrivateProfileStringA(CStringA(row.file), CStringA(row.section), CStringA(row.key),
                                                                           row.defaultValue ? aDefault.GetString() : nullptr)));
    }
    DeleteFileA(file.c_str());
}

namespace {

const std::string kProductFile = "[Config]\r\n"
                                 "Name=in Config\r\n"
                                 "Empty=\r\n"
                                 "Yes=YES\r\nOff=Off\r\nOne=1\r\nTwo=2\r\nZeroZero=00\r\n"
                                 "IsPortable=true\r\n"
                                 "D0=0\r\nD00=00\r\nDabc=abc\r\nDm1=-1\r\nDmax=2147483647\r\nDmax1=2147483646\r\nD7x=7x\r\n"
                                 "Guid={12345678-9ABC-DEF0-1122-334455667788}\r\n"
                                 "Long300=" + Value(300) + "\r\n"
                                 "[Other]\r\nName=in Other\r\n";

const GUID kDefaultGuid = {0x0A1B2C3D, 0x4E5F, 0x6071, {0x82, 0x93, 0xA4, 0xB5, 0xC6, 0xD7, 0xE8, 0xF9}};
const char kDefaultGuidText[] = "{0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9}";

struct Reading {
    const char* name;
    std::string (*read)();
    const char* withoutFile;
    const char* withFile;
    const char* line;  // with the file: the TRACE_ERROR line it gives, "function|text"
};

// The wide readings first, then the narrow ones: each twin tells its file's path at its first use.
const Reading kReadings[] = {
    {"string.null-section", [] { return Narrow(Tavo::GetConfigString(L"Name", L"dflt", nullptr)); }, "dflt", "in Config", nullptr},
    {"string.empty-section", [] { return Narrow(Tavo::GetConfigString(L"Name", L"dflt", L"")); }, "dflt", "in Config", nullptr},
    {"string.other-section", [] { return Narrow(Tavo::GetConfigString(L"name", L"dflt", L"OTHER")); }, "dflt", "in Other", nullptr},
    {"string.empty-value", [] { return Narrow(Tavo::GetConfigString(L"Empty", L"dflt")); }, "dflt", "", nullptr},
    {"string.absent", [] { return Narrow(Tavo::GetConfigString(L"Absent", L"dflt")); }, "dflt", "dflt", nullptr},
    {"string.300", [] { return Whole(Narrow(Tavo::GetConfigString(L"Long300", L"")), 300); }, "", "whole", nullptr},
    {"bool.YES", [] { return std::to_string(Tavo::GetConfigBOOL(L"Yes", 5)); }, "5", "1", nullptr},
    {"bool.Off", [] { return std::to_string(Tavo::GetConfigBOOL(L"Off", 5)); }, "5", "0", nullptr},
    {"bool.1", [] { return std::to_string(Tavo::GetConfigBOOL(L"One", 5)); }, "5", "1", nullptr},
    {"bool.2", [] { return std::to_string(Tavo::GetConfigBOOL(L"Two", 5)); }, "5", "5", "Tavo::GetConfigBOOL|Invalid BOOL value Two = 2"},
    {"bool.00", [] { return std::to_string(Tavo::GetConfigBOOL(L"ZeroZero", 5)); }, "5", "5",
     "Tavo::GetConfigBOOL|Invalid BOOL value ZeroZero = 00"},
    {"bool.empty", [] { return std::to_string(Tavo::GetConfigBOOL(L"Empty", 5)); }, "5", "5", nullptr},
    {"bool.CONFIG", [] { return std::to_string(Tavo::GetConfigBOOL(L"IsPortable", FALSE, L"CONFIG")); }, "0", "1", nullptr},
    {"dword.0", [] { return std::to_string(Tavo::GetConfigDWORD(L"D0", 9)); }, "9", "0", nullptr},
    {"dword.00", [] { return std::to_string(Tavo::GetConfigDWORD(L"D00", 9)); }, "9", "9",
     "Tavo::GetConfigDWORD|Invalid DWORD value D00 = 00"},
    {"dword.abc", [] { return std::to_string(Tavo::GetConfigDWORD(L"Dabc", 9)); }, "9", "9",
     "Tavo::GetConfigDWORD|Invalid DWORD value Dabc = abc"},
    {"dword.-1", [] { return std::to_string(Tavo::GetConfigDWORD(L"Dm1", 9)); }, "9", "9",
     "Tavo::GetConfigDWORD|Invalid DWORD value Dm1 = -1"},
    {"dword.2147483647", [] { return std::to_string(Tavo::GetConfigDWORD(L"Dmax", 9)); }, "9", "9",
     "Tavo::GetConfigDWORD|Invalid DWORD value Dmax = 2147483647"},
    {"dword.2147483646", [] { return std::to_string(Tavo::GetConfigDWORD(L"Dmax1", 9)); }, "9", "2147483646", nullptr},
    {"dword.7x", [] { return std::to_string(Tavo::GetConfigDWORD(L"D7x", 9)); }, "9", "7", nullptr},
    {"dword.empty", [] { return std::to_string(Tavo::GetConfigDWORD(L"Empty", 9)); }, "9", "9", nullptr},
    {"guid.present", [] { return std::string(Tavo::StringFromGuidA(Tavo::GetConfigGuid(L"Guid", kDefaultGuid))); },
     kDefaultGuidText, "{12345678-9ABC-DEF0-1122-334455667788}", nullptr},
    {"guid.absent", [] { return std::string(Tavo::StringFromGuidA(Tavo::GetConfigGuid(L"Absent", kDefaultGuid))); },
     kDefaultGuidText, kDefaultGuidText, nullptr},
    {"guid.empty", [] { return std::string(Tavo::StringFromGuidA(Tavo::GetConfigGuid(L"Empty", kDefaultGuid))); },
     kDefaultGuidText, "{00000000-0000-0000-0000-000000000000}", nullptr},
    {"narrow.string", [] { return std::string(Tavo::GetConfigString("Name", "dflt")); }, "dflt", "in Config", nullptr},
    {"narrow.string-empty-section", [] { return std::string(Tavo::GetConfigString("Name", "dflt", "")); }, "dflt", "in Config",
     nullptr},
    {"narrow.bool-YES", [] { return std::to_string(Tavo::GetConfigBOOL("Yes", 5)); }, "5", "1", nullptr},
    {"narrow.bool-CONFIG", [] { return std::to_string(Tavo::GetConfigBOOL("IsPortable", FALSE, "CONFIG")); }, "0", "1", nullptr},
    {"narrow.bool-2", [] { return std::to_string(Tavo::GetConfigBOOL("Two", 5)); }, "5", "5",
     "Tavo::GetConfigBOOL|Invalid BOOL value Two = 2"},
    {"narrow.dword-7x", [] { return std::to_string(Tavo::GetConfigDWORD("D7x", 9)); }, "9", "7", nullptr},
    {"narrow.dword-00", [] { return std::to_string(Tavo::GetConfigDWORD("D00", 9)); }, "9", "9",
     "Tavo::GetConfigDWORD|Invalid DWORD value D00 = 00"},
    {"narrow.dword-empty", [] { return std::to_string(Tavo::GetConfigDWORD("Empty", 9, "")); }, "9", "9", nullptr},
    {"narrow.guid-present", [] { return std::string(Tavo::StringFromGuidA(Tavo::GetConfigGuid("Guid", kDefaultGuid))); },
     kDefaultGuidText, "{12345678-9ABC-DEF0-1122-334455667788}", nullptr},
    {"narrow.guid-absent", [] { return std::string(Tavo::StringFromGuidA(Tavo::GetConfigGuid("Absent", kDefaultGuid, ""))); },
     kDefaultGuidText, kDefaultGuidText, nullptr},
};

} // namespace

TAVO_CHILD_CASE(ConfigReadings)
{
    for (const Reading& reading : kReadings) ChildReport(std::string("reading.") + reading.name, reading.read());
    // Lines of the configuration only: an empty GUID also has the lines of its parser.
    int nLines = 0;
    for (const tavo::test::RecordedLine& line : tavo::test::RecordedLines()) {
        if (line.file != "Config.cpp" && line.file != "Global.cpp") continue;
        ChildReport("line." + std::to_string(nLines++), std::to_string(line.level) + "|" + line.function + "|" + line.text);
    }
    ChildReport("lines", nLines);
    return 0;
}

TEST(Config, TypedReadersOfProductCfgWithAndWithoutTheFile)
{
    for (const bool bWithFile : {false, true}) {
        SCOPED_TRACE(bWithFile ? "with Product.cfg" : "without Product.cfg");
        tavo::test::ScratchInstall install;
        if (bWithFile) install.WriteFile("Product.cfg", kProductFile);
        const tavo::test::ChildResult result = install.Run("ConfigReadings");
        ASSERT_EQ(0u, result.exitCode) << result.output;
        for (const Reading& reading : kReadings) {
            SCOPED_TRACE(reading.name);
            EXPECT_EQ(bWithFile ? reading.withFile : reading.withoutFile, result.Value(std::string("reading.") + reading.name));
        }

        // Each twin tells its path once, at its first use; no file gives no error line.
        const std::string told = "32|Tavo::GetConfigFile";
        const std::string path = "|The config file is \"" + install.Path() + "\\Product.cfg\"";
        std::vector<std::string> expected = {told + "W" + path};
        for (const Reading& reading : kReadings) {
            if (std::string(reading.name) == "narrow.string") expected.push_back(told + "A" + path);
            if (bWithFile && reading.line) expected.push_back(std::string("128|") + reading.line);
        }
        std::vector<std::string> actual;
        const int nLines = std::stoi(result.Value("lines"));
        for (int i = 0; i < nLines; ++i) actual.push_back(result.Value("line." + std::to_string(i)));
        EXPECT_EQ(expected, actual);
    }
}
