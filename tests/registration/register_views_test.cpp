// Matching of descriptors, estimation of motion, and registration of two views.
#include "registration/register_views.h"

#include "registration/views.h"
#include "support/images.h"

namespace scansteps {
namespace {

using namespace corners;
using namespace registration;

CornerFeature randomFeature(std::mt19937_64& random)
{
    CornerFeature f{};
    f.x = float(random() % 1000000);
    for (auto& word : f.bits) word = random();
    return f;
}

TEST(Match, findsWhatAFullSearchFinds)
{
    std::mt19937_64 random(11);
    std::vector<CornerFeature> first, second, none;
    for (int i = 0; i < 400; ++i) {
        first.push_back(randomFeature(random));
        CornerFeature f = first.back();
        for (int flips = 0; flips < i / 10; ++flips)
            f.bits[random() % 4] ^= std::uint64_t{1} << random() % 64;
        second.push_back(f);
    }
    std::shuffle(second.begin(), second.end(), random);
    std::vector<Match> matches;
    for (const auto& [one, other] : {std::pair(&first, &none), {&none, &second}}) {
        matchFeatures(DescriptorIndex(*one), DescriptorIndex(*other), 80, matches);
        EXPECT_TRUE(matches.empty());
    }
    matchFeatures(DescriptorIndex(first), DescriptorIndex(second), 80, matches);
    EXPECT_EQ(matches.size(), 400U);
    for (const Match& m : matches) {
        EXPECT_EQ(m.distance, hammingDistance(first[m.first].bits, second[m.second].bits));
        for (const CornerFeature& other : second)
            EXPECT_GE(hammingDistance(first[m.first].bits, other.bits), m.distance);
    }
    second.insert(second.end(), 3, second.front());  // equal ones: the first is taken
    const DescriptorIndex one(first), other(second);
    std::vector<std::uint32_t> there(400), back(416), expectedThere(400), expectedBack(416);
    registration::scalar::findNearest(one, other, {expectedThere, expectedBack});
    forEachTarget([&] {
        findNearest(one, other, {there, back});
        EXPECT_EQ(there, expectedThere);
        EXPECT_EQ(back, expectedBack);
    });
}

TEST(Match, countsAPlaceWithSeveralOrientationsOnce)
{
    std::mt19937_64 random(12);
    std::vector<CornerFeature> first(2), second(2);
    for (std::size_t i = 0; i < 2; ++i) {
        first[i] = second[i] = randomFeature(random);
        first[i].x = 4;
        second[i].bits[1] ^= i == 0 ? 7U : 1U;
        second[i].x = 9;
    }
    std::vector<Match> matches;
    matchFeatures(DescriptorIndex(first), DescriptorIndex(second), 80, matches);
    ASSERT_EQ(matches.size(), 1U);
    EXPECT_EQ(matches[0].distance, 1);
}

Eigen::Matrix3d truthOf(MotionModel model)
{
    Eigen::Matrix3d h;
    const double c = std::cos(0.3), s = std::sin(0.3);
    h << c, -s, 90, s, c, -70, 0, 0, 1;
    if (model != MotionModel::rigid) h.topLeftCorner<2, 2>() *= 1.25;
    if (int(model) >= 6) h(0, 1) += 0.1, h(1, 1) -= 0.07;
    if (model == MotionModel::homography) h(2, 0) = 1e-4, h(2, 1) = -8e-5;
    return h;
}

TEST(Motion, recoversEveryModelAmongWrongPairs)
{
    for (const MotionModel model :
         {MotionModel::rigid, MotionModel::similarity, MotionModel::affine, MotionModel::homography}) {
        const Eigen::Matrix3d truth = truthOf(model);
        std::mt19937 random(3);
        const auto uniform = [&](double a, double b) { return test::WarpSource::uniform(random, a, b); };
        std::vector<PointPair> pairs;
        for (int i = 0; i < 300; ++i) {
            const double x = uniform(0, 640);
            const double y = uniform(0, 480);
            const Eigen::Vector2d p = test::mapped(truth, x, y);
            if (i % 5 < 2)
                pairs.push_back({x, y, p.x() + uniform(-0.5, 0.5), p.y() + uniform(-0.5, 0.5), 1});
            else
                pairs.push_back({x, y, uniform(0, 640), uniform(0, 480), 1});
        }
        const MotionEstimate e = estimateMotion(pairs, model, 640, 480);
        EXPECT_GE(e.inliers, 118) << int(model);
        EXPECT_LE(e.inliers, 130) << int(model);
        EXPECT_LT(test::cornerError(e.motion, truth), 0.4) << int(model);
        EXPECT_LT(e.deviation, 0.4);
        EXPECT_GT(e.deviation, 0.01);
        EXPECT_EQ(estimateMotion(pairs, model, 640, 480).motion, e.motion);  // the same on every run
        EXPECT_LT(e.richerGain, 25) << int(model);
        if (int(model) > int(MotionModel::similarity)) {
            EXPECT_GT(estimateMotion(pairs, MotionModel::similarity, 640, 480).richerGain, 100);
        }
        // exact pairs give the exact motion
        for (PointPair& p : pairs) {
            const Eigen::Vector2d q = test::mapped(truth, p.x1, p.y1);
            p.x2 = q.x(), p.y2 = q.y();
        }
        EXPECT_LT(test::cornerError(estimateMotion(pairs, model, 640, 480).motion, truth), 1e-4)
            << int(model);
    }
}

TEST(Motion, saysWhenThereIsNothing)
{
    std::mt19937 random(5);
    const auto uniform = [&](double b) { return test::WarpSource::uniform(random, 0, b); };
    std::vector<PointPair> pairs;
    EXPECT_EQ(estimateMotion(pairs, MotionModel::homography, 640, 480).inliers, 0);
    for (int i = 0; i < 12; ++i) pairs.push_back({50, 50, 60, 60, 1});  // all at one place
    EXPECT_GT(estimateMotion(pairs, MotionModel::similarity, 640, 480).deviation, 100);
    pairs.clear();
    for (int i = 0; i < 7; ++i) pairs.push_back({80.0 * i, 9.0 * i * i, 80.0 * i, 9.0 * i * i, 1});
    EXPECT_EQ(estimateMotion(pairs, MotionModel::similarity, 640, 480).inliers, 0) << "too few to trust";
    pairs.clear();
    for (int i = 0; i < 100; ++i)
        pairs.push_back({uniform(640), uniform(480), uniform(640), uniform(480), 1});
    EXPECT_LT(estimateMotion(pairs, MotionModel::similarity, 640, 480).inliers, 8);
}

TEST(Register, warpedPhotographs)
{
    for (const char* name : {"photo_rocket.jpg", "photo_chelsea.jpg"}) {
        const test::WarpSource source(examplePhoto(name));
        const test::WarpedPair pair = source.pair(101, test::WarpRange{});
        ASSERT_GE(test::overlap(pair.truth), 0.6);
        const Registration r =
            registerViews(prepared(pair.first), prepared(pair.second), MotionModel::homography);
        EXPECT_GE(r.inliers, 30) << name;
        EXPECT_LT(test::cornerError(r.motion, pair.truth), 0.5) << name;
    }
}

TEST(Register, refusesViewsOfDifferentScenesAndEmptyOnes)
{
    const char* names[] = {"photo_coffee.jpg", "photo_chelsea.jpg", "photo_rocket.jpg",
                           "photo_astronaut.jpg"};
    std::vector<PreparedView> views;
    for (const char* name : names)
        views.push_back(prepared(test::WarpSource(examplePhoto(name)).pair(1, test::WarpRange{}).first));
    views.push_back(prepared(std::vector<std::uint8_t>(640 * 480, 90)));
    for (std::size_t i = 0; i < views.size(); ++i)
        for (std::size_t k = 0; k < i; ++k) {
            const bool upward = (i + k) % 2 != 0;
            const Registration r =
                registerViews(views[upward ? k : i], views[upward ? i : k],
                              k % 2 != 0 ? MotionModel::similarity : MotionModel::homography);
            EXPECT_EQ(r.inliers, 0) << i << k;
            EXPECT_EQ(r.motion, Eigen::Matrix3d::Identity());
        }
    const Registration self = registerViews(views[0], views[0], MotionModel::homography);
    EXPECT_LT(test::cornerError(self.motion, Eigen::Matrix3d::Identity()), 1e-3);
}

}  // namespace
}  // namespace scansteps
