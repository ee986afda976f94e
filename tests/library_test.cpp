#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "tests/support/monitor_fixture.h"
#include "tests/support/real_calls.h"
#include "tests/support/text.h"

namespace {

namespace fs = std::filesystem;

// The library as built, under a name of its own, with the test's doubles in front of the spooler. It runs
// beside the monitor that is part of the test binary.
class Library : public MonitorFixture {
protected:
    void TearDown() override
    {
        MonitorFixture::TearDown();
        Unload();
        fs::remove(file);
        fs::remove(Sibling(".ini"));
        fs::remove(Sibling(".log"));
    }

    fs::path Sibling(const std::string& extension) const
    {
        return fs::path(file).replace_extension(extension);
    }
    void Copy(const std::string& baseName)
    {
        const fs::path original = FARLINK_LIBRARY;
        file = original.parent_path() / (baseName + std::to_string(getpid()) + ".dll");
        fs::copy_file(original, file, fs::copy_options::overwrite_existing);
    }
    void LoadAndStart()
    {
        module = RealLoadLibraryW(Wide(file.string()).c_str());
        ASSERT_NE(nullptr, module);
        using Initialize = decltype(&InitializePrintMonitor2);
        const auto initialize =
            reinterpret_cast<Initialize>(RealGetProcAddress(module, "InitializePrintMonitor2"));
        ASSERT_NE(nullptr, initialize);
        MONITORINIT init = Init();
        table = initialize(&init, &monitor);
        ASSERT_NE(nullptr, table);
        spooler.AttachMonitor(table, monitor);
    }
    void Unload()
    {
        Shutdown();
        if (module != nullptr)
            RealFreeLibrary(module);
        module = nullptr;
    }
    bool IsMapped() const
    {
        std::ifstream maps("/proc/self/maps");
        const std::string all{std::istreambuf_iterator<char>(maps), {}};
        return all.find(file.string()) != std::string::npos;
    }
    std::string TextOf(LPCWSTR command)
    {
        const Bytes output = OpenXcv({}).Call(command, {}, 1000).output;
        WideString text(500, 0);
        std::memcpy(text.data(), output.data(), 1000);
        return Narrow(text.c_str());
    }

    using Bytes = std::vector<BYTE>;
    fs::path file;
    HMODULE module = nullptr;
};

TEST_F(Library, IsWholeEachTimeItIsLoadedAndGoneInBetween)
{
    Copy("Reloaded");
    registry.AddPort("Card", TEXT("server"), 9100);
    for (int load = 0; load < 3; load++) {
        log.Clear();
        ASSERT_NO_FATAL_FAILURE(LoadAndStart());
        EXPECT_EQ(std::vector<std::string>{"Card"}, PortNames());
        EXPECT_EQ(0u, AddPort(TEXT("New"), TEXT("server"), 1));
        EXPECT_EQ(0u, DeletePort(TEXT("New")));
        EXPECT_TRUE(log.Has("        {krelIniPort::krelIniPort: port = Card, server = server"));
        Unload();
        EXPECT_EQ("DllEntryPoint in server port monitor DLL - DLL_PROCESS_DETACH", log.Messages().back());
        EXPECT_FALSE(IsMapped());
    }
}

TEST_F(Library, TakesItsNamesFromTheFileBesideIt)
{
    Copy("Renamed");
    std::ofstream(Sibling(".ini")) << "[Other]\nName=Wrong\n[Farlink]\nName = Cards by name\n";
    ASSERT_NO_FATAL_FAILURE(LoadAndStart());
    const std::string base = file.stem().string();
    EXPECT_EQ(base + "UI.dll", TextOf(TEXT("MonitorUI")));
    EXPECT_EQ("Version 1.1.2.18\nBuild 1252873320\nCards by name\nCard Printer TCP/IP Port\n" + base + ".dll",
              TextOf(TEXT("GetAboutString")));
    ASSERT_EQ(0u, AddPort(TEXT("Card"), TEXT("server"), 9100));
    std::vector<PORT_INFO_2W> buffer(10);
    DWORD needed = 0;
    DWORD returned = 0;
    ASSERT_TRUE(table->pfnEnumPorts(monitor, nullptr, 2, reinterpret_cast<LPBYTE>(buffer.data()),
                                    static_cast<DWORD>(buffer.size() * sizeof(PORT_INFO_2W)), &needed,
                                    &returned));
    EXPECT_EQ("Cards by name", Narrow(buffer[0].pMonitorName));
    // A session under the configured name is one on the monitor.
    krelXcvPortErrorQuery query{1, 2, {}};
    std::memcpy(query.portName, TEXT("Card"), 5 * sizeof(WCHAR));
    EXPECT_EQ(0u, OpenXcv(TEXT("Cards by name")).Send(TEXT("GetPortError"), query, 140).result);
}

}  // namespace
