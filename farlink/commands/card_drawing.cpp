#include "farlink/commands/card_drawing.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace farlink {

namespace {

constexpr int kWidth = 1016;
constexpr int kHeight = 648;

using Colour = std::array<std::uint8_t, 3>;

// The grain of a scanned photograph: data that no program could have in a row by accident. The constants
// are those of the C standard's sample generator.
class Grain {
public:
    explicit Grain(unsigned seed) : state(seed) {}
    int Next(int below)
    {
        state = state * 1103515245U + 12345U;
        return static_cast<int>((state >> 16) % static_cast<unsigned>(below));
    }

private:
    unsigned state;
};

std::uint8_t Level(int value)
{
    return static_cast<std::uint8_t>(std::clamp(value, 0, 255));
}

Colour Background(int x, int y, int number)
{
    return {Level(40 + x * 60 / kWidth), Level(90 + y * 100 / kHeight), Level(150 + (number * 37) % 100)};
}

// Head and shoulders in a frame at the left.
Colour Portrait(int x, int y, Grain& grain)
{
    const int headX = x - 190;
    const int headY = y - 240;
    const bool head = headX * headX * 3 + headY * headY * 2 < 26000;
    const bool shoulders = y > 360 && headX * headX * 2 < (y - 340) * 260;
    const int light = head ? 190 : shoulders ? 70 : 225;
    const int noise = grain.Next(24) - 12;
    return {Level(light + noise), Level(light - (head ? 40 : 10) + noise),
            Level(light - (head ? 70 : 0) + noise)};
}

// Lines of a text that nobody can read: strokes of changing length at the right.
bool IsInk(int x, int y, int number)
{
    if (x < 400 || x > 940 || y < 120 || y > 540 || (y - 120) % 60 > 28)
        return false;
    const int line = (y - 120) / 60;
    const int letter = (x - 400) / 22;
    const int length = 8 + (number * 7 + line * 5) % 16;
    return letter < length && (x - 400) % 22 < 14 && ((letter * 13 + line * 29 + number * 3) % 7) != 0;
}

}  // namespace

std::string DrawCard(int number)
{
    std::string card = "P6\n" + std::to_string(kWidth) + " " + std::to_string(kHeight) + "\n255\n";
    card.reserve(card.size() + static_cast<std::size_t>(kWidth) * kHeight * 3);
    Grain grain(static_cast<unsigned>(number));
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const bool inPortrait = x >= 60 && x < 320 && y >= 110 && y < 470;
            const Colour dot = inPortrait            ? Portrait(x, y, grain)
                               : IsInk(x, y, number) ? Colour{20, 20, 30}
                                                     : Background(x, y, number);
            card.append(reinterpret_cast<const char*>(dot.data()), dot.size());
        }
    return card;
}

}  // namespace farlink
