// A tap notes where the frame lies; copying is left to those few frames for which a viewer waits.
#include "taps.h"

#include <algorithm>
#include <iterator>

#include "scansteps/handles.h"

namespace scansteps::viewer {

namespace {

// Viewers get at most this many shots a second of each place, however fast the chain runs.
constexpr auto kMinPause = std::chrono::milliseconds(33);

// Of samples all over the frame (FNV-1a), to tell whether it was changed afterwards.
std::uint64_t markOf(const Array* frame)
{
    constexpr std::size_t kSamples = 64;
    std::uint64_t mark = 0xCBF29CE484222325;
    if (frame == nullptr) return mark;
    const auto bytes = frame->bytes();
    // A stride without small factors, so that the samples are not all of one column.
    const std::size_t stride = std::max<std::size_t>(bytes.size() / kSamples, 1) | 1;
    for (std::size_t i = 0; i < bytes.size(); i += stride)
        mark = (mark ^ std::uint64_t(bytes[i])) * 0x100000001B3;
    return mark;
}

int typeOf(const varitype& record)
{
    const varitype* type = record.as<Struct>().find("eventType");
    return type != nullptr && type->kind() == Kind::Int ? type->as<std::int32_t>() : 0;
}

const Array* frameUnder(const varitype& record)
{
    const varitype* handle = record.as<Struct>().find("handle");
    if (handle == nullptr || handle->kind() != Kind::Int) return nullptr;
    const std::int32_t number = handle->as<std::int32_t>();
    const HandleTable* table = installedHandles();
    if (table == nullptr || number < 1 || number >= kSlotCount || table->slots[number] == nullptr)
        return nullptr;
    return static_cast<const Array*>(table->slots[number]->payload);
}

bool isInTable(const Array* frame)
{
    const HandleTable* table = installedHandles();
    return table != nullptr &&
           std::any_of(std::begin(table->slots), std::end(table->slots),
                       [&](const SlotRecord* slot) { return slot != nullptr && slot->payload == frame; });
}

}  // namespace

Taps::Taps(Stage& stage) : stage_(stage), places_(stage.positions()) {}

void Taps::observe(std::size_t position, const varitype& record)
{
    const int type = typeOf(record);
    Place& place = places_[position];
    if (type == event::kInit) {
        place.init = record.clone();
        place.description = describeFrames(record.as<Struct>());
        if (position == 0) frames_ = 0;
    }
    if (type == event::kFlush && position == 0) catchUp();
    if (type != event::kProcess) return;
    place.record = record;
    place.frame = frameUnder(record);
    place.mark = markOf(place.frame);
    place.number = frames_ + 1;
    const varitype* data = record.as<Struct>().find("data");
    if (place.frame != nullptr)
        place.layout = layoutOf(*place.frame, place.description);
    else
        place.layout = data != nullptr && data->kind() == Kind::Array
                           ? layoutOf(data->as<Array>(), place.description)
                           : Layout{};
    // The first frame is kept for whoever looks later.
    const bool isFirst = place.taken == std::chrono::steady_clock::time_point();
    if (isFirst || (stage_.isWanted(position) && std::chrono::steady_clock::now() - place.taken >= kMinPause))
        take(position);
}

const Array* Taps::frameOf(const Place& place) const
{
    return place.frame != nullptr && isInTable(place.frame) ? place.frame : nullptr;
}

void Taps::take(std::size_t position)
{
    Place& place = places_[position];
    place.taken = std::chrono::steady_clock::now();
    auto shot = takeShot(place.record, frameOf(place), place.description, *pool_);
    shot->frame = place.number;
    stage_.publish(position, std::move(shot), false);
}

void Taps::catchUp()
{
    for (std::size_t position = 0; position < places_.size(); ++position) {
        const Place& place = places_[position];
        const ShotPtr known = stage_.latest(position, false);
        const bool isKnown = known != nullptr && known->frame == place.number;
        if (place.number != 0 && !isKnown && markOf(frameOf(place)) == place.mark) take(position);
    }
}

}  // namespace scansteps::viewer
