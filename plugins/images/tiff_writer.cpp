// TIFF files through libtiff: one page, Deflate with horizontal differencing, in the byte order of the
// machine.
#include <algorithm>
#include <stdexcept>

#include "encode.h"
#include "tiff_file.h"

namespace scansteps::imageio {

std::vector<std::uint8_t> encodeTiff(const Samples& samples)
{
    TiffFile file;
    TIFF* const tiff = file.get();
    const auto width = static_cast<std::uint32_t>(samples.width),
               height = static_cast<std::uint32_t>(samples.height);
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, samples.bits);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, samples.perPixel);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, samples.perPixel == 1 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    TIFFSetField(tiff, TIFFTAG_ZIPQUALITY, 3);
    TIFFSetField(tiff, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    // Strips of about 64 KiB.
    const std::size_t rows = std::max<std::size_t>(1, (std::size_t{1} << 16U) / samples.rowBytes());
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, static_cast<std::uint32_t>(std::min<std::size_t>(rows, height)));
    // The library works in the buffer that it is given.
    std::vector<std::uint8_t> row(samples.rowBytes());
    for (int y = 0; y < samples.height; ++y) {
        std::copy_n(samples.row(y), row.size(), row.begin());
        if (TIFFWriteScanline(tiff, row.data(), static_cast<std::uint32_t>(y), 0) < 0)
            throw std::runtime_error(file.takeError());
    }
    if (TIFFFlush(tiff) == 0) throw std::runtime_error(file.takeError());
    return file.finish();
}

}  // namespace scansteps::imageio
