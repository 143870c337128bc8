// imread and imwrite in whole pipelines of the real program.
#include "support/image_files.h"
#include "support/images.h"
#include "support/jpeg.h"
#include "support/process.h"
#include "support/test.h"

#include "plugins/images/decode.h"
#include "plugins/images/read_file.h"

namespace scansteps {
namespace {

using namespace imageio;
using test::runProgram;
using test::TempDir;
using ::testing::HasSubstr;

using Bytes = std::vector<std::uint8_t>;

Picture load(const std::string& path)
{
    const Bytes file = imageio::readFile(path);
    return openPictures(file)->next({});
}

std::string bytesOf(const Array& pixels)
{
    return {reinterpret_cast<const char*>(pixels.data()), pixels.byteSize()};
}

constexpr int kWidth = 31, kHeight = 17;

// Samples that use all of their 16 bits, as colours or as grey.
std::string pngOf(int colourType, int bits)
{
    std::vector<std::uint16_t> samples(std::size_t{4} * kWidth * kHeight);
    for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = std::uint16_t(i * 2654435761U >> 11U);
    return test::PngFile{kWidth, kHeight, bits, colourType}.bytes(samples.data());
}

test::ProgramResult convert(const std::string& from, const std::string& to, const std::string& settings = "")
{
    return runProgram("run \"imread name=" + from + " ! imwrite name=" + to + " " + settings + " ! clast\"");
}

TEST(ImageFormats, roundTripsAreLossless)
{
    const TempDir dir;
    const std::string grey = dir.write("grey.png", pngOf(PNG_COLOR_TYPE_GRAY, 16)),
                      rgb = dir.write("rgb.png", pngOf(PNG_COLOR_TYPE_RGB, 8));
    const struct
    {
        std::string from, to, settings;
    } table[] = {
        {grey, "g0.png", ""},        {grey, "g0.tif", ""},        {grey, "g0.pgm", "depth=16"},
        {rgb, "c0.png", ""},         {rgb, "c0.tiff", "depth=8"}, {rgb, "c0.ppm", ""},
        {rgb, "d0.png", "depth=16"}, {rgb, "d0.TIF", "depth=16"},
    };
    for (const auto& [from, to, settings] : table) {
        SCOPED_TRACE(to + settings);
        const auto result = convert(from, dir / to, settings);
        ASSERT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(result.err.find("warning"), std::string::npos) << result.err;
        const Picture before = load(from), after = load(dir / to);
        EXPECT_EQ(bytesOf(before.pixels), bytesOf(after.pixels));
        EXPECT_EQ(after.reducedDepth, to[0] == 'd');
    }
    // A JPEG file is near; 8-bit grey comes back as it was.
    EXPECT_EQ(convert(rgb, dir / "j.jpg", "quality=100").exitCode, 0);
    EXPECT_EQ(load(dir / "j.jpg").width(), kWidth);
    const std::string shades = dir.write("shades.png", pngOf(PNG_COLOR_TYPE_GRAY, 8));
    for (const char* name : {"s.png", "s.tif", "s.pgm"}) {
        ASSERT_EQ(convert(shades, dir / name, "depth=8").exitCode, 0);
        EXPECT_EQ(bytesOf(load(shades).pixels), bytesOf(load(dir / name).pixels)) << name;
    }
}

TEST(ImageFormats, lossesAreReportedOnce)
{
    const TempDir dir;
    for (const char* name : {"a.png", "b.png"}) dir.write(name, pngOf(PNG_COLOR_TYPE_RGB_ALPHA, 16));
    const auto result = runProgram("run \"imread name=" + (dir / "?.png") + " ! clast\"");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.err, HasSubstr("2 frames"));
    for (const std::string words :
         {"16-bit colour was rounded to 8 bits, first in ", "transparency was dropped, first in "}) {
        const std::size_t at = result.err.find(words + (dir / "a.png"));
        ASSERT_NE(at, std::string::npos) << result.err;
        EXPECT_EQ(result.err.find(words, at + 1), std::string::npos) << result.err;
    }
    EXPECT_EQ(runProgram("run \"imread name=" + (dir / "a.png") + " ! clast\" --strict").exitCode, 5);
}

// Pictures of one pixel, whose grey tells in which order they were read.
std::string order(const TempDir& dir, const std::string& name, const std::string& settings = "")
{
    const auto result = runProgram("run \"imread name=" + name + " " + settings +
                                   " ! imwrite depth=8 name=" + (dir / "out-000.pgm") + " ! clast\"");
    std::string order;
    for (const std::string& file : dir.names())
        if (file.starts_with("out-")) {
            order += test::readFile(dir / file).back();
            std::filesystem::remove(test::pathOf(dir / file));
        }
    return result.exitCode == 0 ? order : result.err;
}

TEST(ImageFormats, patternsAndLists)
{
    const TempDir dir;
    const auto shot = [&](const std::string& name, char shade) {
        std::filesystem::create_directories(test::pathOf(dir / name).parent_path());
        dir.write(name, std::string("P5 1 1 255\n") + shade);
    };
    for (const auto& [name, shade] : {std::pair{"img10.pgm", 'c'},
                                      {"img2.pgm", 'b'},
                                      {"img1.pgm", 'a'},
                                      {"[x].pgm", 'x'},
                                      {"s-a/k.pgm", 'p'},
                                      {"s-b/k.pgm", 'q'},
                                      {"n-007.pgm", 'j'},
                                      {"z-0.pgm", '0'},
                                      {"z-1.pgm", '1'},
                                      {"z-3.pgm", '3'}})
        shot(name, shade);
    for (int i = 1; i < 4; ++i) shot("n-00" + std::to_string(i) + ".pgm", char('0' + i));
    dir.write("list.txt", "\xef\xbb\xbf# shots\r\n" + (dir / "img2.pgm") + "\r\n\n" + (dir / "z-3.pgm"));
    EXPECT_EQ(order(dir, dir / "img*.pgm"), "abc");
    EXPECT_EQ(order(dir, dir / "img[2-9]*.pgm"), "b");
    EXPECT_EQ(order(dir, dir / "s-?/k.pgm"), "pq");
    EXPECT_EQ(order(dir, dir / "[x].pgm"), "x");  // an existing file is meant before a pattern
    EXPECT_EQ(order(dir, dir / "n-%03d.pgm"), "123");
    EXPECT_EQ(order(dir, dir / "z-%d.pgm"), "01");
    EXPECT_EQ(order(dir, "@" + (dir / "list.txt")), "b3");
    EXPECT_EQ(order(dir, dir / "img*.pgm", "count=2"), "ab");
    EXPECT_THAT(order(dir, dir / "no*.pgm"), HasSubstr("no file matches"));
    EXPECT_THAT(order(dir, dir / "no%d.pgm"), HasSubstr("there is neither"));
    EXPECT_THAT(order(dir, "@" + (dir / "no.txt")), HasSubstr("no.txt: No such file"));
    // A pattern given to the step that takes none, and a chain that would write what it reads.
    const auto hint = runProgram("check \"cjread load.name=" + (dir / "img*.jpg") + " ! clast\"");
    EXPECT_THAT(hint.out + hint.err, HasSubstr("imread takes patterns"));
    const auto same = runProgram("check \"imread name=" + (dir / "img*.pgm") +
                                 " ! imwrite name=" + (dir / "img1.pgm") + "\"");
    EXPECT_EQ(same.exitCode, 2) << same.out << same.err;
}

TEST(ImageFormats, badFilesAndSettingsAreNamed)
{
    const TempDir dir;
    const std::string whole = pngOf(PNG_COLOR_TYPE_RGB, 8), grey = pngOf(PNG_COLOR_TYPE_GRAY, 16);
    dir.write("a.png", whole);
    dir.write("b.png", "no picture");
    dir.write("cut.ppm", "P6 1 2 255\nRGB");
    dir.write("mix-a.png", whole);
    dir.write("mix-b.png", grey);
    dir.write("grey.png", grey);
    const struct
    {
        std::string pipeline;
        int exitCode;
        const char* words;
    } table[] = {
        {"imread name=" + (dir / "none.png"), 4, "none.png: No such file"},
        {"imread name=" + (dir / "b.png"), 4, "b.png: an unknown format"},
        {"imread name=" + (dir / "?.png"), 0, "b.png: an unknown format"},
        {"imread name=" + (dir / "cut.ppm"), 0, "cut.ppm: PNM file: fewer samples"},
        {"imread name=" + (dir / "mix-?.png"), 4,
         "mix-b.png is 31 x 17 pixels of grey, but the first picture"},
        {"imread name=" + (dir / "grey.png") + " ! imwrite name=x.jpg", 4, "JPEG files have 8 bits"},
        {"imread name=" + (dir / "a.png") + " ! imwrite depth=12 name=" + (dir / "x.png"), 4,
         "none of 0, 8 and 16"},
        {"imread name=" + (dir / "a.png") + " ! imwrite name=" + (dir / "x.bmp"), 4, "none of the endings"},
        {"imread name=" + (dir / "a.png") + " ! imwrite name=" + (dir / "no/x.png"), 0, "No such file"},
        {"imread name=" + (dir / "grey.png") + " ! cu2f ! imwrite name=" + (dir / "x.png"), 3, "imwrite"},
    };
    for (const auto& [pipeline, exitCode, words] : table) {
        const auto result = runProgram("run \"" + pipeline + " ! clast\"");
        EXPECT_EQ(result.exitCode, exitCode) << pipeline << result.err;
        EXPECT_THAT(result.err, HasSubstr(words)) << pipeline;
    }
    for (const std::string& name : dir.names()) EXPECT_EQ(name.find(".part"), std::string::npos) << name;
}

// Own photographs, as a camera notes how it was held; video frames are written in colour.
TEST(ImageFormats, photographsThroughAChain)
{
    const TempDir dir;
    const test::Image photo = test::examplePhoto("img0000.jpg");
    dir.write("shot.jpg", test::jpegFile(photo, {.exif = test::exifBlock(6, true)}));
    ASSERT_EQ(convert(dir / "shot.jpg", dir / "up.png").exitCode, 0);
    EXPECT_EQ(load(dir / "up.png").width(), photo.height);
    ASSERT_EQ(runProgram("run \"imread orient=0 name=" + (dir / "shot.jpg") + " ! cyuv ! imwrite name=" +
                         (dir / "video.png") + " ! crgb ! imwrite name=" + (dir / "rgb.png") + "\"")
                  .exitCode,
              0);
    EXPECT_EQ(load(dir / "video.png").width(), photo.width);
    EXPECT_EQ(bytesOf(load(dir / "video.png").pixels), bytesOf(load(dir / "rgb.png").pixels));
}

}  // namespace
}  // namespace scansteps
