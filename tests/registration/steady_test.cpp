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

// Counts events and keeps nothing.
class End final : public cChain
{
  public:
    void dispatch(varitype&) override { ++frames; }
    int frames = 0;
};

struct SteadySteps
{
    std::vector<std::string> kinds;
    const char* format;  // of the frames that go in
    bool video = false;
    int copies = 1;  // of the record per frame, in the whole chain
    Struct nested = {};

    std::string name() const
    {
        std::string text = video ? "video" : "";
        for (const auto& kind : kinds) text += " " + kind;
        return text;
    }
};

constexpr int kSide = 64;

// A square that moves from frame to frame: the number of edges stays the same.
void drawFrame(Array& frame, std::size_t index)
{
    std::ranges::fill(frame.bytes(), std::byte{0});
    const std::size_t rowBytes = frame.byteSize() / frame.dim(1), pixel = rowBytes / kSide;
    for (std::size_t y = 20; y < 40; ++y)
        std::fill_n(frame.data() + y * rowBytes + (10 + index) * pixel, 20 * pixel, std::byte{100});
}

Array emptyFrame(const std::string& format)
{
    const FrameShape shape = chainFrameShape(formatCode(format), kSide, kSide);
    return {shape.kind, shape.rowLength, shape.rows, shape.planes};
}

/// Allocations per frame from the third on, without those for copies of the record.
std::vector<long> allocationsAFrame(const SteadySteps& steps)
{
    Chain chain(steps.kinds);
    End end;
    chain.step(steps.kinds.size() - 1).setNext(&end);
    Struct settings = steps.nested;
    settings.set("dataX", kSide);
    settings.set("dataY", kSide);
    settings.set("dataFormat", steps.format);
    settings.set("numberOfViews", 1);
    if (steps.video) settings.set("VideoFormat", "YUYV16");
    chain.init(std::move(settings));
    const Array shape = emptyFrame(steps.format);
    chain.process(&shape);  // the first frame; makes the host's handle
    const int handle = chain.hostHandle();
    std::vector<long> counts;
    for (std::size_t k = 0; k < 8; ++k) {
        Array& frame = pixelsOf(handle);
        if (!frame.sameShape(shape)) frame = shape;
        drawFrame(frame, k);
        varitype record{Struct{{"eventType", event::kProcess}, {"handle", handle}, {"view", int(k)}}};
        const long copy = test::allocationsOf([&] { copyRecord(record); });
        const long all = test::allocationsOf([&] { chain.send(record); });
        if (k > 0) counts.push_back(all - steps.copies * copy);
    }
    EXPECT_GT(end.frames, 0);
    return counts;
}

// Counts the live blocks when a record arrives.
class Witness final : public cChain
{
  public:
    void dispatch(varitype&) override { live = test::liveBlocks(); }
    long live = 0;
};

struct RecordingStep
{
    const char* kind;
    Struct settings = {};
    int grows = 1;  // times that a struct of the record takes new memory for more entries
};

// Steps that add to the record may allocate memory for that only: every block allocated after the first
// frames is still in use when the record arrives, and is freed with the record.
TEST(Steady, stepsThatAddToTheRecordTakeNoMemoryButTheRecords)
{
    const Struct edges{{"OCV", Struct{{"lp0", 1}, {"trl", 60.0F}, {"trh", 160.0F}}}};
    Struct smooth = edges;  // more passes than are fused
    smooth["OCV"].getv<Struct>().set("lp0", 9);
    const Struct debug{{"canny5", Struct{{"debug", 1}}}};
    const RecordingStep table[] = {
        {"ccanny", smooth, 0}, {"ccanny2a", edges},
        {"ccanny2b", edges},   {"ccanny2c", edges},
        {"ccanny2c", smooth},  {"ccanny5old", {}, 1},
        {"ccanny5", debug, 2}, {"ccanny7", debug, 1},
        {"cedge", {}, 0},      {"cedge", {{"edge", Struct{{"lp0", 2}, {"order", 7}}}}, 0},
        {"cdeva", {}, 0},
    };
    constexpr int kWidth = 200, kHeight = 150;
    const test::Image photo = examplePhoto("img0000.jpg");
    const std::vector<std::uint8_t> grey = greyOf(photo);
    for (const RecordingStep& step : table) {
        SCOPED_TRACE(step.kind);
        Chain chain({step.kind});
        Witness end;
        chain.step(0).setNext(&end);
        std::vector<long> temporary, kept;
        temporary.reserve(8), kept.reserve(8);
        printed([&] {
            chain.init(geometryOf(kWidth, kHeight, step.settings));
            const Array shape(Kind::Ushort, kWidth, kHeight);
            chain.process(&shape);
            const int handle = chain.hostHandle();
            for (std::size_t k = 0; k < 7; ++k) {  // two alternating views of a scene
                Array& frame = pixelsOf(handle);
                if (!frame.sameShape(shape)) frame = shape;
                for (std::size_t y = 0; y < kHeight; ++y)
                    for (std::size_t x = 0; x < kWidth; ++x)
                        frame.elements<std::uint16_t>()[y * kWidth + x] =
                            std::uint16_t(32768 + grey[(y + 150 + k % 2) * 640 + x + 200 + 2 * (k % 2)]);
                varitype record{Struct{{"eventType", event::kProcess}, {"handle", handle}, {"view", int(k)}}};
                const long before = test::liveBlocks();
                const long taken = test::allocationsOf([&] { chain.send(record); });
                if (k < 3) continue;
                temporary.push_back(taken - (end.live - before));
                kept.push_back(test::liveBlocks() - before);
            }
        });
        EXPECT_THAT(temporary, testing::Each(step.grows));
        EXPECT_THAT(kept, testing::Each(0));
    }
}

TEST(Steady, stepsTakeNoMemoryAfterTheSecondFrameButForTheCopyOfTheRecord)
{
    const TempDir folder;
    const Struct reduce{{"down1", Struct{{"factor", 2}}}}, combine{{"combine", Struct{{"factor", 3}}}};
    const Struct dump{{"dump", Struct{{"row", 7}, {"name", folder / "rows.raw"}}}};
    const Struct buffer{{"Buff", Struct{{"Size", 2}}}};
    const Struct edges{{"OCV", Struct{{"lp0", 1}, {"trl", 20.0F}, {"trh", 60.0F}}}};
    const SteadySteps table[] = {
        {{"cf2u"}, "f_1x32"},
        {{"cu2f"}, "u_1x16"},
        {{"cu2f", "cf2u"}, "u_1x16", false, 2},
        {{"crgb"}, "u_1x16", true},
        {{"cyuv"}, "u_1x8"},
        {{"cyuv", "crgb"}, "u_1x8", false, 2},
        {{"c3t1"}, "u_1x8"},
        {{"c3f"}, "u_1x8"},
        {{"c3f"}, "u_1x16", true},
        {{"c3f"}, "u_1x16", true, 1, {{"color", Struct{{"channel", 4}}}}},
        {{"cdown1"}, "u_1x16", false, 1, reduce},
        {{"cdown1"}, "u_1x16", true, 1, reduce},
        {{"ccanny"}, "u_1x16", false, 1, edges},
        {{"ccanny"}, "u_1x16", true, 1, edges},
        {{"c2ima"}, "u_1x16", false, 1, combine},
        {{"cdump"}, "u_1x16", false, 0, dump},
        {{"cbuff"}, "u_1x16", false, 1, buffer},
        {{"cpu", "mfilt"}, "u_1x16", false, 0, {{"cpu", Struct{{"core", 0}}}, {"mfilt", Struct{{"val", 1}}}}},
    };
    for (const SteadySteps& steps : table) {
        std::vector<long> counts;
        printed([&] { counts = allocationsAFrame(steps); });
        EXPECT_THAT(counts, testing::Each(0)) << steps.name();
    }
}

}  // namespace
}  // namespace scansteps
