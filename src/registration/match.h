// Matching of the features of two views by their descriptors. Shared by the registration steps and ccanny5,
// ccanny5old and ccanny7.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/scratch_arena.h"
#include "corners/corners.h"

namespace scansteps::registration {

struct Match
{
    std::uint32_t first;   ///< index of a feature of the first view
    std::uint32_t second;  ///< index of a feature of the second view
    int distance;          ///< number of bits in which the descriptors differ
};

/// Hash tables over pieces of binary descriptors, after M. Norouzi, A. Punjani and D. Fleet, "Fast Search in
/// Hamming Space with Multi-Index Hashing", CVPR 2012: 21 tables, each keyed with a different
/// group of 12 of the first 252 bits. A feature is found when at least one group is free of errors, which
/// misses 1 in 100 with 30 wrong bits of 256 and 1 in 5 with 50.
class DescriptorIndex
{
  public:
    DescriptorIndex() = default;
    explicit DescriptorIndex(std::span<const corners::CornerFeature> features) { assign(features); }
    /// Replaces the features, which must outlive the index. Reuses its memory.
    void assign(std::span<const corners::CornerFeature> features);
    std::span<const corners::CornerFeature> features() const { return features_; }

    /// The features that a query has visited already. Use one per index and thread.
    struct Visits
    {
        Visits(const DescriptorIndex& index, Scratch scratch) : last(index.features().size(), 0, scratch) {}
        std::pmr::vector<std::uint32_t> last;
        std::uint32_t query = 0;
    };

    struct Found
    {
        std::uint32_t index = 0;
        int distance = 1000;
    };
    /// The nearest feature that shares a group of bits, the first of equals; distance 1000 when there is
    /// none.
    Found nearest(const corners::CornerDescriptor& bits, Visits& visits) const;

  private:
    static constexpr std::size_t kTables = 21;
    static constexpr std::size_t kKeyBits = 12;
    static constexpr std::size_t kKeys = std::size_t{1} << kKeyBits;

    static std::size_t keyOf(const corners::CornerDescriptor& bits, std::size_t table);

    std::span<const corners::CornerFeature> features_;
    std::vector<std::uint32_t>
        begin_;  // start of each key of each table in `entries_`, and the end of the last
    std::vector<std::uint32_t> entries_;
};

/// Pairs of features that are each other's nearest and differ in at most `maxDistance` bits, ordered by
/// distance, then by the index in the first view. Replaces the contents of `matches`.
void matchFeatures(const DescriptorIndex& first, const DescriptorIndex& second, int maxDistance,
                   std::vector<Match>& matches, Scratch scratch = {});

}  // namespace scansteps::registration
