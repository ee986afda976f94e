#pragma once

// On what programs beside this library use: all else stays hidden in it.
#define SPOOLER_API __attribute__((visibility("default")))
