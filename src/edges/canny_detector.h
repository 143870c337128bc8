// The streaming detector: reads rows one at a time from a source and produces edges as a bitmap. Private to
// this module.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "edges/canny.h"
#include "edges/edge_bits.h"
#include "edges/filter_kernels.h"
#include "edges/row_ring.h"

namespace scansteps::edges {

/// Memory that will be read next, for prefetching: `bytesFor64` bytes for every 64 pixels.
struct PrefetchHint
{
    const char* first = nullptr;
    std::size_t bytesFor64 = 0;
};

/// Supplies the detector with rows of float samples. The image is read in vertical strips, each from top to
/// bottom.
class FloatRowSource
{
  public:
    virtual ~FloatRowSource() = default;
    /// Starts a strip: the columns that `read` supplies from now on.
    virtual void begin(Columns columns) = 0;
    /// Writes the samples of row y in these columns to line[0] ..., and may write up to 15 unspecified
    /// samples after them. Called once for each row, in ascending order.
    virtual void read(std::size_t y, float* line) = 0;
    /// The memory that row y is read from.
    virtual PrefetchHint upcoming(std::size_t) const { return {}; }
};

/// The rows of a plane.
class PlaneRows : public FloatRowSource
{
  public:
    explicit PlaneRows(const FloatPlane& plane) : plane_(plane) {}
    void begin(Columns columns) override { columns_ = columns; }
    void read(std::size_t y, float* line) override
    {
        const float* row = plane_.row(y) + columns_.first;
        std::copy(row, row + columns_.count, line);
    }
    PrefetchHint upcoming(std::size_t y) const override
    {
        return {reinterpret_cast<const char*>(plane_.row(y) + columns_.first), 64 * sizeof(float)};
    }

  private:
    const FloatPlane& plane_;
    Columns columns_;
};

struct CannyWorkspace::Buffers
{
    /// Sizes all buffers; does nothing when the sizes are unchanged.
    void resize(std::size_t width, std::size_t height, int aperture);

    EdgeBits bits;
    std::size_t strip = 0;  // columns of a strip, a multiple of 64; its rows stay in the first-level cache
    RowRing differences, sums;         // rows filtered along x: with the derivative, with the smoothing
    RowRing dx, dy;                    // derivatives of two rows
    float* line = nullptr;             // the row read last
    std::int32_t* magnitudes[3] = {};  // first column of three rows
    std::uint64_t* active[2] = {};     // bitmaps of two rows: magnitude above the low threshold
    FloatPlane filtered;               // the image after all low passes but the last
    FloatPlane lowPassRows;            // rows of the last one
    ScratchArena memory;

  private:
    std::size_t width_ = 0, height_ = 0;
    int aperture_ = 0;
    FloatPlane floats_;
    std::vector<std::int32_t> integers_;
    std::vector<std::uint64_t> masks_;
};

/// Number of columns of a strip, for an image of this width; a multiple of 64.
std::size_t stripWidth(std::size_t width);

/// Finds the edges of a width x height image, which is not empty, into buffers.bits. Throws "derivative out
/// of range" when a magnitude |dx| + |dy| is NaN or at least 2^30.
void detectEdges(FloatRowSource& source, std::size_t width, std::size_t height,
                 const CannyThresholds& thresholds, int aperture, CannyWorkspace::Buffers& buffers);

/// Writes edges as float samples, 255 on edges and 0 elsewhere. The plane has the size of the image.
void expandEdges(const EdgeBits& bits, FloatPlane& plane);

/// Writes edges as offset 16-bit samples, 33023 on edges and 32768 elsewhere: height rows of width samples.
void expandEdges(const EdgeBits& bits, std::uint16_t* frame, std::size_t width, std::size_t height);

}  // namespace scansteps::edges
