// The example photographs are what the demo and many tests stand on: they must all be there and be usable.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/images.h"

namespace scansteps {
namespace {

TEST(ExampleImages, theZoomIsTwelveFramesOfOneSizeThatDiffer)
{
    std::vector<std::uint8_t> previous;
    for (int i = 0; i < 12; ++i) {
        const test::Image image =
            test::examplePhoto((i < 10 ? "img000" : "img00") + std::to_string(i) + ".jpg");
        EXPECT_EQ(image.width, 640);
        EXPECT_EQ(image.height, 480);
        EXPECT_NE(image.rgb, previous);
        previous = image.rgb;
    }
}

TEST(ExampleImages, thePhotographsAreBigAndHaveContrast)
{
    for (const char* name :
         {"photo_coffee.jpg", "photo_chelsea.jpg", "photo_rocket.jpg", "photo_astronaut.jpg"}) {
        SCOPED_TRACE(name);
        const test::Image image = test::examplePhoto(name);
        EXPECT_GE(image.width, 600);
        EXPECT_GE(image.height, 400);
        const std::vector<std::uint8_t> grey = test::greyOf(image);
        const auto [low, high] = std::minmax_element(grey.begin(), grey.end());
        EXPECT_LT(*low, 60);
        EXPECT_GT(*high, 190);
    }
}

}  // namespace
}  // namespace scansteps
