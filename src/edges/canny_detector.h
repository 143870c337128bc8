// The streaming form of the detector: rows come in one by one from a source, edges come out as bits. Private
// to the edge code.
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

/// Memory that will be read soon, to be fetched meanwhile: so many bytes for every 64 pixels.
struct PrefetchHint
{
    const char* first = nullptr;
    std::size_t bytesFor64 = 0;
};

/// Where the detector takes its rows from. It works in strips of columns, from the top to the bottom of each.
class RowSource
{
  public:
    virtual ~RowSource() = default;
    /// A strip starts: the columns that are read from now on.
    virtual void begin(Columns columns) = 0;
    /// Writes the samples of row y in these columns to line[0] ..., and up to 15 samples of no meaning after
    /// them. Asked once for every row, from the top on.
    virtual void read(std::size_t y, float* line) = 0;
    /// The memory behind row y.
    virtual PrefetchHint upcoming(std::size_t) const { return {}; }
};

/// The rows of a plane.
class PlaneRows : public RowSource
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
    /// Prepares all buffers; keeps them when the sizes are the same.
    void resize(std::size_t width, std::size_t height, int aperture);

    EdgeBits bits;
    std::size_t strip = 0;  // columns of a strip, a multiple of 64; its rows stay in the first-level cache
    RowRing differences, sums;         // rows filtered along x: the kernel of order 1, the one of order 0
    RowRing dx, dy;                    // derivatives of two rows
    float* line = nullptr;             // the row that has just come in
    std::int32_t* magnitudes[3] = {};  // first column of three rows
    std::uint64_t* active[2] = {};     // bits of two rows: magnitude above the low threshold
    FloatPlane stageRows;              // room for rows of filters that feed the detector
    FloatPlane filtered;               // the image behind more filters than these are for
    ScratchArena memory;

  private:
    std::size_t width_ = 0, height_ = 0;
    int aperture_ = 0;
    FloatPlane floats_;
    std::vector<std::int32_t> integers_;
    std::vector<std::uint64_t> masks_;
};

/// Columns of a strip, for an image of this width.
std::size_t stripWidth(std::size_t width);

/// Finds the edges of a width x height image into buffers.bits. Returns false, with the bits undefined, when
/// a derivative is NaN or 2^30 and above: such planes need the plain detector.
bool detectEdges(RowSource& source, std::size_t width, std::size_t height, const CannyThresholds& thresholds,
                 int aperture, CannyWorkspace::Buffers& buffers);

/// Edges as float samples 255, all else 0; the plane has the size of the image.
void expandEdges(const EdgeBits& bits, FloatPlane& plane);

/// Edges as offset 16-bit samples 33023, all else 32768.
void expandEdges(const EdgeBits& bits, std::uint16_t* frame, std::size_t width, std::size_t height);

}  // namespace scansteps::edges
