// PNG files (ISO/IEC 15948) through libpng. Its fatal errors leave the C code by longjmp: functions that call
// setjmp hold only trivial values, objects with destructors live in their callers.
#include <png.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <cstring>
#include <optional>
#include <vector>

#include "decode.h"
#include "exif.h"

namespace scansteps::imageio {
namespace {

/// Largest ancillary chunk (a colour profile, a comment, EXIF), and number of them.
constexpr png_alloc_size_t kMaxChunkBytes = png_alloc_size_t{8} << 20U;
constexpr png_uint_32 kMaxChunks = 1000;

struct PngReader
{
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::span<const std::uint8_t> file;
    std::size_t at = 0;
    std::array<char, 120> message{};
    png_uint_32 rowsDone = 0;  // in the order of decoding; of an interlaced picture in all passes
    int passes = 1;

    explicit PngReader(std::span<const std::uint8_t> from) : file(from)
    {
        png = png_create_read_struct(PNG_LIBPNG_VER_STRING, this, fatal, [](png_structp, png_const_charp) {});
        if (png != nullptr) info = png_create_info_struct(png);
        if (info == nullptr) {
            png_destroy_read_struct(&png, nullptr, nullptr);
            throw std::bad_alloc();
        }
        png_set_read_fn(png, this, read);
    }
    PngReader(const PngReader&) = delete;
    PngReader& operator=(const PngReader&) = delete;
    ~PngReader() { png_destroy_read_struct(&png, &info, nullptr); }

  private:
    static void fatal(png_structp png, png_const_charp text)
    {
        auto& self = *static_cast<PngReader*>(png_get_error_ptr(png));
        std::snprintf(self.message.data(), self.message.size(), "%s", text);
        png_longjmp(png, 1);
    }
    static void read(png_structp png, png_bytep to, std::size_t count)
    {
        auto& self = *static_cast<PngReader*>(png_get_io_ptr(png));
        if (self.file.size() - self.at < count) png_error(png, "the file ends too early");
        std::memcpy(to, self.file.data() + self.at, count);
        self.at += count;
    }
};

bool readHeader(PngReader& reader)
{
    png_structp png = reader.png;
    if (setjmp(png_jmpbuf(png)) != 0) return false;
    png_set_chunk_malloc_max(png, kMaxChunkBytes);
    png_set_chunk_cache_max(png, kMaxChunks);
    png_set_user_limits(png, 0x7fffffff, 0x7fffffff);  // checkPictureSize() decides
    png_read_info(png, reader.info);
    png_set_expand(png);  // palettes, fewer than 8 bits, a transparent colour
    if constexpr (std::endian::native == std::endian::little) png_set_swap(png);
    reader.passes = png_set_interlace_handling(png);
    png_read_update_info(png, reader.info);
    return true;
}

// Rows one by one through `buffer`.
bool readRows(PngReader& reader, PictureRows& rows, std::uint8_t* buffer)
{
    if (setjmp(png_jmpbuf(reader.png)) != 0) return false;
    const png_uint_32 width = png_get_image_width(reader.png, reader.info),
                      height = png_get_image_height(reader.png, reader.info);
    for (png_uint_32 y = 0; y < height; ++y, ++reader.rowsDone) {
        png_read_row(reader.png, buffer, nullptr);
        rows.put(y, 0, width, buffer);
    }
    return true;
}

// All passes of an interlaced picture into `buffer`; each repeats its pixels where later ones follow.
bool readPasses(PngReader& reader, std::uint8_t* buffer, std::size_t rowBytes)
{
    if (setjmp(png_jmpbuf(reader.png)) != 0) return false;
    const png_uint_32 height = png_get_image_height(reader.png, reader.info);
    for (int pass = 0; pass < reader.passes; ++pass)
        for (png_uint_32 y = 0; y < height; ++y, ++reader.rowsDone)
            png_read_row(reader.png, nullptr, buffer + rowBytes * y);
    return true;
}

// EXIF may follow the pixels.
int readOrientation(PngReader& reader)
{
    if (setjmp(png_jmpbuf(reader.png)) != 0) return 1;
    if (reader.message[0] == '\0') png_read_end(reader.png, reader.info);
    png_uint_32 size = 0;
    png_bytep block = nullptr;
    if (png_get_eXIf_1(reader.png, reader.info, &size, &block) == 0) return 1;
    return exifOrientation({block, size});
}

}  // namespace

Picture decodePng(std::span<const std::uint8_t> file, Array memory)
{
    PngReader reader(file);
    const auto reason = [&] { return std::string("PNG file: ") + reader.message.data(); };
    if (!readHeader(reader)) throw DecodeError(reason());
    const std::size_t width = png_get_image_width(reader.png, reader.info),
                      height = png_get_image_height(reader.png, reader.info);
    const int samples = png_get_channels(reader.png, reader.info);
    const RowLayout layout{samples < 3 ? 1 : 3, samples, png_get_bit_depth(reader.png, reader.info)};
    PictureRows rows(layout, width, height, file.size(), std::move(memory));
    const std::size_t rowBytes = png_get_rowbytes(reader.png, reader.info);
    const bool interlaced = reader.passes > 1;
    std::vector<std::uint8_t> buffer(interlaced ? rowBytes * height : rowBytes);
    const bool whole =
        interlaced ? readPasses(reader, buffer.data(), rowBytes) : readRows(reader, rows, buffer.data());
    if (!whole && reader.rowsDone == 0) throw DecodeError(reason());
    if (interlaced)
        for (std::size_t y = 0; y < height; ++y) rows.put(y, 0, width, buffer.data() + rowBytes * y);
    Picture picture = rows.take(whole ? "" : reason());
    picture.droppedAlpha = samples % 2 == 0;
    picture.orientation = readOrientation(reader);
    return picture;
}

}  // namespace scansteps::imageio
