// Window and level of 16-bit samples.
#include "pixels/grey_window.h"

#include "support/test.h"

namespace scansteps {
namespace {

using namespace pixels;

// All samples under windows of every kind; multiples of 255 and 510 give many results close to integers.
TEST(GreyWindow, vectorEqualsScalarForAllSamples)
{
    std::vector<std::uint16_t> in(65536 + 7);
    std::iota(in.begin(), in.end(), std::uint16_t{0});
    std::vector<std::pair<int, int>> settings = {
        {0, 0},         {1, 0},     {-1, 5},      {INT_MAX, 0},    {INT_MIN, 0},      {256, INT_MAX},
        {256, INT_MIN}, {65536, 0}, {3, 1 << 24}, {3, -(1 << 24)}, {INT_MAX, INT_MAX}};
    for (const int level :
         {(1 << 22) - 1, 1 << 22, -(1 << 22), 1 - (1 << 22)})  // where the vectors' range ends
        for (const int window : {1, -1, 0, 1 << 23}) settings.emplace_back(window, level);
    for (int k = 1; k <= 128; k *= 2)
        for (const int window : {255, 510, 85, 17, 30, 6}) settings.emplace_back(window * k, k - 3);
    std::mt19937 random(3);
    for (int k = 0; k < 150; ++k)
        settings.emplace_back(int(random() % 70000) - 2000, int(random() % 70000) - 35000);
    const std::vector<std::uint8_t> out(3 * in.size());
    for (const auto& [window, level] : settings)
        expectTwins(greyWindow, pixels::scalar::greyWindow, in, out, window, level);
}

}  // namespace
}  // namespace scansteps
