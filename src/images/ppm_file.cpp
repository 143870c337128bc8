// Reading of binary PPM and PGM files.
#include "images/ppm_file.h"

#include <algorithm>
#include <array>

#include "core/print.h"

namespace scansteps::images {
namespace {

bool isBlank(int c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool isDigit(int c)
{
    return c >= '0' && c <= '9';
}

// Reads blanks and a number of at most nine characters, which always fits an int. If there is no number, only
// blanks and a sign have been consumed.
std::optional<int> readNumber(InputFile& file)
{
    int c = file.get();
    while (isBlank(c)) c = file.get();
    int left = 9, value = 0;
    const bool negative = c == '-';
    if (negative || c == '+') {
        c = file.get();
        --left;
    }
    const bool matched = isDigit(c);
    for (; isDigit(c) && left > 0; --left) {
        value = 10 * value + (c - '0');
        c = file.get();
    }
    if (c >= 0) file.unget();
    if (!matched) return std::nullopt;
    return negative ? -value : value;
}

struct Header
{
    std::array<int, 3> numbers{};  // width, height, largest sample value
    std::size_t matched = 0;

    /// Continues with the first missing number.
    bool read(InputFile& file)
    {
        while (matched < numbers.size()) {
            const auto number = readNumber(file);
            if (!number) return false;
            numbers[matched++] = *number;
        }
        return true;
    }
};

// Skips comments between the numbers. Gives up after 10000 characters.
bool readPastComments(InputFile& file, Header& header)
{
    constexpr int kMaxCharacters = 10000;
    for (int count = 0; count <= kMaxCharacters;) {
        int c = file.get();
        ++count;
        if (c == '#') {
            while (c != '\n' && c >= 0 && count <= kMaxCharacters) {
                c = file.get();
                ++count;
            }
            continue;
        }
        const bool atEnd = c < 0;
        if (!atEnd) file.unget();
        const bool matched = !atEnd && header.read(file);
        print::line("readppm params error");
        if (matched || atEnd) return matched;
    }
    return false;
}

// sample × 255 / maxval for every byte. For samples above maxval only the low 8 bits are kept.
std::array<std::uint8_t, 256> scaleTable(int maxval)
{
    std::array<std::uint8_t, 256> table{};
    for (int sample = 0; sample < 256; ++sample)
        table[static_cast<std::size_t>(sample)] = static_cast<std::uint8_t>(sample * 255 / maxval);
    return table;
}

/// Reads the samples into the last third (grey) or all (colour) of the pixels of `image`, which are allocated
/// only once all samples are known to exist.
bool readSamples(InputFile& file, std::uint64_t count, RgbImage& image, Array&& memory)
{
    const auto available = file.remaining();
    if (available) {
        if (*available < count) return false;
        std::uint8_t* const pixels = image.takeRoom(std::move(memory));
        return file.read({pixels + (image.size() - count), count}) == count;
    }
    const std::vector<std::uint8_t> samples = file.readUpTo(count);
    if (samples.size() < count) return false;
    std::uint8_t* const pixels = image.takeRoom(std::move(memory));
    std::ranges::copy(samples, pixels + (image.size() - count));
    return true;
}

}  // namespace

std::optional<int> readPpmMagic(InputFile& file)
{
    return readNumber(file);
}

std::optional<RgbImage> readPpm(InputFile& file, int magic, Array memory, std::string& reason)
{
    const auto refuse = [&reason](const char* why) {
        reason = std::string("PPM file: ") + why;
        return std::nullopt;
    };
    print::field(magic, " fmt\n");
    Header header;
    if (!header.read(file) && !readPastComments(file, header))
        return refuse("a number of its header is missing");
    file.get();  // a single blank or line feed precedes the samples
    const auto [width, height, maxval] = header.numbers;
    print::field(width, " *W\n");
    print::field(height, " *H\n");
    if (width < 1 || height < 1) return refuse("width and height must be at least 1");
    if (maxval < 1) return refuse("the largest sample value must be at least 1");

    const bool isRgb = magic == 6;
    RgbImage image{width, height, {}};
    const std::size_t pixelCount = image.size() / 3;  // below 10^18
    const std::size_t sampleCount = isRgb ? image.size() : pixelCount;
    if (!readSamples(file, sampleCount, image, std::move(memory)))
        return refuse("fewer samples than its header says");

    std::uint8_t* const pixels = image.pixels.elements<std::uint8_t>().data();
    std::uint8_t* const samples = pixels + (image.size() - sampleCount);
    const auto scale = scaleTable(maxval);
    // In-place expansion of grey samples: writing never overtakes reading, which started at the last third.
    if (!isRgb)
        for (std::size_t i = 0; i < pixelCount; ++i) std::fill_n(pixels + 3 * i, 3, scale[samples[i]]);
    else if (maxval != 255)
        std::transform(samples, samples + sampleCount, samples, [&](std::uint8_t s) { return scale[s]; });
    return image;
}

}  // namespace scansteps::images
