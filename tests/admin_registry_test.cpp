// What persists of the ports, and what a registry that refuses does to them.

#include "tests/support/admin_fixture.h"

namespace {

TEST_F(Admin, SettingsPersistOverARestart)
{
    EXPECT_EQ(kOk, SetKeepAlive(TEXT("Card"), 0, 65535));
    EXPECT_EQ(kOk, OpenXcv(TEXT("cARD"))
                       .Send(TEXT("SetPortProperties"), PortRecord(TEXT("ignored"), TEXT("other"), 7))
                       .result);
    EXPECT_EQ(kOk, AddPort(TEXT("Plain"), TEXT(""), 0));
    for (int start = 0; start < 2; start++) {
        const auto port =
            OpenXcv(TEXT("Card")).Call(TEXT("GetPortProperties"), Version(1), 236).As<krelXcvPortData>();
        EXPECT_EQ(WideString(TEXT("Card")), port.portName);
        EXPECT_EQ(WideString(TEXT("other")), port.server);
        EXPECT_EQ(7, port.portNumber);
        EXPECT_EQ(KeepAlive(1, 0, 65535),
                  OpenXcv(TEXT("Card")).Call(TEXT("GetKeepAliveValues"), Version(1), 8).output);
        EXPECT_EQ(KeepAlive(1, 5, 20),
                  OpenXcv(TEXT("Plain")).Call(TEXT("GetKeepAliveValues"), Version(1), 8).output);
        EXPECT_EQ(KeepAlive(1, 5, 20),
                  OpenXcv(TEXT("")).Call(TEXT("GetDefaultKeepAliveValues"), Version(1), 8).output);
        Restart();
    }
    EXPECT_EQ(std::nullopt, registry.Dword("Ports/Plain", "Keep Alive Timeout"));
    EXPECT_EQ(kOk, DeletePort(TEXT("Card")));
    Restart();
    EXPECT_EQ(Names{"Plain"}, PortNames());
}

// --- the registry refuses ---

TEST_F(Admin, AnAdditionThatTheRegistryRefusesLeavesNoPort)
{
    const std::pair<Registry, int> steps[] = {
        {Registry::CreateKey, 0}, {Registry::CreateKey, 1}, {Registry::SetValue, 0}, {Registry::SetValue, 1}};
    for (const auto& [callback, skip] : steps) {
        registry.Fail(callback, ERROR_ACCESS_DENIED, skip);
        EXPECT_EQ(kDenied, AddPort(TEXT("New"), TEXT("server"), 1));
        EXPECT_EQ(Names{"Card"}, PortNames());
        EXPECT_EQ(0, registry.OpenKeys());
        registry.StopFailing();
    }
    // What the last one had stored stays, and isn't enough for a port.
    EXPECT_EQ((Names{"Card", "New"}), registry.Subkeys("Ports"));
    Restart();
    EXPECT_EQ(Names{"Card"}, PortNames());
    EXPECT_EQ(kOk, AddPort(TEXT("New"), TEXT("server"), 1));
}

TEST_F(Admin, AChangeThatTheRegistryRefusesDoesNotReachThePort)
{
    const std::pair<Registry, int> steps[] = {{Registry::OpenKey, 0},
                                              {Registry::OpenKey, 1},
                                              {Registry::OpenKey, 3},
                                              {Registry::SetValue, 0},
                                              {Registry::SetValue, 1}};
    for (const auto& [callback, skip] : steps) {
        registry.Fail(callback, ERROR_ACCESS_DENIED, skip);
        EXPECT_EQ(kDenied, OpenXcv(TEXT("Card"))
                               .Send(TEXT("SetPortProperties"), PortRecord(TEXT(""), TEXT("other"), 7))
                               .result);
        EXPECT_EQ(WideString(TEXT("server")), ServerOf(TEXT("Card")));
        registry.StopFailing();
    }
    EXPECT_EQ(TEXT("other"), registry.Text("Ports/Card", "Print Server"));  // the number was refused
    EXPECT_EQ(9100u, registry.Dword("Ports/Card", "Port Number"));
}

TEST_F(Admin, RefusedKeepAliveValuesHoldUntilTheRestart)
{
    registry.Fail(Registry::SetValue, ERROR_ACCESS_DENIED, 0, 2);
    EXPECT_EQ(kOk, SetKeepAlive(TEXT("Card"), 3, 4));
    EXPECT_EQ(KeepAlive(1, 3, 4),
              OpenXcv(TEXT("Card")).Call(TEXT("GetKeepAliveValues"), Version(1), 8).output);
    Restart();
    EXPECT_EQ(KeepAlive(1, 5, 20),
              OpenXcv(TEXT("Card")).Call(TEXT("GetKeepAliveValues"), Version(1), 8).output);
}

TEST_F(Admin, ADeletionThatTheRegistryRefusesLastsUntilTheRestart)
{
    for (const Registry callback : {Registry::OpenKey, Registry::DeleteKey}) {
        registry.Fail(callback, ERROR_ACCESS_DENIED);
        EXPECT_EQ(kOk, DeletePort(TEXT("Card")));
        EXPECT_EQ(Names{}, PortNames());
        Restart();
        EXPECT_EQ(Names{"Card"}, PortNames());
    }
}

TEST_F(Admin, MalformedEntriesArePassedOverAndLeftAlone)
{
    registry.MakeKey("Ports/1 Empty");
    registry.SetText("Ports/2 No number", "Print Server", TEXT("server"));
    registry.SetDword("Ports/3 No server", "Port Number", 1);
    registry.AddPort("4 Long server", WideString(49, TEXT('s')), 1);
    registry.AddPort(std::string(67, '5'), TEXT("server"), 1);
    registry.AddPort("6 Huge server", WideString(499, TEXT('s')), 1);
    registry.AddPort("7 Long number", TEXT("server"), 1);
    registry.SetBytes("Ports/7 Long number", "Port Number", Bytes(5));

    registry.AddPort(std::string(66, '8'), WideString(48, TEXT('s')), 0x12345);
    registry.SetBytes("Ports/9 No NUL", "Print Server", WideBytes(TEXT("server")));
    registry.SetDword("Ports/9 No NUL", "Port Number", 9100);
    registry.SetDword("Ports/9 No NUL", "Keep Alive Timeout", 0x10007);
    // 998 bytes pass the size test and hold a short text.
    WideString padded = TEXT("short");
    padded.resize(499, 0);
    registry.SetBytes("Ports/Padded", "Print Server", WideBytes(padded));
    registry.SetDword("Ports/Padded", "Port Number", 1);
    const Names before = registry.Subkeys("Ports");
    Restart();
    EXPECT_EQ((Names{"Padded", "Card", "9 No NUL", std::string(66, '8')}), PortNames());
    EXPECT_EQ(before, registry.Subkeys("Ports"));
    EXPECT_EQ(WideString(TEXT("server")), ServerOf(TEXT("9 No NUL")));
    EXPECT_EQ(KeepAlive(1, 5, 7),
              OpenXcv(TEXT("9 No NUL")).Call(TEXT("GetKeepAliveValues"), Version(1), 8).output);
    // A name of 66 characters is one too long for the record's field, and is cut there.
    const auto longest = OpenXcv(WideString(66, TEXT('8')))
                             .Call(TEXT("GetPortProperties"), Version(1), 236)
                             .As<krelXcvPortData>();
    EXPECT_EQ(WideString(65, TEXT('8')), longest.portName);
    EXPECT_EQ(1u, longest.version);
    EXPECT_EQ(0x2345, longest.portNumber);

    registry.Fail(Registry::OpenKey, ERROR_ACCESS_DENIED, 8);  // the key of the name of 66 characters
    registry.Fail(Registry::EnumKey, ERROR_ACCESS_DENIED, 9);  // looks like the end of the list
    Restart();
    EXPECT_EQ(Names{"9 No NUL"}, PortNames());
}

}  // namespace
