// How far a model that was measured in one view is from the truth, and how far noise alone would put it.
#pragma once

#include <plugins/scan/calibration.h>

#include <cstdint>
#include <vector>

#include "image.h"
#include "mesh.h"

namespace scansteps::simulate {

/// The truth of one view, in maps of the camera's size.
struct ViewTruth
{
    Image depth;      ///< millimetres; NaN: no surface
    Image columns;    ///< projector pixels; NaN: not lit
    Image amplitude;  ///< grey levels
};

/// What the measurement was made with.
struct Measurement
{
    double noise = 2;  ///< of the camera, grey levels; rounding to whole ones is added
    int period = 16;   ///< of the sinusoid, projector pixels
    int shifts = 8;
};

/// Of measured minus true depths; millimetres.
struct Statistics
{
    std::int64_t points = 0;
    std::int64_t far = 0;  ///< points off by more than 0.5 mm
    double mean = 0;       ///< signed; what follows is of absolute values
    double rms = 0;
    double expectedRms = 0;  ///< what noise alone allows at the same pixels
    double median = 0, percentile95 = 0, largest = 0;
};

/// Collects deviations of points, in millimetres.
class Collector
{
  public:
    /// `expected`: the expected error, or NaN.
    void add(double value, double expected);
    Statistics statistics();

  private:
    std::vector<double> sizes_;
    double sum_ = 0, squares_ = 0, expectedSquares_ = 0;
    std::int64_t far_ = 0;
};

struct Deviation
{
    Image map;          ///< measured minus true depth, millimetres; NaN: not measured
    Statistics all;     ///< of all points
    Statistics inside;  ///< of those whose eight neighbours are measurable: no contours, no shadow's border
    std::int64_t elsewhere = 0;  ///< vertices off the ray of a pixel's centre, or without a lit surface there
    std::int64_t measurable = 0;  ///< pixels that both devices see with an amplitude of 10 or more
    std::int64_t measured = 0;    ///< those of them that are in the model
};

inline constexpr double kMinAmplitude = 10;  ///< grey levels

/// Compares the vertices of `model` with the truth at their pixels. The expected error of a depth is that of
/// the phase, sigma sqrt(2 / N) / amplitude, carried through the triangulation. Throws a C string if the maps
/// have not the camera's size, or the calibration has no projector.
Deviation deviationOf(const Mesh& model, const ViewTruth& truth, const scan::Calibration& calibration,
                      const Measurement& measurement);

/// RGB rows from top to bottom: white where the depth is right, red where the point is too far and blue where
/// it is too near, saturated at `limit` mm; black where a measurable pixel is missing, grey where there is
/// nothing to measure.
std::vector<std::uint8_t> falseColours(const Deviation& deviation, const ViewTruth& truth, double limit);

}  // namespace scansteps::simulate
