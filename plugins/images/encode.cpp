// Chooses the format of a file by its name, and writes PPM and PGM.
#include "encode.h"

#include <algorithm>
#include <bit>
#include <stdexcept>

namespace scansteps::imageio {

FileFormat formatOf(std::string_view fileName)
{
    std::string ending(fileName.substr(std::min(fileName.size(), fileName.rfind('.'))));
    for (char& c : ending)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (ending == ".png") return FileFormat::Png;
    if (ending == ".tif" || ending == ".tiff") return FileFormat::Tiff;
    if (ending == ".jpg" || ending == ".jpeg") return FileFormat::Jpeg;
    if (ending == ".ppm" || ending == ".pgm" || ending == ".pnm") return FileFormat::Pnm;
    return FileFormat::Unknown;
}

std::vector<std::uint8_t> encode(FileFormat format, const Samples& samples, int quality)
{
    switch (format) {
        case FileFormat::Png:
            return encodePng(samples);
        case FileFormat::Tiff:
            return encodeTiff(samples);
        case FileFormat::Jpeg:
            return encodeJpeg(samples, quality);
        case FileFormat::Pnm:
            return encodePnm(samples);
        default:
            throw std::runtime_error("the name has none of the endings .png .tif .jpg .ppm .pgm");
    }
}

std::vector<std::uint8_t> encodePnm(const Samples& samples)
{
    const std::string head = std::string(samples.perPixel == 1 ? "P5" : "P6") + "\n" +
                             std::to_string(samples.width) + " " + std::to_string(samples.height) + "\n" +
                             (samples.bits == 16 ? "65535" : "255") + "\n";
    const std::size_t size = samples.rowBytes() * static_cast<std::size_t>(samples.height);
    std::vector<std::uint8_t> file(head.begin(), head.end());
    file.insert(file.end(), samples.bytes.begin(), samples.bytes.begin() + static_cast<std::ptrdiff_t>(size));
    if (samples.bits == 16 && std::endian::native == std::endian::little)  // the high byte comes first
        for (std::size_t i = head.size(); i + 1 < file.size(); i += 2) std::swap(file[i], file[i + 1]);
    return file;
}

}  // namespace scansteps::imageio
