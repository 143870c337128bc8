// Views as steps hand them on: mesh, pose and picture of a record.
#pragma once

#include <scansteps/record.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "calibration.h"
#include "frame_levels.h"
#include "range_image.h"

namespace scansteps::scan {

/// "pose": 4 x 4 floats, row by row, that map object to camera coordinates. Nothing if it is missing. Throws
/// a text that begins with `step` for another shape, or when the matrix is no rotation and translation.
std::optional<Pose> poseOf(const varitype& record, const char* step);
Array poseArray(const Pose& pose);

/// The mesh of a record's "tria", valid as long as the record, and the expected errors of its vertices, from
/// "sigma" and "index" at their "Pixels".
struct RecordMesh
{
    explicit RecordMesh(const varitype& record, const char* step);
    RecordMesh(const RecordMesh&) = delete;
    RecordMesh& operator=(const RecordMesh&) = delete;

    ViewMesh mesh;

  private:
    void findSigma(const varitype& record);
    varitype tria_, sigmaEntry_, indexEntry_;
    std::vector<float> sigma_;
};

/// The picture under "handle" as 3 * width x height bytes; an array of kind empty if the record has none.
Array pictureOf(const varitype& record, bool isVideo, const char* step);

/// The motion of a turntable or a linear stage after `steps` steps, in camera coordinates.
Pose stageMotion(const Stage& stage, int steps);

}  // namespace scansteps::scan
