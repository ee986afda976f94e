#include "simulate/scene.h"

#include "simulate/world.h"

using simulated::kMillisecond;
using simulated::kSecond;
using simulated::Micros;

namespace {

// A moment from at once to late, for who comes between.
Micros DrawMoment(Plan& plan)
{
    constexpr Micros kUnits[] = {0, 100, 10 * kMillisecond, 200 * kMillisecond, kSecond};
    return plan.Among(kUnits) * plan.Choose(10);
}

std::size_t DrawSize(Plan& plan)
{
    constexpr std::size_t kSizes[] = {7, 1000, 0, 3000, 20'000};
    return plan.Among(kSizes);
}

void Job(World& world)
{
    Port& port = world.AddPort();
    const std::size_t size = DrawSize(world.plan);
    world.Act("spooler", [&port, size] { port.Print(7, size); });
}

// Somebody reads back while the job is printed, and doesn't stop at its end.
void Reader(World& world)
{
    Port& port = world.AddPort();
    Document& document = world.NewDocument(7, DrawSize(world.plan));
    const Micros pause = DrawMoment(world.plan);
    const unsigned reads = 1 + world.plan.Choose(4);
    world.Act("spooler", [&port, &document, &world] {
        port.PrintOnce(document);
        port.Print(8, 500);
    });
    world.Act("reader", [&world, &port, &document, pause, reads] {
        for (unsigned i = 0; i < reads; ++i) {
            world.Pause(pause);
            if (document.isOpen)
                port.Read(document);
        }
    });
}

// Queries come at any time of a job, and of the next one.
void Queries(World& world)
{
    Port& port = world.AddPort();
    Document& document = world.NewDocument(7, DrawSize(world.plan));
    const Micros pause = DrawMoment(world.plan);
    world.Act("spooler", [&port, &document] {
        port.PrintOnce(document);
        port.Print(8, 500);
    });
    world.Act("asker", [&world, &port, &document, pause] {
        for (int i = 0; i < 4; ++i) {
            world.Pause(pause);
            if (document.isOpen)
                port.Query(document);
        }
    });
}

// The spooler only talks to the printer: queries, a write and a read, from threads of their own.
void Channel(World& world)
{
    Port& port = world.AddPort();
    Document& document = world.NewDocument(7, 40, true);
    const Micros moments[] = {DrawMoment(world.plan), DrawMoment(world.plan), DrawMoment(world.plan)};
    if (!port.Start(document))
        return;
    const bool reads = world.plan.Sometimes(3);
    world.Act("asker", [&, moment = moments[0]] {
        world.Pause(moment);
        if (document.isOpen)
            port.Query(document);
    });
    world.Act("writer", [&, moment = moments[1], reads] {
        world.Pause(moment);
        if (document.isOpen && port.Write(document, 0, 40) && reads)
            port.Read(document);
    });
    world.Act("ender", [&, moment = moments[2]] {
        world.Pause(moment);
        port.End(document);
    });
    world.AwaitAll();
}

// Calls out of order: a second document begins while the first one's start or end is under way.
void Overtaken(World& world)
{
    Port& port = world.AddPort();
    Document& first = world.NewDocument(7, DrawSize(world.plan));
    Document& second = world.NewDocument(8, 500, world.plan.Sometimes(3));
    const Micros moment = DrawMoment(world.plan);
    const bool asks = world.plan.Sometimes(2);
    const bool atItsStart = world.plan.Sometimes(3);
    world.Act("spooler", [&port, &first, atItsStart] {
        if (!atItsStart)
            port.PrintOnce(first);
        else if (!port.Start(first))
            first.isEnded = true;
    });
    world.Act("other", [&world, &port, &first, &second, moment, atItsStart] {
        while (!first.isEnded && !(atItsStart ? first.hasAskedForPrinter : first.endHasIt))
            world.Pause(10 * kMillisecond);
        world.Pause(moment);
        if (second.inChannelMode && port.Start(second)) {
            port.Write(second, 0, 10);
            port.End(second);
        } else if (!second.inChannelMode) {
            port.PrintOnce(second);
        }
    });
    if (asks) {
        world.Act("asker", [&world, &port, &first, moment] {
            world.Pause(moment / 2);
            if (first.isOpen)
                port.Query(first);
        });
    }
}

// The port is deleted under a job, a query and an enumeration.
void Deletion(World& world)
{
    world.isDisturbed = true;
    Port& port = world.AddPort();
    Document& document = world.NewDocument(7, DrawSize(world.plan), world.plan.Sometimes(3));
    const Micros moment = DrawMoment(world.plan);
    const Micros asking = DrawMoment(world.plan);
    world.Act("spooler", [&port, &document] {
        if (!document.inChannelMode) {
            port.PrintOnce(document);
        } else if (port.Start(document)) {
            port.Write(document, 0, document.size);
            port.End(document);
        }
    });
    world.Act("asker", [&world, &port, &document, asking] {
        world.Pause(asking);
        port.Query(document);
        world.monitor.EnumeratePorts();
    });
    world.Act("administrator", [&world, &port, moment] {
        world.Pause(moment);
        world.DeletePort(port);
    });
}

// The user deletes the job, in the spooler, at some moment.
void Deleted(World& world)
{
    world.isDisturbed = true;
    Port& port = world.AddPort();
    const std::size_t size = DrawSize(world.plan);
    const Micros moment = DrawMoment(world.plan);
    world.Act("spooler", [&port, size] {
        port.Print(7, size);
        port.Print(8, 500);
    });
    world.Act("user", [&world, moment] {
        world.Pause(moment);
        world.spooler.DeleteJob(7);
    });
}

// The monitor ends while documents are open and calls are inside.
void Shutdown(World& world)
{
    world.isDisturbed = true;
    Port& port = world.AddPort();
    Document& document = world.NewDocument(7, DrawSize(world.plan));
    world.leavesDocuments = true;
    (void)port.Start(document);
    world.Pause(DrawMoment(world.plan));
}

// Two ports at work, while others come and go and are listed.
void Ports(World& world)
{
    Port& left = world.AddPort();
    Port& right = world.AddPort();
    world.Act("left", [&left] { left.Print(7, 1000); });
    world.Act("right", [&right] { right.Print(9, 1000); });
    const Micros moment = DrawMoment(world.plan);
    world.Act("administrator", [&world, moment] {
        const WideString name = TEXT("Port X");
        for (int i = 0; i < 2; ++i) {
            world.Pause(moment);
            if (world.monitor.AddPort(name, TEXT("10.0.0.99"), 9100) != ERROR_SUCCESS)
                simulated::Scheduler::Current().Fail("a port is not added");
            world.monitor.EnumeratePorts();
            if (world.monitor.DeletePort(name) != ERROR_SUCCESS || world.registry.HasPort(name))
                simulated::Scheduler::Current().Fail("a port is not deleted");
        }
    });
}

constexpr Scene kScenes[] = {
    {"job", "one job, printed until it is sent", &Job},
    {"reader", "somebody reads back during a job, over its end and into the next", &Reader},
    {"queries", "somebody asks the printer during a job and the next", &Queries},
    {"channel", "queries, writes and reads without a job, beside their document's end", &Channel},
    {"overtaken", "a second document begins before the first has ended", &Overtaken},
    {"deletion", "the port is deleted under its document", &Deletion},
    {"deleted", "the user deletes the job in the spooler", &Deleted},
    {"shutdown", "the monitor ends under a document", &Shutdown},
    {"ports", "two ports print while others come and go", &Ports},
};

}  // namespace

std::span<const Scene> Scenes()
{
    return kScenes;
}
