#include "printserver/check/point.h"

#include <thread>

namespace printserver::check {
namespace {

constexpr std::uint32_t kUnknownRequest = 99;
constexpr unsigned kPeriod = 1;
constexpr unsigned kTimeout = 3;
constexpr Milliseconds kPastTimeout{6000};  // the timeout, two seconds more, and one to look
constexpr Milliseconds kPrinterTime{30000};
constexpr Milliseconds kNoNews{500};

void CutFrames(const CheckOptions& options)
{
    Session session(options.target);
    session.OpenData();
    CommandClient command(options.target);
    for (const std::uint8_t byte : VersionRequest()) {
        command.Send({byte});
        std::this_thread::sleep_for(Milliseconds(2));
    }
    (void)command.Await(kTypeIoctl, kProtocolVersion, options.target.atOnce);
    command.Send(Join(BindRequest(session.Number()), Frame(kTypeIoctl, kUnknownRequest)));
    (void)command.Await(kTypeIoctl, kBindSession, options.target.atOnce);
    (void)command.Await(kTypeIoctl, kUnknownRequest, options.target.atOnce);
}

void AskUnknownRequest(const CheckOptions& options)
{
    Session session(options.target);
    session.Open();
    for (int round = 0; round < 2; ++round) {  // the second one finds the connection still there
        const CommandFrame reply =
            session.Command().Ask(Frame(kTypeIoctl, kUnknownRequest), options.target.atOnce);
        if (reply.replyLengthOrError == 0 || !reply.payload.empty())
            throw Mismatch("an error code other than 0, and no payload", Describe(reply));
    }
}

void SendForeignFrames(const CheckOptions& options)
{
    Bytes tooLong = Frame(kTypePrinterData, 1);
    tooLong[12] = 0x7F;
    for (const Bytes& frame : {Frame(9, 1), tooLong}) {
        Session session(options.target);
        session.Open();
        session.Command().Send(frame);
        if (!session.Command().AwaitEnd(options.target.atOnce) ||
            !session.AwaitDataEnd(options.target.atOnce))
            throw Mismatch("both connections closed after " + Hex(frame), "one stands");
    }
}

void ExchangeKeepAlives(const CheckOptions& options)
{
    Session session(options.target);
    session.OpenData();
    session.OpenCommand();
    session.Command().StartKeepAlives(kPeriod, kTimeout);
    session.Command().Pass(kPastTimeout);
    const int heard = session.Command().KeepAlivesHeard();
    const auto due = static_cast<int>(kPastTimeout.count() / 1000 / kPeriod);
    if (heard < due / 2 || heard > due * 2)
        throw Mismatch(
            std::to_string(due) + " keep-alives in " + std::to_string(kPastTimeout.count() / 1000) + " s",
            std::to_string(heard));
}

void FallSilent(const CheckOptions& options)
{
    Session session(options.target);
    session.OpenData();
    session.OpenCommand();
    CommandClient& command = session.Command();
    if (!command.SendsKeepAlives())
        throw NotSeen("up to version 1.0 a client sends no keep-alives");
    command.FallSilent();
    command.StartKeepAlives(kPeriod, kTimeout);
    if (command.AwaitEnd(Milliseconds(kTimeout * 1000)))
        throw Mismatch("connections that stand for the timeout of 3 s", "the server has ended them before");
    if (!command.AwaitEnd(kPastTimeout) || !session.AwaitDataEnd(options.target.atOnce))
        throw Mismatch("both connections closed 2 s after the timeout of 3 s", "one stands");
}

void SuppressSysLog(const CheckOptions& options)
{
    Session session(options.target);
    session.OpenData();
    session.OpenCommand();
    session.Command().StartKeepAlives();
    const CommandFrame reply = session.Command().Ask(SuppressRequest(), options.target.atOnce);
    if (reply.replyLengthOrError != 0)
        throw Mismatch("error 0", Describe(reply));
}

void ReadBack(const CheckOptions& options)
{
    constexpr unsigned kWanted = 64;
    Session session(options.target);
    session.Open();
    session.AwaitTurn();
    const CommandFrame reply = session.Command().Ask(ParallelReadRequest(kWanted), options.target.atOnce);
    if (reply.replyLengthOrError != 0 || reply.payload.size() != 2 || GetU16(reply.payload) > kWanted)
        throw Mismatch("error 0 and a count up to 64 in 2 bytes", Describe(reply));
    const unsigned count = GetU16(reply.payload);
    const std::size_t came =
        session.ReadData(count, options.target.atOnce).size() + session.ReadData(1, kNoNews).size();
    if (came != count)
        throw Mismatch(std::to_string(count) + " bytes on the data connection", std::to_string(came));
}

void Query(CommandClient& command, std::uint32_t control)
{
    const CommandFrame reply = command.Ask(QueryRequest(control, 256), kPrinterTime);
    if (reply.replyLengthOrError != 0 && !reply.payload.empty())
        throw Mismatch("an answer, or an error code without a payload", Describe(reply));
}

void QueryInSession(const CheckOptions& options)
{
    Session session(options.target);
    session.Open();
    session.AwaitTurn();
    Query(session.Command(), options.query);
}

void QueryAlone(const CheckOptions& options)
{
    CommandClient command(options.target);
    command.AskVersion();
    if (command.TheVersion() < Version{1, 10})
        throw NotSeen("below version 1.10 a query opens both channels");
    command.StartKeepAlives();
    Query(command, options.query);
}

constexpr const char* kQueryPage = "A query that the printer can't answer gets an error code and no payload.";

constexpr Point kPoints[] = {
    {"split-frames", "A frame is taken in pieces, and two at once",
     "The server takes a frame in whatever pieces it arrives, and several frames in one piece.", 0,
     CutFrames},
    {"unknown-request", "An unknown request is refused, and the connection stays",
     "An unknown `requestId` of type 2 is answered with the same type and id, an error code other than 0 and "
     "no "
     "payload; the connection stays.",
     0, AskUnknownRequest},
    {"foreign-frame", "What is not of this protocol ends both connections",
     "A frame whose `type` is neither 1 nor 2, or whose payload is over 16 MiB, is not of this protocol: the "
     "server closes both connections.",
     0, SendForeignFrames},
    {"keep-alives", "Keep-alives go both ways, for longer than the timeout",
     "The server sends one every period, as told in the start request", 0, ExchangeKeepAlives},
    {"silent-client", "A client that falls silent is dropped",
     "The server closes both connections when the monitor's keep-alives stay away for the announced timeout "
     "and "
     "two seconds more",
     0, FallSilent},
    {"suppress", "A session without a print job is announced",
     "The server keeps such a session out of its log of print jobs, and answers 0 also when it has no such "
     "log.",
     0, SuppressSysLog},
    {"read-back", "A parallel read is answered, and its bytes follow",
     "A parallel read with nothing to give is answered with the count 0", 0, ReadBack},
    {"query", "A query is answered", kQueryPage, 0, QueryInSession},
    {"query-alone", "A query needs no data connection from version 1.10 on", kQueryPage, 0, QueryAlone},
};

}  // namespace

std::span<const Point> FramePoints()
{
    return kPoints;
}

}  // namespace printserver::check
