// A sparse grid of voxels: blocks of 8 x 8 x 8 in a hash map, made where a surface is near.
#pragma once

#include <Eigen/Core>
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace scansteps::scan {

inline constexpr int kBlockSide = 8;
inline constexpr int kBlockVoxels = kBlockSide * kBlockSide * kBlockSide;

/// Voxel (x, y, z) of the block has number (z * 8 + y) * 8 + x.
struct VoxelBlock
{
    Eigen::Vector3i place;                     ///< in blocks; the first voxel is at 8 * place
    std::array<float, kBlockVoxels> sum{};     ///< of weight times signed distance in mm, positive outside
    std::array<float, kBlockVoxels> weight{};  ///< 0: never seen
};

class VoxelBlocks
{
  public:
    /// The block at a place, made if it is missing. Places reach from -2^20 to 2^20 - 1 on each axis.
    std::size_t findOrAdd(const Eigen::Vector3i& place);
    /// Number of a block, -1 if there is none.
    std::int64_t find(const Eigen::Vector3i& place) const;
    std::size_t size() const { return blocks_.size(); }
    VoxelBlock& operator[](std::size_t n) { return *blocks_[n]; }
    const VoxelBlock& operator[](std::size_t n) const { return *blocks_[n]; }
    /// Memory of this many blocks with their part of the map.
    static std::size_t bytesOf(std::size_t blocks) { return blocks * (sizeof(VoxelBlock) + 64); }

    static constexpr int kMaxPlace = (1 << 20) - 1;

  private:
    struct Slot
    {
        std::uint64_t key = kEmpty;
        std::uint32_t block = 0;
    };
    static constexpr std::uint64_t kEmpty = ~std::uint64_t{0};
    static std::uint64_t keyOf(const Eigen::Vector3i& place);
    std::size_t slotOf(std::uint64_t key) const;
    void grow();

    std::vector<Slot> slots_ = std::vector<Slot>(1024);
    std::vector<std::unique_ptr<VoxelBlock>> blocks_;
};

}  // namespace scansteps::scan
