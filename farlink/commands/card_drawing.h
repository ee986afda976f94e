#pragma once

#include <string>

namespace farlink {

// One card as a binary PPM image: 1016 x 648 dots, the size of a bank card at 300 dpi. The same number gives
// the same bytes. Several in a row are one file, as the format (ppm(5)) allows.
std::string DrawCard(int number);

}  // namespace farlink
