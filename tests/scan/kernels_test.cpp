// Decoding, triangulation and meshing: vector against scalar versions, and closed forms.
#include <plugins/scan/gray_decode.h>
#include <plugins/scan/grid_mesh.h>
#include <plugins/scan/patterns.h>
#include <plugins/scan/series_check.h>
#include <plugins/scan/triangulate.h>

#include <Eigen/Geometry>

#include "support/test.h"

namespace scansteps::scan {
namespace {

constexpr int kWidth = 203, kHeight = 40;

// Pictures of a surface that shows projector column 20 + x, with noise; the brightness falls with y.
struct Fakes
{
    PatternSeries series = makePatternSeries(256, 64, 16, 8);
    std::vector<std::vector<std::int16_t>> pictures;

    explicit Fakes(double noise = 2)
    {
        std::mt19937 random(7);
        std::normal_distribution<double> normal(0, noise);
        for (const Pattern& pattern : series.patterns) {
            auto& picture = pictures.emplace_back();
            for (int y = 0; y < kHeight; ++y)
                for (int x = 0; x < kWidth; ++x) {
                    const double light = patternLevel(series, pattern, x + 20) / 255.0;
                    const double grey = 20 + light * (200 - 4.9 * y) + normal(random);
                    picture.push_back(std::int16_t(4 * std::clamp(std::lround(grey), 0L, 255L)));
                }
        }
    }
    CodedPictures coded() const
    {
        CodedPictures coded;
        coded.white = pictures[0].data();
        coded.black = pictures[1].data();
        for (std::size_t b = 0; b < 4; ++b) {
            coded.bits.push_back(pictures[2 + 2 * b].data());
            coded.inverses.push_back(pictures[3 + 2 * b].data());
        }
        for (std::size_t k = 0; k < 8; ++k) coded.shifts.push_back(pictures[10 + k].data());
        coded.period = 16;
        coded.extent = 256;
        return coded;
    }
    std::string fault() const { return seriesFault(series, pictures, kWidth, kHeight); }
};

struct Decoded
{
    std::vector<float> position = std::vector<float>(kWidth * kHeight), quality = position;
    std::vector<std::uint8_t> discard = std::vector<std::uint8_t>(kWidth * kHeight);
    DecodedPixels out() { return {position, quality, discard}; }
};

template <class T>
bool sameBits(const std::vector<T>& a, const std::vector<T>& b)
{
    return std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0;
}

TEST(ScanDecoding, findsTheColumnsWithTheErrorThatItExpects)
{
    const Fakes fakes;
    DecodeLimits limits;
    limits.noise = estimateNoise(fakes.coded(), fakes.pictures[0].size());
    EXPECT_NEAR(limits.noise.constant + 100 * limits.noise.gain, 4 + 1.0 / 12, 0.4);
    Decoded expected;
    scalar::decodeSeries(fakes.coded(), limits, expected.out());
    forEachTarget([&] {
        Decoded got;
        decodeSeries(fakes.coded(), limits, got.out());
        EXPECT_TRUE(sameBits(got.position, expected.position) && sameBits(got.quality, expected.quality));
        EXPECT_TRUE(got.discard == expected.discard);
    });
    // A bit that noise turned over in a dark row puts single pixels a period off.
    discardIsolated(kWidth, kHeight, 16, expected.out());
    double ratio = 0;
    int known = 0, far = 0;
    for (int i = 0; i < kWidth * kHeight; ++i) {
        if (std::isnan(expected.position[i])) continue;
        const double error = double(expected.position[i]) - (20 + i % kWidth);
        far += std::abs(error) > 2;
        ratio += std::pow(error / expected.quality[i], 2);
        ++known;
    }
    EXPECT_EQ(far, 0);
    EXPECT_NEAR(std::sqrt(ratio / known), 1, 0.05);
    // Amplitudes below four times the noise are weak: rows 38 and on.
    EXPECT_NEAR(known, kWidth * 38, kWidth);
}

TEST(ScanDecoding, namesWhatIsWrongWithASeries)
{
    EXPECT_EQ(Fakes().fault(), "");
    const auto faultAfter = [](auto change) {
        Fakes fakes;
        change(fakes.pictures);
        return fakes.fault();
    };
    using Pictures = std::vector<std::vector<std::int16_t>>;
    EXPECT_THAT(
        faultAfter([](Pictures& p) { std::swap(p[4], p[5]); }),
        HasSubstr("pictures 5 (bit 2 of the columns) and 6 (bit 2 of the columns, inverse) are exchanged"));
    EXPECT_THAT(faultAfter([](Pictures& p) { std::swap(p[11], p[14]); }), HasSubstr("pictures 12 "));
    EXPECT_THAT(faultAfter([](Pictures& p) { p.erase(p.begin() + 6); }), HasSubstr("picture 7 (bit 1"));
    EXPECT_THAT(faultAfter([](Pictures& p) { std::rotate(p.begin(), p.begin() + 15, p.end()); }),
                HasSubstr("the series begins with picture 4"));
    EXPECT_THAT(faultAfter([](Pictures& p) {
                    p.insert(p.begin() + 4, p[3]);
                    p.pop_back();
                }),
                HasSubstr("repeats another"));
    EXPECT_THAT(faultAfter([](Pictures& p) {
                    // A dark stripe that is elsewhere from picture 7 on.
                    for (std::size_t n = 0; n < p.size(); ++n)
                        for (int i = 0; i < kWidth * kHeight; ++i)
                            if ((i % kWidth + (n < 6 ? 0 : 30)) % 60 < 30) p[n][std::size_t(i)] /= 3;
                }),
                HasSubstr("changed before picture 8"));
}

Projector turnedProjector(bool hasDistortion)
{
    Projector projector;
    projector.size = {1280, 800};
    projector.focal = {2500, 2500};
    projector.centre = {640, 400};
    if (hasDistortion) projector.distortion = {-0.2, 0.1, 1e-3, -1e-3, 0.02};
    projector.pose.rotation = Eigen::AngleAxisd(0.32, Eigen::Vector3d::UnitY()).toRotationMatrix();
    projector.pose.translation = projector.pose.rotation * Eigen::Vector3d(-200, 3, 0);
    return projector;
}

TEST(ScanTriangulation, putsPointsWhereTheyWere)
{
    for (const bool hasDistortion : {false, true}) {
        const Projector projector = turnedProjector(hasDistortion);
        std::vector<float> x, y, column, quality, truth;
        for (int i = 0; i < 1003; ++i) {
            const Eigen::Vector3d point(-60 + 0.12 * i, 0.05 * (i % 97) - 2, 560 + i % 89);
            x.push_back(float(point.x() / point.z()));
            y.push_back(float(point.y() / point.z()));
            column.push_back(float(projector.project(projector.pose * point).x()));
            quality.push_back(0.025F);
            truth.push_back(float(point.z()));
        }
        column[5] = NAN;
        std::vector<float> depth(x.size()), sigma(x.size());
        scalar::depthOfColumns(projector, x, y, column, quality, depth, sigma);
        EXPECT_TRUE(std::isnan(depth[5]) && std::isnan(sigma[5]));
        for (std::size_t i = 0; i < x.size(); ++i) {
            if (i == 5) continue;
            ASSERT_NEAR(depth[i], truth[i], 2e-3) << i;
            // z^2 sigma / (b f), but for the angle between the devices.
            EXPECT_NEAR(sigma[i] / (truth[i] * truth[i] * 0.025 / (200 * 2500)), 1, 0.25);
        }
        forEachTarget([&] {
            std::vector<float> z(x.size()), error(x.size());
            depthOfColumns(projector, x, y, column, quality, z, error);
            EXPECT_TRUE(sameBits(z, depth) && sameBits(error, sigma));
        });
    }
}

TEST(ScanMesh, leavesGapsAtStepsAndPointsItsNormalsAtTheCamera)
{
    // Two planes at z = 500 and 550, side by side, one point missing.
    constexpr int kSide = 10;
    std::vector<std::int32_t> index;
    std::vector<float> points, colours;
    for (int i = 0; i < kSide * kSide; ++i) {
        const int x = i % kSide, y = i / kSide;
        const bool isMissing = x == 2 && y == 2;
        index.push_back(isMissing ? -1 : std::int32_t(points.size() / 3));
        if (isMissing) continue;
        const float z = x < 5 ? 500.0F : 550.0F;
        points.insert(points.end(), {float(x - 5) * z / 2000, float(y - 5) * z / 2000, z});
        colours.insert(colours.end(), {float(x), 100, 200});
    }
    const GridMesh mesh = meshOfGrid({index, kSide, kSide, points, colours}, {});
    EXPECT_EQ(mesh.steep, 2 * (kSide - 1));
    EXPECT_EQ(mesh.indices.size() / 3, std::size_t(2 * 8 * 9 - 4));  // four cells lose a triangle each
    EXPECT_EQ(mesh.vertices.size() / 3, 99U);
    for (std::size_t n = 0; n < 99; ++n) EXPECT_NEAR(mesh.normals[3 * n + 2], -1, 1e-4);
    EXPECT_EQ(mesh.colours[1], 100);
    EXPECT_EQ(meshOfGrid({index, kSide, kSide, points, colours}, {90, 0}).steep, 0);
}

}  // namespace
}  // namespace scansteps::scan
