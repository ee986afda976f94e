#pragma once

#include <functional>

#include "simulate/run.h"

// Plays a scene in its plain world, in the plain order of threads and in every order that differs from it by
// one or two threads going on in place of another. `judge` is told of each run, with the recipe that gives it
// again, and ends the search with false. True when all orders were tried.
bool TryAllOrders(const Scene& scene, const std::function<bool(const Recipe&, const Outcome&)>& judge);
