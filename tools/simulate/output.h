// The files of a simulated series.
#pragma once

#include <string>

#include "render.h"

namespace scansteps::simulate {

/// Renders all poses of the scene and writes into `folder`, which is created:
///
///     img0000.png …             pictures of one pose, or of all poses if each has one (lamp) or two (laser)
///     pose00/img0000.png …      pictures of several poses with patterns
///     calibration.json          the true devices
///     truth/depth.pfm …         maps, with a number for each pose if there are several
///     truth/poses.json          of every object in every pose
///     truth/object0.ply …       the meshes, if asked for
///
/// Calls progress(done, all) after each pose.
struct OutputOptions
{
    std::string folder;
    int threads = 1;
    bool meshes = false;
    bool truth = true;
};
void writeSeries(const Scene& scene, const OutputOptions& options,
                 void (*progress)(std::size_t, std::size_t));

}  // namespace scansteps::simulate
