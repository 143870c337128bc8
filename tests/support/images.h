// Real photographs for tests: the pictures of examples/images as RGB, grey or float planes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
// jpeglib.h needs the two above first
#include <jpeglib.h>

#include <cstdlib>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace scansteps::test {

/// An 8-bit RGB picture: rows × columns × 3 bytes, rows top to bottom.
struct Image
{
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> rgb;
};

/// Path of a picture of examples/images, for example "img0000.jpg" or "photo_coffee.jpg".
inline std::string examplePath(const std::string& name)
{
    return std::string(SCANSTEPS_SOURCE_DIR) + "/examples/images/" + name;
}

/// Decodes a JPEG file. Throws std::runtime_error when it cannot be opened; a broken file ends the process,
/// as these files are known to be good.
inline Image loadJpeg(const std::string& path)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
    if (!file) throw std::runtime_error("cannot open " + path);
    jpeg_error_mgr errors{};
    jpeg_decompress_struct jpeg{};
    jpeg.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&jpeg);
    jpeg_stdio_src(&jpeg, file.get());
    jpeg_read_header(&jpeg, TRUE);
    jpeg.out_color_space = JCS_RGB;
    jpeg_start_decompress(&jpeg);
    Image image{int(jpeg.output_width), int(jpeg.output_height), {}};
    const std::size_t rowBytes = std::size_t{jpeg.output_width} * 3;
    image.rgb.resize(rowBytes * jpeg.output_height);
    while (jpeg.output_scanline < jpeg.output_height) {
        JSAMPROW row = image.rgb.data() + rowBytes * jpeg.output_scanline;
        jpeg_read_scanlines(&jpeg, &row, 1);
    }
    jpeg_finish_decompress(&jpeg);
    jpeg_destroy_decompress(&jpeg);
    return image;
}

/// A picture of examples/images.
inline Image examplePhoto(const std::string& name)
{
    return loadJpeg(examplePath(name));
}

/// Luma of each pixel, 0 to 255 (ITU-R BT.601 weights, rounded), rows × columns.
inline std::vector<std::uint8_t> greyOf(const Image& image)
{
    std::vector<std::uint8_t> grey(image.rgb.size() / 3);
    for (std::size_t i = 0; i < grey.size(); ++i)
        grey[i] = std::uint8_t(
            (299 * image.rgb[3 * i] + 587 * image.rgb[3 * i + 1] + 114 * image.rgb[3 * i + 2] + 500) / 1000);
    return grey;
}

/// The same as floats.
inline std::vector<float> greyPlaneOf(const Image& image)
{
    const std::vector<std::uint8_t> grey = greyOf(image);
    return {grey.begin(), grey.end()};
}

/// Mean absolute difference of the samples.
inline double meanDifference(std::span<const std::uint8_t> a, std::span<const std::uint8_t> b)
{
    if (a.size() != b.size()) throw std::runtime_error("pictures of different sizes");
    double sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i) sum += std::abs(a[i] - b[i]);
    return sum / double(a.size());
}

}  // namespace scansteps::test
