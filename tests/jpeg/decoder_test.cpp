// The baseline JPEG decoder against the system's JPEG library, and on files that it must refuse.
#include "jpeg/decoder.h"

#include "jpeg/idct.h"
#include "support/images.h"
#include "support/jpeg.h"
#include "support/test.h"

namespace scansteps {
namespace {

using namespace jpeg;

using Bytes = std::vector<std::uint8_t>;

struct Decoded
{
    int status = 0;
    std::string message;
    JpegPlanes planes;
};

/// Every buffer has exactly the required size, so that AddressSanitizer detects overruns.
Decoded decode(const Bytes& file, JpegLayout layout)
{
    BaselineJpegDecoder decoder;
    Decoded result;
    const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[file.size()]);
    std::copy(file.begin(), file.end(), exact.get());
    result.status = decoder.parseHeader({exact.get(), file.size()});
    if (result.status == 0) {
        std::array<std::span<std::uint8_t>, 3> spans;
        for (int i = 0; i < 3; ++i) {
            auto& plane = result.planes[std::size_t(i)];
            plane.resize(decoder.planeSize(i, layout).samples());
            spans[std::size_t(i)] = plane;
        }
        decoder.setComponents(spans);
        result.status = decoder.decode(layout);
    }
    result.message = decoder.getErrorString();
    return result;
}

void expectSamePlanes(const JpegPlanes& actual, const JpegPlanes& expected)
{
    for (std::size_t c = 0; c < 3; ++c) {
        ASSERT_EQ(actual[c].size(), expected[c].size()) << "component " << c;
        const auto wrong = std::mismatch(actual[c].begin(), actual[c].end(), expected[c].begin());
        EXPECT_TRUE(wrong.first == actual[c].end())
            << "component " << c << ", sample " << wrong.first - actual[c].begin();
    }
}

/// Offset of the first segment with this marker.
std::size_t segmentAt(const Bytes& file, std::uint8_t marker)
{
    std::size_t at = 2;
    while (at + 4 <= file.size() && file[at + 1] != marker)
        at += 2 + std::size_t(file[at + 2]) * 256 + file[at + 3];
    return at;
}

Bytes without(Bytes file, std::uint8_t marker)
{
    for (std::size_t at = segmentAt(file, marker); at + 4 < file.size(); at = segmentAt(file, marker))
        file.erase(file.begin() + std::ptrdiff_t(at),
                   file.begin() + std::ptrdiff_t(at + 2 + file[at + 2] * 256U + file[at + 3]));
    return file;
}

void insertAt(Bytes& file, std::size_t at, const Bytes& what)
{
    file.insert(file.begin() + std::ptrdiff_t(at), what.begin(), what.end());
}

const test::Image& photo()
{
    static const test::Image image = test::cropped(examplePhoto("photo_coffee.jpg"), 208, 144);
    return image;
}

// Samples equal those of the reference, which is stricter than the documented accuracy.
TEST(BaselineJpeg, everyQualityAsTheAccurateIntegerReference)
{
    for (int quality = 1; quality <= 100; ++quality)
        for (const int restart : {0, 1 + quality % 16}) {
            SCOPED_TRACE(testing::Message() << "quality " << quality << ", restart interval " << restart);
            const Bytes file = encodeJpeg(
                photo(), {.quality = quality, .restartInterval = restart, .optimise = quality % 3 == 0});
            const Decoded result = decode(file, JpegLayout::kYuv420);
            ASSERT_EQ(result.status, 0) << result.message;
            EXPECT_EQ(result.message, "");
            expectSamePlanes(result.planes, test::decodeJpegRaw(file));
        }
}

// Noise has codes of all lengths and uses the last coefficient of most blocks.
TEST(BaselineJpeg, noiseOnEveryTarget)
{
    test::Image noise{96, 64, Bytes(96 * 64 * 3)};
    std::mt19937 random(4);
    for (auto& byte : noise.rgb) byte = std::uint8_t(random());
    forEachTarget([&] {
        for (const int quality : {5, 50, 90, 97, 100})
            for (const bool optimise : {false, true}) {
                const Bytes file = encodeJpeg(noise, {.quality = quality, .optimise = optimise});
                const Decoded result = decode(file, JpegLayout::kNative);
                ASSERT_EQ(result.status, 0) << result.message;
                expectSamePlanes(result.planes, test::decodeJpegRaw(file));
            }
    });
}

std::vector<std::uint8_t> averaged(const Bytes& plane, JpegPlaneSize from, JpegPlaneSize to, int stepX,
                                   int stepY)
{
    Bytes result;
    for (int y = 0; y < to.height; ++y)
        for (int x = 0; x < to.width; ++x) {
            int sum = 0, count = 0;
            for (int v = y * stepY; v < std::min((y + 1) * stepY, from.height); ++v)
                for (int h = x * stepX; h < std::min((x + 1) * stepX, from.width); ++h, ++count)
                    sum += plane[std::size_t(v * from.width + h)];
            result.push_back(std::uint8_t((sum + count / 2) / count));
        }
    return result;
}

TEST(BaselineJpeg, samplingsSizesAndLayouts)
{
    forEachTarget([&] {
        for (const auto& [h, v] : {std::pair{1, 1}, {2, 1}, {1, 2}, {2, 2}})
            for (const int side : {1, 7, 16, 17, 40, 48}) {
                const int width = h == 2 ? (side + 15) / 16 * 16 : side;
                const int height = v == 2 ? (side + 15) / 16 * 16 : side + 3;
                SCOPED_TRACE(testing::Message() << h << "x" << v << ", " << width << " by " << height);
                const Bytes file = encodeJpeg(test::cropped(photo(), width, height),
                                              {.horizontal = h, .vertical = v, .restartInterval = 2});
                JpegPlanes expected = test::decodeJpegRaw(file);
                const Decoded native = decode(file, JpegLayout::kNative);
                ASSERT_EQ(native.status, 0) << native.message;
                expectSamePlanes(native.planes, expected);
                const JpegPlaneSize from{(width + h - 1) / h, (height + v - 1) / v};
                const JpegPlaneSize to{(width + 1) / 2, (height + 1) / 2};
                for (const std::size_t c : {1U, 2U})
                    expected[c] = averaged(expected[c], from, to, 2 / h, 2 / v);
                const Decoded quarter = decode(file, JpegLayout::kYuv420);
                ASSERT_EQ(quarter.status, 0) << quarter.message;
                expectSamePlanes(quarter.planes, expected);
            }
    });
}

// Equivalent encodings of a stream decode to the same planes.
TEST(BaselineJpeg, unusualButLegalStreams)
{
    const Bytes plain = encodeJpeg(photo(), {.restartInterval = 5});
    const JpegPlanes expected = test::decodeJpegRaw(plain);
    const std::size_t frame = segmentAt(plain, 0xC0);
    struct Case
    {
        const char* name;
        std::function<void(Bytes&)> change;
    };
    const std::vector<Case> cases = {
        {"no Huffman tables", [](Bytes& f) { f = without(f, 0xC4); }},
        {"garbage after the end",
         [](Bytes& f) {
             insertAt(f, f.size(), {0xFF, 0xD8, 1, 2, 0xFF, 0xC4});
         }},
        {"no end of image marker", [](Bytes& f) { f.resize(f.size() - 2); }},
        {"no JFIF segment", [](Bytes& f) { f = without(f, 0xE0); }},
        {"a comment and APP segments",
         [&](Bytes& f) {
             insertAt(f, frame, {0xFF, 0xFE, 0, 4, 'h', 'i', 0xFF, 0xE5, 0, 3, 7, 0xFF, 0xE7, 0, 2});
         }},
        {"an Adobe segment that says YCbCr",
         [&](Bytes& f) {
             insertAt(f, frame, {0xFF, 0xEE, 0, 14, 'A', 'd', 'o', 'b', 'e', 0, 100, 0, 0, 0, 0, 1});
         }},
        {"fill bytes",
         [&](Bytes& f) {
             insertAt(f, frame, {0xFF, 0xFF, 0xFF});
         }},
        {"fill bytes in front of a restart marker",
         [](Bytes& f) {
             const Bytes marker = {0xFF, 0xD0};
             const auto at = std::search(f.begin(), f.end(), marker.begin(), marker.end());
             f.insert(at, {0xFF, 0xFF});
         }},
        {"all Huffman tables in one segment",
         [](Bytes& f) {
             Bytes all;
             for (std::size_t at = segmentAt(f, 0xC4); f[at + 1] == 0xC4;) {
                 const std::size_t size = f[at + 2] * 256U + f[at + 3];
                 all.insert(all.end(), &f[at + 4], &f[at + 2] + size);
                 at += 2 + size;
             }
             f = without(f, 0xC4);
             insertAt(all, 0,
                      {0xFF, 0xC4, std::uint8_t((all.size() + 2) >> 8), std::uint8_t(all.size() + 2)});
             insertAt(f, segmentAt(f, 0xDA), all);
         }},
        {"extended sequential", [&](Bytes& f) { f[frame + 1] = 0xC1; }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes file = plain;
        c.change(file);
        ASSERT_NE(file, plain);
        const Decoded result = decode(file, JpegLayout::kYuv420);
        ASSERT_EQ(result.status, 0) << result.message;
        expectSamePlanes(result.planes, expected);
    }
}

Bytes huffmanTable(std::uint8_t id, std::initializer_list<std::uint8_t> firstCounts, std::size_t symbols)
{
    Bytes segment = {0xFF, 0xC4, std::uint8_t((19 + symbols) >> 8), std::uint8_t(19 + symbols), id};
    segment.insert(segment.end(), firstCounts);
    segment.resize(21);
    segment.resize(21 + symbols);
    return segment;
}

TEST(BaselineJpeg, messages)
{
    const Bytes plain = encodeJpeg(test::cropped(photo(), 64, 48), {.restartInterval = 2});
    const std::size_t frame = segmentAt(plain, 0xC0);
    const std::size_t scan = segmentAt(plain, 0xDA);
    const std::size_t quant = segmentAt(plain, 0xDB);
    const auto setAt = [](std::size_t at, std::uint8_t value) { return [=](Bytes& f) { f[at] = value; }; };
    const auto insert = [&](const Bytes& what) { return [=](Bytes& f) { insertAt(f, frame, what); }; };
    const auto size = [&](int width, int height) {
        return [=](Bytes& f) {
            f[frame + 5] = std::uint8_t(height >> 8);
            f[frame + 6] = std::uint8_t(height);
            f[frame + 7] = std::uint8_t(width >> 8);
            f[frame + 8] = std::uint8_t(width);
        };
    };
    struct Case
    {
        const char* message;
        std::function<void(Bytes&)> change;
    };
    const std::vector<Case> cases = {
        {"Not a JPG file ?\n", setAt(1, 0xD7)},
        {"Not a JPG file ?\n", [](Bytes& f) { f.clear(); }},
        {"Precision other than 8 is not supported\n", setAt(frame + 4, 12)},
        {"We only support YUV images\n", setAt(frame + 9, 1)},
        {"We only support YCbCr image\n", setAt(frame + 10, 'R')},
        {"We only support YCbCr image\n", setAt(scan + 4, 1)},
        {"We only support YCbCr image\n",
         insert({0xFF, 0xEE, 0, 14, 'A', 'd', 'o', 'b', 'e', 0, 100, 0, 0, 0, 0, 0})},
        {"16 bits quantization table is not supported\n", setAt(quant + 4, 0x10)},
        {"No more 4 quantization table is supported (got 4)\n", setAt(quant + 4, 4)},
        {"Bad Quantization table index (got 5, max allowed 3)\n", setAt(frame + 12, 5)},
        {"Quantization table 3 is not defined\n", setAt(frame + 12, 3)},
        {"No more than 4 Huffman tables is supported (got 4)\n", insert(huffmanTable(0x14, {0, 1}, 1))},
        {"No more than 256 bytes is allowed to describe a huffman table",
         insert(huffmanTable(0x10, {0, 0, 0, 0, 0, 0, 0, 0, 255, 2}, 257))},
        {"We do not support more than 2 DC Huffman table\n", insert(huffmanTable(0x02, {0, 1}, 1))},
        {"We do not support more than 2 AC Huffman table\n", insert(huffmanTable(0x13, {0, 1}, 1))},
        {"We do not support more than 2 DC Huffman table\n", setAt(scan + 6, 0x20)},
        {"We do not support more than 2 AC Huffman table\n", setAt(scan + 6, 0x02)},
        {"Bad huffman table\n", insert(huffmanTable(0x10, {3}, 3))},
        {"Length of DRI marker need to be 4\n", insert({0xFF, 0xDD, 0, 5, 0, 1, 2})},
        {"Width and Height (4097x48) seems suspicious\n", size(4097, 48)},
        {"Width and Height (64x4097) seems suspicious\n", size(64, 4097)},
        {"Width and Height (64x0) seems suspicious\n", size(64, 0)},
        {"Sampling other than 1x1 for Cr and Cb is not supported", setAt(frame + 14, 0x21)},
        {"Horizontal sampling factor for Y should be greater than horitontal sampling factor for Cb or Cr\n",
         setAt(frame + 11, 0x02)},
        {"Vertical sampling factor for Y should be greater than vertical sampling factor for Cb or Cr\n",
         setAt(frame + 11, 0x20)},
        {"Sampling 4x1 for Y is not supported\n", setAt(frame + 11, 0x41)},
        {"SOS cid order (1:3) isn't compatible with the SOF marker (1:2)\n", setAt(scan + 7, 3)},
        {"Width need to be a multiple of 16 (current Width is 72)\n", size(72, 48)},
        {"Height need to be a multiple of 16 (current height is 50)\n", size(64, 50)},
        {"Only baseline images are supported (got SOF2)\n", setAt(frame + 1, 0xC2)},
        {"SOS marker before SOF marker\n", [](Bytes& f) { f = without(f, 0xC0); }},
        {"Unexpected end of the header\n", [&](Bytes& f) { f.resize(scan); }},
        {"Bad huffman data (buffer overflow)", [](Bytes& f) { f.resize(f.size() - 8); }},
        {"Bad huffman data (no such code)",
         [&](Bytes& f) {
             for (std::size_t at = scan + 14; at < scan + 22; at += 2) f[at] = 0xFF, f[at + 1] = 0;
         }},
        {"EOF while search for a RST marker.",
         [&](Bytes& f) {
             const Bytes marker = {0xFF, 0xD1};
             f.erase(std::search(f.begin(), f.end(), marker.begin(), marker.end()), f.end());
         }},
        {"EOF while search for a RST marker.",
         [&](Bytes& f) {
             const Bytes marker = {0xFF, 0xD1};
             std::search(f.begin(), f.end(), marker.begin(), marker.end())[1] = 0xD5;
         }},
    };
    for (const Case& c : cases) {
        Bytes file = plain;
        c.change(file);
        const Decoded result = decode(file, JpegLayout::kYuv420);
        EXPECT_EQ(result.status, -1) << c.message;
        EXPECT_EQ(result.message, c.message);
    }
}

TEST(BaselineJpeg, largestSizeAndMisuse)
{
    const Bytes file = encodeJpeg(test::Image{4096, 4096, Bytes(std::size_t{3} << 24, 77)}, {});
    const Decoded result = decode(file, JpegLayout::kYuv420);
    EXPECT_EQ(result.status, 0) << result.message;
    EXPECT_EQ(result.planes[0], Bytes(std::size_t{1} << 24, 77));

    BaselineJpegDecoder decoder;
    EXPECT_EQ(decoder.decode(), -1);
    EXPECT_STREQ(decoder.getErrorString(), "No parsed header to decode\n");
    ASSERT_EQ(decoder.parseHeader(file), 0);
    EXPECT_EQ(decoder.decode(), -1);
    EXPECT_STREQ(decoder.getErrorString(), "Plane 0 needs 16777216 samples (got 0)\n");
}

// A truncated file fails, unless only the end marker is missing.
TEST(BaselineJpeg, everyPrefix)
{
    const Bytes file = encodeJpeg(test::cropped(photo(), 96, 64), {.quality = 80, .restartInterval = 7});
    const JpegPlanes expected = test::decodeJpegRaw(file);
    for (std::size_t size = 0; size < file.size(); ++size) {
        const Decoded result =
            decode(Bytes(file.begin(), file.begin() + std::ptrdiff_t(size)), JpegLayout::kYuv420);
        if (size + 2 < file.size()) {
            ASSERT_EQ(result.status, -1) << size;
            ASSERT_NE(result.message, "") << size;
        } else {
            ASSERT_EQ(result.status, 0) << size;
            expectSamePlanes(result.planes, expected);
        }
    }
}

TEST(InverseDct, vectorEqualsScalarOnEveryKindOfBlock)
{
    std::mt19937 random(5);
    std::array<std::int16_t, 64> quant;
    for (auto& q : quant) q = std::int16_t(1 + random() % 255);
    std::vector<std::int16_t> coefficients(64 * 4099);
    for (std::size_t block = 0; block * 64 < coefficients.size(); ++block)
        for (std::size_t i = 0; i < 64; ++i) switch (block % 4) {
                case 0:  // as in photographs
                    if (random() % 8 == 0) coefficients[block * 64 + i] = std::int16_t(random() % 9) - 4;
                    break;
                case 1:
                    coefficients[block * 64 + i] = std::int16_t(random() % 2048) - 1024;
                    break;
                case 2:  // anything
                    coefficients[block * 64 + i] = std::int16_t(random());
                    break;
                default:  // extremes
                    coefficients[block * 64 + i] = random() % 2 != 0 ? 32767 : -32768;
            }
    Bytes expected(coefficients.size());
    for (const bool unit : {false, true}) {
        if (unit) quant.fill(1);
        jpeg::scalar::inverseDct(coefficients, quant, expected);
        forEachTarget([&] {
            Bytes samples(coefficients.size());
            inverseDct(coefficients, quant, samples);
            EXPECT_EQ(samples, expected);
        });
    }
}

}  // namespace
}  // namespace scansteps
