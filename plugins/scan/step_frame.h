// The frames that steps of this plug-in take: their format, and buffers for them.
#pragma once

#include <scansteps/chain.h>
#include <scansteps/error.h>
#include <scansteps/settings.h>
#include <scansteps/texture.h>

#include <algorithm>
#include <span>

#include "frame_levels.h"

namespace scansteps::scan {

/// Makes buffers for the frames that the initialise record describes and tells their coding. Returns false
/// after reporting a mismatch: RGB and 16-bit frames are taken.
inline bool createFrames(cChain& step, varitype& params, TextureSet& frames, FrameCoding& coding)
{
    const Settings settings(step, params);
    const FrameSize size = settings.frameSize();
    frames.reset();
    const std::uint32_t code = formatOrMismatch(step, params, format::kNone);
    if (code != format::kU1x8 && code != format::kU1x16) {
        if (code != format::kNone) reportMismatch(step, params);
        return false;
    }
    checkFrameSize(size.width, size.height);
    const auto width = static_cast<std::uint32_t>(size.width),
               height = static_cast<std::uint32_t>(size.height);
    frames.create(size.width, size.height, code, chainFrameShape(code, width, height));
    coding = code == format::kU1x8         ? FrameCoding::Rgb8
             : settings.has("VideoFormat") ? FrameCoding::Yuyv16
                                           : FrameCoding::Offset16;
    return true;
}

/// The float plane `name` of a record, width x height. Throws a text when it is missing or has another shape.
inline std::span<const float> planeOf(const varitype& record, const char* name, std::uint32_t width,
                                      std::uint32_t height)
{
    const varitype entry = record[name];
    const Array& array = entry.as<Array>();
    if (!array.hasShape(Kind::Float, width, height))
        failf("\"%s\" is an array of %u x %u x %u %s elements, not of %u x %u float", name, array.dim(0),
              array.dim(1), array.dim(2), kindName(array.kind()), width, height);
    return array.elements<float>();
}

/// A float or int array of `rowLength` x `rows` elements with a copy of `values`.
template <class T>
Array arrayOf(std::span<const T> values, std::size_t rowLength, std::size_t rows)
{
    Array array(kindOf<T>(), static_cast<std::uint32_t>(rowLength), static_cast<std::uint32_t>(rows));
    std::copy_n(values.begin(), array.size(), array.elements<T>().begin());
    return array;
}

}  // namespace scansteps::scan
