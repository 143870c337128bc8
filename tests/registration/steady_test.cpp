// In the steady state neither the edge detector nor the steps around it allocate memory: their buffers exist
// from the first frames on.

#include "edges/canny_frame16.h"
#include "support/count_allocations.h"
#include "support/images.h"
#include "support/test.h"

namespace scansteps {
namespace {

using namespace edges;
using namespace grey;

TEST(Steady, detectorTakesNoMemoryAfterTheFirstFrame)
{
    constexpr std::size_t kWidth = 1300, kHeight = 90;
    std::mt19937 random(8);
    std::vector<std::uint16_t> quiet(kWidth * kHeight, 40), busy(quiet.size()), frame;
    for (auto& sample : busy) sample = static_cast<std::uint16_t>(random());
    CannyWorkspace work;
    const auto detect = [&](int lowPasses) {
        cannyFrame16(frame, kWidth, kHeight, SampleCoding::Yuyv16, lowPasses, 50, 100, 3, work);
    };
    frame = quiet;
    EXPECT_GT(test::allocationsOf([&] { detect(3); }), 0);
    for (const int lowPasses : {0, 1, 3}) {
        frame = busy;  // many more edges than in the first frame
        EXPECT_EQ(test::allocationsOf([&] { detect(lowPasses); }), 0) << lowPasses;
    }
    FloatPlane plane, edges;
    frame16ToPlane(busy, plane, kWidth, kHeight, SampleCoding::Yuyv16);
    Canny(plane, edges, 50, 100, 3, work);
    EXPECT_EQ(test::allocationsOf([&] { Canny(plane, edges, 50, 100, 3, work); }), 0);
}

// Counts the live blocks when a record arrives.
class Witness final : public cChain
{
  public:
    void dispatch(varitype&) override { live = test::liveBlocks(); }
    long live = 0;
};

struct SteadyChain
{
    std::vector<std::string> kinds;
    Struct settings = {};
    int grows = 0;  // times that a struct of the record takes new memory for more entries
    const char* format = "u_1x16";
    bool video = false;
};

// A part of a photograph at a place that depends on `k`, in the format of the frame.
void drawView(Array& frame, const std::vector<std::uint8_t>& grey, int width, std::size_t k)
{
    std::size_t i = 0;
    for (std::size_t y = 0; y < frame.dim(1); ++y)
        for (std::size_t x = 0; x < std::size_t(width); ++x) {
            const std::uint8_t value = grey[(y + 150 + k % 2) * 640 + x + 200 + 2 * (k % 2)];
            if (frame.kind() == Kind::Ushort)
                frame.elements<std::uint16_t>()[i++] = std::uint16_t(32768 + value);
            else if (frame.kind() == Kind::Float)
                frame.elements<float>()[i++] = value;
            else
                for (int c = 0; c < 3; ++c) frame.elements<std::uint8_t>()[i++] = value;
        }
}

// Steps may allocate memory for the record that they forward, and only for that: every block allocated after
// the first frames is still in use when the record arrives, and is freed with the record.
TEST(Steady, stepsAllocateMemoryForTheRecordOnly)
{
    const TempDir folder;
    const Struct edges{{"OCV", Struct{{"lp0", 1}, {"trl", 60.0F}, {"trh", 160.0F}}}};
    Struct smooth = edges;  // more passes than are fused
    smooth["OCV"].getv<Struct>().set("lp0", 9);
    const Struct debug{{"canny5", Struct{{"debug", 1}}}}, reduce{{"down1", Struct{{"factor", 2}}}};
    const SteadyChain table[] = {
        {{"ccanny"}, smooth},
        {{"ccanny"}, edges, 0, "u_1x16", true},
        {{"ccanny2a"}, edges, 1},
        {{"ccanny2b"}, edges, 1},
        {{"ccanny2c"}, edges, 1},
        {{"ccanny2c"}, smooth, 1},
        {{"ccanny5old"}, {}, 1},
        {{"ccanny5"}, debug, 2},
        {{"ccanny7"}, debug, 1},
        {{"cedge"}},
        {{"cedge"}, {{"edge", Struct{{"lp0", 2}, {"order", 7}}}}},
        {{"cdeva"}},
        {{"cf2u"}, {}, 0, "f_1x32"},
        {{"cu2f", "cf2u"}},
        {{"crgb"}, {}, 0, "u_1x16", true},
        {{"cyuv", "crgb"}, {}, 0, "u_1x8"},
        {{"c3t1"}, {}, 0, "u_1x8"},
        {{"c3f"}, {}, 0, "u_1x8"},
        {{"c3f"}, {{"color", Struct{{"channel", 4}}}}, 0, "u_1x16", true},
        {{"cdown1"}, reduce},
        {{"cdown1"}, reduce, 0, "u_1x16", true},
        {{"c2ima"}, {{"combine", Struct{{"factor", 3}}}}},
        {{"cdump"},
         {{"dump", Struct{{"row", 7}, {"name", folder / "rows.raw"}}},
          {"numberOfViews", 1},
          {"write", Struct{{"behind", 0}}}}},
        {{"cbuff"}, {{"Buff", Struct{{"Size", 1}}}}},
        {{"cpu", "mfilt"}, {{"cpu", Struct{{"core", 0}}}, {"mfilt", Struct{{"val", 1}}}}},
    };
    constexpr int kWidth = 200, kHeight = 150;
    const std::vector<std::uint8_t> grey = greyOf(examplePhoto("img0000.jpg"));
    for (const SteadyChain& steps : table) {
        SCOPED_TRACE(steps.kinds.front());
        Chain chain(steps.kinds);
        Witness end;
        chain.step(steps.kinds.size() - 1).setNext(&end);
        std::vector<long> temporary, kept;
        temporary.reserve(8), kept.reserve(8);
        printed([&] {
            Struct settings = geometryOf(kWidth, kHeight, steps.settings);
            settings.set("dataFormat", steps.format);
            if (steps.video) settings.set("VideoFormat", "YUYV16");
            chain.init(std::move(settings));
            const FrameShape format = chainFrameShape(formatCode(steps.format), kWidth, kHeight);
            const Array shape(format.kind, format.rowLength, format.rows, format.planes);
            chain.process(&shape);
            const int handle = chain.hostHandle();
            for (std::size_t k = 0; k < 7; ++k) {  // two alternating views of a scene
                Array& frame = pixelsOf(handle);
                if (!frame.sameShape(shape)) frame = shape;
                drawView(frame, grey, kWidth, k);
                varitype record{Struct{{"eventType", event::kProcess}, {"handle", handle}, {"view", int(k)}}};
                const long before = end.live = test::liveBlocks();
                const long taken = test::allocationsOf([&] { chain.send(record); });
                if (k < 3) continue;
                temporary.push_back(taken - (end.live - before));
                kept.push_back(test::liveBlocks() - before);
            }
        });
        EXPECT_THAT(temporary, testing::Each(steps.grows));
        EXPECT_THAT(kept, testing::Each(0));
    }
}

}  // namespace
}  // namespace scansteps
