// Corner response, features and descriptors: definitions, vector code.
#include "corners/corners.h"

#include "grey/grey_filters.h"
#include "support/images.h"
#include "support/test.h"

namespace scansteps {
namespace {

using namespace corners;
using namespace grey;

GreyImage randomImage(int width, int height, unsigned seed)
{
    std::mt19937 random(seed);
    GreyImage image;
    image.reshape(width, height);
    for (auto& v : image.samples) v = std::uint8_t(random() % 3 ? random() : 255);
    return image;
}

constexpr int kSizes[][2] = {{1, 1}, {2, 5}, {3, 3}, {17, 4}, {64, 9}, {131, 33}};

TEST(GreyFilters, vectorEqualsScalar)
{
    for (const auto& [width, height] : kSizes) {
        const GreyImage image = randomImage(width, height, 3);
        GreyImage expected[4], out[4];
        grey::scalar::binomial5(image.view(), expected[0]);
        grey::scalar::halve(image.view(), expected[1]);
        grey::scalar::twoThirds(image.view(), expected[2]);
        grey::scalar::boxMean(image.view(), 3, expected[3]);
        forEachTarget([&, width = width] {
            boxMean(image.view(), 3, out[3]);
            binomial5(image.view(), out[0]);
            halve(image.view(), out[1]);
            twoThirds(image.view(), out[2]);
            for (int i = 0; i < 4; ++i) EXPECT_EQ(out[i].samples, expected[i].samples) << i << " " << width;
        });
        EXPECT_EQ(out[2].width, width / 3 * 2);
    }
}

TEST(GreyFilters, boxMeanEqualsItsDefinition)
{
    const GreyImage image = randomImage(40, 23, 4);
    GreyImage out;
    EXPECT_EQ(boxMean(image.view(), 1, out).data, image.samples.data());
    for (const int size : {2, 3, 5, 31, 99}) {
        const int half = oddWindow(size) / 2;
        boxMean(image.view(), size, out);
        for (int y = 0; y < 23; ++y)
            for (int x = 0; x < 40; ++x) {
                int sum = 0;
                for (int dy = -half; dy <= half; ++dy)
                    for (int dx = -half; dx <= half; ++dx)
                        sum += image.samples[std::size_t(std::clamp(y + dy, 0, 22) * 40 +
                                                         std::clamp(x + dx, 0, 39))];
                const int area = (2 * half + 1) * (2 * half + 1);
                ASSERT_EQ(out.row(y)[x], (sum + area / 2) / area) << size << " " << x << " " << y;
            }
    }
}

TEST(CornerResponse, vectorEqualsScalar)
{
    for (const auto& [width, height] : kSizes)
        for (const CornerKind kind : {CornerKind::minEigenvalue, CornerKind::hessian})
            for (const int window : {1, 3, 5, 31}) {
                const GreyImage image = randomImage(width, height, 5);
                const ResponseSettings settings{kind, window == 5 ? 3 : 1, window};
                std::vector<float> expected(image.samples.size());
                std::vector<float> out(image.samples.size());
                corners::scalar::cornerResponse(image.view(), settings, expected);
                std::vector<Peak> expectedPeaks, peaks;
                corners::scalar::findPeaks(expected, width, height, 2, 10, expectedPeaks);
                forEachTarget([&, width = width, height = height] {
                    cornerResponse(image.view(), settings, out);
                    EXPECT_EQ(out, expected) << width << " " << window;
                    findPeaks(out, width, height, 2, 10, peaks);
                    EXPECT_EQ(peaks, expectedPeaks);
                });
            }
}

// The tensor by its definition, at a few places of a random image.
TEST(CornerResponse, smallerEigenvalueOfTheStructureTensor)
{
    const GreyImage image = randomImage(30, 20, 6);
    std::vector<float> out(600);
    cornerResponse(image.view(), {CornerKind::minEigenvalue, 1, 5}, out);
    const auto at = [&](int x, int y) { return int(image.samples[std::size_t(y * 30 + x)]); };
    for (int y = 4; y < 16; ++y)
        for (int x = 4; x < 26; ++x) {
            double xx = 0, yy = 0, xy = 0;
            for (int j = y - 2; j <= y + 2; ++j)
                for (int i = x - 2; i <= x + 2; ++i) {
                    double gx = 0, gy = 0;
                    for (int k = -1; k <= 1; ++k) {
                        gx += (2 - std::abs(k)) * (at(i + 1, j + k) - at(i - 1, j + k)) / 8.0;
                        gy += (2 - std::abs(k)) * (at(i + k, j + 1) - at(i + k, j - 1)) / 8.0;
                    }
                    xx += gx * gx / 25, yy += gy * gy / 25, xy += gx * gy / 25;
                }
            const double smaller = (xx + yy) / 2 - std::hypot((xx - yy) / 2, xy);
            ASSERT_NEAR(out[std::size_t(y * 30 + x)], smaller, 1e-3 * (xx + yy));
        }
}

// A square of twice the contrast, drawn with soft borders at a fraction of a pixel.
GreyImage softSquare(double left, double top, double side, double contrast)
{
    GreyImage image;
    image.reshape(160, 120);
    const auto cover = [](double from, double to, double at) {
        const auto ramp = [](double t) { return std::clamp(t / 2 + 0.5, 0.0, 1.0); };
        return ramp(at - from) * ramp(to - at);
    };
    for (int y = 0; y < 120; ++y)
        for (int x = 0; x < 160; ++x)
            image.row(y)[x] = std::uint8_t(
                std::lround(60 + contrast * cover(left, left + side, x) * cover(top, top + side, y)));
    return image;
}

TEST(Corners, movesWithTheImageByFractionsOfAPixel)
{
    CornerSettings settings;
    settings.levels = 1;
    CornerDetector detector;
    const auto first = detector.detect(softSquare(50, 40, 40, 100).view(), settings);
    ASSERT_EQ(first.size(), 4U);
    EXPECT_NEAR(first[0].score, 137, 3);
    for (const double shift : {0.25, 0.5, 0.75}) {
        const auto moved = detector.detect(softSquare(50 + shift, 40 - shift, 40, 100).view(), settings);
        ASSERT_EQ(moved.size(), 4U);
        for (const CornerFeature& f : first) {
            float nearest = 1e9F;
            for (const CornerFeature& g : moved)
                nearest = std::min(nearest, std::hypot(g.x - f.x - float(shift), g.y - f.y + float(shift)));
            EXPECT_LT(nearest, 0.2F) << shift;
        }
    }
}

TEST(Corners, bucketsAndOrder)
{
    const test::Image photo = examplePhoto("img0003.jpg");
    const std::vector<std::uint8_t> grey = greyOf(photo);
    const GreyView view{grey.data(), photo.width, photo.height, photo.width};
    CornerDetector detector;
    CornerSettings settings;
    settings.density = 2;
    const std::vector<CornerFeature> found = detector.detect(view, settings);
    EXPECT_GT(found.size(), 300U);
    std::vector<int> count(10000);
    for (std::size_t i = 0; i < found.size(); ++i) {
        EXPECT_GT(found[i].score, settings.threshold * 0.999F);
        EXPECT_LT(found[i].score, 1000.0F);
        EXPECT_EQ(found[i].bits[4], 0U);
        if (i > 0) {
            EXPECT_LE(found[i].score, found[i - 1].score);
        }
        EXPECT_LE(++count[std::size_t(int(found[i].y) / kBucketSize * 100 + int(found[i].x) / kBucketSize)],
                  2);
    }
    settings.bucketing = false;
    EXPECT_GT(detector.detect(view, settings).size(), found.size());
    settings.threshold = 0;  // every feature; the number is still bounded
    EXPECT_LE(detector.detect(view, settings).size(), kMaxFeatures);
    settings.bucketing = true;
    settings.threshold = 40;
    const auto again = detector.detect(view, settings);
    ASSERT_EQ(again.size(), found.size());
    for (std::size_t i = 0; i < found.size(); ++i) EXPECT_EQ(again[i].bits, found[i].bits);
    EXPECT_TRUE(detector.detect({grey.data(), 20, 20, 640}, settings).empty());
    EXPECT_TRUE(detector.detect({}, settings).empty());
}

TEST(Corners, orientationTurnsWithTheImage)
{
    const GreyImage upright = softSquare(80, 60, 60, 100);
    EXPECT_NEAR(orientationOf(upright.view(), 80, 60), std::numbers::pi / 4, 0.02);
    EXPECT_NEAR(orientationOf(upright.view(), 140, 60), 3 * std::numbers::pi / 4, 0.02);
}

}  // namespace
}  // namespace scansteps
