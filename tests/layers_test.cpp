// One scenario, told in full: every line of the log, the bytes of each answer, what the registry holds. Both
// builds of the monitor must tell it alike: FARLINK_TRANSCRIPT names a file to write it to, for a comparison.

#include <cstdlib>
#include <fstream>

#include "platform/test_switches.h"
#include "printserver/scripted/print_server.h"
#include "tests/support/monitor_fixture.h"
#include "tests/support/text.h"

namespace {

std::string Hex(const std::vector<BYTE>& bytes)
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const BYTE byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xF];
    }
    return text;
}

class Layers : public MonitorFixture {
protected:
    // The lines since the last step, without time and thread: those of the test's thread, then those of the
    // workers, which run beside it.
    void Tell(const std::string& step)
    {
        transcript += "== " + step + "\n";
        std::string others;
        for (const LogLine& line : log.All()) {
            EXPECT_TRUE(line.wellFormed) << line.message;
            std::string& told = line.threadId == GetCurrentThreadId() ? transcript : others;
            told += line.tag + "\t" + line.message + "\n";
        }
        transcript += others;
        log.Clear();
    }
    DWORD Send(const std::string& session, const std::string& command, const std::vector<BYTE>& input,
               DWORD outputSize)
    {
        const XcvAnswer answer = OpenXcv(Wide(session)).Call(Wide(command).c_str(), input, outputSize);
        Tell(command + " to '" + session + "' gives " + std::to_string(answer.result) + ", needs " +
             (answer.needed ? std::to_string(*answer.needed) : "nothing") + ", " + Hex(answer.output));
        return answer.result;
    }
    void TellRegistry(const std::string& path, int depth = 0)
    {
        for (const std::string& name : registry.Subkeys(path)) {
            const std::string key = path.empty() ? name : path + "/" + name;
            transcript += std::string(static_cast<std::size_t>(depth) * 2, ' ') + name + "\n";
            for (const char* value : {"Print Server", "Port Number", "LogToDebugOutput"}) {
                const auto text = registry.Text(key, value);
                const auto number = registry.Dword(key, value);
                if (text)
                    transcript += std::string(value) + " = " + Hex(BytesOfText(*text)) + "\n";
                else if (number)
                    transcript += std::string(value) + " = " + std::to_string(*number) + "\n";
            }
            TellRegistry(key, depth + 1);
        }
    }
    static std::vector<BYTE> BytesOfText(const WideString& text)
    {
        const auto* first = reinterpret_cast<const BYTE*>(text.c_str());
        return {first, first + text.size() * sizeof(WCHAR)};
    }
    void TellPorts(DWORD level)
    {
        std::vector<BYTE> buffer(2000);
        DWORD needed = 0;
        DWORD returned = 0;
        EXPECT_TRUE(table->pfnEnumPorts(monitor, nullptr, level, buffer.data(),
                                        static_cast<DWORD>(buffer.size()), &needed, &returned));
        Tell("level " + std::to_string(level) + " lists " + std::to_string(returned) + " ports in " +
             std::to_string(needed) + " bytes");
    }

    // The bytes of a whole document on both channels. Its log lines are left out: how often the monitor looks
    // for a reply hangs on the clock, and so do keep-alives.
    void TellADocument()
    {
        printserver::PrintServer server;
        test_switches::SetTimeScale(0.5);  // the opening waits for the server's threads
        const HANDLE port = AddAndOpenPort(TEXT("Card"), TEXT("127.0.0.1"), server.Port());
        EXPECT_TRUE(table->pfnStartDocPort(port, Text("Printer"), 7, 1, nullptr));
        BYTE bytes[] = {'c', 'a', 'r', 'd'};
        DWORD written = 0;
        EXPECT_TRUE(table->pfnWritePort(port, bytes, sizeof bytes, &written));
        EXPECT_TRUE(table->pfnEndDocPort(port));
        EXPECT_EQ(std::vector<DWORD>{JOB_CONTROL_SENT_TO_PRINTER}, spooler.JobCommands());
        for (const auto channel : {printserver::Channel::Data, printserver::Channel::Command}) {
            const printserver::ConnectionReport report = server.Report(channel, 1);
            for (const auto& [direction, frame] : report.transcript.Entries()) {
                const bool fromMonitor = direction == printserver::Direction::FromMonitor;
                if (frame != printserver::KeepAlive())
                    transcript += (fromMonitor ? "monitor " : "server ") + printserver::Hex(frame) + "\n";
            }
        }
        EXPECT_EQ(0u, DeletePort(TEXT("Card")));
        log.Clear();
    }

    std::string transcript;
};

TEST_F(Layers, TellTheSameScenarioAlike)
{
    registry.SetDword("Ports", "LogToDebugOutput", 1);
    registry.AddPort("Kept", TEXT("127.0.0.1"), 1);
    registry.MakeKey("Ports/Broken");
    Start();
    Tell("start");
    const auto record = BytesOf(PortRecord(TEXT("Caf\u00E9 \u4E2D"), TEXT("127.0.0.1"), 1));
    const auto version = BytesOf(kXcvRecordVersion);
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Send("", "AddPort", record, 0));
    EXPECT_EQ(DWORD{ERROR_ALREADY_EXISTS}, Send("", "AddPort", record, 0));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Send("Kept", "GetPortProperties", version, sizeof(krelXcvPortData)));
    EXPECT_EQ(DWORD{ERROR_INSUFFICIENT_BUFFER}, Send("Kept", "GetPortProperties", version, 10));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Send("Kept", "SetKeepAliveValues",
                                         BytesOf(krelXcvKeepAliveValues{kXcvRecordVersion, 7, 30}), 0));
    (void)Send("Kept", "NoSuchCommand", {}, 4);
    TellPorts(1);
    TellPorts(2);

    const HANDLE port = OpenPort(TEXT("kept"));
    ASSERT_NE(nullptr, port);
    EXPECT_FALSE(table->pfnStartDocPort(port, Text("Printer"), 7, 1, nullptr));  // nobody listens on port 1
    Tell("a document for a server that is not there");
    EXPECT_FALSE(table->pfnStartDocPort(nullptr, Text("Printer"), 7, 1, nullptr));
    EXPECT_TRUE(table->pfnClosePort(port));
    Tell("calls without a port");

    TellADocument();
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, DeletePort(TEXT("KEPT")));
    Restart();
    Tell("restart without the port");
    TellRegistry("");
    Shutdown();
    Tell("shutdown");

    EXPECT_NE(std::string::npos, transcript.find("Failed to connect to 127.0.0.1, port 1."));
    EXPECT_NE(std::string::npos, transcript.find("port = Caf\xC3\xA9 ")) << "UTF-8 in the log";
    if (const char* file = std::getenv("FARLINK_TRANSCRIPT"))
        std::ofstream(file, std::ios::binary) << transcript;
}

}  // namespace
