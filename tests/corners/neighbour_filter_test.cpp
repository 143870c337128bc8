// The filter for features with similar neighbours, and step cneig.
#include "corners/neighbour_filter.h"

#include "corners/feature_record.h"
#include "support/images.h"
#include "support/test.h"

namespace scansteps {
namespace {

using namespace corners;

TEST(NeighbourFilter, equalsASearchOverAllPairs)
{
    std::mt19937_64 random(4);
    std::vector<CornerFeature> features(700);
    for (CornerFeature& f : features) {
        f.x = float(random() % 6400) / 10 - 20;  // some outside the frame
        f.y = float(random() % 4800) / 10 - 20;
        for (auto& word : f.bits) word = random() & random() & random();
    }
    for (const NeighbourFilter& s : {NeighbourFilter{}, NeighbourFilter{7.5F, 120, 1},
                                     NeighbourFilter{1000, 90, 5}, NeighbourFilter{20, 100, 0}}) {
        std::vector<std::uint32_t> expected;
        for (std::uint32_t i = 0; i < features.size(); ++i) {
            int like = 0;
            for (std::uint32_t j = 0; j < features.size(); ++j)
                like +=
                    i != j &&
                    std::hypot(features[i].x - features[j].x, features[i].y - features[j].y) <= s.radius &&
                    hammingDistance(features[i].bits, features[j].bits) <= s.distance;
            if (like >= s.count) expected.push_back(i);
        }
        EXPECT_EQ(withSimilarNeighbours(features, s), expected) << s.radius;
    }
    EXPECT_TRUE(withSimilarNeighbours({}, {}).empty());
}

TEST(NeigFilter, afterTheCornerDetector)
{
    const Array frame = offsetFrame(greyOf(examplePhoto("img0000.jpg")), 640);
    const auto run = [&](const std::vector<std::string>& kinds) {
        Chain chain(kinds);
        chain.init(geometryOf(640, 480, {{"cpu_base", 0}, {"neig", Struct{{"distance", 80}}}}));
        printed([&] { chain.process(&frame), chain.flush(); });
        return chain.arrived.at(1).record;
    };
    const varitype record = run({"ccorner5", "cneig"});
    const std::vector<CornerFeature> before = featuresOf(run({"ccorner5"}));
    const std::vector<CornerFeature> after = featuresOf(record);
    EXPECT_GT(after.size(), 50U);
    EXPECT_LT(after.size(), before.size());
    const auto numbers = record["verti"].as<Array>().elements<std::int32_t>();
    ASSERT_EQ(numbers.size(), after.size());
    for (std::size_t i = 0; i < after.size(); ++i)
        EXPECT_EQ(before[std::size_t(numbers[i])].bits, after[i].bits);
    EXPECT_EQ(record["vert"].as<Array>().dim(1), after.size());
    Chain alone({"cneig"});
    alone.init(geometryOf(640, 480));
    EXPECT_EQ(thrownText([&] { alone.process(); }), "[vertAttr] not found");
}

}  // namespace
}  // namespace scansteps
