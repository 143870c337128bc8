// The detector on float planes.
#include "features/mcanny.h"

#include <algorithm>

#include "features/mcanny_detect.h"

namespace scansteps {

CannyWorkspace::CannyWorkspace() : buffers_(std::make_unique<Buffers>()) {}
CannyWorkspace::CannyWorkspace(CannyWorkspace&&) noexcept = default;
CannyWorkspace& CannyWorkspace::operator=(CannyWorkspace&&) noexcept = default;
CannyWorkspace::~CannyWorkspace() = default;

namespace {

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
    Upcoming upcoming(std::size_t y) const override
    {
        return {reinterpret_cast<const char*>(plane_.row(y) + columns_.first), 64 * sizeof(float)};
    }

  private:
    const FloatPlane& plane_;
    Columns columns_;
};

}  // namespace

void Canny(const FloatPlane& src, FloatPlane& dst, double low, double high, int aperture,
           CannyWorkspace& work)
{
    const CannyThresholds thresholds(low, high, aperture);
    const std::size_t width = src.width(), height = src.height();
    if (width == 0 || height == 0) return dst.resize(src.width(), src.height());
    CannyWorkspace::Buffers& buffers = work.buffers();
    PlaneRows rows(src);
    if (!detectEdges(rows, width, height, thresholds, aperture, buffers))
        return scalar::Canny(src, dst, low, high, aperture);
    dst.resize(src.width(), src.height());
    expandEdges(buffers.bits, dst);
}

void Canny(const FloatPlane& src, FloatPlane& dst, double low, double high, int aperture)
{
    CannyWorkspace work;
    Canny(src, dst, low, high, aperture, work);
}

}  // namespace scansteps
