// Step cjreadf: what its frames are, and that the other steps take them.

#include "images/image_file.h"
#include "jpeg/pack_yuyv16.h"
#include "support/images.h"
#include "support/jpeg.h"
#include "support/test.h"

namespace scansteps {
namespace {

using namespace images;
using namespace jpeg;

const std::string kFirst = examplePath("img0000.jpg");

void start(Chain& chain, Struct more = {})
{
    more.set("load", Struct{{"name", kFirst}, {"count", 1}});
    ASSERT_EQ(chain.init(std::move(more)), event::kInit);
}

std::vector<std::uint16_t> expectedSamples(const std::string& path)
{
    const std::string file = readFile(path);
    const test::JpegPlanes planes = test::decodeJpegRaw({file.begin(), file.end()});
    std::vector<std::uint16_t> samples(planes[0].size());
    jpeg::scalar::packYuyv16(planes[0], planes[1], planes[2], samples, 640, 480);
    return samples;
}

TEST(CjreadF, framesUnderTheHandleAndInTheRecord)
{
    Chain chain({"cjreadf"});
    start(chain, {{"dataX", 7}, {"other", "kept"}});
    chain.process();
    chain.process();
    EXPECT_EQ(chain.process(), event::kFlush);
    ASSERT_THAT(chain.arrived, SizeIs(3));
    const varitype& init = chain.arrived[0].record;
    EXPECT_EQ(init["dataX"].as<int>(), 640);
    EXPECT_EQ(init["dataY"].as<int>(), 480);
    EXPECT_EQ(init["dataFormat"].as<std::string>(), "CPU::u_1x16");
    EXPECT_EQ(init["VideoFormat"].as<std::string>(), "YUYV16");
    EXPECT_EQ(init["other"].as<std::string>(), "kept");
    for (std::size_t i : {1U, 2U}) {
        const varitype& record = chain.arrived[i].record;
        const std::string path = examplePath("img000" + std::to_string(i - 1) + ".jpg");
        EXPECT_EQ(record["filename"].as<std::string>(), path);
        EXPECT_TRUE(chain.arrived[i].frame->hasShape(Kind::Ushort, 640, 480));
        EXPECT_EQ(samplesOf(*chain.arrived[i].frame), expectedSamples(path));
        EXPECT_EQ(samplesOf(record["data"].as<Array>()), expectedSamples(path));
    }
}

/// Mean absolute difference of the colours.
double difference(std::span<const std::uint8_t> a, std::span<const std::uint8_t> b)
{
    EXPECT_EQ(a.size(), b.size());
    double sum = 0;
    for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) sum += std::abs(a[i] - b[i]);
    return sum / double(a.size());
}

// The studio range that the colour step assumes stretches the contrast of a file's full range, which is a few
// levels; Cb taken for Cr would be dozens.
TEST(CjreadF, coloursAreThoseOfCjread)
{
    Chain rgb({"cjread"});
    Chain yuyv({"cjreadf", "crgb"});
    const Struct load = {{"name", examplePath("photo_astronaut.jpg")}, {"one", 1}};
    for (Chain* chain : {&rgb, &yuyv}) {
        chain->init({{"load", load}});
        chain->process();
        ASSERT_THAT(chain->arrived, SizeIs(2));
    }
    const auto expected = rgb.arrived[1].frame->elements<std::uint8_t>();
    const auto actual = yuyv.arrived[1].frame->elements<std::uint8_t>();
    EXPECT_LT(difference(actual, expected), 15);
    // Without the stretched contrast: the differences between channels have the same signs.
    std::size_t clear = 0, same = 0;
    for (std::size_t i = 0; i + 2 < std::min(expected.size(), actual.size()); i += 3) {
        const int was = expected[i] - expected[i + 2];
        const int is = actual[i] - actual[i + 2];
        if (std::abs(was) < 40) continue;
        ++clear;
        same += was * is > 0;
    }
    EXPECT_GT(clear, 10000U);
    EXPECT_GT(double(same), 0.99 * double(clear));
}

TEST(CjreadF, edgesAndWrittenFiles)
{
    const TempDir dir;
    Chain chain({"cjreadf", "cjwrite", "ccanny"});
    start(chain, {{"cjwrite", Struct{{"name", dir / "out0.ppm"}}},
                  {"OCV", Struct{{"trh", 500.0F}, {"trl", 200.0F}}}});
    printed([&] { chain.process(); });
    const auto written = loadImage(dir / "out0.ppm");
    ASSERT_TRUE(written);
    EXPECT_LT(difference(written->bytes(), examplePhoto("img0000.jpg").rgb), 15);
    const std::vector<std::uint16_t> edges = samplesOf(*chain.arrived.back().frame);
    const auto set = std::ranges::count(edges, 33023);
    EXPECT_EQ(std::ranges::count(edges, 32768) + set, 640 * 480);
    EXPECT_GT(set, 1000);
}

// A recording has one form of a frame: cstrip leaves "data", d2h makes it a handle again.
TEST(CjreadF, recordings)
{
    const TempDir dir;
    Chain both({"cjreadf", "filesaver"});
    start(both, {{"save", Struct{{"name", dir / "both"}}}});
    EXPECT_EQ(thrownText([&] { both.process(); }), "[data] already found");
    ASSERT_THAT(both.notices, SizeIs(1));
    EXPECT_THAT(both.notices[0].reason, HasSubstr("put cstrip before"));

    for (const char* between : {"cstrip", "d2h"}) {
        Chain recorded({"cjreadf", between, "filesaver"});
        start(recorded, {{"save", Struct{{"name", dir / between}}}});
        recorded.process();
        printed([&] { recorded.flush(); });
        Chain replayed({"reads"});
        replayed.init({{"load", Struct{{"name", dir / between}}}});
        replayed.process();
        ASSERT_THAT(replayed.arrived, SizeIs(2));
        EXPECT_EQ(samplesOf(*replayed.arrived[1].frame), expectedSamples(kFirst));
        EXPECT_EQ(replayed.arrived[0].record["VideoFormat"].as<std::string>(), "YUYV16");
    }
}

TEST(CjreadF, filesThatItCannotTakeEndTheStream)
{
    const TempDir dir;
    const test::Image photo = test::cropped(examplePhoto("photo_coffee.jpg"), 64, 48);
    const auto encoded = [&](const test::JpegOptions& options) {
        const std::vector<std::uint8_t> bytes = test::encodeJpeg(photo, options);
        return std::string(bytes.begin(), bytes.end());
    };
    const std::string whole = encoded({});
    dir.write("progressive.jpg", encoded({.progressive = true}));
    dir.write("grey.jpg", encoded({.horizontal = 1, .vertical = 1, .colours = JCS_GRAYSCALE}));
    dir.write("rgb.jpg", encoded({.horizontal = 1, .vertical = 1, .colours = JCS_RGB}));
    dir.write("picture.ppm", "P5 1 1 255\np");
    const struct
    {
        const char* name;
        const char* text;
    } table[] = {
        {"missing.jpg", "!ifs\n"},
        {"progressive.jpg", "Only baseline images are supported (got SOF2)\nparse error!\n"},
        {"grey.jpg", "We only support YUV images\nparse error!\n"},
        {"rgb.jpg", "We only support YCbCr image\nparse error!\n"},
        {"picture.ppm", "Not a JPG file ?\nparse error!\n"},
    };
    for (const auto& row : table) {
        Chain chain({"cjreadf"});
        const std::string out = printed([&] {
            chain.init({{"load", Struct{{"name", dir / row.name}}}});
            EXPECT_EQ(chain.process(), event::kFlush);
        });
        EXPECT_EQ(out, std::string(row.text) + "error read\n");
        EXPECT_THAT(chain.arrived, SizeIs(1)) << "the end is not forwarded";
        ASSERT_THAT(chain.notices, SizeIs(1));
        EXPECT_EQ(chain.notices[0].trouble, Trouble::SourceStopped);
        EXPECT_EQ(chain.notices[0].file, dir / row.name);
    }

    // A damaged scan is shown as far as it came, grey below, and the series goes on.
    dir.write("s0.jpg", whole);
    dir.write("s1.jpg", whole.substr(0, whole.size() * 4 / 5));
    dir.write("s2.jpg", whole);
    Chain chain({"cjreadf"});
    const std::string out = printed([&] {
        chain.init({{"load", Struct{{"name", dir / "s0.jpg"}}}});
        for (int i = 0; i < 3; ++i) EXPECT_EQ(chain.process(), event::kProcess);
    });
    EXPECT_THAT(out, HasSubstr("Bad huffman data (buffer overflow)\nparse error!\n             -1 result\n"));
    const auto good = samplesOf(*chain.arrived[1].frame), cut = samplesOf(*chain.arrived[2].frame);
    EXPECT_TRUE(std::equal(cut.begin(), cut.begin() + 64 * 16, good.begin()));
    EXPECT_EQ(cut.back(), 0x8080);
    ASSERT_THAT(chain.notices, SizeIs(1));
    EXPECT_EQ(chain.notices[0].trouble, Trouble::FrameIncomplete);
    EXPECT_EQ(chain.notices[0].file, dir / "s1.jpg");
    EXPECT_EQ(chain.notices[0].reason, "Bad huffman data (buffer overflow)");
}

// Files of other samplings and odd sizes become frames too.
TEST(CjreadF, otherSamplings)
{
    const TempDir dir;
    const test::Image photo = test::cropped(examplePhoto("photo_coffee.jpg"), 33, 17);
    const std::vector<std::uint8_t> bytes = test::encodeJpeg(photo, {.horizontal = 1, .vertical = 1});
    dir.write("a.jpg", std::string(bytes.begin(), bytes.end()));
    Chain chain({"cjreadf", "crgb"});
    chain.init({{"load", Struct{{"name", dir / "a.jpg"}}}});
    chain.process();
    ASSERT_THAT(chain.arrived, SizeIs(2));
    EXPECT_LT(difference(chain.arrived[1].frame->elements<std::uint8_t>(), photo.rgb), 20);
}

}  // namespace
}  // namespace scansteps
