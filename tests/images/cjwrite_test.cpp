// Step cjwrite: frames of every kind through a chain, read back from the files.

#include "images/image_file.h"
#include "pixels/grey_window.h"
#include "pixels/yuyv.h"
#include "support/images.h"
#include "support/test.h"

namespace scansteps {
namespace {

using namespace images;
using namespace pixels;

struct CjwriteTest : testing::Test
{
    TempDir dir;
    Chain chain{{"cjwrite"}};

    int init(const std::string& name, int width, int height, Struct more = {})
    {
        more.set("cjwrite", Struct{{"name", dir / name}, {"quality", 95}});
        more.set("write", Struct{{"behind", 0}});  // files are read without a flush
        more.set("dataX", width);
        more.set("dataY", height);
        return chain.init(std::move(more));
    }

    // Sends a host's frame of 8-bit RGB, or of 16-bit samples; missing ones are zero.
    template <class T = std::uint8_t>
    void process(int width, int height, const std::vector<T>& samples = {})
    {
        Array frame(kindOf<T>(), std::uint32_t(sizeof(T) == 1 ? 3 * width : width), std::uint32_t(height));
        std::ranges::copy(samples, frame.elements<T>().begin());
        chain.process(&frame);
    }
    void processSamples(int width, int height, const std::vector<std::uint16_t>& samples = {})
    {
        process(width, height, samples);
    }

    std::vector<std::uint8_t> written(const std::string& name)
    {
        std::optional<RgbImage> image;
        printed([&] { image = loadImage(dir / name); });
        if (!image) return {};
        return {image->bytes().begin(), image->bytes().end()};
    }
};

TEST_F(CjwriteTest, rgbFramesAreNumberedAndPassedOn)
{
    const std::vector<std::uint8_t> rgb = {1, 2, 3, 40, 50, 60};
    init("x8.ppm", 2, 1, {{"dataFormat", "CPU::u_1x8"}});
    process(2, 1, rgb);
    process(2, 1, rgb);
    EXPECT_EQ(written("x8.ppm"), rgb);
    EXPECT_EQ(written("x9.ppm"), rgb);
    ASSERT_EQ(chain.arrived.size(), 3U);
    EXPECT_THAT(chain.arrived[2].frame->elements<std::uint8_t>(), ElementsAreArray(rgb));
    EXPECT_THAT(chain.hostPixels().elements<std::uint8_t>(), ElementsAreArray(rgb)) << "copied, not taken";
    init("out.ppm", 1, 1);  // without digits: written over
    process<std::uint8_t>(1, 1, {1, 1, 1});
    process<std::uint8_t>(1, 1, {2, 2, 2});
    EXPECT_THAT(written("out.ppm"), ElementsAre(2, 2, 2));
}

TEST_F(CjwriteTest, samplesThroughWindowAndLevel)
{
    const std::vector<std::uint16_t> samples = {32768 + 100, 32768 + 101, 32768 + 99, 0, 65535, 32768};
    const struct
    {
        int window, level;
        std::vector<std::uint8_t> grey;
    } table[] = {
        {0, 100, {127, 255, 0, 0, 255, 0}},  // scale 1
        {200, 100, {127, 128, 126, 0, 255, 0}},
        {256, 128, {99, 100, 98, 0, 255, 0}},
    };
    for (const auto& row : table) {
        init("w.ppm", 6, 1,
             {{"dataFormat", "CPU::u_1x16"},
              {"viewer", Struct{{"window", row.window}, {"level", row.level}}}});
        EXPECT_EQ(printed([&] { processSamples(6, 1, samples); }),
                  dir / "w.ppm" + std::string(" filename.c_str()\n"));
        std::vector<std::uint8_t> threeTimes;
        for (const std::uint8_t grey : row.grey) threeTimes.insert(threeTimes.end(), 3, grey);
        EXPECT_EQ(written("w.ppm"), threeTimes) << "window " << row.window;
    }
}

TEST_F(CjwriteTest, videoFramesInColour)
{
    init("v0.ppm", 4, 1, {{"dataFormat", "CPU::u_1x16"}, {"VideoFormat", "YUYV16"}});
    // black, white, and a pair with Cb 255 and Cr 0
    processSamples(4, 1, {0x8010, 0x80eb, 0xff80, 0x0080});
    EXPECT_THAT(written("v0.ppm"), ElementsAre(0, 0, 0, 254, 254, 254, 0, 184, 255, 0, 184, 255));
}

TEST_F(CjwriteTest, aFailedWriteIsNoError)
{
    init("no/such/folder0.jpg", 1, 1);
    testing::internal::CaptureStderr();
    process<std::uint8_t>(1, 1, {1, 1, 1});
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("can't open"));
    init("picture0.png", 1, 1);
    process<std::uint8_t>(1, 1, {1, 1, 1});
    ASSERT_EQ(chain.arrived.size(), 4U);
    EXPECT_NE(chain.arrived[1].frame, nullptr);
    EXPECT_NE(chain.arrived[3].frame, nullptr);
    EXPECT_TRUE(std::filesystem::is_empty(std::filesystem::path(dir / "x").parent_path()));
    ASSERT_EQ(chain.notices.size(), 2U);
    EXPECT_EQ(chain.notices[0].trouble, Trouble::PictureNotWritten);
    EXPECT_EQ(chain.notices[0].file, dir / "no/such/folder0.jpg");
    EXPECT_EQ(chain.notices[0].reason, "No such file or directory");
    EXPECT_EQ(chain.notices[1].reason, "the name tells neither JPEG nor PPM");
}

// Frames are copied while they are written, in blocks of rows: all rows must arrive, also of frames that are
// taller than announced and of those that are not written.
TEST_F(CjwriteTest, everyRowIsWrittenAndPassedOn)
{
    std::vector<std::uint16_t> samples(6 * 45);
    for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<std::uint16_t>(32768 + i);
    for (const char* name : {"tall.ppm", "tall.png"}) {
        init(name, 6, 41, {{"dataFormat", "CPU::u_1x16"}});
        processSamples(6, 45, samples);
        EXPECT_THAT(chain.arrived.back().frame->elements<std::uint16_t>(), ElementsAreArray(samples)) << name;
    }
    std::vector<std::uint8_t> grey(3 * 6 * 41);
    pixels::scalar::greyWindow(std::span(samples).first(6 * 41), grey, 256, 128);
    EXPECT_EQ(written("tall.ppm"), grey);

    // The last pixel of an odd width has a colour of the row below, wherever a block of rows ends.
    samples.resize(5 * 41);
    for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<std::uint16_t>(i * 40503U);
    init("odd.ppm", 5, 41, {{"dataFormat", "CPU::u_1x16"}, {"VideoFormat", "YUYV16"}});
    processSamples(5, 41, samples);
    std::vector<std::uint8_t> colour(3 * samples.size());
    pixels::scalar::yuyvToRgb(samples, colour, 5, 41);
    EXPECT_EQ(written("odd.ppm"), colour);
}

TEST_F(CjwriteTest, framesThatDoNotFitThrowBothSizes)
{
    init("a0.ppm", 4, 4, {{"dataFormat", "CPU::u_1x8"}});
    const std::string text = thrownText([&] { process(2, 4); });
    EXPECT_THAT(text, HasSubstr("6 x 4"));
    EXPECT_THAT(text, HasSubstr("12 x 4"));
    init("a0.ppm", 4, 4, {{"dataFormat", "CPU::u_1x16"}});
    EXPECT_THAT(thrownText([&] { processSamples(4, 3); }), HasSubstr("too small"));
    EXPECT_FALSE(std::filesystem::exists(dir / "a0.ppm"));
    processSamples(4, 4);  // the next valid frame is written
    EXPECT_TRUE(std::filesystem::exists(dir / "a0.ppm"));
    // After a refused size the step does not fall back to the previous one.
    init("b0.ppm", 4, 4, {{"dataFormat", "CPU::u_1x8"}});
    EXPECT_THAT(thrownText([&] { init("b0.ppm", 40000, 40000); }), HasSubstr("40000 x 40000"));
    EXPECT_THAT(thrownText([&] { process(4, 4); }), HasSubstr("initialised for 120000 x 40000"));
}

// As in other steps, an unknown format is reported and treated as f_1x32; a format without buffers has no
// frames.
TEST_F(CjwriteTest, formatsThatCannotBeUsed)
{
    init("a0.ppm", 2, 2, {{"dataFormat", "CPU::u_1x8"}});
    EXPECT_EQ(init("a0.ppm", 4, 4, {{"dataFormat", "CPU::nonsense"}}), event::kMismatch);
    ASSERT_EQ(chain.arrived.size(), 3U);  // the report and the record itself
    EXPECT_THAT(thrownText([&] { processSamples(4, 3); }), HasSubstr("too small"));
    processSamples(4, 4);
    EXPECT_TRUE(std::filesystem::exists(dir / "a0.ppm"));
    EXPECT_EQ(init("a0.ppm", 4, 4, {{"dataFormat", "CPU::u_4x8"}}), event::kInit);
    EXPECT_EQ(thrownText([&] { processSamples(4, 4); }), "Handle::zero handle!!!");
}

}  // namespace
}  // namespace scansteps
