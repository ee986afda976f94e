#pragma once

#include <span>

class World;

// Who acts, and what may go wrong. What has to hold is held in every scene (checks.h).
struct Scene {
    const char* name;
    const char* told;
    void (*play)(World&);
};

std::span<const Scene> Scenes();
