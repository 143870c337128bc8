// Image files of every format, depth and kind of colour, read from memory.
#include "plugins/images/decode.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <random>

#include "plugins/images/exif.h"
#include "support/image_files.h"
#include "support/images.h"
#include "support/jpeg.h"

namespace scansteps {
namespace {

using namespace imageio;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::Pointwise;

using Bytes = std::vector<std::uint8_t>;
using Words = std::vector<std::uint16_t>;

std::span<const std::uint8_t> bytesOf(const std::string& file)
{
    return {reinterpret_cast<const std::uint8_t*>(file.data()), file.size()};
}

Picture decoded(const std::string& file)
{
    Picture picture = openPictures(bytesOf(file))->next({});
    upright(picture);
    return picture;
}

Bytes rgbOf(const Picture& picture)
{
    const auto samples = picture.pixels.elements<std::uint8_t>();
    return {samples.begin(), samples.end()};
}

Words greyOf(const Picture& picture)
{
    const auto samples = picture.pixels.elements<std::uint16_t>();
    return {samples.begin(), samples.end()};
}

/// So fine that colours of single blocks are kept.
std::string fineJpeg(const Bytes& pixels, int width, int height, test::JpegOptions options = {})
{
    options.quality = 100;
    options.horizontal = options.vertical = 1;
    return test::jpegFile({width, height, pixels}, options);
}

std::string errorOf(const std::string& file)
{
    try {
        decoded(file);
    } catch (const DecodeError& error) {
        return error.what();
    }
    return "";
}

// A picture with as many different samples as it has, of 37 x 21 pixels: no multiple of a tile or a byte.
constexpr int kWidth = 37, kHeight = 21;
template <class T>
std::vector<T> ramp(int samples)
{
    std::vector<T> all(std::size_t(kWidth * kHeight * samples));
    for (std::size_t i = 0; i < all.size(); ++i) all[i] = T(i * 2654435761U >> 7U);
    return all;
}

struct Expected
{
    Words grey;
    Bytes rgb;
};

// The first `colours` of `samples` samples a pixel, as a frame holds them.
template <class T>
Expected expected(const std::vector<T>& file, int samples)
{
    const bool isGrey = samples < 3;
    Expected result;
    for (std::size_t i = 0; i < file.size(); i += std::size_t(samples))
        for (std::size_t c = 0; c < (isGrey ? 1U : 3U); ++c) {
            const unsigned v = file[i + c];
            if (isGrey)
                result.grey.push_back(std::uint16_t(sizeof(T) == 1 ? 32768 + v : v));
            else
                result.rgb.push_back(std::uint8_t(sizeof(T) == 1 ? v : unsigned(v / 257.0 + 0.5)));
        }
    return result;
}

void expectPicture(const std::string& file, const Expected& wanted, bool alpha, bool reduced)
{
    const Picture picture = decoded(file);
    EXPECT_EQ(picture.width(), kWidth);
    EXPECT_EQ(picture.height(), kHeight);
    EXPECT_EQ(picture.damage, "");
    EXPECT_THAT(greyOf(picture), ElementsAreArray(wanted.grey));
    EXPECT_THAT(rgbOf(picture), ElementsAreArray(wanted.rgb));
    EXPECT_EQ(picture.droppedAlpha, alpha);
    EXPECT_EQ(picture.reducedDepth, reduced);
}

template <class T>
void expectEveryLayout(int samples)
{
    const std::vector<T> pixels = ramp<T>(samples);
    const Expected wanted = expected(pixels, samples);
    const bool alpha = samples % 2 == 0, reduced = sizeof(T) == 2 && samples > 2;
    constexpr int kPngTypes[] = {0, PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_GRAY_ALPHA, PNG_COLOR_TYPE_RGB,
                                 PNG_COLOR_TYPE_RGB_ALPHA};
    for (const bool interlaced : {false, true}) {
        SCOPED_TRACE(interlaced ? "interlaced PNG" : "PNG");
        expectPicture(
            test::PngFile{kWidth, kHeight, 8 * int(sizeof(T)), kPngTypes[samples], interlaced}.bytes(
                pixels.data()),
            wanted, alpha, reduced);
    }
    test::TiffPage page{std::uint32_t(kWidth), std::uint32_t(kHeight)};
    page.bits = 8 * int(sizeof(T));
    page.samples = samples;
    page.photometric = samples < 3 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB;
    page.alpha = alpha;
    page.rows = pixels.data();
    for (const int compression : {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE})
        for (const bool tiled : {false, true})
            for (const bool inPlanes : {false, true})
                for (const char* order : {"l", "b"}) {
                    SCOPED_TRACE(testing::Message() << "TIFF " << compression << (tiled ? " tiled" : "")
                                                    << (inPlanes ? " in planes " : " ") << order);
                    page.compression = compression;
                    page.tiled = tiled;
                    page.inPlanes = inPlanes;
                    expectPicture(test::tiffFile({page}, order), wanted, alpha, reduced);
                }
}

TEST(DecodePicture, everyLayoutOfPngAndTiff)
{
    for (int samples = 1; samples <= 4; ++samples) {
        SCOPED_TRACE(samples);
        expectEveryLayout<std::uint8_t>(samples);
        expectEveryLayout<std::uint16_t>(samples);
    }
}

TEST(DecodePicture, palettesAndFewBits)
{
    const std::uint8_t indices[] = {0x1B};  // 0 1 2 3 of two bits each
    test::PngFile png{4, 1, 2, PNG_COLOR_TYPE_PALETTE};
    png.palette = {{1, 2, 3}, {40, 50, 60}, {255, 0, 255}, {7, 8, 9}};
    const Bytes colours = {1, 2, 3, 40, 50, 60, 255, 0, 255, 7, 8, 9};
    EXPECT_EQ(rgbOf(decoded(png.bytes(indices))), colours);
    EXPECT_EQ(greyOf(decoded(test::PngFile{4, 1, 2, PNG_COLOR_TYPE_GRAY}.bytes(indices))),
              (Words{32768, 32768 + 85, 32768 + 170, 32768 + 255}));

    test::TiffPage page{4, 1, 4, 1, PHOTOMETRIC_PALETTE};
    const std::uint8_t nibbles[] = {0x01, 0x23};
    page.rows = nibbles;
    page.palette.resize(48);
    for (std::size_t i = 0; i < 4; ++i)
        for (std::size_t c = 0; c < 3; ++c)
            page.palette[16 * c + i] = std::uint16_t(colours[3 * i + c] * 257);
    EXPECT_EQ(rgbOf(decoded(test::tiffFile({page}))), colours);

    const std::uint8_t row[] = {0xA0};
    test::TiffPage bilevel{4, 1, 1, 1, PHOTOMETRIC_MINISWHITE};
    bilevel.rows = row;
    EXPECT_EQ(greyOf(decoded(test::tiffFile({bilevel}))), (Words{32768, 33023, 32768, 33023}));
    const std::uint16_t deep[] = {0, 65535, 1000};
    test::TiffPage inverted{3, 1, 16, 1, PHOTOMETRIC_MINISWHITE};
    inverted.rows = deep;
    EXPECT_EQ(greyOf(decoded(test::tiffFile({inverted}))), (Words{65535, 0, 64535}));
}

TEST(DecodePicture, inksBecomeColours)
{
    // Cyan, magenta, yellow, black, white, half cyan with half black.
    const Bytes inks = {255, 0, 0, 0, 0, 255, 0, 0, 0, 0, 255, 0, 0, 0, 0, 255, 0, 0, 0, 0, 128, 0, 0, 128};
    const Bytes wanted = {0, 255, 255, 255, 0, 255, 255, 255, 0, 0, 0, 0, 255, 255, 255, 63, 127, 127};
    test::TiffPage page{6, 1, 8, 4, PHOTOMETRIC_SEPARATED};
    page.rows = inks.data();
    EXPECT_EQ(rgbOf(decoded(test::tiffFile({page}))), wanted);

    Bytes inverted;
    for (const std::uint8_t ink : inks)
        for (int i = 0; i < 8; ++i) inverted.push_back(std::uint8_t(255 - ink));
    // A block of 8 x 8 pixels for each colour, so that JPEG keeps it.
    Bytes blocks;
    for (int y = 0; y < 8; ++y)
        for (std::size_t i = 0; i < 6; ++i)
            for (int x = 0; x < 8; ++x)
                for (std::size_t c = 0; c < 4; ++c) blocks.push_back(std::uint8_t(255 - inks[4 * i + c]));
    for (const J_COLOR_SPACE space : {JCS_CMYK, JCS_YCCK}) {
        const Picture picture = decoded(fineJpeg(blocks, 48, 8, {.colours = space, .adobe = true}));
        ASSERT_EQ(picture.width(), 48);
        for (std::size_t i = 0; i < 6; ++i)
            for (std::size_t c = 0; c < 3; ++c)
                EXPECT_NEAR(rgbOf(picture)[3 * (8 * i + 4) + c], wanted[3 * i + c], 3) << space << i << c;
    }
}

TEST(DecodePicture, webpAndJpegAndPnm)
{
    const Bytes rgb = ramp<std::uint8_t>(3), rgba = ramp<std::uint8_t>(4);
    expectPicture(test::webpFile(rgb, kWidth, kHeight, false), expected(rgb, 3), false, false);
    Bytes opaque = rgba;
    for (std::size_t i = 3; i < opaque.size(); i += 4)
        opaque[i] |= 1;  // the encoder clears what is invisible
    expectPicture(test::webpFile(opaque, kWidth, kHeight, true), expected(opaque, 4), true, false);

    const Picture grey = decoded(fineJpeg(Bytes(64, 77), 8, 8));
    EXPECT_THAT(greyOf(grey), ElementsAreArray(Words(64, 32768 + 77)));

    const struct
    {
        std::string file;
        Words grey;
        Bytes rgb;
        bool reduced;
    } table[] = {
        {"P5 2 1 255\nA\xff", {32768 + 65, 33023}, {}, false},
        {"P5\n# by hand\n2 # wide\n1 15\n\x0f\x07", {33023, 32768 + 119}, {}, false},
        {std::string("P5 2 1 4095\n\x0f\xff\0\x10", 16), {4095, 16}, {}, false},
        {std::string("P5 1 1 65535\n\x12\x34", 15), {0x1234}, {}, false},
        {"P2 3 1 9\n0 9 5\n", {32768, 33023, 32768 + 142}, {}, false},
        {"P6 1 1 255\n\x01\x02\x03", {}, {1, 2, 3}, false},
        {std::string("P6 1 1 65535\n\xff\xff\0\0\x80\x80", 19), {}, {255, 0, 128}, true},
        {"P3 1 1 1\n1 0 1", {}, {255, 0, 255}, false},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.file);
        const Picture picture = decoded(row.file);
        EXPECT_EQ(greyOf(picture), row.grey);
        EXPECT_EQ(rgbOf(picture), row.rgb);
        EXPECT_EQ(picture.reducedDepth, row.reduced);
    }
}

// The picture A B C / D E F, as it is shown for each code (EXIF 2.32, 4.6.4.A).
TEST(DecodePicture, orientationsOfEveryFormat)
{
    const char* const shown[] = {"ABC/DEF",  "CBA/FED",  "FED/CBA",  "DEF/ABC",
                                 "AD/BE/CF", "DA/EB/FC", "FC/EB/DA", "CF/BE/AD"};
    constexpr int kSide = 8;  // of a pixel, so that JPEG keeps it
    Bytes grey, rgb;
    for (int y = 0; y < 2 * kSide; ++y)
        for (int x = 0; x < 3 * kSide; ++x) {
            grey.push_back(std::uint8_t(40 * (3 * (y / kSide) + x / kSide)));
            for (int c = 0; c < 3; ++c) rgb.push_back(grey.back());
        }
    const auto view = [](const Picture& picture) {
        std::string text;
        for (int y = kSide / 2; y < picture.height(); y += kSide) {
            if (!text.empty()) text += '/';
            for (int x = kSide / 2; x < picture.width(); x += kSide) {
                const auto at = std::size_t(y * picture.width() + x);
                const int value = picture.isGrey() ? greyOf(picture)[at] - 32768 : rgbOf(picture)[3 * at + 1];
                text += char('A' + (value + 20) / 40);
            }
        }
        return text;
    };
    for (int code = 1; code <= 8; ++code) {
        SCOPED_TRACE(code);
        const std::string exif = test::exifBlock(code, code % 2 == 0);
        test::PngFile png{3 * kSide, 2 * kSide};
        png.exif = exif;
        test::TiffPage page{3 * kSide, 2 * kSide};
        page.rows = grey.data();
        page.orientation = code;
        for (const std::string& file : {png.bytes(rgb.data()), test::tiffFile({page}),
                                        fineJpeg(rgb, 3 * kSide, 2 * kSide, {.exif = exif}),
                                        fineJpeg(grey, 3 * kSide, 2 * kSide, {.exif = exif}),
                                        test::webpFile(rgb, 3 * kSide, 2 * kSide, false, exif)})
            EXPECT_EQ(view(decoded(file)), shown[code - 1]);
    }
}

TEST(ExifOrientation, damagedBlocksHaveNone)
{
    const std::string whole = test::exifBlock(6, true);
    for (std::size_t size = 0; size + 6 < whole.size(); ++size)
        EXPECT_EQ(exifOrientation(bytesOf(whole.substr(0, size))), size >= 20 ? 6 : 1) << size;
    std::string far = whole;
    far[4] = '\xff';  // the directory lies beyond the end
    EXPECT_EQ(exifOrientation(bytesOf(far)), 1);
    EXPECT_EQ(exifOrientation(bytesOf(test::exifBlock(9, false))), 1);
}

TEST(DecodePicture, pagesOfTiffFiles)
{
    const std::uint8_t first[] = {1}, second[] = {2};
    test::TiffPage a, b, thumbnail;
    a.rows = first;
    b.rows = thumbnail.rows = second;
    thumbnail.thumbnail = true;
    const std::string file = test::tiffFile({a, thumbnail, b});
    const auto pictures = openPictures(bytesOf(file));
    Words seen;
    while (pictures->more()) seen.push_back(greyOf(pictures->next({}))[0]);
    EXPECT_THAT(seen, ElementsAre(32769, 32770));
}

// What is missing is 0, whatever the reused memory held.
TEST(DecodePicture, cutFilesGiveTheirFirstRows)
{
    constexpr int kRows = 400;  // libpng decodes blocks of 8 KiB
    Bytes rgb(std::size_t{3} * kWidth * kRows);
    std::minstd_rand random(1);
    for (std::uint8_t& sample : rgb) sample = std::uint8_t(random());
    const std::string png = test::PngFile{kWidth, kRows}.bytes(rgb.data());
    const std::string ppm = "P6 37 400 255\n" + std::string(rgb.begin(), rgb.end());
    for (const auto& [file, words] : {std::pair{png, "PNG file: the file ends too early"},
                                      std::pair{ppm, "PNM file: fewer samples than its header says"}}) {
        const std::string half = file.substr(0, file.size() * 2 / 3);
        Array memory(Kind::Uchar, 3 * kWidth, kRows);
        std::ranges::fill(memory.elements<std::uint8_t>(), std::uint8_t{99});
        const Picture picture = openPictures(bytesOf(half))->next(std::move(memory));
        EXPECT_EQ(picture.damage, words);
        const Bytes got = rgbOf(picture);
        EXPECT_TRUE(std::equal(rgb.begin(), rgb.begin() + 3 * kWidth, got.begin()));
        EXPECT_THAT(Bytes(got.end() - 3 * kWidth, got.end()), ElementsAreArray(Bytes(3 * kWidth)));
    }
}

TEST(DecodePicture, refusesWithAReason)
{
    const std::uint8_t one[] = {1, 2, 3, 4};
    test::TiffPage real{1, 1, 32, 1};
    real.rows = one;
    std::string huge = test::PngFile{1, 1}.bytes(one);
    // 60000 x 4000 pixels, with the checksum of the changed header.
    huge.replace(16, 8, std::string("\0\0\xea\x60\0\0\x0f\xa0", 8));
    const auto crc = std::uint32_t(crc32(0, reinterpret_cast<const Bytef*>(huge.data() + 12), 17));
    for (std::size_t i = 0; i < 4; ++i) huge[29 + i] = char(crc >> (24 - 8 * i));
    const struct
    {
        std::string file;
        const char* words;
    } table[] = {
        {"", "an empty file"},
        {"GIF89a", "unknown format; PNG, TIFF, WebP, JPEG, PPM and PGM can be read"},
        {std::string("\0\0\0\x18"
                     "ftypheic",
                     12),
         "a HEIF, AVIF or video file"},
        {"\x89PNG\r\n\x1a\n", "PNG file: the file ends too early"},
        {"\xff\xd8\xff", "JPEG file: "},
        {std::string("II*\0\xff\xff\xff\xff", 8), "TIFF file: "},
        {std::string("RIFF\x20\0\0\0WEBPVP8 ", 16), "WebP file: it ends too early"},
        {"P6 2 2 255\n", "PNM file: fewer samples"},
        {"P6 2", "PNM file: a number is missing"},
        {"P6 99999999999 1 255\n", "PNM file: a number is too large"},
        {"P5 0 4 255\n", "0 x 4 pixels"},
        {"P5 70000 2 255\n", "70000 x 2 pixels are more than a frame can have"},
        {"P5 20000 20000 255\n", "20000 x 20000 pixels are more than a frame can have"},
        {"P5 10000 10000 255\n", "10000 x 10000 pixels exceed the limit for a file of this length"},
        {huge, "exceed the limit"},
        {test::tiffFile({real}), "32-bit samples"},
    };
    testing::internal::CaptureStderr();
    for (const auto& [file, words] : table) EXPECT_THAT(errorOf(file), HasSubstr(words)) << file;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace scansteps
