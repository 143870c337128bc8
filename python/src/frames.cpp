// Frames that Python and a chain share.
#include "frames.h"

#include <cstring>
#include <utility>

#include "values.h"

namespace scansteps::python {

Array FramePool::take(const Array& shape)
{
    const std::lock_guard lock(mutex_);
    for (std::size_t i = 0; i < free_.size(); ++i) {
        if (free_[i].byteSize() != shape.byteSize()) continue;
        Array found = std::move(free_[i]);
        free_.erase(free_.begin() + std::ptrdiff_t(i));
        found.reshape(shape.kind(), shape.dim(0), shape.dim(1), shape.dim(2));
        return found;
    }
    free_.clear();  // of another size: the frames have changed
    return Array(shape.kind(), shape.dim(0), shape.dim(1), shape.dim(2));
}

Array FramePool::takeAny()
{
    const std::lock_guard lock(mutex_);
    if (free_.empty()) return {};
    Array found = std::move(free_.back());
    free_.pop_back();
    return found;
}

void FramePool::give(Array&& array)
{
    const std::lock_guard lock(mutex_);
    if (free_.size() < kMaxFrames && array.data() != nullptr) free_.push_back(std::move(array));
}

FrameLease::~FrameLease()
{
    if (pool_ != nullptr) pool_->give(std::move(own_));
}

void FrameLease::detach(bool copy)
{
    if (place_ == nullptr) return;
    Array other = pool_->take(*place_);
    if (copy && other.data() != nullptr) std::memcpy(other.data(), place_->data(), place_->byteSize());
    own_ = std::move(*place_);
    *place_ = std::move(other);
    place_ = nullptr;
}

py::array frameView(const std::shared_ptr<FrameLease>& lease, std::uint32_t width)
{
    Array& pixels = lease->pixels();
    const auto keeper = py::capsule(new std::shared_ptr<FrameLease>(lease), [](void* held) {
        delete static_cast<std::shared_ptr<FrameLease>*>(held);
    });
    py::array view = viewOf(pixels, keeper);
    const std::uint32_t rowLength = pixels.dim(0);
    if (pixels.dim(2) != 1 || rowLength == 0) return view;
    std::uint32_t channels = 1;
    if (width != 0 && rowLength % width == 0 && rowLength / width <= 4)
        channels = rowLength / width;
    else if (pixels.kind() == Kind::Uchar && rowLength % 3 == 0)
        channels = 3;
    if (channels == 1) return view;
    const auto size = view.itemsize();
    return py::array(
        view.dtype(), {py::ssize_t(pixels.dim(1)), py::ssize_t(rowLength / channels), py::ssize_t(channels)},
        {py::ssize_t(rowLength) * size, py::ssize_t(channels) * size, size}, pixels.data(), keeper);
}

Array frameFrom(const py::object& object)
{
    py::array array = py::module_::import("numpy").attr("asarray")(object);
    if (array.ndim() != 2 && array.ndim() != 3)
        throw py::value_error("a frame is an array of (rows, columns) or (rows, columns, channels)");
    if (array.ndim() == 3) {
        const auto rows = array.shape(0), columns = array.shape(1), channels = array.shape(2);
        array = array.attr("reshape")(rows, columns * channels);
    }
    return arrayFrom(array, "frame");
}

}  // namespace scansteps::python
