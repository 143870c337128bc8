// Decoding of JPEG files (readJpeg of jpeg_file.h).
#include <algorithm>
#include <array>
#include <vector>

#include "images/jpeg_errors.h"
#include "images/jpeg_file.h"

namespace scansteps::images {
namespace {

// Real progressive files have about ten scans. Each scan visits the whole picture, however short it is.
constexpr int kMaxScans = 100;

struct Decoder
{
    jpeg_decompress_struct jpeg{};
    jpeg_progress_mgr progress{};
    JpegErrors errors;

    Decoder() { jpeg.err = errors.install(); }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;
    ~Decoder() { jpeg_destroy_decompress(&jpeg); }
};

void limitScans(j_common_ptr common)
{
    const auto* const jpeg = reinterpret_cast<j_decompress_ptr>(common);
    if (jpeg->input_scan_number <= kMaxScans) return;
    auto& errors = *reinterpret_cast<JpegErrors*>(common->err);
    std::snprintf(errors.fatal.data(), errors.fatal.size(), "JPEG file: more than %d scans", kMaxScans);
    std::longjmp(errors.escape, 1);
}

bool readHeader(Decoder& decoder, std::span<const std::uint8_t> file)
{
    auto& jpeg = decoder.jpeg;
    if (setjmp(decoder.errors.escape) != 0) return false;
    jpeg_create_decompress(&jpeg);
    jpeg_mem_src(&jpeg, file.data(), static_cast<unsigned long>(file.size()));
    jpeg_read_header(&jpeg, TRUE);
    return true;
}

// `maxWork` limits the library's own memory, mainly the coefficients of a progressive image.
bool startDecoding(Decoder& decoder, long maxWork)
{
    auto& jpeg = decoder.jpeg;
    if (setjmp(decoder.errors.escape) != 0) return false;
    decoder.progress.progress_monitor = limitScans;
    jpeg.progress = &decoder.progress;
    jpeg.mem->max_memory_to_use = maxWork;
    const bool isPrint = jpeg.jpeg_color_space == JCS_CMYK || jpeg.jpeg_color_space == JCS_YCCK;
    jpeg.out_color_space = isPrint ? JCS_CMYK : JCS_RGB;  // the library cannot convert CMYK to RGB
    jpeg_start_decompress(&jpeg);
    return true;
}

// Converts CMYK to RGB without a colour profile. Files with an Adobe marker store inverted values (reflected
// light instead of ink).
void inksToRgb(const std::uint8_t* cmyk, std::uint8_t* rgb, std::size_t width, bool isAdobe)
{
    const unsigned flip = isAdobe ? 0 : 255;
    for (std::size_t x = 0; x < width; ++x) {
        const unsigned black = cmyk[4 * x + 3] ^ flip;
        for (std::size_t i = 0; i < 3; ++i)
            rgb[3 * x + i] = static_cast<std::uint8_t>(((cmyk[4 * x + i] ^ flip) * black + 127) / 255);
    }
}

// `inks` is a buffer for one row of CMYK, null for other images.
bool readRows(Decoder& decoder, std::uint8_t* pixels, std::uint8_t* inks)
{
    auto& jpeg = decoder.jpeg;
    const std::size_t rowBytes = std::size_t{jpeg.output_width} * 3;
    if (setjmp(decoder.errors.escape) != 0) return false;
    while (jpeg.output_scanline < jpeg.output_height) {
        std::uint8_t* const row = pixels + rowBytes * jpeg.output_scanline;
        if (inks != nullptr) {
            jpeg_read_scanlines(&jpeg, &inks, 1);
            inksToRgb(inks, row, jpeg.output_width, jpeg.saw_Adobe_marker != 0);
            continue;
        }
        std::array<JSAMPROW, 4> rows{};
        const auto count = std::min<JDIMENSION>(rows.size(), jpeg.output_height - jpeg.output_scanline);
        for (JDIMENSION i = 0; i < count; ++i) rows[i] = row + rowBytes * i;
        jpeg_read_scanlines(&jpeg, rows.data(), count);
    }
    jpeg_finish_decompress(&jpeg);
    return true;
}

}  // namespace

std::optional<RgbImage> readJpeg(std::span<const std::uint8_t> file, std::uint64_t maxBytes, Array memory,
                                 std::string& reason)
{
    Decoder decoder;
    const auto failed = [&] {
        reason = decoder.errors.fatal.data();
        return std::nullopt;
    };
    if (!readHeader(decoder, file)) return failed();
    RgbImage image{
        static_cast<int>(decoder.jpeg.image_width), static_cast<int>(decoder.jpeg.image_height), {}};
    if (image.size() > maxBytes) {
        reason = "JPEG file: " + std::to_string(image.width) + " x " + std::to_string(image.height) +
                 " pixels exceed the limit for a file of this length";
        return std::nullopt;
    }
    // Coefficients take at most 2 bytes per sample in 4 colours, padded to whole blocks; 64 MiB are left for
    // padding and tables.
    const auto maxWork = std::min<std::uint64_t>(image.size() * 4 + (std::uint64_t{64} << 20U), 0x7fffffff);
    if (!startDecoding(decoder, static_cast<long>(maxWork))) return failed();
    image.width = static_cast<int>(decoder.jpeg.output_width);
    image.height = static_cast<int>(decoder.jpeg.output_height);
    std::vector<std::uint8_t> inks;
    if (decoder.jpeg.out_color_space == JCS_CMYK) inks.resize(std::size_t{decoder.jpeg.output_width} * 4);
    std::uint8_t* const pixels = image.takeRoom(std::move(memory));
    if (!readRows(decoder, pixels, inks.empty() ? nullptr : inks.data())) return failed();
    reason = decoder.errors.damage.data();
    return image;
}

}  // namespace scansteps::images
