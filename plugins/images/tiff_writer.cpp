// TIFF files through libtiff: one page, Deflate with horizontal differencing, in the byte order of the
// machine.
#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "encode.h"
#include "tiff_file.h"

namespace scansteps::imageio {

std::vector<std::uint8_t> encodeTiff(const Samples& samples)
{
    TiffFile file;
    TIFF* const tiff = file.get();
    // After a failure (of memory) the library must not be called on: its codec is set up in part.
    const auto set = [&](std::uint32_t tag, auto value) {
        if (TIFFSetField(tiff, tag, value) == 0) throw std::runtime_error(file.takeError());
    };
    const auto width = static_cast<std::uint32_t>(samples.width),
               height = static_cast<std::uint32_t>(samples.height);
    set(TIFFTAG_IMAGEWIDTH, width);
    set(TIFFTAG_IMAGELENGTH, height);
    set(TIFFTAG_BITSPERSAMPLE, samples.bits);
    set(TIFFTAG_SAMPLESPERPIXEL, samples.perPixel);
    set(TIFFTAG_PHOTOMETRIC, samples.perPixel == 1 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
    set(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    set(TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    set(TIFFTAG_ZIPQUALITY, 3);
    set(TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    // Strips of about 64 KiB.
    const std::size_t rows = std::max<std::size_t>(1, (std::size_t{1} << 16U) / samples.rowBytes());
    set(TIFFTAG_ROWSPERSTRIP, static_cast<std::uint32_t>(std::min<std::size_t>(rows, height)));
    // The library works in the buffer that it is given.
    std::vector<std::uint8_t> row(samples.rowBytes());
    for (int y = 0; y < samples.height; ++y) {
        std::copy_n(samples.row(y), row.size(), row.begin());
        if (TIFFWriteScanline(tiff, row.data(), static_cast<std::uint32_t>(y), 0) < 0)
            throw std::runtime_error(file.takeError());
    }
    if (TIFFFlush(tiff) == 0) throw std::runtime_error(file.takeError());
    std::vector<std::uint8_t> bytes = file.finish();
    // Some failures the library reports, but goes on.
    if (const std::string error = file.takeError(); !error.empty()) throw std::runtime_error(error);
    return bytes;
}

}  // namespace scansteps::imageio
