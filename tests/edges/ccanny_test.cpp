// Step ccanny in a chain: defaults, thresholds, and errors.

#include "edges/canny.h"

#include "support/test.h"

namespace scansteps {
namespace {

using namespace edges;

// A bright square on a dark ground, offset 16-bit or luma in the low byte.
Array squareFrame(std::uint16_t dark, std::uint16_t bright)
{
    Array frame(Kind::Ushort, 48, 40);
    const auto samples = frame.elements<std::uint16_t>();
    for (std::size_t y = 0; y < 40; ++y)
        for (std::size_t x = 0; x < 48; ++x)
            samples[y * 48 + x] = x >= 12 && x < 36 && y >= 10 && y < 30 ? bright : dark;
    return frame;
}

std::set<int> valuesIn(const Array& frame)
{
    const auto samples = frame.elements<std::uint16_t>();
    return {samples.begin(), samples.end()};
}

Struct geometry(Struct more = {})
{
    return geometryOf(48, 40, std::move(more));
}

TEST(CpuCanny, defaultsPrintingAndTheEdgeFrame)
{
    Chain chain({"ccanny"});
    EXPECT_EQ(chain.init(geometry()), event::kInit);
    const Array frame = squareFrame(32768, 32768 + 250);
    const std::string text = printed([&] { chain.process(&frame, {{"mark", 1}}); });
    EXPECT_EQ(text,
              "              3 order\n            900 trh\n            400 trl\n"
              "             48 a.getX()\n             40 a.getY()\n");
    EXPECT_EQ(valuesIn(*chain.arrived.back().frame), (std::set<int>{32768, 33023}));
    EXPECT_EQ(chain.arrived.back().record["mark"].as<std::int32_t>(), 1);

    printed([&] {
        chain.process(&*chain.arrived.back().frame);
    });  // edges of height 255 stay below the threshold of 900
    const Array flat = squareFrame(40000, 40000);
    printed([&] { chain.process(&flat); });
    EXPECT_EQ(valuesIn(*chain.arrived.back().frame), std::set<int>{32768});
}

TEST(CpuCanny, swappedThresholdsAndVideoSamples)
{
    const auto edges = [](const Array& frame, Struct settings) {
        Chain chain({"ccanny"});
        chain.init(geometry(std::move(settings)));
        printed([&] { chain.process(&frame); });
        const auto samples = chain.arrived.back().frame->elements<std::uint16_t>();
        return std::vector<std::uint16_t>(samples.begin(), samples.end());
    };
    const Array frame = squareFrame(32768 + 20, 32768 + 200);
    const auto usual = edges(frame, {{"OCV", Struct{{"trl", 100.0F}, {"trh", 300.0F}, {"lp0", 1}}}});
    EXPECT_NE(std::ranges::count(usual, 33023), 0);
    EXPECT_EQ(usual, edges(frame, {{"OCV", Struct{{"trl", 300.0F}, {"trh", 100.0F}, {"lp0", 1}}}}));
    // The same luma with any chroma in the high byte.
    const Array video = squareFrame(0x7F00 + 20, 0x1200 + 200);
    EXPECT_EQ(usual, edges(video, {{"VideoFormat", "YUYV16"},
                                   {"OCV", Struct{{"trl", 100.0F}, {"trh", 300.0F}, {"lp0", 1}}}}));
}

TEST(CpuCanny, errorsReachTheHost)
{
    Chain chain({"ccanny"});
    const Array frame = squareFrame(1, 2);
    chain.init(geometry({{"OCV", Struct{{"order", 4}}}}));
    EXPECT_EQ(printed([&] { EXPECT_EQ(thrownText([&] { chain.process(&frame); }), "aperture_size wrong"); }),
              "              4 order\n            900 trh\n            400 trl\n");
    chain.init({{"dataX", 4}, {"dataY", 4}});
    // A frame of another kind that is large enough is taken for 16-bit samples.
    const Array floats(Kind::Float, 4, 4);
    printed([&] { chain.process(&floats); });
    EXPECT_EQ(chain.arrived.back().frame->kind(), Kind::Float);
}

}  // namespace
}  // namespace scansteps
