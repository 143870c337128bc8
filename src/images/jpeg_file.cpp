// Encoding of JPEG files; jpeg_reader.cpp decodes them.
#include "images/jpeg_file.h"

#include <exception>

#include "images/jpeg_errors.h"

namespace scansteps::images {
namespace {

/// Makes the library write directly into the file's buffer. Exceptions thrown by the file are stored here
/// until the library's C code has been left by longjmp.
struct Destination
{
    jpeg_destination_mgr base{};  // first member: the library passes its address to callbacks
    AtomicFile& file;
    std::exception_ptr failure;

    explicit Destination(AtomicFile& to) : file(to)
    {
        base.init_destination = [](j_compress_ptr jpeg) { of(jpeg).offerRoom(jpeg); };
        base.empty_output_buffer = [](j_compress_ptr jpeg) -> boolean {
            Destination& self = of(jpeg);
            self.file.advance(self.begin_ + kRoom);  // the buffer is full, even if free_in_buffer is not 0
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
        if (failure) std::longjmp(reinterpret_cast<JpegErrors*>(jpeg->err)->escape, 1);
        base.next_output_byte = reinterpret_cast<JOCTET*>(begin_);
        base.free_in_buffer = kRoom;
    }

    char* begin_ = nullptr;
};

struct Encoder
{
    jpeg_compress_struct jpeg{};
    JpegErrors errors;
    Destination destination;

    explicit Encoder(AtomicFile& file) : destination(file) { jpeg.err = errors.install(); }
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;
    ~Encoder() { jpeg_destroy_compress(&jpeg); }
};

bool encode(Encoder& encoder, int quality, const std::uint8_t* rgb)
{
    auto& jpeg = encoder.jpeg;
    if (setjmp(encoder.errors.escape) != 0) return false;
    jpeg_set_defaults(&jpeg);
    jpeg_set_quality(&jpeg, quality, TRUE);
    jpeg.dest = &encoder.destination.base;
    jpeg_start_compress(&jpeg, TRUE);
    while (jpeg.next_scanline < jpeg.image_height) {
        // The library takes non-const pointers although it only reads the rows.
        JSAMPROW row = const_cast<JSAMPROW>(rgb) + std::size_t{3} * jpeg.image_width * jpeg.next_scanline;
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

std::string writeJpeg(AtomicFile& file, int quality, int width, int height, std::span<const std::uint8_t> rgb)
{
    Encoder encoder(file);
    const bool written = createEncoder(encoder, width, height) && encode(encoder, quality, rgb.data());
    if (encoder.destination.failure) std::rethrow_exception(encoder.destination.failure);
    return written ? std::string() : encoder.errors.fatal.data();
}

}  // namespace scansteps::images
