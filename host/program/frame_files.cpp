// Writes PGM and PPM files, mapping other sample types to 16 bits.
#include "frame_files.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <system_error>
#include <vector>

#include "library/platform.h"
#include "scansteps/chain.h"
#include "scansteps/host.h"
#include "scansteps/stream.h"

namespace scansteps::host {

namespace {

// Samples of a picture, 0 ... greatest.
struct Picture
{
    std::vector<std::uint16_t> samples;
    unsigned greatest = 65535;
};

template <class T>
Picture asTheyAre(std::span<const T> samples)
{
    return {{samples.begin(), samples.end()}, std::numeric_limits<T>::max()};
}

Picture lumaOf(std::span<const std::uint16_t> samples)
{
    Picture picture{{}, 255};
    for (const std::uint16_t sample : samples) picture.samples.push_back(sample & 255U);
    return picture;
}

template <class T>
Picture spreadOut(std::span<const T> values)
{
    double least = std::numeric_limits<double>::infinity(), greatest = -least;
    for (const T value : values) {
        const double number = static_cast<double>(float(value));
        if (!std::isfinite(number)) continue;
        least = std::min(least, number);
        greatest = std::max(greatest, number);
    }
    Picture picture;
    for (const T value : values) {
        const double share = (static_cast<double>(float(value)) - least) / (greatest - least);
        picture.samples.push_back(std::isfinite(share) ? static_cast<std::uint16_t>(
                                                             std::lround(65535 * std::clamp(share, 0.0, 1.0)))
                                                       : std::uint16_t{0});
    }
    return picture;
}

Picture pictureOf(const Array& frame, bool isVideo)
{
    switch (frame.kind()) {
        case Kind::Uchar:
            return asTheyAre(frame.elements<std::uint8_t>());
        case Kind::Ushort:
            return isVideo ? lumaOf(frame.elements<std::uint16_t>())
                           : asTheyAre(frame.elements<std::uint16_t>());
        case Kind::Char:
            return spreadOut(frame.elements<std::int8_t>());
        case Kind::Short:
            return spreadOut(frame.elements<std::int16_t>());
        case Kind::Int:
            return spreadOut(frame.elements<std::int32_t>());
        case Kind::Uint:
            return spreadOut(frame.elements<std::uint32_t>());
        case Kind::Half:
            return spreadOut(frame.elements<Half>());
        case Kind::Float:
            return spreadOut(frame.elements<float>());
        case Kind::Double:
            return spreadOut(frame.elements<double>());
        default:
            return {};
    }
}

int intOr(const Struct& record, const char* name, int fallback)
{
    const varitype* value = record.find(name);
    return value != nullptr && value->kind() == Kind::Int ? value->as<std::int32_t>() : fallback;
}

}  // namespace

FrameFiles::FrameFiles(const std::filesystem::path& folder) : folder_(folder)
{
    std::error_code error, unknown;
    std::filesystem::create_directories(folder, error);
    if (!std::filesystem::is_directory(folder, unknown))
        throw FileError{
            fmt::format("cannot create the folder {}: {}", utf8FromPath(folder),
                        (error ? error : std::make_error_code(std::errc::not_a_directory)).message())};
}

void FrameFiles::add(const Struct& record)
{
    if (intOr(record, "eventType", 0) == event::kInit) {
        width_ = static_cast<std::uint32_t>(std::max(intOr(record, "dataX", 0), 0));
        isVideo_ = record.has("VideoFormat");
    }
    const varitype* data = record.find("data");
    if (data != nullptr && data->kind() == Kind::Array && data->as<Array>().size() != 0)
        write(data->as<Array>());
}

void FrameFiles::write(const Array& frame)
{
    const bool isRgb =
        frame.kind() == Kind::Uchar && width_ != 0 && frame.dim(0) == 3 * std::uint64_t{width_};
    const Picture picture = pictureOf(frame, isVideo_);
    std::string bytes = fmt::format("P{}\n{} {}\n{}\n", isRgb ? 6 : 5, isRgb ? width_ : frame.dim(0),
                                    std::uint64_t{frame.dim(1)} * frame.dim(2), picture.greatest);
    for (const std::uint16_t sample : picture.samples) {
        if (picture.greatest > 255) bytes.push_back(static_cast<char>(sample >> 8U));
        bytes.push_back(static_cast<char>(sample & 255U));
    }
    const auto path = folder_ / fmt::format("frame{:06}.{}", written_ + 1, isRgb ? "ppm" : "pgm");
    BIOfs file(utf8FromPath(path), BIOfs::Mode::Stage);
    try {
        file.write(bytes.data(), bytes.size());
        file.close();
    } catch (const char*) {
        throw FileError{fmt::format("cannot write {}: {}", file.path(), file.reason())};
    }
    ++written_;
}

}  // namespace scansteps::host
