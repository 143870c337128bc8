// Matching of the features of two views by their descriptors. Shared by the registration steps and ccanny5,
// ccanny5old and ccanny7.
#pragma once

#include <cstddef>
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

/// Descriptors in the order in which they are compared: word by word, for blocks of features.
class DescriptorIndex
{
  public:
    static constexpr std::size_t kBlock = 16;  ///< features
    static constexpr std::size_t kWords = sizeof(corners::CornerDescriptor) / sizeof(std::uint32_t);

    DescriptorIndex() = default;
    explicit DescriptorIndex(std::span<const corners::CornerFeature> features) { assign(features); }
    /// Replaces the features, which must outlive the index. Reuses its memory.
    void assign(std::span<const corners::CornerFeature> features);
    std::span<const corners::CornerFeature> features() const { return features_; }
    /// Words of the descriptors of block after block, of each word those of the block's features. The last
    /// block is filled up with repetitions of the last feature.
    std::span<const std::uint32_t> words() const { return words_; }

  private:
    std::span<const corners::CornerFeature> features_;
    std::vector<std::uint32_t> words_;
};

/// The nearest descriptor in each direction: 2^16 times the number of differing bits plus the index, so that
/// the first of equals is taken.
struct Nearest
{
    std::span<std::uint32_t> ofFirst;   ///< one element for each feature of the first view
    std::span<std::uint32_t> ofSecond;  ///< of the second view, rounded up to whole blocks
};
/// Compares all descriptors with all, at most 2^16 on either side, none of which may be empty. The result
/// does not depend on the instruction set.
void findNearest(const DescriptorIndex& first, const DescriptorIndex& second, const Nearest& nearest);
namespace scalar {
void findNearest(const DescriptorIndex& first, const DescriptorIndex& second, const Nearest& nearest);
}

/// Pairs of features that are each other's nearest and differ in at most `maxDistance` bits, ordered by
/// distance, then by the index in the first view; of several features at one place only the best pair counts.
/// Replaces the contents of `matches`.
void matchFeatures(const DescriptorIndex& first, const DescriptorIndex& second, int maxDistance,
                   std::vector<Match>& matches, Scratch scratch = {});

}  // namespace scansteps::registration
