#pragma once

// Everything that a run is about: a network with print servers, a spooler with its registry, the monitor. A
// scene furnishes it, lets threads act in it, and leaves the rest to it.

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "simulate/checks.h"
#include "simulate/monitor.h"
#include "simulate/plan.h"
#include "simulate/port.h"
#include "simulate/registry.h"
#include "simulate/spooler.h"

class World {
public:
    World(Plan& plan, std::uint64_t seed, std::string* story);
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    static World& Current() { return *current; }

    // --- for scenes ---

    // A port and its print server, both drawn.
    Port& AddPort();
    // Deletes a port for good.
    void DeletePort(Port& port);
    Document& NewDocument(DWORD job, std::size_t size, bool inChannelMode = false);
    // A thread that does this.
    void Act(const std::string& name, std::function<void()> body);
    void Pause(simulated::Micros length);
    // Waits until all that act are through.
    void AwaitAll();
    // Somebody disturbs the jobs on purpose: they need not succeed.
    bool isDisturbed = false;
    // A document is left open for the monitor's end.
    bool leavesDocuments = false;

    // --- for its parts ---

    // Plays a scene from the monitor's begin to its end, and checks what has to hold then.
    void Play(void (*scene)(World&));
    Document* Find(std::uint64_t number) { return &documents.at(number); }
    std::uint64_t Seed() const { return seed; }
    std::size_t PortCount() const { return ports.size(); }
    // One line of the story.
    void Tell(const std::string& text);
    void TellLogLine(const char* line);
    std::uint64_t Digest() const { return digest; }  // of all lines of the monitor's log

    Plan& plan;
    simulated::Network network;
    Checks checks{*this};
    Registry registry;
    Spooler spooler;
    Monitor monitor{*this};

private:
    void DrawNetwork(simulated::Route& route);
    void StartTrouble(Port& port);

    static World* current;
    const std::uint64_t seed;
    std::string* const story;
    std::uint64_t digest = 0;
    std::deque<Document> documents;
    std::deque<Port> ports;
    std::size_t acting = 0;
};
