#include "simulate/checks.h"

#include "platform/simulated/files.h"
#include "platform/simulated/handles.h"
#include "platform/simulated/lock_order.h"
#include "simulate/world.h"

using simulated::Endpoint;
using simulated::Scheduler;
using simulated::Thread;
using Use = simulated::Network::Use;

namespace {

CallUnderWay* OuterCall()
{
    return static_cast<CallUnderWay*>(Scheduler::Current().Self().work);
}

}  // namespace

void Checks::Require(bool holds, const std::string& complaint)
{
    if (!holds)
        Scheduler::Current().Fail(complaint);
}

std::uint64_t& Checks::WorkedFor()
{
    return workedFor[Scheduler::Current().Self().number];
}

void Checks::ConnectionUsed(Endpoint& connection, Use use)
{
    const CallUnderWay* const call = OuterCall();
    if (use == Use::Connect) {
        connection.document = call != nullptr && call->document != nullptr ? call->document->number : 0;
        return;
    }
    if (use == Use::Send || use == Use::Receive) {
        WorkedFor() = connection.document;
        return;
    }
    if (call == nullptr || call->document == nullptr || std::string_view(call->function) != "gEndDocPort")
        return;
    call->document->endHasIt = true;
    const Document& other = *world.Find(connection.document);
    Require(&other == call->document || other.begun <= call->begun,
            "the end of one document closes the connections of another");
}

void Checks::DataArrived(const Document& document, std::size_t at, const char* bytes, std::size_t count)
{
    Require(at + count <= document.size, "the print server gets more than the document");
    for (std::size_t i = 0; i < count; ++i)
        Require(bytes[i] == Document::ByteAt(document.job, at + i),
                "the print server gets bytes that are not the document's");
}

void Checks::JobCommand(Document& document, DWORD job, DWORD command)
{
    Require(document.job == job, "a job is commanded by the printer handle of another document");
    const std::uint64_t worker = WorkedFor();
    Require(worker == 0 || worker == document.number, "who worked for one document commands another's job");
    if (command == JOB_CONTROL_SENT_TO_PRINTER) {
        Require(document.inChannelMode || document.saidFinal,
                "a job is sent without the print server's word");
        document.wasSent = true;
    } else if (command == JOB_CONTROL_RESTART) {
        Require(!document.wasSent, "a job that is sent is printed again");
        document.wasRestarted = true;
    } else if (command == JOB_CONTROL_DELETE) {
        Require(document.saidCancelled || (document.wasSent && document.isSecondRun),
                "a job is deleted that nobody has cancelled");
        document.wasDeleted = true;
    }
}

void Checks::CallEnded(const CallUnderWay& ended)
{
    const Thread& self = Scheduler::Current().Self();
    Require(self.held.size() == ended.locksHeld, "a call leaves a lock behind");
    Require(self.slots == ended.slots, "a call leaves the log indented");
    if (ended.outer == nullptr && ended.locksHeld == 0)
        WorkedFor() = 0;
}

// Where nothing may go wrong, everything goes well.
void Checks::DocumentEnded(const Document& document)
{
    if (world.plan.mayFail || document.inChannelMode || world.isDisturbed || document.isOvertaken ||
        document.isTalkedOver)
        return;
    Require(!document.wasRestarted, "a good job is printed again");
    Require(document.wasSent || document.wasDeleted, "a good job is not reported");
    Require(document.saidCancelled || (document.isWhole && document.received == document.size),
            "a good job's end is lost on the way");
}

void Checks::IsIdle()
{
    Require(simulated::OpenSockets() == 0, "an idle port has a connection");
    Require(simulated::OpenHandles() == 0, "an idle port has an event or a thread");
    Require(world.spooler.OpenPrinters() == 0, "an idle port has a printer");
}

void Checks::IsGone()
{
    IsIdle();
    Require(simulated::OpenFiles() == 0, "the log file is left open");
    Require(simulated::SocketStartups() == 0, "the socket library is not given back");
    Require(world.registry.OpenKeys() == 0, "a registry key is left open");
    Require(simulated::CircleOfLocks().empty(), "two locks are taken in both orders");
}
