// Under whose identity a command works.

#include "tests/support/admin_fixture.h"

namespace {

class Identity : public Admin {
protected:
    // What the command asked of the spooler and the registry, in the order of both together.
    Names RecordOf(const std::function<void()>& command)
    {
        Names record;
        const std::pair<Spooler, const char*> steps[] = {{Spooler::EnumPorts, "list"},
                                                         {Spooler::LoadSpoolss, "load"},
                                                         {Spooler::Revert, "revert"},
                                                         {Spooler::Impersonate, "return"},
                                                         {Spooler::FreeSpoolss, "free"}};
        for (const auto& [call, name] : steps) {
            spooler.Before(call, [this, &record, name = name] {
                AddRegistryCalls(record);
                record.push_back(name);
            });
        }
        registry.ForgetCalls();
        command();
        AddRegistryCalls(record);
        return record;
    }

private:
    void AddRegistryCalls(Names& record)
    {
        if (!registry.Calls().empty())
            record.push_back("registry");
        registry.ForgetCalls();
    }
};

TEST_F(Identity, ChangingCommandsReachTheRegistryAsTheSpooler)
{
    const Names scope = {"load", "revert", "registry", "return", "free"};
    EXPECT_EQ((Names{"list", "list", "load", "revert", "registry", "return", "free"}),
              RecordOf([&] { AddPort(TEXT("New"), TEXT("server"), 1); }));
    EXPECT_EQ(scope, RecordOf([&] { SetKeepAlive(TEXT("New"), 1, 1); }));
    EXPECT_EQ(scope, RecordOf([&] {
                  OpenXcv(TEXT("New")).Send(TEXT("SetPortProperties"), PortRecord(TEXT(""), TEXT("s"), 1));
              }));
    EXPECT_EQ(scope, RecordOf([&] { DeletePort(TEXT("New")); }));
    EXPECT_EQ((Names{"list", "list"}), RecordOf([&] { AddPort(TEXT("Card"), TEXT("server"), 1); }));
    EXPECT_EQ(Names{}, RecordOf([&] {
                  for (const LPCWSTR command : kCommands)
                      OpenXcv(TEXT("Card"), 0).Call(command, Version(1), 300);
              }));
    int refused = 0;
    spooler.Refuse(Spooler::OpenPrinter, ERROR_ACCESS_DENIED, 1);
    spooler.Before(Spooler::OpenPrinter, [&] {  // the job holds the port meanwhile
        EXPECT_EQ((Names{"load", "revert", "return", "free"}),
                  RecordOf([&] { refused += SetKeepAlive(TEXT("Card"), 1, 1) == ERROR_BUSY; }));
    });
    EXPECT_FALSE(table->pfnStartDocPort(OpenPort(TEXT("Card")), Text("Printer"), 7, 1, nullptr));
    EXPECT_EQ(1, refused);
}

TEST_F(Identity, WithoutTheSpoolersLibraryCommandsRunAsTheClient)
{
    const struct {
        Spooler refused;
        std::string failure;
        Names steps;
    } cases[] = {
        {Spooler::LoadSpoolss, "Unable to load spoolss.dll", {"load", "registry"}},
        {Spooler::FindRevert, "Failed to get address of RevertToPrinterSelf()", {"load", "registry", "free"}},
        {Spooler::FindImpersonate,
         "Failed to get address of ImpersonatePrinterClient()",
         {"load", "registry", "free"}},
        {Spooler::Revert, "", {"load", "revert", "registry", "free"}},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.failure);
        log.Clear();
        spooler.Refuse(one.refused, 5, 1);
        EXPECT_EQ(one.steps, RecordOf([&] { EXPECT_EQ(kOk, SetKeepAlive(TEXT("Card"), 1, 1)); }));
        Names expected;
        if (!one.failure.empty())
            expected.push_back("krelRevertToPrinterSelf::krelRevertToPrinterSelf: " + one.failure);
        EXPECT_EQ(expected, log.Failures());
    }
}

}  // namespace
