// Step ccorner5, which works on pairs of frames, and features as record entries.

#ifdef __linux__
#include <pthread.h>
#endif

#include "corners/feature_record.h"
#include "support/images.h"
#include "support/test.h"

namespace scansteps {
namespace {

using namespace corners;

Struct settings(Struct corner = {})
{
    return geometryOf(640, 480, {{"cpu_base", 0}, {"corner", std::move(corner)}});
}

Array photo(const char* name)
{
    return offsetFrame(greyOf(examplePhoto(name)), 640);
}

TEST(CpuCorners5, framesInPairsInOrderAndALoneOneAtFlush)
{
    Chain chain({"ccorner5"});
    EXPECT_EQ(chain.init(settings()), event::kInit);
    const Array a = photo("img0000.jpg"), b = photo("img0004.jpg"), c = photo("img0008.jpg");
    chain.arrived.clear();
    EXPECT_EQ(printed([&] { chain.process(&a, {{"n", 1}}); }), "");
    EXPECT_TRUE(chain.arrived.empty());
    const std::string text = printed([&] { chain.process(&b, {{"n", 2}}); });
    ASSERT_EQ(chain.arrived.size(), 2U);
    EXPECT_EQ(text.substr(0, 51), "             40 ftrhesh\n          32767 RAND_MAX\n  ") << text;
    EXPECT_NE(text.find(" refs.size()\n"), std::string::npos);
    printed([&] { chain.process(&c, {{"n", 3}}); });
    EXPECT_EQ(chain.arrived.size(), 2U);
    const std::string end = printed([&] { chain.flush(); });
    ASSERT_EQ(chain.arrived.size(), 4U);
    EXPECT_EQ(chain.arrived[3].eventType, event::kFlush);
    EXPECT_NE(end.find("CpuCorners5 time = "), std::string::npos);

    const Array* frames[] = {&a, &b, &c};
    for (std::size_t i = 0; i < 3; ++i) {
        const varitype& record = chain.arrived[i].record;
        EXPECT_EQ(record["n"].as<std::int32_t>(), int(i) + 1);
        EXPECT_TRUE(std::ranges::equal(chain.arrived[i].frame->bytes(), frames[i]->bytes()));
        const Array& vert = record["vert"].as<Array>();
        EXPECT_EQ(vert.dim(0), 2U);
        EXPECT_GT(vert.dim(1), 300U);
        const std::vector<CornerFeature> features = featuresOf(record);
        ASSERT_EQ(features.size(), vert.dim(1));
        for (std::size_t k = 0; k < features.size(); ++k) {
            EXPECT_EQ(vert.elements<float>()[2 * k], features[k].x);
            EXPECT_EQ(record["vertAttr"].as<Array>().elements<std::uint32_t>()[16 * k + 2],
                      std::bit_cast<std::uint32_t>(features[k].score));
            EXPECT_EQ(record["verti"].as<Array>().elements<std::int32_t>()[k], int(k));
        }
    }
}

TEST(CpuCorners5, theOtherFrameOfThePairDoesNotMatter)
{
    const Array a = photo("img0000.jpg"), b = photo("photo_astronaut.jpg");
    Array top(Kind::Ushort, 640, 480);
    std::copy_n(b.elements<std::uint16_t>().data(), 640 * 480, top.elements<std::uint16_t>().data());
    std::vector<varitype> results;
    for (const bool first : {true, false}) {
        Chain chain({"ccorner5"});
        chain.init(settings());
        chain.arrived.clear();
        printed([&] {
            chain.process(first ? &a : &top);
            chain.process(first ? &top : &a);
        });
        results.push_back(chain.arrived[first ? 0 : 1].record["vertAttr"]);
    }
    EXPECT_TRUE(results[0].equals(results[1]));
}

TEST(CpuCorners5, settingsHaveTheirEffect)
{
    const Array a = photo("img0000.jpg");
    const auto count = [&](Struct corner) {
        Chain chain({"ccorner5"});
        chain.init(settings(std::move(corner)));
        chain.arrived.clear();
        printed([&] { chain.process(&a), chain.flush(); });
        return chain.arrived[0].record["vert"].as<Array>().dim(1);
    };
    const std::uint32_t usual = count({});
    EXPECT_EQ(count({{"density", 0}}), usual);
    EXPECT_EQ(count({{"density", -5}}), usual);
    EXPECT_LT(count({{"density", 1}}), usual);
    EXPECT_LT(count({{"threshold", 90}}), usual);
    EXPECT_GT(count({{"bucket", 1}}), usual);
    EXPECT_NE(count({{"corner", 1}}), usual);
    EXPECT_NE(count({{"lowPass1", 3}}), usual);
}

#ifdef __linux__
// When the second thread cannot be created, the first one processes both frames.
TEST(CpuCorners5, pairWithoutASecondThread)
{
    Chain chain({"ccorner5"});
    chain.init(settings());
    chain.arrived.clear();
    const Array a = photo("img0000.jpg");
    pthread_attr_t usual, huge;
    ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
    ASSERT_EQ(pthread_getattr_default_np(&huge), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&huge, std::size_t{1} << 50), 0);
    ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
    printed([&] { chain.process(&a), chain.process(&a); });
    ASSERT_EQ(pthread_setattr_default_np(&usual), 0);
    ASSERT_EQ(chain.arrived.size(), 2U);
    EXPECT_TRUE(chain.arrived[0].record["vertAttr"].equals(chain.arrived[1].record["vertAttr"]));
}
#endif

// None are counted in frames smaller than the largest counted region (1024 pixels).
TEST(CpuCorners5, regionsAreCounted)
{
    const std::vector<std::uint8_t> photo = greyOf(examplePhoto("img0000.jpg"));
    for (const auto& [width, height] : {std::pair{640, 480}, {31, 33}}) {
        std::vector<std::uint8_t> cut;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                cut.push_back(photo[std::size_t(640 * (y + (480 - height) / 2) + x + (640 - width) / 2)]);
        Chain chain({"ccorner5"});
        chain.init(geometryOf(width, height, {{"cpu_base", 0}, {"corner", Struct{{"threshold", 1}}}}));
        const Array frame = offsetFrame(cut, std::uint32_t(width));
        std::string thrown;
        const std::string text =
            printed([&] { thrown = thrownText([&] { chain.process(&frame), chain.flush(); }); });
        EXPECT_EQ(thrown, width == 31 ? "too small" : "");  // for features, too
        EXPECT_NE(text.find(" regions.size()\n"), std::string::npos) << text;
        EXPECT_EQ(text.find(" 0 regions.size()\n") != std::string::npos, width == 31) << text;
    }
}

TEST(CpuCorners5, errorsOfAThreadReachTheHost)
{
    Chain chain({"ccorner5"});
    chain.init(settings());
    const Array good = photo("img0000.jpg");
    const Array flat = offsetFrame(std::vector<std::uint8_t>(640 * 480, 70), 640);
    std::string thrown;
    const std::string text = printed([&] {
        chain.process(&good);
        thrown = thrownText([&] { chain.process(&flat); });
    });
    EXPECT_EQ(thrown, "too small");
    EXPECT_NE(text.find("too small \"too small\"\n"), std::string::npos);
    chain.arrived.clear();
    printed([&] { chain.flush(); });  // both frames of the pair were dropped
    EXPECT_EQ(chain.arrived.size(), 1U);
    EXPECT_EQ(thrownText([&] {
                  chain.process(&good, {{"vert", 1}}), chain.flush();
              }),
              "[vert] already found");
    // If a single last frame fails, the later steps are flushed all the same.
    chain.process(&flat);
    chain.arrived.clear();
    printed([&] { thrown = thrownText([&] { chain.flush(); }); });
    EXPECT_EQ(thrown, "too small");
    ASSERT_EQ(chain.arrived.size(), 1U);
    EXPECT_EQ(chain.arrived[0].eventType, event::kFlush);
}

TEST(FeatureRecord, positionsAreThoseOfVert)
{
    CornerFeature feature{};
    feature.size = 1;
    varitype record{Struct{}};
    insertFeatures(record, {&feature, 1}, std::vector<std::int32_t>{0});
    Array moved(Kind::Float, 2, 1);
    moved.elements<float>()[1] = 7;
    record.set("vert", moved);
    EXPECT_EQ(featuresOf(record)[0].y, 7.0F);
}

TEST(FeatureRecord, refusesOtherArrays)
{
    varitype record{Struct{{"vertAttr", Array(Kind::Float, 16, 2)}}};
    EXPECT_THROW(featuresOf(record), const char*);
    record.set("vertAttr", Array(Kind::Uint, 15, 2));
    EXPECT_THROW(featuresOf(record), const char*);
    record.set("vertAttr", Array(Kind::Uint, 16, 2));  // a size of 0 is invalid
    EXPECT_THROW(featuresOf(record), const char*);
    record.set("vertAttr", Array(Kind::Uint, 16, 0));
    EXPECT_EQ(thrownText([&] { featuresOf(record); }), "[vert] not found");
    record.set("vert", Array(Kind::Float, 2, 1));
    EXPECT_EQ(thrownText([&] { featuresOf(record); }), "vert: not as many places as vertAttr has features");
    record.set("vert", Array(Kind::Float, 2, 0));
    EXPECT_TRUE(featuresOf(record).empty());
}

}  // namespace
}  // namespace scansteps
