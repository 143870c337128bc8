// The Canny detector on float planes. Frames of 16-bit samples have an entry of their own in canny_frame16.h.
#include "edges/canny.h"

#include "edges/canny_detector.h"

namespace scansteps::edges {

CannyWorkspace::CannyWorkspace() : buffers_(std::make_unique<Buffers>()) {}
CannyWorkspace::CannyWorkspace(CannyWorkspace&&) noexcept = default;
CannyWorkspace& CannyWorkspace::operator=(CannyWorkspace&&) noexcept = default;
CannyWorkspace::~CannyWorkspace() = default;

void Canny(const FloatPlane& src, FloatPlane& dst, double low, double high, int aperture,
           CannyWorkspace& work)
{
    const CannyThresholds thresholds(low, high, aperture);
    const std::size_t width = src.width(), height = src.height();
    if (width == 0 || height == 0) return dst.resize(src.width(), src.height());
    CannyWorkspace::Buffers& buffers = work.buffers();
    PlaneRows rows(src);
    detectEdges(rows, width, height, thresholds, aperture, buffers);
    dst.resize(src.width(), src.height());
    expandEdges(buffers.bits, dst);
}

void Canny(const FloatPlane& src, FloatPlane& dst, double low, double high, int aperture)
{
    CannyWorkspace work;
    Canny(src, dst, low, high, aperture, work);
}

}  // namespace scansteps::edges
