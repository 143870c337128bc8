// What the 16-bit samples of the frames mean, which the initialise record tells the steps that work on them.
#pragma once

#include "edges/canny_frame16.h"
#include "scansteps/settings.h"

namespace scansteps {

/// YUYV16 where the record has "VideoFormat", whatever its value, offset samples elsewhere.
inline Frame16 frameMeaning(const Settings& settings)
{
    return settings.has("VideoFormat") ? Frame16::Video : Frame16::Offset;
}

}  // namespace scansteps
