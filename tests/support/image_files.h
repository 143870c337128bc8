// Image files for tests, made in memory with the libraries themselves.
#pragma once

#include <png.h>
#include <tiffio.h>
#include <webp/encode.h>
#include <webp/mux.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "support/temp_dir.h"

namespace scansteps::test {

/// An EXIF block that says nothing but the orientation.
inline std::string exifBlock(int orientation, bool bigEndian)
{
    const auto number = [&](unsigned value, int bytes) {
        std::string text;
        for (int i = 0; i < bytes; ++i) text += char(value >> 8 * (bigEndian ? bytes - 1 - i : i));
        return text;
    };
    return (bigEndian ? "MM" : "II") + number(42, 2) + number(8, 4) + number(1, 2) + number(0x112, 2) +
           number(3, 2) + number(1, 4) + number(unsigned(orientation), 2) + number(0, 2) + number(0, 4);
}

/// Rows as libpng takes them: the samples of 16-bit files are given in the byte order of the machine.
struct PngFile
{
    int width = 1, height = 1, bits = 8, colourType = PNG_COLOR_TYPE_RGB;
    bool interlaced = false;
    std::vector<png_color> palette = {};
    std::string exif = {};

    std::string bytes(const void* rows) const
    {
        std::string file;
        png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
        png_infop info = png_create_info_struct(png);
        png_set_write_fn(
            png, &file,
            [](png_structp p, png_bytep data, std::size_t size) {
                static_cast<std::string*>(png_get_io_ptr(p))->append(reinterpret_cast<char*>(data), size);
            },
            nullptr);
        png_set_IHDR(png, info, png_uint_32(width), png_uint_32(height), bits, colourType,
                     interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                     PNG_FILTER_TYPE_DEFAULT);
        if (!palette.empty()) png_set_PLTE(png, info, palette.data(), int(palette.size()));
        if (!exif.empty())
            png_set_eXIf_1(png, info, png_uint_32(exif.size()),
                           reinterpret_cast<png_bytep>(const_cast<char*>(exif.data())));
        png_write_info(png, info);
        if (bits == 16) png_set_swap(png);
        const std::size_t rowBytes = png_get_rowbytes(png, info);
        std::vector<png_bytep> pointers;
        for (int y = 0; y < height; ++y)
            pointers.push_back(static_cast<png_bytep>(const_cast<void*>(rows)) + rowBytes * std::size_t(y));
        png_write_image(png, pointers.data());
        png_write_end(png, info);
        png_destroy_write_struct(&png, &info);
        return file;
    }
};

/// One page of a TIFF file.
struct TiffPage
{
    std::uint32_t width = 1, height = 1;
    int bits = 8, samples = 1, photometric = PHOTOMETRIC_MINISBLACK;
    int compression = COMPRESSION_NONE, orientation = ORIENTATION_TOPLEFT;
    bool tiled = false, inPlanes = false, alpha = false, thumbnail = false;
    const void* rows = nullptr;               // pixel by pixel, also of a file in planes
    std::vector<std::uint16_t> palette = {};  // red, green, blue after each other
};

/// `byteOrder`: "l" for little endian, "b" for big endian.
inline std::string tiffFile(const std::vector<TiffPage>& pages, const std::string& byteOrder = "l")
{
    const TempDir dir;
    const std::string name = dir / "made.tif";
    TIFF* tiff = TIFFOpen(name.c_str(), ("w" + byteOrder).c_str());
    for (const TiffPage& page : pages) {
        TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, page.width);
        TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, page.height);
        TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, page.bits);
        TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, page.samples);
        TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, page.photometric);
        TIFFSetField(tiff, TIFFTAG_COMPRESSION, page.compression);
        TIFFSetField(tiff, TIFFTAG_ORIENTATION, page.orientation);
        TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, page.inPlanes ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG);
        if (page.thumbnail) TIFFSetField(tiff, TIFFTAG_SUBFILETYPE, FILETYPE_REDUCEDIMAGE);
        const std::uint16_t extra = EXTRASAMPLE_UNASSALPHA;
        if (page.alpha) TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &extra);
        if (!page.palette.empty()) {
            const std::size_t third = page.palette.size() / 3;
            TIFFSetField(tiff, TIFFTAG_COLORMAP, page.palette.data(), page.palette.data() + third,
                         page.palette.data() + 2 * third);
        }
        const std::uint32_t side = 16;
        const std::size_t pixelBytes = std::size_t(page.bits * page.samples) / 8;
        const auto* rows = static_cast<const char*>(page.rows);
        // Sample `s` of the pixels of a part, or all samples.
        const auto part = [&](std::uint32_t x0, std::uint32_t y0, std::uint32_t width, std::uint32_t height,
                              int s) {
            std::string bytes;
            const std::size_t sampleBytes = std::size_t(page.bits) / 8;
            for (std::uint32_t y = y0; y < y0 + height; ++y)
                for (std::uint32_t x = x0; x < x0 + width; ++x) {
                    const std::size_t at = (std::size_t{y} * page.width + x) * pixelBytes;
                    const bool inside = x < page.width && y < page.height;
                    const std::size_t from = s < 0 ? at : at + std::size_t(s) * sampleBytes;
                    const std::size_t count = s < 0 ? pixelBytes : sampleBytes;
                    bytes += inside ? std::string(rows + from, count) : std::string(count, '\0');
                }
            return bytes;
        };
        if (page.tiled) {
            TIFFSetField(tiff, TIFFTAG_TILEWIDTH, side);
            TIFFSetField(tiff, TIFFTAG_TILELENGTH, side);
        } else {
            TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 3U);
        }
        for (int s = page.inPlanes ? 0 : -1; s < (page.inPlanes ? page.samples : 0); ++s) {
            const auto plane = static_cast<std::uint16_t>(std::max(s, 0));
            if (page.bits < 8) {
                const std::size_t rowBytes = (page.width * std::size_t(page.bits) + 7) / 8;
                for (std::uint32_t y = 0; y < page.height; ++y)
                    TIFFWriteScanline(tiff, const_cast<char*>(rows) + y * rowBytes, y, 0);
            } else if (page.tiled) {
                for (std::uint32_t y = 0; y < page.height; y += side)
                    for (std::uint32_t x = 0; x < page.width; x += side)
                        TIFFWriteTile(tiff, part(x, y, side, side, s).data(), x, y, 0, plane);
            } else {
                for (std::uint32_t y = 0; y < page.height; ++y)
                    TIFFWriteScanline(tiff, part(0, y, page.width, 1, s).data(), y, plane);
            }
        }
        TIFFWriteDirectory(tiff);
    }
    TIFFClose(tiff);
    return readFile(name);
}

/// Lossless, so that pixels can be compared; rgba has 3 or 4 bytes a pixel.
inline std::string webpFile(const std::vector<std::uint8_t>& pixels, int width, int height, bool alpha,
                            const std::string& exif = "")
{
    std::uint8_t* made = nullptr;
    const std::size_t size = alpha ? WebPEncodeLosslessRGBA(pixels.data(), width, height, 4 * width, &made)
                                   : WebPEncodeLosslessRGB(pixels.data(), width, height, 3 * width, &made);
    std::string file(reinterpret_cast<char*>(made), size);
    WebPFree(made);
    if (exif.empty()) return file;
    const auto data = [](const std::string& text) {
        return WebPData{reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
    };
    const WebPData image = data(file), block = data(exif);
    WebPMux* mux = WebPMuxCreate(&image, 1);
    WebPMuxSetChunk(mux, "EXIF", &block, 1);
    WebPData whole{};
    WebPMuxAssemble(mux, &whole);
    file.assign(reinterpret_cast<const char*>(whole.bytes), whole.size);
    WebPDataClear(&whole);
    WebPMuxDelete(mux);
    return file;
}

}  // namespace scansteps::test
