// Writes PNG files, mapping other sample types to 16 bits.
#include "frame_files.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "library/platform.h"
#include "plugins/images/encode.h"
#include "scansteps/chain.h"
#include "scansteps/host.h"
#include "scansteps/stream.h"
#include "scansteps/yuyv.h"

namespace scansteps::host {

namespace {

// Samples of a picture; 16-bit ones in the byte order of this machine.
struct Picture
{
    std::vector<std::uint8_t> bytes;
    int perPixel = 1, bits = 8;
};

Picture asTheyAre(const Array& frame, int perPixel, int bits)
{
    const auto* const begin = reinterpret_cast<const std::uint8_t*>(frame.data());
    return {{begin, begin + frame.byteSize()}, perPixel, bits};
}

Picture colourOf(const Array& frame)
{
    const auto samples = frame.elements<std::uint16_t>();
    Picture picture{std::vector<std::uint8_t>(3 * samples.size()), 3, 8};
    yuyv16ToRgb(samples, picture.bytes, frame.dim(0), samples.size() / frame.dim(0));
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
    std::vector<std::uint16_t> samples;
    for (const T value : values) {
        const double share = (static_cast<double>(float(value)) - least) / (greatest - least);
        samples.push_back(std::isfinite(share)
                              ? static_cast<std::uint16_t>(std::lround(65535 * std::clamp(share, 0.0, 1.0)))
                              : std::uint16_t{0});
    }
    Picture picture{std::vector<std::uint8_t>(2 * samples.size()), 1, 16};
    std::memcpy(picture.bytes.data(), samples.data(), picture.bytes.size());
    return picture;
}

Picture pictureOf(const Array& frame, std::uint32_t width, bool isVideo)
{
    switch (frame.kind()) {
        case Kind::Uchar:
            return asTheyAre(frame, width != 0 && frame.dim(0) == 3 * std::uint64_t{width} ? 3 : 1, 8);
        case Kind::Ushort:
            return isVideo ? colourOf(frame) : asTheyAre(frame, 1, 16);
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

int imageSide(std::uint64_t pixels)
{
    if (pixels > 0x7fffffff) throw std::runtime_error(fmt::format("{} pixels in a row or column", pixels));
    return static_cast<int>(pixels);
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
    const Picture picture = pictureOf(frame, width_, isVideo_);
    const auto path = folder_ / fmt::format("frame{:06}.png", written_ + 1);
    std::vector<std::uint8_t> bytes;
    try {
        // A colour frame has three elements a pixel, except for YUYV16.
        const std::uint32_t perPixel = picture.perPixel == 3 && frame.kind() == Kind::Uchar ? 3 : 1;
        bytes = imageio::encodePng({imageSide(frame.dim(0) / perPixel),
                                    imageSide(std::uint64_t{frame.dim(1)} * frame.dim(2)), picture.perPixel,
                                    picture.bits, picture.bytes});
    } catch (const std::runtime_error& error) {
        throw FileError{fmt::format("cannot write {}: {}", utf8FromPath(path), error.what())};
    }
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
