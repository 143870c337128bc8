// In the steady state the edge detector takes no memory: its buffers are there from the first frame on.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "features/canny_frame16.h"
#include "support/count_allocations.h"

namespace scansteps {
namespace {

TEST(Steady, detectorTakesNoMemoryAfterTheFirstFrame)
{
    constexpr std::size_t kWidth = 1300, kHeight = 90;
    std::mt19937 random(8);
    std::vector<std::uint16_t> quiet(kWidth * kHeight, 40), busy(quiet.size()), frame;
    for (auto& sample : busy) sample = static_cast<std::uint16_t>(random());
    CannyWorkspace work;
    const auto detect = [&](int lowPasses) {
        cannyFrame16(frame, kWidth, kHeight, Frame16::Video, lowPasses, 50, 100, 3, work);
    };
    frame = quiet;
    EXPECT_GT(test::allocationsOf([&] { detect(1); }), 0);
    for (const int lowPasses : {0, 1, kFusedLowPasses}) {
        frame = busy;  // many more edges than in the first frame
        EXPECT_EQ(test::allocationsOf([&] { detect(lowPasses); }), 0) << lowPasses;
    }
    FloatPlane plane, edges;
    frame16ToPlane(busy, plane, kWidth, kHeight, Frame16::Video);
    Canny(plane, edges, 50, 100, 3, work);
    EXPECT_EQ(test::allocationsOf([&] { Canny(plane, edges, 50, 100, 3, work); }), 0);
}

}  // namespace
}  // namespace scansteps
