#include "io/jpeg_file.h"

#include <jpeglib.h>

#include <algorithm>
#include <array>
#include <csetjmp>
#include <vector>

// Every function that calls setjmp holds only plain values between the call and the library's code, and none
// that it changes there, so that a jump back skips no destructor and finds every value as it was. What has a
// destructor lives in the caller.

namespace scansteps {
namespace {

// Real progressive files have about ten scans. Each scan visits the whole picture, however few its bytes are.
constexpr int kMaxScans = 100;

struct ErrorHandler
{
    jpeg_error_mgr base{};  // first, the library hands out its address
    std::jmp_buf escape{};

    jpeg_error_mgr* install()
    {
        jpeg_std_error(&base);
        base.error_exit = [](j_common_ptr jpeg) {
            jpeg->err->output_message(jpeg);
            std::longjmp(reinterpret_cast<ErrorHandler*>(jpeg->err)->escape, 1);
        };
        return &base;
    }
};

struct Decoder
{
    jpeg_decompress_struct jpeg{};
    jpeg_progress_mgr progress{};
    ErrorHandler errors;

    Decoder() { jpeg.err = errors.install(); }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;
    ~Decoder() { jpeg_destroy_decompress(&jpeg); }
};

void limitScans(j_common_ptr common)
{
    const auto* const jpeg = reinterpret_cast<j_decompress_ptr>(common);
    if (jpeg->input_scan_number <= kMaxScans) return;
    std::fprintf(stderr, "JPEG file: more than %d scans\n", kMaxScans);
    std::longjmp(reinterpret_cast<ErrorHandler*>(common->err)->escape, 1);
}

bool readHeader(Decoder& decoder, std::FILE* file)
{
    auto& jpeg = decoder.jpeg;
    if (setjmp(decoder.errors.escape) != 0) return false;
    jpeg_create_decompress(&jpeg);
    jpeg_stdio_src(&jpeg, file);
    jpeg_read_header(&jpeg, TRUE);
    return true;
}

// `maxWork` bounds what the library itself takes, the coefficients of a progressive image above all.
bool startDecoding(Decoder& decoder, long maxWork)
{
    auto& jpeg = decoder.jpeg;
    if (setjmp(decoder.errors.escape) != 0) return false;
    decoder.progress.progress_monitor = limitScans;
    jpeg.progress = &decoder.progress;
    jpeg.mem->max_memory_to_use = maxWork;
    jpeg.out_color_space = JCS_RGB;
    jpeg_start_decompress(&jpeg);
    return true;
}

bool readRows(Decoder& decoder, std::uint8_t* pixels)
{
    auto& jpeg = decoder.jpeg;
    const std::size_t rowBytes = std::size_t{jpeg.output_width} * 3;
    if (setjmp(decoder.errors.escape) != 0) return false;
    while (jpeg.output_scanline < jpeg.output_height) {
        std::array<JSAMPROW, 4> rows{};
        const auto count = std::min<JDIMENSION>(rows.size(), jpeg.output_height - jpeg.output_scanline);
        for (JDIMENSION i = 0; i < count; ++i) rows[i] = pixels + rowBytes * (jpeg.output_scanline + i);
        jpeg_read_scanlines(&jpeg, rows.data(), count);
    }
    jpeg_finish_decompress(&jpeg);
    return true;
}

struct Encoder
{
    jpeg_compress_struct jpeg{};
    ErrorHandler errors;

    Encoder() { jpeg.err = errors.install(); }
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;
    ~Encoder() { jpeg_destroy_compress(&jpeg); }
};

// `spread` holds one row of RGB for grey pixels, and is empty for RGB ones.
bool encode(Encoder& encoder, std::FILE* file, int quality, const std::uint8_t* pixels,
            std::span<std::uint8_t> spread)
{
    auto& jpeg = encoder.jpeg;
    const std::size_t width = jpeg.image_width;
    if (setjmp(encoder.errors.escape) != 0) return false;
    jpeg_set_defaults(&jpeg);
    jpeg_set_quality(&jpeg, quality, TRUE);
    jpeg_stdio_dest(&jpeg, file);
    jpeg_start_compress(&jpeg, TRUE);
    while (jpeg.next_scanline < jpeg.image_height) {
        const std::size_t y = jpeg.next_scanline;
        // The library takes rows that it only reads as pointers to bytes that could change.
        JSAMPROW row = spread.empty() ? const_cast<JSAMPROW>(pixels + y * width * 3) : spread.data();
        if (!spread.empty())
            for (std::size_t x = 0; x < width; ++x) std::fill_n(row + 3 * x, 3, pixels[y * width + x]);
        jpeg_write_scanlines(&jpeg, &row, 1);
    }
    jpeg_finish_compress(&jpeg);
    return true;
}

bool createEncoder(Encoder& encoder, int width, int height)
{
    auto& jpeg = encoder.jpeg;
    if (setjmp(encoder.errors.escape) != 0) return false;
    jpeg_create_compress(&jpeg);
    jpeg.image_width = static_cast<JDIMENSION>(width);
    jpeg.image_height = static_cast<JDIMENSION>(height);
    jpeg.input_components = 3;
    jpeg.in_color_space = JCS_RGB;
    return true;
}

}  // namespace

std::optional<RgbImage> readJpeg(std::FILE* file, std::uint64_t maxBytes)
{
    Decoder decoder;
    if (!readHeader(decoder, file)) return std::nullopt;
    RgbImage image{
        static_cast<int>(decoder.jpeg.image_width), static_cast<int>(decoder.jpeg.image_height), {}};
    if (image.size() > maxBytes) {
        std::fprintf(stderr, "JPEG file: %d x %d pixels are more than so short a file can hold\n",
                     image.width, image.height);
        return std::nullopt;
    }
    // Coefficients take at most 2 bytes a sample and 4 colours, padded to whole blocks and with slack for
    // tables.
    const auto maxWork = std::min<std::uint64_t>(image.size() * 4 + (std::uint64_t{64} << 20U), 0x7fffffff);
    if (!startDecoding(decoder, static_cast<long>(maxWork))) return std::nullopt;
    image.width = static_cast<int>(decoder.jpeg.output_width);
    image.height = static_cast<int>(decoder.jpeg.output_height);
    image.pixels = std::make_unique_for_overwrite<std::uint8_t[]>(image.size());
    if (!readRows(decoder, image.pixels.get())) return std::nullopt;
    return image;
}

bool writeJpeg(std::FILE* file, int quality, int width, int height, bool isRgb,
               std::span<const std::uint8_t> pixels)
{
    std::vector<std::uint8_t> spread(isRgb ? 0 : static_cast<std::size_t>(width) * 3);
    Encoder encoder;
    return createEncoder(encoder, width, height) && encode(encoder, file, quality, pixels.data(), spread);
}

}  // namespace scansteps
