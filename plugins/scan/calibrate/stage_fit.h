// The stage from pictures of a board that moves with it.
#pragma once

#include <plugins/scan/calibration.h>

#include "zhang.h"

namespace scansteps::scan {

struct StageSolution
{
    Stage stage;          ///< with rms in millimetres: the corners' distance from where the stage takes them
    double pixelRms = 0;  ///< reprojection error
};

/// The motion whose equal steps take the board from each view to the next; the camera is known. A turntable
/// turns by a positive step about the axis. At least three views, with indices of corners that mean the same
/// corner in all of them. Throws a C string when the board does not move.
StageSolution solveStage(const CameraModel& camera, const std::vector<PlaneView>& views, bool linear);

}  // namespace scansteps::scan
