// Test patterns of the simulated camera, as YUYV16 samples.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace scansteps::capture {

enum class TestPattern
{
    Bars,      ///< eight colour bars of 75 % (ITU-R BT.471), white at the left
    Gradient,  ///< luma 16 to 235 from left to right, colour from top to bottom
    Moving,    ///< a bright square bouncing over the gradient, two pixels per frame in each direction
};

std::optional<TestPattern> testPattern(std::string_view name);

class PatternImage
{
  public:
    /// `width` must be even.
    PatternImage(TestPattern pattern, int width, int height);
    int width() const { return width_; }
    int height() const { return height_; }
    /// Picture `number`: width × height samples, valid until the next call.
    std::span<const std::uint16_t> frame(std::uint64_t number);

  private:
    TestPattern pattern_;
    int width_, height_;
    std::vector<std::uint16_t> background_, picture_;
};

/// Position of an object that moves back and forth between 0 and `room`, by one per step.
int bounce(std::uint64_t step, int room);

}  // namespace scansteps::capture
