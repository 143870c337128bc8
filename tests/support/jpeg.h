// JPEG streams in memory for tests and benchmarks: made from a picture, and decoded to planes by the system's
// JPEG library as the reference.
#pragma once

#include <algorithm>
#include <array>
#include <cstdlib>

#include "images.h"

namespace scansteps::test {

struct JpegOptions
{
    int quality = 90;
    int horizontal = 2;  ///< luma sampling
    int vertical = 2;
    int restartInterval = 0;  ///< MCUs
    bool optimise = false;    ///< Huffman tables made for the picture
    bool progressive = false;
    J_COLOR_SPACE colours = JCS_YCbCr;  ///< of colour pictures
    bool adobe = false;                 ///< of CMYK: with that marker
    std::string exif = {};              ///< an EXIF block
};

/// The picture may have 1 (grey), 3 or 4 (CMYK; with the marker as inverted as Adobe's) bytes a pixel.
inline std::vector<std::uint8_t> encodeJpeg(const Image& image, const JpegOptions& options)
{
    jpeg_error_mgr errors{};
    jpeg_compress_struct jpeg{};
    jpeg.err = jpeg_std_error(&errors);
    jpeg_create_compress(&jpeg);
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&jpeg, &bytes, &size);
    jpeg.image_width = JDIMENSION(image.width);
    jpeg.image_height = JDIMENSION(image.height);
    jpeg.input_components = int(image.rgb.size()) / (image.width * image.height);
    jpeg.in_color_space = jpeg.input_components == 1   ? JCS_GRAYSCALE
                          : jpeg.input_components == 3 ? JCS_RGB
                                                       : JCS_CMYK;
    jpeg_set_defaults(&jpeg);
    if (jpeg.input_components > 1) jpeg_set_colorspace(&jpeg, options.colours);
    if (jpeg.input_components == 4) jpeg.write_Adobe_marker = options.adobe ? TRUE : FALSE;
    jpeg_set_quality(&jpeg, options.quality, TRUE);
    jpeg.comp_info[0].h_samp_factor = options.horizontal;
    jpeg.comp_info[0].v_samp_factor = options.vertical;
    jpeg.restart_interval = unsigned(options.restartInterval);
    jpeg.optimize_coding = options.optimise ? TRUE : FALSE;
    if (options.progressive) jpeg_simple_progression(&jpeg);
    jpeg_start_compress(&jpeg, TRUE);
    const std::string exif = std::string("Exif\0", 6) + options.exif;
    if (exif.size() > 6)
        jpeg_write_marker(&jpeg, JPEG_APP0 + 1, reinterpret_cast<const JOCTET*>(exif.data()),
                          unsigned(exif.size()));
    while (jpeg.next_scanline < jpeg.image_height) {
        auto* row = const_cast<JSAMPROW>(image.rgb.data()) +
                    std::size_t(image.width * jpeg.input_components) * jpeg.next_scanline;
        jpeg_write_scanlines(&jpeg, &row, 1);
    }
    jpeg_finish_compress(&jpeg);
    jpeg_destroy_compress(&jpeg);
    std::vector<std::uint8_t> result(bytes, bytes + size);
    std::free(bytes);
    return result;
}

/// The bytes of a file of it.
inline std::string jpegFile(const Image& image, const JpegOptions& options = {})
{
    const std::vector<std::uint8_t> bytes = encodeJpeg(image, options);
    return {bytes.begin(), bytes.end()};
}

/// The picture as CMYK. `adobe` stores inverted values, with the Adobe marker.
inline std::string encodeInks(const Image& image, J_COLOR_SPACE space, bool adobe)
{
    std::vector<std::uint8_t> inks;
    for (std::size_t i = 0; i < image.rgb.size(); i += 3) {
        const int light = std::max({image.rgb[i], image.rgb[i + 1], image.rgb[i + 2], std::uint8_t{1}});
        for (std::size_t k = 0; k < 3; ++k) inks.push_back(std::uint8_t(image.rgb[i + k] * 255 / light));
        inks.push_back(std::uint8_t(light));
    }
    if (!adobe)
        for (std::uint8_t& ink : inks) ink = std::uint8_t(255 - ink);
    return jpegFile({image.width, image.height, std::move(inks)},
                    {.quality = 98, .horizontal = 1, .vertical = 1, .colours = space, .adobe = adobe});
}

/// The middle `width` × `height` of a picture, which is repeated if it is too small.
inline Image cropped(const Image& image, int width, int height)
{
    Image result{width, height, {}};
    const int left = std::max(0, (image.width - width) / 2);
    const int top = std::max(0, (image.height - height) / 2);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const auto at =
                std::size_t((top + y) % image.height * image.width + (left + x) % image.width) * 3;
            result.rgb.insert(result.rgb.end(), &image.rgb[at], &image.rgb[at] + 3);
        }
    return result;
}

using JpegPlanes = std::array<std::vector<std::uint8_t>, 3>;

/// Planes as the file samples them, by the accurate integer method; rows and columns that only fill up blocks
/// are cut off.
inline JpegPlanes decodeJpegRaw(const std::vector<std::uint8_t>& file)
{
    jpeg_error_mgr errors{};
    jpeg_decompress_struct jpeg{};
    jpeg.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&jpeg);
    jpeg_mem_src(&jpeg, file.data(), static_cast<unsigned long>(file.size()));
    jpeg_read_header(&jpeg, TRUE);
    jpeg.raw_data_out = TRUE;
    jpeg.out_color_space = JCS_YCbCr;
    jpeg.dct_method = JDCT_ISLOW;
    jpeg_start_decompress(&jpeg);
    JpegPlanes planes;
    while (jpeg.output_scanline < jpeg.output_height) {
        std::array<std::vector<std::uint8_t>, 3> rows;
        std::array<std::array<JSAMPROW, 16>, 3> pointers{};
        std::array<JSAMPARRAY, 3> arrays{};
        for (std::size_t c = 0; c < 3; ++c) {
            const auto stride = std::size_t(jpeg.comp_info[c].width_in_blocks) * 8 + 64;
            rows[c].resize(stride * 16);
            for (std::size_t i = 0; i < 16; ++i) pointers[c][i] = rows[c].data() + i * stride;
            arrays[c] = pointers[c].data();
        }
        jpeg_read_raw_data(&jpeg, arrays.data(), JDIMENSION(jpeg.max_v_samp_factor * 8));
        for (std::size_t c = 0; c < 3; ++c) {
            const jpeg_component_info& info = jpeg.comp_info[c];
            const auto width = info.downsampled_width;
            const auto left = info.downsampled_height - planes[c].size() / width;
            const auto count = std::min<std::size_t>(std::size_t(info.v_samp_factor) * 8, left);
            for (std::size_t i = 0; i < count; ++i)
                planes[c].insert(planes[c].end(), pointers[c][i], pointers[c][i] + width);
        }
    }
    jpeg_finish_decompress(&jpeg);
    jpeg_destroy_decompress(&jpeg);
    return planes;
}

}  // namespace scansteps::test
