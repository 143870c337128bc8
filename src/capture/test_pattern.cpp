// Drawing of the test patterns.
#include "capture/test_pattern.h"

#include <algorithm>
#include <array>

namespace scansteps::capture {

namespace {

struct Colour
{
    int y, u, v;
};

// ITU-R BT.601, studio range: white, yellow, cyan, green, magenta, red, blue, black.
constexpr std::array<Colour, 8> kBars{{{180, 128, 128},
                                       {162, 44, 142},
                                       {131, 156, 44},
                                       {112, 72, 58},
                                       {84, 184, 198},
                                       {65, 100, 212},
                                       {35, 212, 114},
                                       {16, 128, 128}}};

std::uint16_t sampleOf(const Colour& colour, int x)
{
    return static_cast<std::uint16_t>(colour.y | (x % 2 == 0 ? colour.u : colour.v) << 8);
}

Colour colourAt(TestPattern pattern, int x, int y, int width, int height)
{
    if (pattern == TestPattern::Bars) return kBars[static_cast<std::size_t>(x / 2 * 2 * 8 / width)];
    const int down = 224 * y / std::max(height - 1, 1);
    return {16 + 219 * x / std::max(width - 1, 1), 16 + down, 240 - down};
}

}  // namespace

std::optional<TestPattern> testPattern(std::string_view name)
{
    if (name == "bars") return TestPattern::Bars;
    if (name == "gradient") return TestPattern::Gradient;
    if (name == "moving") return TestPattern::Moving;
    return std::nullopt;
}

PatternImage::PatternImage(TestPattern pattern, int width, int height)
    : pattern_(pattern), width_(width), height_(height)
{
    background_.reserve(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            background_.push_back(sampleOf(colourAt(pattern, x, y, width, height), x));
}

std::span<const std::uint16_t> PatternImage::frame(std::uint64_t number)
{
    if (pattern_ != TestPattern::Moving) return background_;
    picture_ = background_;
    const int side = std::max(std::min(width_, height_) / 4, 1);
    const int left = bounce(2 * number, width_ - side), top = bounce(2 * number, height_ - side);
    for (int y = top; y < top + side; ++y) {
        std::uint16_t* row = picture_.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(width_);
        for (int x = left; x < left + side; ++x) row[x] = static_cast<std::uint16_t>((row[x] & 0xFF00) | 235);
    }
    return picture_;
}

int bounce(std::uint64_t step, int room)
{
    if (room <= 0) return 0;
    const auto at = static_cast<int>(step % (2 * static_cast<std::uint64_t>(room)));
    return at <= room ? at : 2 * room - at;
}

}  // namespace scansteps::capture
