// The pictures of the test camera, as YUYV16 samples.
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
    Moving,    ///< a bright square that bounces over the gradient, two pixels a frame each way
};

std::optional<TestPattern> testPattern(std::string_view name);

class PatternImage
{
  public:
    /// `width` is even.
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

/// Place of something that goes to and fro between 0 and `room`, one a step.
int bounce(std::uint64_t step, int room);

}  // namespace scansteps::capture
