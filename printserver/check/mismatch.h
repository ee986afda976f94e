#pragma once

#include <stdexcept>
#include <string>

namespace printserver::check {

// The server did something else than the protocol's page says.
class Mismatch : public std::runtime_error {
public:
    Mismatch(std::string wanted, const std::string& what, const char* sentence = nullptr)
        : std::runtime_error(what), expected(std::move(wanted)), page(sentence)
    {
    }

    const std::string expected;
    const char* const page;  // the page's sentence; null for that of the point
};

// The same in a step of the opening that has a point of its own: any other point that runs into it is merely
// not reached.
class OpeningMismatch : public Mismatch {
public:
    OpeningMismatch(const char* name, std::string wanted, const std::string& what,
                    const char* sentence = nullptr)
        : Mismatch(std::move(wanted), what, sentence), point(name)
    {
    }

    const char* const point;
};

// What the point is about did not come up, so nothing can be said.
class NotSeen : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace printserver::check
