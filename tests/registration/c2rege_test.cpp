// Steps c2rege and c2rege5, and the sequence of views and edge support they rely on.

#include "edges/polyline_record.h"
#include "grey/draw_line.h"
#include "registration/draw_views.h"
#include "registration/view_sequence.h"
#include "registration/views.h"
#include "support/images.h"

namespace scansteps {
namespace {

using namespace corners;
using namespace edges;
using namespace grey;
using namespace registration;

int intOf(const varitype& record, const char* key)
{
    return record[key].as<std::int32_t>();
}

const test::WarpSource& photo(const std::string& name)
{
    static std::map<std::string, test::WarpSource> sources;
    return sources.try_emplace(name, examplePhoto(name)).first->second;
}

// A photograph, two views of it, an empty view, the photograph again, and two views of another one.
TEST(ViewSequence, wayToTheFirstViewThroughWhatIsHeld)
{
    const test::WarpRange range;
    const auto a = photo("photo_coffee.jpg").pair(1, range), b = photo("photo_coffee.jpg").pair(2, range);
    const auto other = photo("photo_chelsea.jpg").pair(3, range);
    const std::vector<std::uint8_t> nothing(640 * 480, 90);
    const std::vector<std::uint8_t>* views[] = {&a.first, &a.second,     &b.second,   &nothing,
                                                &a.first, &other.second, &other.first};
    const Eigen::Matrix3d one = Eigen::Matrix3d::Identity();
    const Eigen::Matrix3d toFirst[] = {one, a.truth.inverse(), b.truth.inverse(), one, one, one, other.truth};
    const int first[] = {1, 1, 1, 4, 1, 6, 6};
    for (const std::size_t most : {std::size_t{8}, std::size_t{1}}) {
        ViewSequence sequence(MotionModel::homography, most);
        for (int i = 0; i < 7; ++i) {
            SCOPED_TRACE(i);
            const ViewPose place = sequence.add(prepared(*views[i]));
            EXPECT_EQ(place.number, i + 1);
            if (most == 1 && i == 4) {  // views before the empty one are no longer held
                EXPECT_EQ(place.first, 5);
                continue;
            }
            EXPECT_EQ(place.first, first[i]);
            EXPECT_LT(cornerError(place.toFirst, toFirst[i]), place.reference == 1 ? 0.5 : 1.0);
            EXPECT_EQ(place.reference == 0, place.first == place.number);
            const bool follows = i == 1 || i == 2 || i == 6;
            EXPECT_EQ(place.inliers > 0, follows);
            if (follows)
                EXPECT_LT(cornerError(place.transform, toFirst[i].inverse() * toFirst[i - 1]), 1);
            else
                EXPECT_EQ(place.transform, one);
            std::size_t inliers = 0;
            for (const ViewMatch& m : place.matches) inliers += m.inlier;
            EXPECT_EQ(inliers > 0, place.reference > 0);
        }
    }
}

struct RunOfTwo
{
    std::vector<Arrived> arrived;
    std::string text;
};

RunOfTwo runPair(const std::vector<std::string>& kinds, const test::WarpedPair& pair, Struct settings,
                 bool video)
{
    if (video) settings.set("VideoFormat", "YUYV16");
    settings.set("cpu_base", 0);
    Chain chain(kinds);
    RunOfTwo run;
    run.text = printed([&] {
        chain.init(geometryOf(640, 480, std::move(settings)));
        for (const auto* grey : {&pair.first, &pair.second}) {
            const Array frame = video ? videoFrame(*grey, 640) : offsetFrame(*grey, 640);
            chain.process(&frame);
        }
        chain.flush();
    });
    for (const Arrived& a : chain.arrived)
        if (a.eventType == event::kProcess) run.arrived.push_back(a);
    EXPECT_EQ(run.arrived.size(), 2U);
    return run;
}

TEST(RegE, chainsOnWarpedPhotographs)
{
    struct Case
    {
        std::vector<std::string> kinds;
        bool bends;
        double limit;
    };
    const Case cases[] = {
        {{"c2rege"}, false, 0.3},
        {{"ccorner5", "c2rege"}, false, 0.3},
        {{"c2rege5"}, true, 0.4},
        {{"ccorner5", "cneig", "c2rege5"}, true, 0.4},
        {{"ccorner5", "ccanny2c", "c2rege5"}, true, 1.5},  // grey values of drawn edges
    };
    for (const Case& c : cases)
        for (const bool video : {false, true}) {
            SCOPED_TRACE(c.kinds.front() + " to " + c.kinds.back());
            const test::WarpedPair pair =
                photo("photo_rocket.jpg")
                    .pair(video ? 31 : 32, c.bends ? test::WarpRange{} : similarityRange());
            const RunOfTwo run =
                runPair(c.kinds, pair, {{"OCV", Struct{{"lp0", 1}, {"trl", 40.0F}, {"trh", 100.0F}}}}, video);
            const varitype &first = run.arrived[0].record, &second = run.arrived[1].record;
            EXPECT_EQ(matrixOf(first, "transform"), Eigen::Matrix3d::Identity());
            EXPECT_EQ(intOf(first, "inliers"), 0);
            EXPECT_EQ(intOf(first, "reference"), 0);
            EXPECT_EQ(first["matches"].as<Array>().dim(1), 0U);
            EXPECT_LT(cornerError(matrixOf(second, "transform"), pair.truth), c.limit);
            EXPECT_LT(cornerError(matrixOf(second, "toFirst"), pair.truth.inverse()), 2 * c.limit);
            EXPECT_GE(intOf(second, "inliers"), 30);
            EXPECT_EQ(intOf(second, "reference"), 1);
            EXPECT_EQ(intOf(second, "first"), 1);
            EXPECT_EQ(intOf(second, "view"), 2);
            const auto rows = second["matches"].as<Array>().elements<float>();
            ASSERT_EQ(second["matches"].as<Array>().dim(0), 6U);
            int inliers = 0, close = 0;
            for (std::size_t i = 0; i < rows.size(); i += 6) {
                if (rows[i + 5] != 1) continue;
                ++inliers;
                const Eigen::Vector2d at = test::mapped(pair.truth, double(rows[i]), double(rows[i + 1]));
                close += (at - Eigen::Vector2d(double(rows[i + 2]), double(rows[i + 3]))).norm() < 14;
            }
            EXPECT_EQ(inliers, intOf(second, "inliers"));
            EXPECT_EQ(inliers, close);
            EXPECT_NE(run.text.find(" matches.size()\n"), std::string::npos);
        }
}

// ccanny5 leaves drawn edges and an estimate, the other registration its entries.
TEST(RegE, takesOverFromOtherRegistrations)
{
    const test::WarpedPair pair = photo("photo_coffee.jpg").pair(1, similarityRange());
    for (const auto& kinds : {std::vector<std::string>{"ccanny5", "c2rege"}, {"c2rege", "c2rege5"}}) {
        const RunOfTwo run = runPair(kinds, pair, {}, false);
        EXPECT_LT(cornerError(matrixOf(run.arrived[1].record, "transform"), pair.truth), 0.3);
        EXPECT_GE(intOf(run.arrived[1].record, "inliers"), 10);
    }
}

// A view without features says nothing against what is known already.
TEST(RegE, keepsAKnownMotionWhenItFindsNone)
{
    const Array plain = test::offsetFrame(std::vector<std::uint8_t>(64 * 64, 5), 64);
    Array known(Kind::Float, 3, 3);
    for (const std::size_t i : {0U, 4U, 8U}) known.elements<float>()[i] = 1;
    known.elements<float>()[2] = 7;
    Chain chain({"c2rege"});
    printed([&] {
        chain.init(geometryOf(64, 64));
        chain.process(&plain);
        chain.process(&plain, {{"transform", known}, {"inliers", 12}, {"expectedError", 0.25F}});
    });
    const varitype& record = chain.arrived.back().record;
    EXPECT_EQ(matrixOf(record, "transform")(0, 2), 7);
    EXPECT_EQ(matrixOf(record, "toFirst")(0, 2), -7);
    EXPECT_EQ(intOf(record, "inliers"), 12);
    EXPECT_EQ(record["expectedError"].as<float>(), 0.25F);
}

TEST(RegE, drawsOnRequestOnly)
{
    const test::WarpedPair pair = photo("photo_coffee.jpg").pair(5, similarityRange());
    for (const bool video : {false, true}) {
        const Array plain = video ? videoFrame(pair.second, 640) : offsetFrame(pair.second, 640);
        const auto run = [&](int draw) {
            return runPair({"c2rege5"}, pair, {{"rege5", Struct{{"draw", draw}}}}, video).arrived[1];
        };
        const auto before = plain.elements<std::uint16_t>();
        const Arrived untouched = run(0), drawn = run(1);
        EXPECT_TRUE(std::ranges::equal(untouched.frame->elements<std::uint16_t>(), before));
        const auto after = drawn.frame->elements<std::uint16_t>();
        const std::uint16_t ink = inkOf(video ? SampleCoding::Yuyv16 : SampleCoding::Offset16);
        std::size_t changed = 0;
        for (std::size_t i = 0; i < after.size(); ++i) {
            if (after[i] == before[i]) continue;
            ++changed;
            ASSERT_TRUE(after[i] == ink || after[i] == ink - 127) << i;
        }
        EXPECT_GT(changed, 2000U);
        // corners and middle of the warped outline, where they lie inside
        int seen = 0;
        for (const auto& [x, y] :
             {std::pair{0, 0}, {320, 0}, {639, 0}, {639, 240}, {639, 479}, {0, 479}, {0, 240}}) {
            const Eigen::Vector2d p = test::mapped(pair.truth, x, y);
            if (p.x() < 1 || p.y() < 1 || p.x() > 638 || p.y() > 478) continue;
            ++seen;
            bool found = false;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx)
                    found |=
                        after[std::size_t((std::lround(p.y()) + dy) * 640 + std::lround(p.x()) + dx)] == ink;
            EXPECT_TRUE(found) << p.transpose();
        }
        EXPECT_GE(seen, 1);
    }
}

TEST(RegE, saysWhenNothingIsKnown)
{
    test::WarpedPair pair = photo("photo_coffee.jpg").pair(1, {});
    pair.second = photo("photo_astronaut.jpg").pair(1, {}).second;
    for (const char* kind : {"c2rege", "c2rege5", "ccanny7"}) {
        const RunOfTwo run =
            runPair({kind}, pair, {{"rege", Struct{{"draw", 1}}}, {"rege5", Struct{{"draw", 1}}}}, true);
        EXPECT_EQ(intOf(run.arrived[1].record, "inliers"), 0);
        EXPECT_EQ(matrixOf(run.arrived[1].record, "transform"), Eigen::Matrix3d::Identity());
        if (kind == "ccanny7"s) continue;
        EXPECT_EQ(matrixOf(run.arrived[1].record, "toFirst"), Eigen::Matrix3d::Identity());
        EXPECT_EQ(intOf(run.arrived[1].record, "first"), 2);
    }
}

TEST(RegE, hostileRecords)
{
    const Array frame = offsetFrame(std::vector<std::uint8_t>(64 * 64, 5), 64);
    Chain chain({"c2rege5"});
    chain.init(geometryOf(64, 64));
    const auto thrown = [&](Struct entries) {
        std::string text;
        printed([&] { text = thrownText([&] { chain.process(&frame, std::move(entries)); }); });
        return text;
    };
    const auto lines = [](varitype verts) {
        return Struct{{"fvertsArray", StructArray{Struct{{"verts", std::move(verts)}, {"closed", 0}}}}};
    };
    EXPECT_EQ(thrown({{"transform", Array(Kind::Float, 3, 2)}}), "transform: not 3 x 3 floats");
    EXPECT_EQ(thrown({{"transform", Array(Kind::Float, 3, 3)}}), "transform: not a motion of the plane");
    EXPECT_EQ(thrown(lines(Array(Kind::Float, 3, 2))), "fvertsArray: not two floats a vertex");
    EXPECT_EQ(thrown(lines(Array(Kind::Int, 2, 2))), "fvertsArray: not two floats a vertex");
    EXPECT_NE(thrown(lines(7)), "");
    EXPECT_EQ(thrown(lines(Array(Kind::Float, 2, 0))), "");
    EXPECT_EQ(thrown({{"vertAttr", Array(Kind::Uint, 15, 2)}}),
              "vertAttr: not an array of 16 unsigned words a feature");
}

}  // namespace
}  // namespace scansteps
