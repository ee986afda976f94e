#pragma once

#include "printserver/check/session.h"

#include <span>

namespace printserver::check {

struct CheckOptions {
    Target target;
    Bytes smallDocument;
    Bytes largeDocument;
    std::uint32_t query = 1;  // a control id
};

// One thing that a server has to do. `run` opens connections of its own and throws Mismatch or NotSeen.
struct Point {
    const char* name;
    const char* title;
    const char* page;  // the sentence of docs/wire-protocol.md that says so
    int cards;         // how many it prints
    void (*run)(const CheckOptions& options);
};

// By theme, in the order in which they run.
std::span<const Point> OpeningPoints();   // the exchange before the first record
std::span<const Point> FramePoints();     // frames, requests, keep-alives
std::span<const Point> SessionPoints();   // numbers, binding, sessions without a document
std::span<const Point> DocumentPoints();  // cards, and what becomes of a document that isn't one

}  // namespace printserver::check
