#pragma once

#include <span>

class World;

// Who acts, and what may go wrong. What has to hold is held in every scene (checks.h).
struct Scene {
    const char* name;
    const char* told;
    void (*play)(World&);
    bool isSmall;  // so few threads and calls that all orders with two interruptions can be tried
};

std::span<const Scene> Scenes();
