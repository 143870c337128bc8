#include "io/image_file.h"

#include <algorithm>
#include <array>

#include "framework/atomic_file.h"
#include "framework/files.h"
#include "framework/print.h"
#include "io/jpeg_file.h"
#include "scansteps/error.h"

namespace scansteps {
namespace {

std::nullopt_t refuse(const char* why)
{
    std::fprintf(stderr, "%s\n", why);
    return std::nullopt;
}

// The number after the "P" of a PPM file. Numbers are read with at most nine digits, which an int always
// holds.
std::optional<int> readMagic(std::FILE* file)
{
    int magic = 0;
    if (std::fscanf(file, "P%9d", &magic) != 1) return std::nullopt;
    return magic;
}

struct PpmHeader
{
    int width = 0;
    int height = 0;
    int maxval = 0;

    bool read(std::FILE* file) { return std::fscanf(file, "%9d %9d %9d", &width, &height, &maxval) == 3; }
};

// Comment lines stand between the magic number and the sizes. Gives up after 10000 characters.
bool readPastComments(std::FILE* file, PpmHeader& header)
{
    constexpr int kMaxCharacters = 10000;
    for (int count = 0; count <= kMaxCharacters;) {
        int c = std::getc(file);
        ++count;
        if (c == '#') {
            while (c != '\n' && c != EOF && count <= kMaxCharacters) {
                c = std::getc(file);
                ++count;
            }
            continue;
        }
        const bool atEnd = c == EOF;
        std::ungetc(c, file);
        const bool matched = !atEnd && header.read(file);
        print::line("readppm params error");
        if (matched || atEnd) return matched;
    }
    return false;
}

// Bytes from the current position to the end of the file, which leaves the position where it was.
std::optional<std::uint64_t> remainingBytes(std::FILE* file)
{
    const long start = std::ftell(file);
    if (start < 0 || std::fseek(file, 0, SEEK_END) != 0) return std::nullopt;
    const long end = std::ftell(file);
    if (end < start || std::fseek(file, start, SEEK_SET) != 0) return std::nullopt;
    return static_cast<std::uint64_t>(end - start);
}

// sample × 255 / maxval for every byte. Above maxval the result does not fit a byte and keeps its low bits.
std::array<std::uint8_t, 256> scaleTable(int maxval)
{
    std::array<std::uint8_t, 256> table{};
    for (int sample = 0; sample < 256; ++sample)
        table[static_cast<std::size_t>(sample)] = static_cast<std::uint8_t>(sample * 255 / maxval);
    return table;
}

std::optional<RgbImage> loadPpm(std::FILE* file, int magic, Array memory)
{
    print::field(magic, " fmt\n");
    PpmHeader header;
    if (!header.read(file) && !readPastComments(file, header)) return std::nullopt;
    std::getc(file);  // one blank or line end stands before the samples
    print::field(header.width, " *W\n");
    print::field(header.height, " *H\n");
    if (header.width < 1 || header.height < 1) return refuse("PPM file: width and height must be at least 1");
    if (header.maxval < 1) return refuse("PPM file: the largest sample value must be at least 1");

    const bool isRgb = magic == 6;
    const auto width = static_cast<std::uint64_t>(header.width);
    const std::uint64_t pixelCount = width * static_cast<std::uint64_t>(header.height);  // below 10^18
    const std::uint64_t sampleCount = isRgb ? pixelCount * 3 : pixelCount;
    const auto available = remainingBytes(file);
    if (!available) return refuse("PPM file: a stream whose size cannot be told");
    if (*available < sampleCount) return refuse("PPM file: fewer samples than its header says");

    RgbImage image{header.width, header.height, {}};
    std::uint8_t* const pixels = image.takeRoom(std::move(memory));
    // Grey samples are read into the last third and spread from there, which never overtakes the reading.
    std::uint8_t* const samples = pixels + (image.size() - sampleCount);
    if (std::fread(samples, 1, sampleCount, file) != sampleCount) return refuse("PPM file: read error");
    const auto scale = scaleTable(header.maxval);
    if (!isRgb)
        for (std::size_t i = 0; i < pixelCount; ++i) std::fill_n(pixels + 3 * i, 3, scale[samples[i]]);
    else if (header.maxval != 255)
        std::transform(samples, samples + sampleCount, samples, [&](std::uint8_t s) { return scale[s]; });
    return image;
}

std::optional<RgbImage> loadJpeg(std::FILE* file, Array memory)
{
    const auto available = remainingBytes(file);
    if (!available) return refuse("JPEG file: a stream whose size cannot be told");
    return readJpeg(file, std::max(kJpegBytesAlways, *available * kJpegBytesPerFileByte), std::move(memory));
}

bool holdsAnyOf(const std::string& name, std::initializer_list<const char*> texts)
{
    return std::any_of(texts.begin(), texts.end(),
                       [&](const char* text) { return name.find(text) != std::string::npos; });
}

void writePpm(AtomicFile& file, int width, int height, RowSource& source)
{
    const std::size_t rowBytes = static_cast<std::size_t>(width) * 3;
    file.write("P6\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n");
    for (int y = 0; y < height; y += kRowsAtOnce) {
        const int count = std::min(kRowsAtOnce, height - y);
        file.write(std::span(source.rows(y, count), rowBytes * static_cast<std::size_t>(count)));
    }
}

bool isJpegName(const std::string& path)
{
    return holdsAnyOf(path, {".jpg", ".jpeg", ".JPG", ".JPEG"});
}

}  // namespace

PictureRows::PictureRows(std::span<const std::uint8_t> pixels, int width, bool isRgb)
    : pixels_(pixels), width_(static_cast<std::size_t>(width))
{
    if (!isRgb) spread_.resize(width_ * 3 * kRowsAtOnce);
}

const std::uint8_t* PictureRows::rows(int first, int count)
{
    const auto y = static_cast<std::size_t>(first);
    if (spread_.empty()) return pixels_.data() + y * width_ * 3;
    for (std::size_t i = 0; i < width_ * static_cast<std::size_t>(count); ++i)
        std::fill_n(spread_.data() + 3 * i, 3, pixels_[y * width_ + i]);
    return spread_.data();
}

std::optional<RgbImage> loadImage(std::FILE* file, Array memory)
{
    const long start = std::ftell(file);
    if (const auto magic = readMagic(file)) return loadPpm(file, *magic, std::move(memory));
    if (start < 0 || std::fseek(file, start, SEEK_SET) != 0) return refuse("image file cannot seek");
    return loadJpeg(file, std::move(memory));
}

std::optional<RgbImage> loadImage(const std::string& path, Array memory)
{
    File file = openFile(path, "rb");
    if (!file) {
        print::line("image file not found");
        return std::nullopt;
    }
    if (const auto magic = readMagic(file.get())) return loadPpm(file.get(), *magic, std::move(memory));
    file = openFile(path, "rb");
    if (!file) {
        std::fprintf(stderr, "can't open %s\n", path.c_str());
        return std::nullopt;
    }
    return loadJpeg(file.get(), std::move(memory));
}

bool writeImage(const std::string& path, int quality, int width, int height, bool isRgb,
                std::span<const std::uint8_t> pixels)
{
    if (width < 1 || height < 1 || (!isRgb && !isJpegName(path))) return false;
    const std::size_t rowBytes = static_cast<std::size_t>(width) * (isRgb ? 3 : 1);
    if (pixels.size() / rowBytes < static_cast<std::size_t>(height)) return false;
    PictureRows source(pixels, width, isRgb);
    return writeImage(path, quality, width, height, source);
}

bool writeImage(const std::string& path, int quality, int width, int height, RowSource& source)
{
    const bool isJpeg = isJpegName(path);
    if (!isJpeg && !holdsAnyOf(path, {".ppm", ".PPM"})) return false;
    if (width < 1 || height < 1) return false;
    AtomicFile file(path);
    if (!file.isOpen()) {
        std::fprintf(stderr, "can't open %s\n", path.c_str());
        return false;
    }
    try {
        if (!isJpeg)
            writePpm(file, width, height, source);
        else if (!writeJpeg(file, quality, width, height, source))
            fail("the library has printed why");
        file.commit();
        return true;
    } catch (const char*) {
        const std::string reason = file.reason();
        std::fprintf(stderr, "can't write %s%s%s\n", path.c_str(), reason.empty() ? "" : ": ",
                     reason.c_str());
        return false;
    }
}

}  // namespace scansteps
