// Loading and writing PPM and JPEG files, broken ones included.
#include "images/image_file.h"

#ifndef _WIN32
#include <sys/stat.h>
#endif

#include "support/images.h"
#include "support/jpeg.h"
#include "support/test.h"

namespace scansteps {
namespace {

using namespace images;

struct Loaded
{
    std::optional<RgbImage> image;
    std::string out;
    std::string err;
};

Loaded load(const std::string& path)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Loaded result{loadImage(path), {}, {}};
    std::fflush(stdout);
    result.out = testing::internal::GetCapturedStdout();
    result.err = testing::internal::GetCapturedStderr();
    return result;
}

TEST(LoadPpm, layoutsScaledByMaxval)
{
    const struct
    {
        const char* what;
        std::string file;
        int width, height;
        std::vector<std::uint8_t> rgb;
    } table[] = {
        {"colour", std::string("P6\n2 1\n255\n\x01\x02\x03\xff\x00\x80", 17), 2, 1, {1, 2, 3, 255, 0, 128}},
        {"grey", "P5 1 3 255\nABC", 1, 3, {65, 65, 65, 66, 66, 66, 67, 67, 67}},
        {"maxval 100 truncates", "P6 1 1 100\n\x01\x32\x64", 1, 1, {2, 127, 255}},
        {"above maxval keeps the low bits", "P5 1 1 1\n\x02", 1, 1, {254, 254, 254}},
        {"maxval 65535, a byte a sample", "P5 2 1 65535\n\xfe\xff", 2, 1, {0, 0, 0, 0, 0, 0}},
        {"ASCII variant read as bytes", "P2 2 1 255\n10", 2, 1, {49, 49, 49, 48, 48, 48}},
        {"one blank only before samples", "P5 1 1 255\n\n", 1, 1, {10, 10, 10}},
        {"longer than its header says", "P5 1 1 255\nAB", 1, 1, {65, 65, 65}},
    };
    const TempDir dir;
    for (const auto& row : table) {
        SCOPED_TRACE(row.what);
        const Loaded loaded = load(dir.write("x.jpg", row.file));  // content decides, not the name
        ASSERT_TRUE(loaded.image);
        EXPECT_EQ(loaded.image->width, row.width);
        EXPECT_EQ(loaded.image->height, row.height);
        EXPECT_THAT(loaded.image->bytes(), ElementsAreArray(row.rgb));
    }
}

TEST(LoadPpm, printsWhatItReadsAndSkipsComments)
{
    const TempDir dir;
    EXPECT_EQ(load(dir.write("a.ppm", "P5 2 1 255\nAB")).out,
              "              5 fmt\n              2 *W\n              1 *H\n");
    const Loaded one = load(dir.write("a.ppm", "P5\n# made by hand\n2 1\n255\nAB"));
    ASSERT_TRUE(one.image);
    EXPECT_THAT(one.out, HasSubstr("fmt\nreadppm params error\n              2 *W"));
    EXPECT_TRUE(load(dir.write("b.ppm", "P5\n# one\n#two\n2 1\n255\nAB")).image);
    const Loaded between = load(dir.write("e.ppm", "P5\n2 # width\n1\n#height\n255\nAB"));
    ASSERT_TRUE(between.image);
    EXPECT_EQ(between.image->width, 2);
    EXPECT_THAT(between.out, HasSubstr("fmt\nreadppm params error\nreadppm params error\n"));
    EXPECT_FALSE(load(dir.write("c.ppm", "P5\n#" + std::string(10001, 'x') + "\n2 1\n255\nAB")).image);
    const Loaded noNumber = load(dir.write("d.ppm", "P5\nx\n2 1\n255\nAB"));
    EXPECT_FALSE(noNumber.image);
    EXPECT_THAT(noNumber.out, HasSubstr("readppm params error\nreadppm params error\n"));
}

TEST(LoadPpm, refusesWhatTheFileCannotHold)
{
    const TempDir dir;
    const std::pair<const char*, const char*> table[] = {
        {"P6 100 100 255\n", "fewer samples"}, {"P6 999999999 999999999 255\n", "fewer samples"},
        {"P6 0 5 255\n", "at least 1"},        {"P6 5 0 255\n", "at least 1"},
        {"P6 -4 -4 255\n", "at least 1"},      {"P6 1 1 0\n", "at least 1"},
        {"P6 1 1 -255\n", "at least 1"},
    };
    for (const auto& [header, text] : table) {
        const Loaded loaded = load(dir.write("a.ppm", header + "some samples"s));
        EXPECT_FALSE(loaded.image) << header;
        EXPECT_THAT(loaded.err, HasSubstr(text)) << header;
    }
    for (const char* cut : {"P6 2", "P6"}) EXPECT_FALSE(load(dir.write("b.ppm", cut)).image) << cut;
}

TEST(LoadJpeg, photographsEqualThePlainUseOfTheLibrary)
{
    const TempDir dir;
    for (const char* name : {"img0000.jpg", "photo_chelsea.jpg", "photo_astronaut.jpg"}) {
        SCOPED_TRACE(name);
        const test::Image expected = examplePhoto(name);
        const Loaded loaded = load(dir.write("x.ppm", readFile(examplePath(name))));
        ASSERT_TRUE(loaded.image);
        EXPECT_EQ(loaded.out, "");
        EXPECT_EQ(loaded.image->width, expected.width);
        EXPECT_EQ(loaded.image->height, expected.height);
        EXPECT_TRUE(std::ranges::equal(loaded.image->bytes(), expected.rgb));
    }
}

TEST(LoadJpeg, brokenFiles)
{
    const TempDir dir;
    const std::string photo = readFile(examplePath("img0000.jpg"));

    const Loaded truncated = load(dir.write("a.jpg", photo.substr(0, photo.size() / 2)));
    ASSERT_TRUE(truncated.image) << "a truncated file gives what there is";
    EXPECT_EQ(truncated.image->height, 480);
    EXPECT_THAT(truncated.err, HasSubstr("Premature end"));

    EXPECT_THAT(load(dir.write("b.jpg", "hello")).err, HasSubstr("Not a JPEG file"));
    for (const std::string& path : {dir / "", ""s, dir.write("c.jpg", "")})
        EXPECT_FALSE(load(path).image) << path;
    EXPECT_FALSE(load(dir.write("d.jpg", photo.substr(0, 200))).image);

    std::string huge = photo;  // the frame header claims 65500 x 65500
    const std::size_t frame = huge.find("\xff\xc0");
    ASSERT_NE(frame, std::string::npos);
    for (const std::size_t at : {frame + 5, frame + 7}) huge.replace(at, 2, "\xff\xdc");
    const Loaded refused = load(dir.write("e.jpg", huge));
    EXPECT_FALSE(refused.image);
    EXPECT_THAT(refused.err, HasSubstr("65500 x 65500"));
}

// CMYK, stored inverted with the Adobe marker, and plain.
TEST(LoadJpeg, inksBecomeColours)
{
    const TempDir dir;
    const test::Image photo = test::cropped(examplePhoto("photo_coffee.jpg"), 64, 48);
    for (const auto& [space, adobe] : {std::pair{JCS_YCCK, true}, {JCS_CMYK, true}, {JCS_CMYK, false}}) {
        const Loaded loaded = load(dir.write("inks.jpg", encodeInks(photo, space, adobe)));
        ASSERT_TRUE(loaded.image) << loaded.err;
        EXPECT_LT(meanDifference(photo.rgb, loaded.image->bytes()), 3) << space << adobe;
    }
}

#ifndef _WIN32
TEST(LoadImage, throughAPipeInPieces)
{
    const TempDir dir;
    const std::string pipe = dir / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const test::Image photo = examplePhoto("img0000.jpg");
    ASSERT_TRUE(writeImage(dir / "a.ppm", 0, 640, 480, true, photo.rgb));
    for (const std::string& file : {readFile(examplePath("img0000.jpg")), readFile(dir / "a.ppm")}) {
        std::thread writer([&] {
            std::ofstream out(pipe, std::ios::binary);
            for (std::size_t at = 0; at < file.size(); at += 50021)
                out << file.substr(at, 50021) << std::flush;
        });
        const Loaded loaded = load(pipe);
        writer.join();
        ASSERT_TRUE(loaded.image) << loaded.err;
        EXPECT_TRUE(std::ranges::equal(loaded.image->bytes(), photo.rgb));
    }
}
#endif

TEST(WriteImage, theNameTellsTheKind)
{
    const TempDir dir;
    const std::vector<std::uint8_t> rgb = {1, 2, 3, 4, 5, 6};
    EXPECT_TRUE(writeImage(dir / "a.ppm", 75, 2, 1, true, rgb));
    EXPECT_EQ(readFile(dir / "a.ppm"), "P6\n2 1\n255\n\x01\x02\x03\x04\x05\x06");
    EXPECT_TRUE(writeImage(dir / "b.PPM.old", 75, 1, 2, true, rgb)) << "anywhere in the name";
    for (const char* name : {"a.jpg", "a.jpeg", "a.JPG", "a.JPEG", "a.jpg.ppm"}) {
        SCOPED_TRACE(name);
        EXPECT_TRUE(writeImage(dir / name, 75, 2, 1, true, rgb));
        EXPECT_EQ(readFile(dir / name).substr(0, 3), "\xff\xd8\xff");
    }
}

TEST(WriteImage, whatIsNotWritten)
{
    const TempDir dir;
    const struct
    {
        const char* name;
        int width, height;
        bool isRgb;
        std::string err = {};
    } table[] = {
        {"out.png", 2, 1, true},
        {"out.Jpg", 2, 1, true},
        {"out", 2, 1, true},
        {"out.ppm", 2, 1, false},
        {"out.jpg", 0, 1, true},
        {"out.jpg", 2, -1, true},
        {"out.ppm", 2, 2, true},
        {"out.jpg", 7, 1, false},
        {"no/out.ppm", 2, 1, true},
        {"no/out.jpg", 2, 1, true, "can't open " + (dir / "no/out.jpg") + "\n"},
        {"out.jpg", 70000, 1, false, "Maximum supported image dimension"},
#ifndef _WIN32
        {"full.jpg", 640, 480, true, "can't write " + dir / "full.jpg"},
        {"full.ppm", 640, 480, true, "can't write " + dir / "full.ppm"},
#endif
    };
#ifndef _WIN32
    for (const char* name : {"full.jpg", "full.ppm"})
        std::filesystem::create_symlink("/dev/full", dir / name);
#endif
    std::vector<std::uint8_t> samples(std::size_t{640} * 480 * 3);
    for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = std::uint8_t(i * i / 7);
    for (const auto& row : table) {
        testing::internal::CaptureStderr();
        EXPECT_FALSE(writeImage(dir / row.name, 75, row.width, row.height, row.isRgb,
                                std::span(samples).first(row.err.empty() ? 6 : samples.size())))
            << row.name;
        EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(row.err)) << row.name;
        EXPECT_FALSE(std::filesystem::is_regular_file(dir / row.name)) << row.name;
    }
}

TEST(WriteImage, photographsComeBackNearlyAsTheyWere)
{
    const TempDir dir;
    const test::Image photo = examplePhoto("img0003.jpg");
    const auto meanError = [&](const std::string& path, const std::vector<std::uint8_t>& expected) {
        return meanDifference(load(path).image->bytes(), expected);
    };
    ASSERT_TRUE(writeImage(dir / "a.ppm", 0, 640, 480, true, photo.rgb));
    EXPECT_EQ(meanError(dir / "a.ppm", photo.rgb), 0.0);
    ASSERT_TRUE(writeImage(dir / "a.jpg", 95, 640, 480, true, photo.rgb));
    EXPECT_LT(meanError(dir / "a.jpg", photo.rgb), 2.0);
    ASSERT_TRUE(writeImage(dir / "b.jpg", 20, 640, 480, true, photo.rgb));
    EXPECT_LT(std::filesystem::file_size(dir / "b.jpg"), std::filesystem::file_size(dir / "a.jpg") / 3);

    const std::vector<std::uint8_t> grey = greyOf(photo);
    std::vector<std::uint8_t> threeTimes;
    for (const std::uint8_t g : grey) threeTimes.insert(threeTimes.end(), 3, g);
    ASSERT_TRUE(writeImage(dir / "g.jpg", 95, 640, 480, false, grey));
    EXPECT_LT(meanError(dir / "g.jpg", threeTimes), 1.0);
}

}  // namespace
}  // namespace scansteps
