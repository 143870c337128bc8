// Filters of whole frames, and the steps c3f, cedge, cdeva and csegment on a photograph.
#include <fmt/format.h>

#include "edges/gradient_frame.h"
#include "edges/gradient_length.h"
#include "grey/grey_filters.h"
#include "grey/grey_from_frame.h"
#include "grey/local_deviation.h"
#include "regions/mser.h"
#include "support/images.h"
#include "support/test.h"

namespace scansteps {
namespace {

using namespace edges;
using namespace grey;
using namespace regions;

TEST(LocalDeviation, equalsItsDefinition)
{
    std::mt19937 random(2);
    for (const auto& [width, height] : {std::pair{1, 1}, {7, 3}, {40, 25}, {3, 60}})
        for (const int size : {1, 3, 6, 31}) {
            std::vector<std::uint16_t> frame(std::size_t(width * height));
            for (auto& v : frame) v = std::uint16_t(random() % 7 ? 32768 + random() % 200 : random());
            std::vector<std::uint16_t> out = frame;
            localDeviation(out, width, height, SampleCoding::Offset16, size, 1.5F);
            const int half = (size | 1) / 2;
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x) {
                    double n = 0, sum = 0, square = 0;
                    for (int dy = -half; dy <= half; ++dy)
                        for (int dx = -half; dx <= half; ++dx) {
                            const double v = frame[std::size_t(std::clamp(y + dy, 0, height - 1) * width +
                                                               std::clamp(x + dx, 0, width - 1))] -
                                             32768.0;
                            n += 1, sum += v, square += v * v;
                        }
                    const double deviation = std::sqrt(std::max(n * square - sum * sum, 0.0)) / n * 1.5;
                    ASSERT_NEAR(out[std::size_t(y * width + x)],
                                32768 + std::min(std::floor(deviation), 32767.0), 1)
                        << width << " " << size;
                }
        }
    std::vector<std::uint16_t> few(3);
    EXPECT_THROW(localDeviation(few, 2, 2, SampleCoding::Offset16, 3, 1), const char*);
}

TEST(LocalDeviation, vectorEqualsScalar)
{
    std::mt19937 random(6);
    for (const auto& [width, height] : {std::pair{1, 1}, {5, 2}, {77, 9}, {640, 12}})
        for (const SampleCoding coding : {SampleCoding::Offset16, SampleCoding::Yuyv16})
            for (const float gain : {1.0F, 300.0F, -2.0F, std::numeric_limits<float>::quiet_NaN()}) {
                std::vector<std::uint16_t> frame(std::size_t(width * height));
                for (auto& v : frame) v = std::uint16_t(random());
                std::vector<std::uint16_t> expected = frame;
                grey::scalar::localDeviation(expected, width, height, coding, 5, gain);
                forEachTarget([&, width = width, height = height] {
                    std::vector<std::uint16_t> out = frame;
                    localDeviation(out, width, height, coding, 5, gain);
                    EXPECT_EQ(out, expected) << width << " " << gain;
                });
            }
}

TEST(GradientLength, vectorEqualsScalar)
{
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    std::mt19937 random(7);
    std::vector<float> dx(203), dy(203);
    for (std::size_t i = 0; i < dx.size(); ++i) {
        dx[i] = float(int(random() % 4000) - 2000) / 3;
        dy[i] = float(int(random() % 4000) - 2000) / 7;
    }
    dx[3] = kInfinity, dy[5] = std::numeric_limits<float>::quiet_NaN(), dx[40] = 1e30F, dx[41] = dy[41] = 0;
    for (const float most : {500.0F, kInfinity})
        for (const std::size_t count : {std::size_t{0}, std::size_t{7}, dx.size()}) {
            std::vector<float> expected(count), out(count);
            edges::scalar::gradientLengths({dx.data(), count}, {dy.data(), count}, 0.7F, most, expected);
            forEachTarget([&] {
                gradientLengths({dx.data(), count}, {dy.data(), count}, 0.7F, most, out);
                EXPECT_EQ(out, expected) << most;
            });
        }
}

TEST(GradientFrame, aRampHasTheSameSlopeForEveryAperture)
{
    for (const int aperture : {3, 5, 7}) {
        std::vector<std::uint16_t> frame(40 * 30);
        for (std::size_t i = 0; i < frame.size(); ++i)
            frame[i] = std::uint16_t(32768 + 3 * (i % 40) + 4 * (i / 40));
        FloatPlane dx, dy;
        gradientFrame16(frame, 40, 30, SampleCoding::Offset16, 1, aperture, dx, dy);
        EXPECT_NEAR(frame[15 * 40 + 20], 32768 + 8 * 5, 1) << aperture;
    }
    std::vector<std::uint16_t> extreme(100, 0);
    std::fill_n(extreme.begin(), 50, std::uint16_t{65535});
    FloatPlane dx, dy;
    gradientFrame16(extreme, 10, 10, SampleCoding::Offset16, 0, 3, dx, dy);
    EXPECT_EQ(extreme[55], 65535);
    EXPECT_THROW(gradientFrame16(extreme, 10, 10, SampleCoding::Offset16, 0, 4, dx, dy), const char*);
}

// Large frames are processed in bands, whose seams must not be visible.
TEST(GradientFrame, bandsGiveWhatTheWholeFrameGives)
{
    constexpr int kWidth = 701, kHeight = 1000;
    std::mt19937 random(5);
    std::vector<std::uint16_t> frame(kWidth * kHeight);
    for (auto& sample : frame) sample = std::uint16_t(32768 + random() % 3000);
    FloatPlane dx, dy;
    for (const auto& [lowPasses, aperture] : {std::pair{0, 3}, {0, 7}, {3, 5}, {60, 3}}) {
        FloatPlane image, alongX, alongY;
        frame16ToPlane(frame, image, kWidth, kHeight, SampleCoding::Offset16);
        for (int k = 0; k < lowPasses; ++k) lowPass(image, 3);
        Sobel(image, alongX, 1, 0, aperture);
        Sobel(image, alongY, 0, 1, aperture);
        const float factor = aperture == 3 ? 1 : aperture == 5 ? 8.0F / 128 : 8.0F / 2048;
        for (std::size_t y = 0; y < kHeight; ++y)
            edges::scalar::gradientLengths(alongX.samples(y), alongY.samples(y), factor, 32767,
                                           alongY.samples(y));
        std::vector<std::uint16_t> expected(frame.size()), out = frame;
        edges::scalar::edgesToFrame16(alongY, expected);
        gradientFrame16(out, kWidth, kHeight, SampleCoding::Offset16, lowPasses, aperture, dx, dy);
        EXPECT_TRUE(out == expected) << lowPasses << " low passes, aperture " << aperture;
    }
}

TEST(FrameBytes, samplesAreLimitedOrStretched)
{
    const std::vector<std::uint16_t> frame{0, 32768, 32768 + 100, 32768 + 255, 32768 + 300, 65535};
    GreyImage out;
    greyFromFrame(frame, 6, 1, SampleCoding::Offset16, out);
    EXPECT_EQ(out.samples, (std::vector<std::uint8_t>{0, 0, 100, 255, 255, 255}));
    greyFromFrame(frame, 3, 2, SampleCoding::Yuyv16, out);
    EXPECT_EQ(out.samples, (std::vector<std::uint8_t>{0, 0, 100, 255, 44, 255}));
    stretchedGreyFromFrame(std::vector<std::uint16_t>{32868, 32868, 33068, 32968}, 2, 2,
                           SampleCoding::Offset16, out);
    EXPECT_EQ(out.samples, (std::vector<std::uint8_t>{0, 0, 255, 128}));
    EXPECT_THROW(greyFromFrame(frame, 7, 1, SampleCoding::Offset16, out), const char*);
}

TEST(FilterSteps, onAPhotograph)
{
    const std::vector<std::uint8_t> grey = greyOf(examplePhoto("img0000.jpg"));
    const Array frame = videoFrame(grey, 640);
    for (const char* kind : {"c3f", "cedge", "cdeva"}) {
        // A mismatch reported by a later step reaches the host's own record.
        EXPECT_EQ(Chain({kind, "cf2u"}).init(geometryOf(640, 480)), event::kMismatch) << kind;
        if (std::string(kind) == "c3f") continue;
        Chain chain({kind});
        chain.init(geometryOf(640, 480, {{"VideoFormat", "YUYV16"}}));
        EXPECT_FALSE(chain.arrived.at(0).record.has("VideoFormat"));
        chain.arrived.clear();
        chain.process(&frame);
        std::vector<std::uint16_t> expected(frame.elements<std::uint16_t>().begin(),
                                            frame.elements<std::uint16_t>().end());
        FloatPlane dx, dy;
        if (std::string(kind) == "cedge")
            gradientFrame16(expected, 640, 480, SampleCoding::Yuyv16, 0, 3, dx, dy);
        else
            localDeviation(expected, 640, 480, SampleCoding::Yuyv16, 7, 1);
        EXPECT_TRUE(std::ranges::equal(chain.arrived.at(0).frame->elements<std::uint16_t>(), expected));
    }
}

TEST(Segment, tableAndLabelsOfAPhotograph)
{
    const std::vector<std::uint8_t> grey = greyOf(examplePhoto("photo_rocket.jpg"));
    const int height = int(grey.size() / 640);
    const Array frame = offsetFrame(grey, 640);
    for (const int bright : {0, 1}) {
        Chain chain({"csegment"});
        chain.init(geometryOf(640, height, {{"segment", Struct{{"labels", 1}, {"bright", bright}}}}));
        chain.arrived.clear();
        const std::string text = printed([&] { chain.process(&frame); });
        const Array& table = chain.arrived[0].record["regions"].as<Array>();
        ASSERT_EQ(table.dim(0), 8U);
        const std::uint32_t count = table.dim(1);
        EXPECT_GT(count, 100U);
        EXPECT_EQ(text, fmt::format("{:15} segments.size()\n", count));
        const float* rows = table.elements<float>().data();
        std::vector<double> labelled(count + 1);
        for (const std::uint16_t v : chain.arrived[0].frame->elements<std::uint16_t>()) {
            ASSERT_GE(v, 32768);
            ASSERT_LE(v - 32768U, count);
            ++labelled[v - 32768U];
        }
        double fullyLabelled = 0;
        for (std::uint32_t i = 0; i < count; ++i) {
            const float* r = rows + 8 * i;
            EXPECT_GE(r[2], 9);
            EXPECT_LE(r[2], 0.2 * 640 * height);
            EXPECT_GE(r[3], r[4]);
            EXPECT_LE(std::abs(r[5]), 90);
            EXPECT_LE(r[7], 0.7F);
            EXPECT_LE(labelled[i + 1], double(r[2]));
            fullyLabelled += labelled[i + 1] == double(r[2]);
        }
        EXPECT_GT(fullyLabelled, count / 4);  // the innermost ones
    }
    Chain small({"csegment"});
    small.init(geometryOf(6, 7));
    const Array few(Kind::Ushort, 6, 7);
    EXPECT_EQ(printed([&] { small.process(&few); }), "              0 segments.size()\n");
}

}  // namespace
}  // namespace scansteps
