// The embedded spooler's settings, monitors, ports, handles and state folder.

#include <sqlite3.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include "platform/posix/utf.h"
#include "tests/spooler_fixture.h"

namespace {

// The registry callbacks as the monitor got them.
class Settings {
public:
    explicit Settings(const MONITORINIT& given) : init(given), calls(*given.pMonitorReg) {}

    HKEYMONITOR Create(HKEYMONITOR parent, const WideString& name, DWORD* disposition = nullptr)
    {
        HKEYMONITOR key = nullptr;
        EXPECT_EQ(0, calls.fpCreateKey(parent, name.c_str(), 0, KEY_ALL_ACCESS, nullptr, &key, disposition,
                                       init.hSpooler));
        return key;
    }
    LONG Open(HKEYMONITOR parent, const WideString& name, HKEYMONITOR* key)
    {
        return calls.fpOpenKey(parent, name.c_str(), KEY_ALL_ACCESS, key, init.hSpooler);
    }
    LONG Close(HKEYMONITOR key) { return calls.fpCloseKey(key, init.hSpooler); }
    LONG Delete(HKEYMONITOR parent, const WideString& name)
    {
        return calls.fpDeleteKey(parent, name.c_str(), init.hSpooler);
    }
    LONG Set(HKEYMONITOR key, const WideString& name, DWORD type, const void* data, DWORD size)
    {
        return calls.fpSetValue(key, name.c_str(), type, static_cast<const BYTE*>(data), size, init.hSpooler);
    }
    LONG Query(HKEYMONITOR key, const WideString& name, DWORD* type, void* data, DWORD* size)
    {
        return calls.fpQueryValue(key, name.c_str(), type, static_cast<BYTE*>(data), size, init.hSpooler);
    }
    LONG Enum(HKEYMONITOR key, DWORD index, WideString* name, DWORD room = 100)
    {
        FILETIME written = {};
        name->assign(room, 0);
        DWORD length = room;
        const LONG word = calls.fpEnumKey(key, index, name->data(), &length, &written, init.hSpooler);
        name->resize(word == 0 ? length : 0);
        return word;
    }
    std::string Names(HKEYMONITOR key)
    {
        std::string names;
        WideString name;
        DWORD index = 0;
        for (; Enum(key, index, &name) == 0; ++index)
            names += ToUtf8(name) + "|";
        EXPECT_EQ(static_cast<LONG>(ERROR_NO_MORE_ITEMS), Enum(key, index, &name));
        return names;
    }

    const MONITORINIT init;
    const MONITORREG& calls;
};

bool AddMonitor(WideString name, WideString library)
{
    MONITOR_INFO_2W info = {.pName = name.data(), .pEnvironment = nullptr, .pDLLName = library.data()};
    return AddMonitorW(nullptr, 2, reinterpret_cast<LPBYTE>(&info)) != FALSE;
}

DWORD ErrorOfOpening(WideString name)
{
    HANDLE printer = nullptr;
    SetLastError(0);
    if (OpenPrinterW(name.data(), &printer, nullptr)) {
        ClosePrinter(printer);
        return 0;
    }
    return GetLastError();
}

}  // namespace

TEST_F(SpoolerTest, SettingsKeepThePlatformsContract)
{
    Settings settings(monitor.Locked([](TestMonitorScript& script) { return script.init; }));
    const HKEYMONITOR root = settings.init.hckRegistryRoot;
    HKEYMONITOR key = nullptr;
    EXPECT_EQ(2, settings.Open(root, TEXT("Ports"), &key));
    EXPECT_EQ(nullptr, key);
    DWORD disposition = 0;
    const HKEYMONITOR ports = settings.Create(root, TEXT("Ports"), &disposition);
    EXPECT_EQ(1u, disposition);
    EXPECT_EQ(0, settings.Close(settings.Create(root, TEXT("PORTS"), &disposition)));
    EXPECT_EQ(2u, disposition);
    const HKEYMONITOR same = settings.Create(ports, TEXT(""), &disposition);
    EXPECT_EQ(2u, disposition);
    EXPECT_EQ(0, settings.Close(same));
    EXPECT_EQ(6, settings.Close(same));
    for (const LPCWSTR name : {TEXT("zebra"), TEXT("Back\\slash"), TEXT("Ärger"), TEXT("apple")})
        EXPECT_EQ(0, settings.Close(settings.Create(ports, name)));
    EXPECT_EQ("apple|Back\\slash|zebra|Ärger|", settings.Names(ports));
    WideString name;
    EXPECT_EQ(static_cast<LONG>(ERROR_MORE_DATA), settings.Enum(ports, 0, &name, 5)) << "no room for the NUL";
    EXPECT_EQ(0, settings.Enum(ports, 0, &name, 6));
    EXPECT_EQ(2, settings.Delete(ports, TEXT("pear")));
    EXPECT_EQ(5, settings.Delete(root, TEXT("ports"))) << "holds keys";
    EXPECT_EQ(0, settings.Delete(ports, TEXT("äRGER")));
    EXPECT_EQ("apple|Back\\slash|zebra|", settings.Names(ports));

    const HKEYMONITOR apple = settings.Create(ports, TEXT("apple"));
    EXPECT_EQ(0, settings.Delete(ports, TEXT("apple")));
    EXPECT_EQ(static_cast<LONG>(ERROR_KEY_DELETED), settings.Set(apple, TEXT("value"), REG_DWORD, &name, 4));
    EXPECT_EQ(6, settings.calls.fpCloseKey(ports, nullptr)) << "another spooler's handle";
}

TEST_F(SpoolerTest, SettingsValuesComeBackAsStored)
{
    Settings settings(monitor.Locked([](TestMonitorScript& script) { return script.init; }));
    const HKEYMONITOR key = settings.Create(settings.init.hckRegistryRoot, TEXT("Ports"));
    BYTE buffer[16];
    DWORD type = 99;
    DWORD size = sizeof(buffer);
    EXPECT_EQ(2, settings.Query(key, TEXT("Server"), &type, buffer, &size));
    EXPECT_EQ(0, settings.Set(key, TEXT("Server"), REG_SZ, TEXT("abc"), 6));  // without its NUL
    std::fill(std::begin(buffer), std::end(buffer), BYTE{0xEE});
    size = 5;
    EXPECT_EQ(static_cast<LONG>(ERROR_MORE_DATA), settings.Query(key, TEXT("SERVER"), &type, buffer, &size));
    EXPECT_EQ(6u, size);
    EXPECT_EQ(0xEE, buffer[0]);
    EXPECT_EQ(0, settings.Query(key, TEXT("Server"), &type, nullptr, &size));
    size = sizeof(buffer);
    EXPECT_EQ(0, settings.Query(key, TEXT("Server"), &type, buffer, &size));
    EXPECT_EQ(REG_SZ, type);
    EXPECT_EQ(6u, size);
    EXPECT_EQ(WideString(TEXT("abc")), WideString(reinterpret_cast<WCHAR*>(buffer))) << "a NUL was added";
    EXPECT_EQ(0xEE, buffer[8]);
    EXPECT_EQ(0, settings.Set(key, TEXT("server"), REG_BINARY, nullptr, 0)) << "replaces it";
    EXPECT_EQ(0, settings.Query(key, TEXT("Server"), &type, nullptr, &size));
    EXPECT_EQ(REG_BINARY, type);
    EXPECT_EQ(0u, size);

    DWORD value = 0;
    EXPECT_TRUE(SetMonitorSetting(TEXT("test"), TEXT("Ports"), TEXT("LogToFile"), 0x12345678)) << ErrorText();
    EXPECT_TRUE(GetMonitorSetting(TEXT("TEST"), TEXT("ports"), TEXT("LogToFile"), &value));
    EXPECT_EQ(0x12345678u, value);
    DWORD values = 0;
    DWORD longest = 0;
    EXPECT_EQ(0, settings.calls.fpQueryInfoKey(key, nullptr, nullptr, &values, &longest, nullptr, nullptr,
                                               nullptr, settings.init.hSpooler));
    EXPECT_EQ(2u, values);
    EXPECT_EQ(9u, longest);
    EXPECT_TRUE(DeleteMonitorSetting(TEXT("TEST"), TEXT("Ports"), TEXT("LogToFile")));
    EXPECT_FALSE(GetMonitorSetting(TEXT("TEST"), TEXT("Ports"), TEXT("LogToFile"), &value));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, GetLastError());
    EXPECT_FALSE(GetMonitorSetting(TEXT("none"), TEXT("Ports"), TEXT("LogToFile"), &value));
    EXPECT_EQ(ERROR_UNKNOWN_PRINT_MONITOR, GetLastError());
}

TEST_F(SpoolerTest, MonitorsSettingsOutliveItsUnloadingButNotItsRemoval)
{
    DWORD value = 0;
    EXPECT_TRUE(SetMonitorSetting(TEXT("TEST"), TEXT("Ports"), TEXT("Value"), 7));
    const MONITORINIT before = monitor.Locked([](TestMonitorScript& script) { return script.init; });
    EXPECT_EQ(sizeof(MONITORINIT), before.cbSize);
    EXPECT_NE(nullptr, before.hSpooler);
    Restart();
    EXPECT_EQ(0, monitor.Locked([](TestMonitorScript& script) { return script.running; }));
    HKEYMONITOR key = nullptr;
    EXPECT_EQ(6, Settings(before).Open(before.hckRegistryRoot, TEXT("Ports"), &key))
        << "of the monitor before";

    EXPECT_EQ(0u, ErrorOfOpening(TEXT(",XcvPort ONE")));
    EXPECT_EQ(1, monitor.Locked([](TestMonitorScript& script) { return script.running; }));
    EXPECT_TRUE(GetMonitorSetting(TEXT("TEST"), TEXT("Ports"), TEXT("Value"), &value));
    EXPECT_EQ(7u, value);
    EXPECT_FALSE(AddMonitor(TEXT("test"), ToUtf16(TEST_MONITOR_LIBRARY)));
    EXPECT_EQ(ERROR_PRINT_MONITOR_ALREADY_INSTALLED, GetLastError());

    WideString name = TEXT("Test");
    EXPECT_TRUE(DeleteMonitorW(nullptr, nullptr, name.data()));
    EXPECT_EQ(0, monitor.Locked([](TestMonitorScript& script) { return script.running; }));
    EXPECT_FALSE(DeleteMonitorW(nullptr, nullptr, name.data()));
    EXPECT_EQ(ERROR_UNKNOWN_PRINT_MONITOR, GetLastError());
    EXPECT_TRUE(AddMonitor(TEXT("TEST"), ToUtf16(TEST_MONITOR_LIBRARY)));
    EXPECT_FALSE(GetMonitorSetting(TEXT("TEST"), TEXT("Ports"), TEXT("Value"), &value));
}

TEST_F(SpoolerTest, BrokenMonitorIsRefusedAndDisturbsNoOther)
{
    EXPECT_FALSE(AddMonitor(TEXT("none"), TEXT("/nonexistent/monitor.dll")));
    EXPECT_EQ(ERROR_MOD_NOT_FOUND, GetLastError());
    EXPECT_NE(std::string::npos, ErrorText().find("/nonexistent/monitor.dll")) << ErrorText();
    EXPECT_FALSE(AddMonitor(TEXT("none"), TEXT("libspoolss.so")));
    EXPECT_EQ(ERROR_PROC_NOT_FOUND, GetLastError());
    EXPECT_EQ(ERROR_UNKNOWN_PORT, ErrorOfOpening(TEXT(",XcvMonitor none")));

    // A library that breaks after it was added.
    const std::string copy = folder + "/copy.dll";
    std::filesystem::copy_file(TEST_MONITOR_LIBRARY, copy);
    EXPECT_TRUE(AddMonitor(TEXT("COPY"), ToUtf16(copy))) << ErrorText();
    Restart();
    std::filesystem::remove(copy);
    EXPECT_EQ(ERROR_MOD_NOT_FOUND, ErrorOfOpening(TEXT(",XcvMonitor COPY")));
    EXPECT_EQ(0u, ErrorOfOpening(TEXT(",XcvPort two")));
}

TEST_F(SpoolerTest, PortsOfAllMonitorsArePackedAndMayGrowBetweenTheCalls)
{
    monitor.Locked([](TestMonitorScript& script) { script.portsAddedByNextEnumeration = {TEXT("NEW")}; });
    DWORD needed = 0;
    DWORD returned = 77;
    EXPECT_FALSE(EnumPortsW(nullptr, 1, nullptr, 0, &needed, &returned));
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, GetLastError());
    EXPECT_EQ(3 * (8u + 8u), needed);
    monitor.Locked([](TestMonitorScript& script) { script.ports.push_back(TEXT("X")); });
    std::vector<BYTE> buffer(needed + 101);
    EXPECT_FALSE(EnumPortsW(nullptr, 1, buffer.data(), needed, &needed, &returned));
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, GetLastError());
    EXPECT_EQ(77u, returned);
    // A larger buffer, of an odd size, in which the strings stand at the very end.
    const auto size = static_cast<DWORD>(buffer.size());
    ASSERT_TRUE(EnumPortsW(nullptr, 1, buffer.data(), size, &needed, &returned));
    ASSERT_EQ(4u, returned);
    PORT_INFO_1W first = {};
    std::memcpy(&first, buffer.data(), sizeof(first));
    EXPECT_EQ(static_cast<void*>(buffer.data() + size - 8), first.pName);
    EXPECT_EQ(0, std::memcmp(first.pName, TEXT("ONE"), 8));

    ASSERT_FALSE(EnumPortsW(nullptr, 2, nullptr, 0, &needed, &returned));
    EXPECT_TRUE(EnumPortsW(nullptr, 2, std::vector<BYTE>(needed).data(), needed, &needed, &returned));
    for (const DWORD level : {0u, 3u}) {
        EXPECT_FALSE(EnumPortsW(nullptr, level, buffer.data(), size, &needed, &returned));
        EXPECT_EQ(ERROR_INVALID_LEVEL, GetLastError());
    }
    monitor.Locked([](TestMonitorScript& script) { script.ports.clear(); });
    EXPECT_TRUE(EnumPortsW(nullptr, 1, nullptr, 0, &needed, &returned));
    EXPECT_EQ(0u, needed + returned);
}

TEST_F(SpoolerTest, NamesOpenWhatThePlatformOpens)
{
    const struct {
        LPCWSTR name;
        DWORD error;
    } cases[] = {
        {TEXT("FIRST"), 0},
        {TEXT("Third"), ERROR_INVALID_PRINTER_NAME},
        {TEXT("First,"), ERROR_INVALID_PRINTER_NAME},
        {TEXT(",XcvMonitor test"), 0},
        {TEXT(", XcvPort one"), 0},
        {TEXT(",XcvPort THREE"), ERROR_UNKNOWN_PORT},
        {TEXT(",XcvMonitor "), ERROR_UNKNOWN_PORT},
        {TEXT(",xcvmonitor TEST"), ERROR_INVALID_PRINTER_NAME},
        {TEXT(","), ERROR_INVALID_PRINTER_NAME},
        {TEXT("\\\\localhost\\,XcvMonitor TEST"), ERROR_INVALID_PRINTER_NAME},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(ToUtf8(one.name));
        EXPECT_EQ(one.error, ErrorOfOpening(one.name));
    }
}

TEST_F(SpoolerTest, CommandsReachTheMonitorWithTheCallersOwnPointers)
{
    BYTE input[4] = {};
    BYTE output[4] = {};
    DWORD needed = 77;
    DWORD status = 0;
    const Handle administrator(TEXT(",XcvMonitor TEST"), SERVER_ACCESS_ADMINISTER);
    EXPECT_TRUE(XcvDataW(administrator, TEXT("Any"), input, 4, output, 4, &needed, &status));
    EXPECT_EQ(1234u, status);
    EXPECT_EQ(0u, needed) << "the monitor didn't write it";
    EXPECT_EQ((std::vector<BYTE*>{input, output}),
              monitor.Locked([](TestMonitorScript& script) { return script.xcvPointers; }));
    EXPECT_TRUE(
        XcvDataW(Handle(TEXT(",XcvPort ONE")), TEXT("Any"), nullptr, 4, nullptr, 0, &needed, &status));
    EXPECT_EQ(ERROR_ACCESS_DENIED, status) << "no access was asked for";

    EXPECT_FALSE(XcvDataW(administrator, nullptr, input, 4, output, 4, &needed, &status));
    EXPECT_EQ(RPC_X_NULL_REF_POINTER, GetLastError());
    EXPECT_FALSE(XcvDataW(administrator, TEXT("Any"), input, 4, nullptr, 4, &needed, &status));
    EXPECT_FALSE(XcvDataW(administrator, TEXT("Any"), input, 4, output, 4, nullptr, &status));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, GetLastError());
    EXPECT_FALSE(XcvDataW(Handle(TEXT("First")), TEXT("Any"), input, 4, output, 4, &needed, &status));
    EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
}

TEST_F(SpoolerTest, StaleAndForeignHandlesAreRefused)
{
    HANDLE printer = nullptr;
    WideString name = TEXT("First");
    ASSERT_TRUE(OpenPrinterW(name.data(), &printer, nullptr));
    EXPECT_TRUE(ClosePrinter(printer));
    int foreign = 0;
    const HANDLE root = monitor.Locked([](TestMonitorScript& script) { return script.init.hckRegistryRoot; });
    for (const HANDLE handle : {printer, HANDLE{nullptr}, HANDLE{&foreign}, INVALID_HANDLE_VALUE, root}) {
        EXPECT_FALSE(ClosePrinter(handle));
        EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
        EXPECT_FALSE(EndDocPrinter(handle));
        EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
    }
}

TEST_F(SpoolerTest, TokensAreGivenBackByTheirThreadInReverseOrder)
{
    const HANDLE outer = RevertToPrinterSelf();
    const HANDLE inner = RevertToPrinterSelf();
    EXPECT_NE(nullptr, outer);
    EXPECT_FALSE(ImpersonatePrinterClient(outer));
    EXPECT_FALSE(ImpersonatePrinterClient(nullptr));
    EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
    std::thread([&] {
        const HANDLE other = RevertToPrinterSelf();
        EXPECT_FALSE(ImpersonatePrinterClient(inner));
        EXPECT_TRUE(ImpersonatePrinterClient(other));
    }).join();
    EXPECT_TRUE(ImpersonatePrinterClient(inner));
    EXPECT_TRUE(ImpersonatePrinterClient(outer));
    EXPECT_FALSE(ImpersonatePrinterClient(outer));
}

TEST_F(SpoolerTest, FreshFolderKnowsTheProductsMonitor)
{
    Restart();
    std::filesystem::remove_all(folder);
    DWORD needed = 0;
    DWORD returned = 0;
    EXPECT_FALSE(EnumMonitorsW(nullptr, 2, nullptr, 0, &needed, &returned));
    std::vector<BYTE> buffer(needed);
    ASSERT_TRUE(EnumMonitorsW(nullptr, 2, buffer.data(), needed, &needed, &returned)) << ErrorText();
    ASSERT_EQ(1u, returned);
    const auto* info = reinterpret_cast<MONITOR_INFO_2W*>(buffer.data());
    EXPECT_EQ("Remote TCP/IP Card Printer Port", ToUtf8(info->pName));
    const std::filesystem::path library(ToUtf8(info->pDLLName));
    EXPECT_EQ("Farlink.dll", library.filename());
    EXPECT_TRUE(std::filesystem::exists(library.parent_path() / "libspoolss.so")) << library;
    EXPECT_EQ(std::filesystem::perms::owner_all, std::filesystem::status(folder).permissions());
}

TEST_F(SpoolerTest, ManyProcessesMayFindTheFolderFreshAtOnce)
{
    for (int round = 0; round < 3; ++round) {
        Restart();
        std::filesystem::remove_all(folder);
        std::vector<std::unique_ptr<Companion>> processes(8);
        for (auto& process : processes)
            process = std::make_unique<Companion>("open");
        for (auto& process : processes)
            EXPECT_TRUE(process->Succeeds());
    }
}

TEST_F(SpoolerTest, UnusableStateIsExplained)
{
    const auto failure = [] {
        DWORD needed = 0;
        DWORD returned = 0;
        const BOOL listed = EnumPrintersW(PRINTER_ENUM_LOCAL, nullptr, 2, nullptr, 0, &needed, &returned);
        return listed ? ERROR_SUCCESS : GetLastError();
    };
    const std::string database = folder + "/spooler.db";
    Restart();
    sqlite3* raw = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(database.c_str(), &raw));
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(raw, "PRAGMA user_version = 99", nullptr, nullptr, nullptr));
    sqlite3_close(raw);
    EXPECT_EQ(ERROR_REVISION_MISMATCH, failure());

    for (const char* left : {"-wal", "-shm"})
        std::filesystem::remove(database + left);
    std::ofstream(database, std::ios::trunc) << std::string(10000, 'x');
    EXPECT_EQ(ERROR_FILE_CORRUPT, failure());
    EXPECT_NE(std::string::npos, ErrorText().find(database)) << ErrorText();

    std::filesystem::remove_all(folder);
    std::ofstream(folder) << "a file in the folder's place";
    EXPECT_EQ(ERROR_PATH_NOT_FOUND, failure());
    EXPECT_NE(std::string::npos, ErrorText().find("FARLINK_STATE")) << ErrorText();
    std::filesystem::remove(folder);
    EXPECT_EQ(ERROR_SUCCESS, failure()) << "mended, and opened by the next call";
}
