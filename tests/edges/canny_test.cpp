// Filters and detector: documented values, and the vector code against the reference, bit for bit.
#include "edges/canny.h"

#include "edges/canny_frame16.h"
#include "support/images.h"
#include "support/test.h"

namespace scansteps {
namespace {

using namespace edges;
using namespace grey;

FloatPlane planeOf(std::uint32_t width, std::uint32_t height, const std::function<float(int, int)>& value)
{
    FloatPlane plane(width, height);
    for (std::uint32_t y = 0; y < height; ++y)
        for (std::uint32_t x = 0; x < width; ++x) plane.row(y)[x] = value(int(x), int(y));
    return plane;
}

FloatPlane copyOf(const FloatPlane& plane)
{
    return planeOf(plane.width(), plane.height(), [&](int x, int y) { return plane.row(y)[x]; });
}

// The middle of a photograph.
FloatPlane photo(const std::string& name)
{
    const test::Image image = examplePhoto(name);
    const auto grey = greyOf(image);
    return planeOf(330, 260,
                   [&](int x, int y) { return grey[std::size_t((y + 70) * image.width + x + 130)]; });
}

// Equal bits, but any NaN equals any other.
void expectSame(const FloatPlane& a, const FloatPlane& b, const std::string& what)
{
    ASSERT_EQ(a.width(), b.width());
    ASSERT_EQ(a.height(), b.height());
    for (std::uint32_t y = 0; y < a.height(); ++y)
        for (std::uint32_t x = 0; x < a.width(); ++x) {
            const float p = a.row(y)[x], q = b.row(y)[x];
            ASSERT_TRUE((p == q && std::signbit(p) == std::signbit(q)) || (std::isnan(p) && std::isnan(q)))
                << what << " at " << x << ", " << y << ": " << p << " and " << q;
        }
}

std::size_t edgesIn(const FloatPlane& plane)
{
    std::size_t count = 0;
    for (std::uint32_t y = 0; y < plane.height(); ++y)
        for (const float v : plane.samples(y)) count += v == 255.0F;
    return count;
}

TEST(SobelKernels, knownOnes)
{
    std::vector<float> kx, ky;
    getSobelKernels(kx, ky, 1, 0, 3);
    EXPECT_THAT(kx, ElementsAre(-1, 0, 1));
    EXPECT_THAT(ky, ElementsAre(1, 2, 1));
    getSobelKernels(kx, ky, 1, 0, 5);
    EXPECT_THAT(kx, ElementsAre(-1, -2, 0, 2, 1));
    EXPECT_THAT(ky, ElementsAre(1, 4, 6, 4, 1));
    getSobelKernels(kx, ky, 0, 2, 7);
    EXPECT_THAT(kx, ElementsAre(1, 6, 15, 20, 15, 6, 1));
    EXPECT_THAT(ky, ElementsAre(1, 2, -1, -4, -1, 2, 1));
    getSobelKernels(kx, ky, 2, 0, 1);
    EXPECT_THAT(kx, ElementsAre(1, -2, 1));
    EXPECT_THAT(ky, ElementsAre(1));
    getSobelKernels(kx, ky, 1, 1, 31);
    EXPECT_EQ(kx.size(), 31U);
}

TEST(SobelKernels, badOnes)
{
    std::vector<float> kx, ky;
    for (const int size : {33, 2, 0, -2})
        EXPECT_EQ(thrownText([&] { getSobelKernels(kx, ky, 1, 0, size); }),
                  "The kernel size must be odd and not larger than 31");
    for (const auto& [dx, dy] : {std::pair{0, 0}, {-1, 2}, {2, -1}}) {
        const std::string text = thrownText([&, x = dx, y = dy] { getSobelKernels(kx, ky, x, y, 3); });
        EXPECT_THAT(text, HasSubstr("dx >= 0 && dy >= 0 && dx+dy > 0"));
        EXPECT_THAT(text, HasSubstr("mcanny"));
        EXPECT_THAT(text, HasSubstr(", line "));
    }
    EXPECT_THAT(thrownText([&] { getSobelKernels(kx, ky, 3, 0, 3); }), HasSubstr("ksize > order"));
    EXPECT_THAT(thrownText([&] { getSobelKernels(kx, ky, 1, 0, -1); }), HasSubstr("ksize > order"));
}

TEST(Filters, sobelOfARamp)
{
    const FloatPlane ramp = planeOf(20, 9, [](int x, int y) { return float(3 * x + 5 * y); });
    FloatPlane dx, dy;
    Sobel(ramp, dx, 1, 0, 3);
    Sobel(ramp, dy, 0, 1, 3);
    EXPECT_EQ(dx.row(4)[10], 24);
    EXPECT_EQ(dy.row(4)[10], 40);
    EXPECT_EQ(dx.row(4)[0], 12) << "the edge sample is repeated";
    EXPECT_EQ(dy.row(8)[10], 20);
}

TEST(Filters, lowPassOfASpot)
{
    for (const auto& [size, weight] :
         {std::pair{3, 0.11111111F}, {5, 0.04F}, {7, 0.020408165F}, {4, 1.0F / 16}}) {
        FloatPlane spot = planeOf(21, 19, [](int x, int y) { return x == 10 && y == 9 ? 1.0F : 0.0F; });
        lowPass(spot, size);
        for (int y = 0; y < 19; ++y)
            for (int x = 0; x < 21; ++x) {
                const bool inside = x - 10 >= -(size - 1) / 2 && x - 10 <= size / 2 &&
                                    y - 9 >= -(size - 1) / 2 && y - 9 <= size / 2;
                ASSERT_EQ(spot.row(y)[x], inside ? weight : 0.0F) << size << ": " << x << ", " << y;
            }
    }
    FloatPlane plane(4, 4);
    for (const int size : {0, -3, 65536}) EXPECT_THROW(lowPass(plane, size), const char*);
}

// Noise, optionally with special values, which reveal a different order of summation.
FloatPlane noise(std::uint32_t width, std::uint32_t height, std::mt19937& random, bool special)
{
    const float specials[] = {std::numeric_limits<float>::quiet_NaN(),
                              std::numeric_limits<float>::infinity(),
                              -std::numeric_limits<float>::infinity(),
                              3e38F,
                              -0.0F,
                              1e-42F,
                              33554436.0F,
                              -2.2e9F};
    std::normal_distribution<float> value(0, 3000);
    return planeOf(width, height, [&](int, int) {
        return special && random() % 29 == 0 ? specials[random() % 8] : value(random);
    });
}

TEST(Filters, vectorEqualsScalar)
{
    const std::vector<std::vector<float>> kernels = {{1},
                                                     {-1, 0, 1},
                                                     {1, 2, 1},
                                                     {1, -2, 1},
                                                     {1, 0, 1},
                                                     {2, 3},
                                                     {1, 2, 4},
                                                     {1, 4, 6, 4, 1},
                                                     {0, 0, 0},
                                                     {-2, -1, 0, 1, 2},
                                                     {1, 0, 3, 0, 1},
                                                     {.5F, .25F, .125F, 7, .125F, .25F, .5F},
                                                     std::vector<float>(11, 0.3F)};
    std::mt19937 random(5);
    for (const auto& [width, height] :
         {std::pair{1, 1}, {2, 3}, {3, 1}, {17, 2}, {64, 7}, {75, 12}, {130, 5}, {4100, 9}}) {
        const FloatPlane src = noise(width, height, random, true);
        for (std::size_t k = 0; k < kernels.size(); ++k) {
            const auto &kx = kernels[k], &ky = kernels[random() % kernels.size()];
            FloatPlane expected;
            edges::scalar::sepFilter(src, expected, kx, ky);
            forEachTarget([&] {
                FloatPlane out = copyOf(src);
                sepFilter(out, out, kx, ky);  // in place, the harder case
                expectSame(out, expected, "kernel " + std::to_string(k));
            });
        }
        for (const int size : {3, 5, 7})
            for (const int dx : {0, 1}) {
                FloatPlane expected;
                edges::scalar::Sobel(src, expected, dx, 1 - dx, size);
                test::forEachTarget([&] {
                    FloatPlane out = copyOf(src);
                    Sobel(out, out, dx, 1 - dx, size);
                    expectSame(out, expected, "Sobel " + std::to_string(size));
                });
            }
        for (const int size : {1, 2, 3, 4, 5, 6, 7, 9, 40}) {
            FloatPlane expected = copyOf(src);
            edges::scalar::lowPass(expected, size);
            forEachTarget([&] {
                FloatPlane out = copyOf(src);
                lowPass(out, size);
                expectSame(out, expected, "box " + std::to_string(size));
            });
        }
    }
    const std::vector<float> none;
    FloatPlane plane(3, 3);
    EXPECT_THROW(sepFilter(plane, plane, none, kernels[1]), const char*);
}

TEST(Canny, documentedBehaviour)
{
    FloatPlane step = planeOf(40, 30, [](int x, int) { return x < 20 ? 0.0F : 300.0F; });
    FloatPlane edges;
    for (const int aperture : {1, 2, 4, 9, -3, 0})
        EXPECT_EQ(thrownText([&] { Canny(step, edges, 1, 2, aperture); }), "aperture_size wrong");
    // |dx| is 1200 in columns 19 and 20; only the left one is greater than what lies before it.
    Canny(step, edges, 400, 900, 3);
    for (int y = 0; y < 30; ++y)
        for (int x = 0; x < 40; ++x) ASSERT_EQ(edges.row(y)[x], x == 19 ? 255 : 0) << x << ", " << y;
    const auto count = [&](double low, double high) {
        Canny(step, edges, low, high, 3);
        return edgesIn(edges);
    };
    EXPECT_EQ(count(900, 400), 30U) << "swapped";
    EXPECT_EQ(count(400, 1200), 0U) << "a seed is above the high threshold";
    EXPECT_EQ(count(400, 1199.9), 30U) << "thresholds are floored";
    EXPECT_EQ(count(1200, 1200), 0U);
    EXPECT_EQ(count(-0.5, 1), 30U);
    FloatPlane flat = planeOf(33, 20, [](int, int) { return 7.0F; });
    Canny(flat, edges, -5, -5, 3);
    EXPECT_EQ(edgesIn(edges), 0U) << "a constant has no maxima";
    Canny(step, step, 400, 900, 3);
    EXPECT_EQ(edgesIn(step), 30U) << "in place";
}

struct Setting
{
    double low, high;
};

// Whether a gradient magnitude is beyond what the vector code accepts.
bool isOutOfRange(const FloatPlane& plane, int aperture)
{
    FloatPlane dx, dy;
    edges::scalar::Sobel(plane, dx, 1, 0, aperture);
    edges::scalar::Sobel(plane, dy, 0, 1, aperture);
    for (std::size_t y = 0; y < plane.height(); ++y)
        for (std::size_t x = 0; x < plane.width(); ++x)
            if (!(std::abs(double{dx.row(y)[x]}) + std::abs(double{dy.row(y)[x]}) < 1073741824.0))
                return true;
    return false;
}

void compareDetectors(const FloatPlane& plane, const std::vector<Setting>& settings, const std::string& what,
                      CannyWorkspace& work)
{
    for (const int aperture : {3, 5, 7}) {
        if (isOutOfRange(plane, aperture)) {
            FloatPlane out;
            EXPECT_EQ(thrownText([&] { Canny(plane, out, 1, 2, aperture, work); }),
                      "derivative out of range");
            continue;
        }
        for (const Setting& s : settings) {
            const double scale = aperture == 3 ? 1 : aperture == 5 ? 12 : 160;
            FloatPlane expected;
            edges::scalar::Canny(plane, expected, s.low * scale, s.high * scale, aperture);
            forEachTarget([&] {
                FloatPlane out;
                Canny(plane, out, s.low * scale, s.high * scale, aperture, work);
                expectSame(out, expected, what + ", aperture " + std::to_string(aperture));
            });
        }
    }
}

const std::vector<Setting> kSettings = {{400, 900}, {60.5, 30.25}, {0, 0},          {-3, 200},
                                        {-1, -1},   {1e12, 5},     {-1e300, 1e300}, {NAN, 100}};

TEST(Canny, vectorEqualsScalarOnPhotographs)
{
    CannyWorkspace work;
    for (const char* name : {"photo_coffee.jpg", "photo_chelsea.jpg", "photo_rocket.jpg"}) {
        FloatPlane plane = photo(name);
        compareDetectors(plane, {{400, 900}, {20, 60}}, name, work);
        lowPass(plane, 3);  // fractions
        compareDetectors(plane, {{30.5, 80}}, name, work);
        FloatPlane edges;
        Canny(plane, edges, 30.5, 80, 3);
        EXPECT_GT(edgesIn(edges), 1000U) << name;
    }
}

// Smooth noise gives long winding edges; integers give ties; large values leave the range of the fast
// arithmetic, special and huge values that of the detector; widths up to two words give all kinds of
// remainders.
TEST(Canny, vectorEqualsScalarOnAdversarialPlanes)
{
    std::mt19937 random(2);
    CannyWorkspace work;
    for (std::uint32_t width = 1; width < 140; width += 1 + width / 20) {
        const auto height = static_cast<std::uint32_t>(1 + random() % 40);
        FloatPlane plane = noise(width, height, random, false);
        compareDetectors(plane, {{2000, 6000}, {-1, 9000}}, "noise", work);
        lowPass(plane, 3);
        compareDetectors(plane, {kSettings[random() % kSettings.size()]}, "smooth noise", work);
        const FloatPlane coarse = planeOf(width, height, [&](int, int) { return float(random() % 4 * 100); });
        compareDetectors(coarse, {{0, 500}, kSettings[random() % kSettings.size()]}, "ties", work);
        const float huge = std::pow(10.0F, float(random() % 8));
        const FloatPlane large =
            planeOf(width, height, [&](int, int) { return float(random() % 1000) * huge; });
        compareDetectors(large, {{1, 1000.0 * huge}, {2e9, 2.1e9}}, "large", work);
        compareDetectors(noise(width, height, random, true), {{400, 900}}, "special", work);
    }
}

// Images wider than a strip: pixels next to a seam need the neighbours beyond it.
TEST(Canny, stripsJoin)
{
    std::mt19937 random(6);
    CannyWorkspace work;
    for (const std::uint32_t width : {640U, 641U, 705U, 1280U, 1290U, 1921U}) {
        FloatPlane plane = noise(width, 24, random, false);
        lowPass(plane, 3);
        compareDetectors(plane, {{300, 1500}, {-1, 2000}}, "strips", work);
        for (int k = 0; k < 200; ++k) plane.row(random() % 24)[random() % width] = float(random() % 90000000);
        compareDetectors(plane, {{1e5, 9e7}}, "strips with large numbers", work);
    }
}

// Gradients at the angles where the direction changes, up to the largest numbers of the vector code, from a
// plane that is linear in blocks.
TEST(Canny, directionsAreExactNextToTheirLimits)
{
    CannyWorkspace work;
    for (const double tangent : {13573.0 / 32768, 79109.0 / 32768}) {
        for (const double scale : {1.0, 1000.0, 40000.0, 1000000.0, 100000000.0}) {
            std::mt19937 random(9);
            const FloatPlane plane = planeOf(90, 60, [&](int x, int y) {
                const double wobble = double(random() % 5) - 2;
                return float(scale * (x / 8 * 3 + y / 8 * 3 * tangent) + std::floor(wobble));
            });
            compareDetectors(plane, {{0, 0}, {scale, 3 * scale}}, "tangent", work);
        }
    }
}

// One candidate path through the whole image with a single seed at its end.
TEST(Canny, aLongSnakeIsFollowed)
{
    const FloatPlane snake = planeOf(200, 150, [](int x, int y) {
        const int turn = y / 10 % 2 == 0 ? 195 : 2;
        const bool on = y % 10 < 2 || (std::abs(x - turn) < 2);
        return on ? (x < 8 && y > 145 ? 60.0F : 20.0F) : 0.0F;
    });
    CannyWorkspace work;
    compareDetectors(snake, {{10, 100}, {10, 70}}, "snake", work);
}

TEST(CannyFrame16, equalsItsPartsAndTheScalarChain)
{
    std::mt19937 random(4);
    const test::Image image = examplePhoto("photo_coffee.jpg");
    const auto grey = greyOf(image);
    CannyWorkspace work;
    for (const auto& [width, height] :
         {std::pair{200, 150}, {61, 40}, {1, 9}, {130, 1}, {1303, 17}, {0, 5}, {5, 0}}) {
        std::vector<std::uint16_t> video(std::size_t(width * height)), offset(video.size()),
            wild(video.size());
        for (std::size_t k = 0; k < video.size(); ++k) {
            const unsigned luma = grey[k / width * image.width + k % width % image.width];
            video[k] = static_cast<std::uint16_t>(luma | random() << 8);
            offset[k] = static_cast<std::uint16_t>(32768 + 40 * luma);
            wild[k] = static_cast<std::uint16_t>(random() % 7 < 3 ? 0 : 65535);
        }
        for (const int passes : {-1, 0, 1, 2, 9}) {
            for (const int aperture : {3, 7}) {
                const double scale = aperture == 3 ? 1 : 160;
                const auto run = [&, width = width, height = height](const std::vector<std::uint16_t>& in,
                                                                     SampleCoding coding, double low,
                                                                     double high) {
                    auto expected = in;
                    edges::scalar::cannyFrame16(expected, width, height, coding, passes, low, high, aperture);
                    forEachTarget([&] {
                        auto out = in;
                        cannyFrame16(out, width, height, coding, passes, low, high, aperture, work);
                        ASSERT_EQ(out, expected) << width << " x " << height << ", " << passes << " passes";
                    });
                };
                run(video, SampleCoding::Yuyv16, 60 * scale, 30 * scale);
                run(offset, SampleCoding::Offset16, 400 * scale, 900 * scale);
                run(wild, SampleCoding::Offset16, 4000, 90000);
            }
        }
    }
    std::vector<std::uint16_t> small(11);
    EXPECT_THROW(cannyFrame16(small, 4, 3, SampleCoding::Yuyv16, 0, 1, 2, 3, work), const char*);
    EXPECT_EQ(thrownText([&] { cannyFrame16(small, 3, 3, SampleCoding::Yuyv16, 0, 1, 2, 4, work); }),
              "aperture_size wrong");
}

}  // namespace
}  // namespace scansteps
