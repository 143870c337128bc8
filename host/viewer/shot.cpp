// Takes shots, and finds out what the elements of a frame are.
#include "shot.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace scansteps::viewer {

FrameDescription describeFrames(const Struct& init)
{
    const varitype* width = init.find("dataX");
    const bool isNumber = width != nullptr && width->kind() == Kind::Int && width->as<std::int32_t>() > 0;
    return {isNumber ? std::uint32_t(width->as<std::int32_t>()) : 0, init.has("VideoFormat")};
}

Layout layoutOf(const Array& frame, const FrameDescription& description)
{
    Layout layout;
    layout.kind = frame.kind();
    if (frame.size() == 0) return layout;
    const std::uint32_t row = frame.dim(0);
    layout.width = row;
    layout.height = std::uint32_t(frame.size() / row);
    if (description.width != 0 && row != description.width && row % description.width == 0 &&
        row / description.width <= 4) {
        layout.width = description.width;
        layout.channels = row / description.width;
    }
    if (frame.kind() == Kind::Uchar && layout.channels == 1) layout.samples = Samples::Grey8;
    if (frame.kind() == Kind::Uchar && layout.channels == 3) layout.samples = Samples::Rgb8;
    if (frame.kind() == Kind::Ushort && layout.channels == 1)
        layout.samples = description.isVideo ? Samples::Yuyv16 : Samples::Offset16;
    return layout;
}

const char* Layout::name() const
{
    constexpr const char* kNames[] = {"grey8", "rgb8", "yuyv16", "offset16", "numbers"};
    return kNames[std::size_t(samples)];
}

std::string Layout::text() const
{
    if (width == 0) return "";
    std::string sort = kindName(kind);
    if (samples == Samples::Rgb8) sort = "RGB";
    if (samples == Samples::Grey8) sort = "grey";
    if (samples == Samples::Yuyv16) sort = "YUYV16";
    if (samples == Samples::Offset16) sort = "16 bit";
    if (samples == Samples::Numbers && channels > 1) sort += fmt::format(" × {}", channels);
    return fmt::format("{} × {} {}", width, height, sort);
}

const Array* Shot::pixels() const
{
    if (copy) return copy->size() != 0 ? copy.get() : nullptr;
    const varitype* data = record.as<Struct>().find("data");
    if (data == nullptr || data->kind() != Kind::Array || data->as<Array>().size() == 0) return nullptr;
    return &data->as<Array>();
}

std::shared_ptr<const Array> FramePool::copy(const Array& frame)
{
    std::unique_ptr<Array> to;
    {
        const std::lock_guard lock(mutex_);
        const auto fits = [&](const auto& each) { return each->byteSize() == frame.byteSize(); };
        const auto found = std::find_if(spare_.begin(), spare_.end(), fits);
        if (found != spare_.end()) {
            to = std::move(*found);
            spare_.erase(found);
        }
    }
    if (to) {
        to->reshape(frame.kind(), frame.dim(0), frame.dim(1), frame.dim(2));
        std::memcpy(to->data(), frame.data(), frame.byteSize());
    } else {
        to = std::make_unique<Array>(frame);
    }
    const auto giveBack = [pool = weak_from_this()](const Array* used) {
        std::unique_ptr<Array> owned(const_cast<Array*>(used));
        if (const auto alive = pool.lock()) alive->keep(std::move(owned));
    };
    return {to.release(), giveBack};
}

void FramePool::keep(std::unique_ptr<Array> frame)
try {
    constexpr std::size_t kMax = 6;
    const std::lock_guard lock(mutex_);
    if (spare_.size() == kMax) spare_.erase(spare_.begin());
    spare_.push_back(std::move(frame));
} catch (const std::bad_alloc&) {  // called by a destructor
}

std::shared_ptr<Shot> takeShot(const varitype& record, const Array* frame,
                               const FrameDescription& description, FramePool& pool)
{
    auto shot = std::make_shared<Shot>();
    shot->record = record.clone();
    shot->record.remove("handle");
    if (frame != nullptr && frame->size() != 0) shot->copy = pool.copy(*frame);
    if (const Array* pixels = shot->pixels()) shot->layout = layoutOf(*pixels, description);
    return shot;
}

}  // namespace scansteps::viewer
