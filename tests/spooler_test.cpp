// The embedded spooler's settings, monitors, ports, handles and state folder.

#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <thread>

#include "platform/platform.h"
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

// No file of this process takes a byte while it stands.
class FullDisk {
public:
    FullDisk()
    {
        (void)signal(SIGXFSZ, SIG_IGN);
        EXPECT_EQ(0, getrlimit(RLIMIT_FSIZE, &before));
        const rlimit none = {0, before.rlim_max};
        EXPECT_EQ(0, setrlimit(RLIMIT_FSIZE, &none));
    }
    ~FullDisk() { EXPECT_EQ(0, setrlimit(RLIMIT_FSIZE, &before)); }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    rlimit before = {};
};

class StateFolder : public SpoolerTest {
protected:
    void Sql(const char* sql) const
    {
        sqlite3* raw = nullptr;
        ASSERT_EQ(SQLITE_OK, sqlite3_open((folder + "/spooler.db").c_str(), &raw));
        EXPECT_EQ(SQLITE_OK, sqlite3_exec(raw, sql, nullptr, nullptr, nullptr)) << sqlite3_errmsg(raw);
        sqlite3_close(raw);
    }
    static DWORD Setting(const WideString& name)
    {
        DWORD value = 0;
        return GetMonitorSetting(TEXT("TEST"), TEXT("Ports"), name.c_str(), &value) ? value : 0;
    }
    // What a tool's command that stores two settings comes to: its result, or the last error without one.
    DWORD StoreTwo(DWORD value, DWORD result, bool diskIsFull = false)
    {
        std::optional<FullDisk> full;
        monitor.command = [&, value, result, diskIsFull] {
            EXPECT_TRUE(SetMonitorSetting(TEXT("TEST"), TEXT("Ports"), TEXT("One"), value));
            EXPECT_TRUE(SetMonitorSetting(TEXT("TEST"), TEXT("Ports"), TEXT("Two"), value));
            std::thread([&] { EXPECT_NE(value, Setting(TEXT("One"))) << "half stored"; }).join();
            if (diskIsFull)
                full.emplace();
            return result;
        };
        DWORD needed = 0;
        DWORD status = 0;
        const Handle tool(TEXT(",XcvMonitor TEST"), SERVER_ACCESS_ADMINISTER);
        const bool done = XcvDataW(tool, TEXT("Any"), nullptr, 0, nullptr, 0, &needed, &status) != FALSE;
        return done ? status : GetLastError();
    }
};

}  // namespace

TEST_F(StateFolder, SettingsKeepThePlatformsContract)
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

TEST_F(StateFolder, SettingsValuesComeBackAsStored)
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

TEST_F(StateFolder, MonitorsSettingsOutliveItsUnloadingButNotItsRemoval)
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

TEST_F(StateFolder, BrokenMonitorIsRefusedAndDisturbsNoOther)
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

TEST_F(StateFolder, PortsOfAllMonitorsArePackedAndMayGrowBetweenTheCalls)
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

TEST_F(StateFolder, NamesOpenWhatThePlatformOpens)
{
    const struct {
        LPCWSTR name;
        DWORD error;
    } cases[] = {
        {TEXT("ONE"), ERROR_INVALID_PRINTER_NAME},
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

TEST_F(StateFolder, CommandsReachTheMonitorWithTheCallersOwnPointers)
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
    HANDLE noSession = nullptr;
    ASSERT_TRUE(OpenPrinterW(nullptr, &noSession, nullptr));
    EXPECT_FALSE(XcvDataW(noSession, TEXT("Any"), input, 4, output, 4, &needed, &status));
    EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
    EXPECT_TRUE(ClosePrinter(noSession));
}

TEST_F(StateFolder, StaleAndForeignHandlesAreRefused)
{
    HANDLE printer = nullptr;
    ASSERT_TRUE(OpenPrinterW(nullptr, &printer, nullptr));
    EXPECT_TRUE(ClosePrinter(printer));
    // In use, so that it has the settings' keys.
    EXPECT_EQ(0u, ErrorOfOpening(TEXT(",XcvPort ONE")));
    int foreign = 0;
    const HANDLE root = monitor.Locked([](TestMonitorScript& script) { return script.init.hckRegistryRoot; });
    for (const HANDLE handle : {printer, HANDLE{nullptr}, HANDLE{&foreign}, INVALID_HANDLE_VALUE, root}) {
        EXPECT_FALSE(ClosePrinter(handle));
        EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
        EXPECT_FALSE(SetJobW(handle, 1, 0, nullptr, JOB_CONTROL_DELETE));
        EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
    }
}

TEST_F(StateFolder, TokensAreGivenBackByTheirThreadInReverseOrder)
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

TEST_F(StateFolder, FreshFolderKnowsTheProductsMonitor)
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
    const auto rights = [](const std::string& path) {
        return static_cast<unsigned>(std::filesystem::status(path).permissions());
    };
    EXPECT_EQ(0700u, rights(folder));
    EXPECT_EQ(0600u, rights(folder + "/spooler.db"));
}

TEST_F(StateFolder, ManyProcessesMayFindTheFolderFreshAtOnce)
{
    for (int round = 0; round < 3; ++round) {
        Restart();
        std::filesystem::remove_all(folder);
        std::vector<Companion> processes(8);
        for (Companion& process : processes)
            EXPECT_TRUE(process.Succeeds());
    }
}

TEST_F(StateFolder, UnusableStateIsExplained)
{
    const auto failure = [] {
        DWORD needed = 0;
        DWORD returned = 0;
        const BOOL listed = EnumMonitorsW(nullptr, 2, nullptr, 0, &needed, &returned);
        return listed || needed != 0 ? ERROR_SUCCESS : GetLastError();
    };
    const std::string database = folder + "/spooler.db";
    Restart();
    Sql("PRAGMA user_version = 99");
    EXPECT_EQ(ERROR_REVISION_MISMATCH, failure());
    for (const char* left : {"-wal", "-shm"})
        std::filesystem::remove(database + left);
    std::ofstream(database, std::ios::trunc) << std::string(10000, 'x');
    EXPECT_EQ(ERROR_FILE_CORRUPT, failure());
    EXPECT_NE(std::string::npos, ErrorText().find(database)) << ErrorText();

    const std::string elsewhere = folder + ".elsewhere";
    std::filesystem::rename(folder, elsewhere);
    std::ofstream(folder) << "a file in the folder's place";
    EXPECT_EQ(ERROR_PATH_NOT_FOUND, failure());
    EXPECT_NE(std::string::npos, ErrorText().find("FARLINK_STATE")) << ErrorText();
    std::filesystem::remove(folder);
    std::filesystem::create_directory_symlink(elsewhere, folder);
    EXPECT_EQ(ERROR_ACCESS_DENIED, failure());
    EXPECT_NE(std::string::npos, ErrorText().find("is a link")) << ErrorText();
    std::filesystem::remove(folder);
    std::filesystem::remove_all(elsewhere);
    std::filesystem::create_directory(folder);
    ASSERT_EQ(0, chmod(folder.c_str(), 0770));
    EXPECT_EQ(ERROR_ACCESS_DENIED, failure());
    EXPECT_NE(std::string::npos, ErrorText().find("chmod 700")) << ErrorText();
    std::filesystem::remove(folder);
    EXPECT_EQ(ERROR_SUCCESS, failure()) << "mended, and opened by the next call";
}

// Root has no business in a user's folder, and makes none in a user's home.
TEST_F(StateFolder, AnotherAccountsFolderIsLeftAlone)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "takes root";
    Restart();
    const std::string home = folder + "/home";
    std::filesystem::create_directory(home);
    ASSERT_EQ(0, chown(home.c_str(), 1234, 1234));
    DWORD needed = 0;
    DWORD returned = 0;
    for (const std::string& state : {home, home + "/state"}) {
        setenv("FARLINK_STATE", state.c_str(), 1);
        EXPECT_FALSE(EnumMonitorsW(nullptr, 2, nullptr, 0, &needed, &returned));
        EXPECT_EQ(ERROR_ACCESS_DENIED, GetLastError());
        EXPECT_NE(std::string::npos, ErrorText().find("another account")) << ErrorText();
    }
    EXPECT_TRUE(std::filesystem::is_empty(home));
    setenv("FARLINK_STATE", folder.c_str(), 1);
}

TEST_F(StateFolder, ADamagedDatabaseIsRefusedWhereverTheDamageIs)
{
    Restart();
    const std::string database = folder + "/spooler.db";
    const std::string sound = database + ".sound";
    Sql("PRAGMA wal_checkpoint(TRUNCATE)");
    std::filesystem::copy_file(database, sound);
    DWORD value = 0;
    for (std::uintmax_t page = 0; page < std::filesystem::file_size(sound) / 4096; ++page) {
        std::fstream file(database, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(page * 4096));
        file << std::string(4096, 'x');
        file.close();
        EXPECT_FALSE(GetMonitorSetting(TEXT("TEST"), TEXT("Ports"), TEXT("Value"), &value)) << page;
        EXPECT_EQ(ERROR_FILE_CORRUPT, GetLastError()) << page << ": " << ErrorText();
        std::filesystem::copy_file(sound, database, std::filesystem::copy_options::overwrite_existing);
    }
}

// A folder of the version that kept jobs has its ports and settings still.
TEST_F(StateFolder, AFolderWithJobsKeepsItsSettings)
{
    DWORD value = 0;
    EXPECT_TRUE(SetMonitorSetting(TEXT("TEST"), TEXT("Ports"), TEXT("Value"), 7));
    Restart();
    Sql("CREATE TABLE jobs (id); CREATE TABLE ports (id); CREATE TABLE printers (id); PRAGMA user_version = "
        "1");
    EXPECT_TRUE(GetMonitorSetting(TEXT("TEST"), TEXT("Ports"), TEXT("Value"), &value)) << ErrorText();
    EXPECT_EQ(7u, value);
}

TEST_F(StateFolder, ACommandStoresItsSettingsTogetherOrNotAtAll)
{
    EXPECT_EQ(0u, StoreTwo(1, ERROR_SUCCESS));
    EXPECT_EQ(ERROR_ACCESS_DENIED, StoreTwo(2, ERROR_ACCESS_DENIED));
    EXPECT_EQ(ERROR_DISK_FULL, StoreTwo(3, ERROR_SUCCESS, true));
    EXPECT_EQ(1u, Setting(TEXT("One")));
    EXPECT_EQ(1u, Setting(TEXT("Two")));
}
