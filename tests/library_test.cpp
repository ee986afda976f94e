#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "platform/test_switches.h"
#include "printserver/scripted/print_server.h"
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
        std::error_code stays;  // a library that is pinned can't be removed everywhere
        for (const fs::path& used : {file, Sibling(".ini"), Sibling(".log"), folder})
            fs::remove(used, stays);
    }

    fs::path Sibling(const std::string& extension) const
    {
        return fs::path(file).replace_extension(extension);
    }
    void Copy(const std::string& baseName)
    {
        const fs::path original = fs::absolute(FARLINK_LIBRARY);
        file = original.parent_path() / (baseName + std::to_string(GetCurrentProcessId()) + ".dll");
        fs::remove(file);  // of a process of the same number
        fs::copy_file(original, file, fs::copy_options::overwrite_existing);
    }
    // A copy whose path has so many characters.
    void CopyTo(std::size_t length)
    {
        const fs::path parent = fs::absolute(FARLINK_LIBRARY).parent_path();
        const std::string name = "Far" + std::to_string(GetCurrentProcessId()) + ".dll";
        ASSERT_LT(parent.string().size() + name.size() + 3, length);
        folder = parent / std::string(length - parent.string().size() - name.size() - 2, 'd');
        fs::create_directory(folder);
        file = folder / name;
        fs::copy_file(FARLINK_LIBRARY, file, fs::copy_options::overwrite_existing);
        if (const fs::path spooler = parent / "libspoolss.so"; fs::exists(spooler))
            fs::copy_file(spooler, folder / spooler.filename(), fs::copy_options::overwrite_existing);
    }
    // A print job whose worker stands in SetJobW until the gate opens.
    Gate StartJobWithAStuckWorker()
    {
        printserver::PrintServerOptions options;
        options.course.byHand = printserver::Lpq(0, printserver::kReceivingData);
        server.emplace(std::move(options));
        test_switches::SetTimeScale(0.5);  // the opening waits for the server's threads
        const HANDLE port = AddAndOpenPort(TEXT("Card"), TEXT("127.0.0.1"), server->Port());
        EXPECT_EQ(0u, SetKeepAlive(TEXT("Card"), 5, 32767));
        EXPECT_TRUE(table->pfnStartDocPort(port, Text("Printer"), 7, 1, nullptr));
        const Gate stuck = spooler.Block(Spooler::SetJob);
        EXPECT_TRUE(server->Notify(printserver::Lpq(0, printserver::kCancelled)));
        EXPECT_TRUE(stuck.AwaitArrival());
        portOfWorker = port;
        return stuck;
    }
    void LoadAndStart()
    {
        module = RealLoadLibraryW(Wide(file.string()).c_str());
        ASSERT_NE(nullptr, module);
        PutDoublesBefore(module);
        using Initialize = decltype(&InitializePrintMonitor2);
        const auto initialize =
            FunctionCast<Initialize>(RealGetProcAddress(module, "InitializePrintMonitor2"));
        ASSERT_NE(nullptr, initialize);
        MONITORINIT init = registry.Init();
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
    std::string TextOf(LPCWSTR command)
    {
        const Bytes output = OpenXcv({}).Call(command, {}, 1000).output;
        WideString text(500, 0);
        std::memcpy(text.data(), output.data(), 1000);
        return Narrow(text.c_str());
    }

    using Bytes = std::vector<BYTE>;
    // Left allocated for good; known here, where no optimizer takes it away, it counts as no leak.
    static inline volatile HANDLE portOfWorker = nullptr;
    fs::path folder;
    fs::path file;
    std::optional<printserver::PrintServer> server;
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
        EXPECT_FALSE(IsLoaded(file));
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

// A cut path would be some other file's.
TEST_F(Library, ReadsItsNamesUpToAPathOf255Characters)
{
    for (const std::size_t length : {255u, 256u}) {
        SCOPED_TRACE(length);
        ASSERT_NO_FATAL_FAILURE(CopyTo(length));
        std::ofstream(Sibling(".ini")) << "[Farlink]\nName=Mine\n";
        ASSERT_NO_FATAL_FAILURE(LoadAndStart());
        const std::string about = TextOf(TEXT("GetAboutString"));
        EXPECT_EQ(length == 255, about.find("\nMine\n") != std::string::npos) << about;
        Unload();
        fs::remove_all(folder);
    }
}

TEST_F(Library, GivesTheLongestTextsAsFarAsTheyFit)
{
    Copy("Wordy");
    const std::string longest(2047, 'd');
    std::ofstream(Sibling(".ini")) << "[Farlink]\nDescription=" << longest << "more\n";
    ASSERT_NO_FATAL_FAILURE(LoadAndStart());
    ASSERT_EQ(0u, AddPort(TEXT("Card"), TEXT("server"), 9100));
    DWORD needed = 0;
    DWORD returned = 0;
    EXPECT_FALSE(table->pfnEnumPorts(monitor, nullptr, 2, nullptr, 0, &needed, &returned));
    std::vector<PORT_INFO_2W> buffer(needed / sizeof(PORT_INFO_2W) + 1);
    ASSERT_TRUE(table->pfnEnumPorts(monitor, nullptr, 2, reinterpret_cast<LPBYTE>(buffer.data()), needed,
                                    &needed, &returned));
    EXPECT_EQ(longest, Narrow(buffer[0].pDescription));
    // The about text ends at its limit of 1999 characters and a NUL.
    const XcvAnswer about = OpenXcv({}).Call(TEXT("GetAboutString"), {}, 4000);
    EXPECT_EQ(0u, about.result);
    EXPECT_EQ((Bytes{'d', 0, 0, 0}), Bytes(about.output.begin() + 3996, about.output.end()));
    EXPECT_EQ(DWORD{ERROR_INSUFFICIENT_BUFFER}, OpenXcv({}).Call(TEXT("GetAboutString"), {}, 3999).result);
}

// The worker comes back from the spooler into code that has to be there still.
TEST_F(Library, StaysLoadedForAWorkerThatNobodyCouldEnd)
{
    Copy("Pinned");
    ASSERT_NO_FATAL_FAILURE(LoadAndStart());
    const Gate stuck = StartJobWithAStuckWorker();
    test_switches::SetTimeScale(0.02);
    Unload();
    EXPECT_TRUE(IsLoaded(file));
    log.Clear();
    stuck.Open();
    EXPECT_TRUE(log.WaitFor("}CCommandChannel::ThreadProc"));
}

// A process may end in the middle of a job: nobody waits for a worker that may be gone by then.
TEST_F(Library, LetsItsProcessEndBesideABusyWorker)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Copy("Ending");
    EXPECT_EXIT(
        {
            std::atexit([] { (void)std::fputs(LogLines::Captured().Messages().back().c_str(), stderr); });
            LoadAndStart();
            StartJobWithAStuckWorker();
            std::exit(0);  // NOLINT(concurrency-mt-unsafe): the very thing under test
        },
        testing::ExitedWithCode(0), kLastLineAtExit);
}

}  // namespace
