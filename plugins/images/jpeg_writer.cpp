// Baseline JPEG files (ITU-T T.81) through the system's JPEG library.
#include <array>
#include <new>
#include <stdexcept>
#include <utility>

#include "encode.h"
#include "jpeg_errors.h"

namespace scansteps::imageio {
namespace {

/// Appends blocks to a file in memory.
struct Destination
{
    jpeg_destination_mgr base{};  // first member: the library passes its address to callbacks
    std::vector<std::uint8_t> file;
    std::array<JOCTET, 16384> block;

    Destination()
    {
        base.init_destination = [](j_compress_ptr jpeg) { of(jpeg).offerBlock(); };
        base.empty_output_buffer = [](j_compress_ptr jpeg) -> boolean {
            of(jpeg).append(jpeg,
                            of(jpeg).block.size());  // the block is full, even if free_in_buffer is not 0
            return TRUE;
        };
        base.term_destination = [](j_compress_ptr jpeg) {
            of(jpeg).append(jpeg, of(jpeg).block.size() - of(jpeg).base.free_in_buffer);
        };
    }

  private:
    static Destination& of(j_compress_ptr jpeg) { return *reinterpret_cast<Destination*>(jpeg->dest); }
    void offerBlock()
    {
        base.next_output_byte = block.data();
        base.free_in_buffer = block.size();
    }
    // An exception must not pass through the library's C code.
    bool keep(std::size_t count) noexcept
    try {
        file.insert(file.end(), block.data(), block.data() + count);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
    void append(j_compress_ptr jpeg, std::size_t count)
    {
        if (!keep(count)) ERREXIT1(jpeg, JERR_OUT_OF_MEMORY, 0);
        offerBlock();
    }
};

struct JpegWriter
{
    jpeg_compress_struct jpeg{};
    JpegErrors errors;
    Destination destination;

    JpegWriter() { jpeg.err = errors.install(); }
    JpegWriter(const JpegWriter&) = delete;
    JpegWriter& operator=(const JpegWriter&) = delete;
    ~JpegWriter() { jpeg_destroy_compress(&jpeg); }
};

bool writeAll(JpegWriter& writer, const Samples& samples, int quality)
{
    auto& jpeg = writer.jpeg;
    if (setjmp(writer.errors.escape) != 0) return false;
    jpeg_create_compress(&jpeg);
    jpeg.dest = &writer.destination.base;
    jpeg.image_width = static_cast<JDIMENSION>(samples.width);
    jpeg.image_height = static_cast<JDIMENSION>(samples.height);
    jpeg.input_components = samples.perPixel;
    jpeg.in_color_space = samples.perPixel == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&jpeg);
    jpeg_set_quality(&jpeg, quality, TRUE);
    jpeg_start_compress(&jpeg, TRUE);
    while (jpeg.next_scanline < jpeg.image_height) {
        // The library takes a non-const pointer although it only reads the row.
        JSAMPROW row = const_cast<JSAMPROW>(samples.row(static_cast<int>(jpeg.next_scanline)));
        jpeg_write_scanlines(&jpeg, &row, 1);
    }
    jpeg_finish_compress(&jpeg);
    return true;
}

}  // namespace

std::vector<std::uint8_t> encodeJpeg(const Samples& samples, int quality)
{
    if (samples.bits != 8) throw std::runtime_error("a JPEG file has 8 bits per sample");
    JpegWriter writer;
    if (!writeAll(writer, samples, quality)) throw std::runtime_error(writer.errors.fatal.data());
    return std::move(writer.destination.file);
}

}  // namespace scansteps::imageio
