// The hash map of voxel blocks: open addressing with linear probing, at most half full.
#include "voxel_blocks.h"

namespace scansteps::scan {

std::uint64_t VoxelBlocks::keyOf(const Eigen::Vector3i& place)
{
    const auto part = [](int value) { return std::uint64_t(value + kMaxPlace + 1) & 0x1FFFFF; };
    return part(place.x()) | part(place.y()) << 21 | part(place.z()) << 42;
}

std::size_t VoxelBlocks::slotOf(std::uint64_t key) const
{
    std::uint64_t hash = key * 0x9E3779B97F4A7C15ULL;
    hash ^= hash >> 32;
    std::size_t slot = hash & (slots_.size() - 1);
    while (slots_[slot].key != key && slots_[slot].key != kEmpty) slot = (slot + 1) & (slots_.size() - 1);
    return slot;
}

void VoxelBlocks::grow()
{
    std::vector<Slot> old(2 * slots_.size());
    old.swap(slots_);
    for (const Slot& slot : old)
        if (slot.key != kEmpty) slots_[slotOf(slot.key)] = slot;
}

std::size_t VoxelBlocks::findOrAdd(const Eigen::Vector3i& place)
{
    const std::uint64_t key = keyOf(place);
    std::size_t slot = slotOf(key);
    if (slots_[slot].key == key) return slots_[slot].block;
    if (2 * (blocks_.size() + 1) > slots_.size()) {
        grow();
        slot = slotOf(key);
    }
    blocks_.push_back(std::make_unique<VoxelBlock>());
    blocks_.back()->place = place;
    slots_[slot] = {key, std::uint32_t(blocks_.size() - 1)};
    return blocks_.size() - 1;
}

std::int64_t VoxelBlocks::find(const Eigen::Vector3i& place) const
{
    const Slot& slot = slots_[slotOf(keyOf(place))];
    return slot.key == kEmpty ? -1 : std::int64_t(slot.block);
}

}  // namespace scansteps::scan
