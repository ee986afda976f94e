// What a driver hears of the backend and of the printer, over the two channels that cupsd puts between them.

#include <cups/backend.h>
#include <cups/sidechannel.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "printserver/scripted/print_server.h"

namespace {

using printserver::EventKind;
constexpr int kBackChannel = 3;

// The numbers of the channels are fixed, here as in a driver.
int ReserveDescriptors()
{
    int last = 0;
    while ((last = open("/dev/null", O_RDWR)) < CUPS_SC_FD)
        continue;
    return last;
}

class Channels : public testing::Test {
protected:
    Channels()
    {
        char name[] = "/tmp/farlink-channels.XXXXXX";
        folder = mkdtemp(name);
        std::ofstream(folder + "/card") << std::string(1000, 'x');
        setenv("CUPS_CACHEDIR", folder.c_str(), 1);
        setenv("DEVICE_URI",
               ("farlink://127.0.0.1:" + std::to_string(server.Port()) + "/?read-back=yes").c_str(), 1);
    }
    ~Channels() override
    {
        std::filesystem::remove_all(folder);
        close(readEnd);
        close(reserved);
    }

    // Its side channel is ours at the number that libcups takes; its back channel is `readEnd`.
    void StartBackend()
    {
        int side[2], back[2];
        ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, side));
        ASSERT_EQ(0, pipe(back));
        const int theirSide = fcntl(side[1], F_DUPFD, 10), theirBack = fcntl(back[1], F_DUPFD, 10);
        readEnd = fcntl(back[0], F_DUPFD, 10);
        const int ours = fcntl(side[0], F_DUPFD, 10);
        for (const int each : {side[0], side[1], back[0], back[1]})
            close(each);
        ASSERT_EQ(CUPS_SC_FD, dup2(ours, CUPS_SC_FD));
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, theirBack, kBackChannel);
        posix_spawn_file_actions_adddup2(&actions, theirSide, CUPS_SC_FD);
        const std::string card = folder + "/card";
        const char* arguments[] = {FARLINK_BACKEND,       "1",          "anna", "title", "1",
                                   "job-uuid=urn:uuid:1", card.c_str(), nullptr};
        ASSERT_EQ(0, posix_spawn(&backend, FARLINK_BACKEND, &actions, nullptr, const_cast<char**>(arguments),
                                 environ));
        posix_spawn_file_actions_destroy(&actions);
        for (const int each : {ours, theirSide, theirBack})
            close(each);
    }

    int BackendStatus() const
    {
        int ending = 0;
        waitpid(backend, &ending, 0);
        return WIFEXITED(ending) ? WEXITSTATUS(ending) : -1;
    }

    // The first byte of the answer, or -1 - the status of a refusal.
    static int Ask(cups_sc_command_t command)
    {
        char data[16] = {};
        int size = sizeof data;
        const cups_sc_status_t status = cupsSideChannelDoRequest(command, data, &size, 30);
        return status == CUPS_SC_STATUS_OK ? data[0] : -1 - status;
    }

    const int reserved = ReserveDescriptors();  // before the print server takes its own
    printserver::PrintServer server;
    std::string folder;
    pid_t backend = 0;
    int readEnd = -1;
};

TEST_F(Channels, ADriverAsksAndDropsTheOutput)
{
    server.SetCourse({.queue = 1, .perPosition = std::chrono::hours(1)});
    StartBackend();
    ASSERT_TRUE(server.WaitFor(EventKind::QueuePosition));
    while (Ask(CUPS_SC_CMD_GET_CONNECTED) == CUPS_SC_NOT_CONNECTED)
        usleep(10000);
    EXPECT_EQ(CUPS_SC_STATE_ONLINE | CUPS_SC_STATE_BUSY, Ask(CUPS_SC_CMD_GET_STATE));
    EXPECT_EQ(CUPS_SC_BIDI_SUPPORTED, Ask(CUPS_SC_CMD_GET_BIDI));
    EXPECT_EQ(-1 - CUPS_SC_STATUS_NOT_IMPLEMENTED, Ask(CUPS_SC_CMD_GET_DEVICE_ID));
    EXPECT_EQ(0, Ask(CUPS_SC_CMD_SOFT_RESET));
    EXPECT_EQ(CUPS_BACKEND_CANCEL, BackendStatus());
    EXPECT_EQ(0, server.Count(EventKind::DocumentComplete));
}

TEST_F(Channels, ADriverReadsWhatThePrinterSends)
{
    server.SetCourse({.queue = 1, .perPosition = std::chrono::seconds(2)});  // it is read once a second
    server.OfferParallelData({'r', 'e', 'a', 'd', 'y'});
    StartBackend();
    EXPECT_EQ(CUPS_BACKEND_OK, BackendStatus());
    char heard[16] = {};
    EXPECT_EQ(5, read(readEnd, heard, sizeof heard));
    EXPECT_STREQ("ready", heard);
}

}  // namespace
