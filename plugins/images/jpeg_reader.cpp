// JPEG files (ITU-T T.81) through the system's JPEG library.
#include <algorithm>
#include <vector>

#include "decode.h"
#include "exif.h"
#include "jpeg_errors.h"

namespace scansteps::imageio {
namespace {

/// Real progressive files have about ten scans. Each scan visits the whole picture, however short it is.
constexpr int kMaxScans = 100;
constexpr int kExifMarker = JPEG_APP0 + 1;

struct JpegReader
{
    jpeg_decompress_struct jpeg{};
    jpeg_progress_mgr progress{};
    JpegErrors errors;

    JpegReader() { jpeg.err = errors.install(); }
    JpegReader(const JpegReader&) = delete;
    JpegReader& operator=(const JpegReader&) = delete;
    ~JpegReader() { jpeg_destroy_decompress(&jpeg); }
    std::string reason(const char* text) const { return std::string("JPEG file: ") + text; }
};

void limitScans(j_common_ptr common)
{
    if (reinterpret_cast<j_decompress_ptr>(common)->input_scan_number <= kMaxScans) return;
    auto& errors = *reinterpret_cast<JpegErrors*>(common->err);
    std::snprintf(errors.fatal.data(), errors.fatal.size(), "more than %d scans", kMaxScans);
    std::longjmp(errors.escape, 1);
}

bool readHeader(JpegReader& reader, std::span<const std::uint8_t> file)
{
    auto& jpeg = reader.jpeg;
    if (setjmp(reader.errors.escape) != 0) return false;
    jpeg_create_decompress(&jpeg);
    jpeg_save_markers(&jpeg, kExifMarker, 0xFFFF);
    jpeg_mem_src(&jpeg, file.data(), static_cast<unsigned long>(file.size()));
    jpeg_read_header(&jpeg, TRUE);
    return true;
}

// `maxWork` limits the library's own memory, mainly the coefficients of a progressive picture.
bool startDecoding(JpegReader& reader, long maxWork)
{
    auto& jpeg = reader.jpeg;
    if (setjmp(reader.errors.escape) != 0) return false;
    reader.progress.progress_monitor = limitScans;
    jpeg.progress = &reader.progress;
    jpeg.mem->max_memory_to_use = maxWork;
    const bool isPrint = jpeg.jpeg_color_space == JCS_CMYK || jpeg.jpeg_color_space == JCS_YCCK;
    if (isPrint)
        jpeg.out_color_space = JCS_CMYK;  // the library cannot convert CMYK to RGB
    else
        jpeg.out_color_space = jpeg.jpeg_color_space == JCS_GRAYSCALE ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_start_decompress(&jpeg);
    return true;
}

bool readRows(JpegReader& reader, PictureRows& rows, std::uint8_t* buffer)
{
    auto& jpeg = reader.jpeg;
    if (setjmp(reader.errors.escape) != 0) return false;
    while (jpeg.output_scanline < jpeg.output_height) {
        const JDIMENSION y = jpeg.output_scanline;
        jpeg_read_scanlines(&jpeg, &buffer, 1);
        rows.put(y, 0, jpeg.output_width, buffer);
    }
    jpeg_finish_decompress(&jpeg);
    return true;
}

int orientationOf(const jpeg_decompress_struct& jpeg)
{
    constexpr std::uint8_t kName[] = {'E', 'x', 'i', 'f', 0, 0};
    for (auto marker = jpeg.marker_list; marker != nullptr; marker = marker->next) {
        const std::span<const std::uint8_t> block(marker->data, marker->data_length);
        if (marker->marker == kExifMarker && block.size() > sizeof kName &&
            std::equal(std::begin(kName), std::end(kName), block.begin()))
            return exifOrientation(block);
    }
    return 1;
}

}  // namespace

Picture decodeJpeg(std::span<const std::uint8_t> file, Array memory)
{
    JpegReader reader;
    const auto& jpeg = reader.jpeg;
    if (!readHeader(reader, file)) throw DecodeError(reader.reason(reader.errors.fatal.data()));
    checkPictureSize(jpeg.image_width, jpeg.image_height, file.size());
    const int orientation = orientationOf(jpeg);
    // Coefficients take at most 2 bytes per sample in 4 colours, padded to whole blocks; 64 MiB are left for
    // padding and tables.
    const std::uint64_t pixels = std::uint64_t{jpeg.image_width} * jpeg.image_height;
    const auto maxWork = std::min<std::uint64_t>(pixels * 12 + (std::uint64_t{64} << 20U), 0x7fffffff);
    if (!startDecoding(reader, static_cast<long>(maxWork)))
        throw DecodeError(reader.reason(reader.errors.fatal.data()));
    const RowLayout layout{jpeg.output_components, jpeg.output_components, 8,
                           jpeg.output_components == 4 && jpeg.saw_Adobe_marker != 0};
    PictureRows rows(layout, jpeg.output_width, jpeg.output_height, file.size(), std::move(memory));
    std::vector<std::uint8_t> buffer(std::size_t{jpeg.output_width} * layout.samples);
    const bool whole = readRows(reader, rows, buffer.data());
    const bool nothing = !whole && jpeg.output_scanline == 0;
    const char* const why = whole ? reader.errors.damage.data() : reader.errors.fatal.data();
    if (nothing) throw DecodeError(reader.reason(why));
    Picture picture = rows.take(*why == '\0' ? "" : reader.reason(why));
    picture.orientation = orientation;
    return picture;
}

}  // namespace scansteps::imageio
