#pragma once

#include "printserver/check/command_client.h"
#include "printserver/course.h"

namespace printserver::check {

// The monitor's side of one session: its data connection, and its command connection once that is opened. For
// one thread.
class Session {
public:
    explicit Session(const Target& server) : target(&server) {}

    // The opening, step by step or whole.
    void OpenData();
    void OpenCommand(bool bind = true);  // to the bind
    void Open();

    unsigned Number() const { return number; }
    CommandClient& Command() { return *command; }
    std::string Torn() const { return command && torn.empty() ? command->Torn() : torn; }

    // Until the position is 0.
    void AwaitTurn();
    // All of it, with no orderly end yet.
    void SendDocument(const Bytes& document);
    void EndData() { data.HangUp(); }
    void ResetData() { data.Reset(); }
    // State 7, 8 or 9.
    int AwaitFinalState(Milliseconds limit, const char* page);
    // What the server sends on the data connection, up to so many bytes.
    Bytes ReadData(std::size_t count, Milliseconds limit);
    bool AwaitDataEnd(Milliseconds limit);

    // A document that comes out as a card.
    void Print(const Bytes& document);

private:
    void ReadField(const char* point, const Bytes& wanted, std::size_t known);
    void CheckWhileSending();

    const Target* target;
    TcpConnection data;
    std::optional<CommandClient> command;
    unsigned number = 0;
    std::string torn;
};

}  // namespace printserver::check
