// Steps ccanny5old, ccanny5 and ccanny7: the motion between frames.
#include "registration/motion_canny_step.h"

#include "registration/views.h"
#include "support/images.h"

namespace scansteps {
namespace {

using namespace registration;

test::WarpRange narrow(bool scaled)
{
    test::WarpRange range;
    range.angle = 10;
    range.minScale = scaled ? 0.9 : 1;
    range.maxScale = scaled ? 1.1 : 1;
    range.perspective = 0;
    return range;
}

TEST(MotionCanny, transformFromTheFrameBefore)
{
    const test::WarpSource source(examplePhoto("photo_coffee.jpg"));
    const test::WarpedPair rigid = source.pair(7, narrow(false)), scaled = source.pair(7, narrow(true));
    for (const char* kind : {"ccanny5old", "ccanny5", "ccanny7"}) {
        const test::WarpedPair& pair = std::string(kind) == "ccanny5old" ? rigid : scaled;
        Chain chain({kind});
        printed([&] { chain.init(geometryOf(640, 480, {{"VideoFormat", "YUYV16"}})); });
        chain.arrived.clear();
        const Array first = videoFrame(pair.first, 640), second = videoFrame(pair.second, 640);
        const std::string text = printed([&] {
            chain.process(&first);
            chain.process(&second);
        });
        ASSERT_EQ(chain.arrived.size(), 2U);
        EXPECT_EQ(matrixOf(chain.arrived[0].record), Eigen::Matrix3d::Identity());
        EXPECT_LT(test::cornerError(matrixOf(chain.arrived[1].record), pair.truth), 0.2) << kind;
        EXPECT_GT(chain.arrived[1].record["inliers"].as<std::int32_t>(), 50);
        const auto edges = chain.arrived[1].frame->elements<std::uint16_t>();
        EXPECT_EQ((std::set<int>(edges.begin(), edges.end())), (std::set<int>{32768, 33023}));
        const std::string begin = std::string(kind) == "ccanny5old"
                                      ? "cnt 001 0.000,0.000  000  0.000,0.000 000\ncnt 002 "
                                  : std::string(kind) == "ccanny5" ? "unic:\n   0 1.00 0.00\nunic:\n"
                                                                   : "unic\ncnt 0.000d 1.000\nunic\n";
        EXPECT_EQ(text.substr(0, begin.size()), begin);
    }
}

TEST(MotionCanny, factorAndAngleOfCcanny5)
{
    const test::Image photo = examplePhoto("img0000.jpg");
    const std::vector<std::uint8_t> grey = greyOf(photo);
    // A quarter of a turn counter-clockwise as seen: the right border comes to lie at the top.
    std::vector<std::uint8_t> square(480 * 480), turned(480 * 480);
    for (std::size_t y = 0; y < 480; ++y)
        for (std::size_t x = 0; x < 480; ++x) {
            square[y * 480 + x] = grey[y * 640 + x + 80];
            turned[(479 - x) * 480 + y] = grey[y * 640 + x + 80];
        }
    Chain chain({"ccanny5"});
    const std::string text = printed([&] {
        chain.init(geometryOf(480, 480, {{"canny5", Struct{{"debug", 1}}}}));
    });
    EXPECT_EQ(text, "              0 RLEV\n              9 int(log2(W)+0.5)\n");
    chain.arrived.clear();
    const Array first = offsetFrame(square, 480), second = offsetFrame(turned, 480);
    const std::string said = printed([&] {
        chain.process(&first);
        chain.process(&second);
    });
    EXPECT_NE(said.find(" regions.size()\n"), std::string::npos);
    EXPECT_NEAR(double(chain.arrived[1].record["angle"].as<float>()), 90, 0.02);
    EXPECT_NEAR(double(chain.arrived[1].record["factor"].as<float>()), 1, 1e-4);
    EXPECT_EQ(thrownText([&] { chain.process(&first, {{"transform", 1}}); }), "[transform] already found");
}

}  // namespace
}  // namespace scansteps
