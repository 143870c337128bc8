#include "io/jpeg_file.h"

#include <jpeglib.h>

#include <algorithm>
#include <array>
#include <csetjmp>
#include <exception>

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

/// Lets the library write into the blocks of a file. What the file throws waits here while the library's C
/// code is left by a jump.
struct Destination
{
    jpeg_destination_mgr base{};  // first, the library hands out its address
    AtomicFile& file;
    std::exception_ptr failure;

    explicit Destination(AtomicFile& to) : file(to)
    {
        base.init_destination = [](j_compress_ptr jpeg) { of(jpeg).offerRoom(jpeg); };
        base.empty_output_buffer = [](j_compress_ptr jpeg) -> boolean {
            Destination& self = of(jpeg);
            self.file.advance(self.begin_ + kRoom);  // the whole room is full then, whatever the pointer says
            self.offerRoom(jpeg);
            return TRUE;
        };
        base.term_destination = [](j_compress_ptr jpeg) {
            of(jpeg).file.advance(reinterpret_cast<char*>(jpeg->dest->next_output_byte));
        };
    }

  private:
    static constexpr std::size_t kRoom = std::size_t{16} * 1024;

    static Destination& of(j_compress_ptr jpeg) { return *reinterpret_cast<Destination*>(jpeg->dest); }

    void offerRoom(j_compress_ptr jpeg)
    {
        try {
            begin_ = file.room(kRoom);
        } catch (...) {
            failure = std::current_exception();
        }
        if (failure) std::longjmp(reinterpret_cast<ErrorHandler*>(jpeg->err)->escape, 1);
        base.next_output_byte = reinterpret_cast<JOCTET*>(begin_);
        base.free_in_buffer = kRoom;
    }

    char* begin_ = nullptr;
};

struct Encoder
{
    jpeg_compress_struct jpeg{};
    ErrorHandler errors;
    Destination destination;

    explicit Encoder(AtomicFile& file) : destination(file) { jpeg.err = errors.install(); }
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;
    ~Encoder() { jpeg_destroy_compress(&jpeg); }
};

// Passes rows on until the library has them all.
void putRows(jpeg_compress_struct& jpeg, const std::uint8_t* pixels, int count)
{
    std::array<JSAMPROW, kRowsAtOnce> rows{};
    const auto end = static_cast<JDIMENSION>(count);
    // The library takes rows that it only reads as pointers to bytes that could change.
    for (JDIMENSION i = 0; i < end; ++i)
        rows[i] = const_cast<JSAMPROW>(pixels) + std::size_t{jpeg.image_width} * 3 * i;
    for (JDIMENSION put = 0; put < end;) put += jpeg_write_scanlines(&jpeg, rows.data() + put, end - put);
}

bool encode(Encoder& encoder, int quality, RowSource& source)
{
    auto& jpeg = encoder.jpeg;
    if (setjmp(encoder.errors.escape) != 0) return false;
    jpeg_set_defaults(&jpeg);
    jpeg_set_quality(&jpeg, quality, TRUE);
    jpeg.dest = &encoder.destination.base;
    jpeg_start_compress(&jpeg, TRUE);
    while (jpeg.next_scanline < jpeg.image_height) {
        const int y = static_cast<int>(jpeg.next_scanline);
        const int count = std::min(kRowsAtOnce, static_cast<int>(jpeg.image_height) - y);
        putRows(jpeg, source.rows(y, count), count);
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

std::optional<RgbImage> readJpeg(std::FILE* file, std::uint64_t maxBytes, Array memory)
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
    if (!readRows(decoder, image.takeRoom(std::move(memory)))) return std::nullopt;
    return image;
}

bool writeJpeg(AtomicFile& file, int quality, int width, int height, RowSource& source)
{
    Encoder encoder(file);
    const bool written = createEncoder(encoder, width, height) && encode(encoder, quality, source);
    if (encoder.destination.failure) std::rethrow_exception(encoder.destination.failure);
    return written;
}

}  // namespace scansteps
