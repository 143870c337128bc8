// Distances between all descriptors of two views, and mutual nearest neighbours.
#include "registration/match.h"

#include <algorithm>
#include <bit>
#include <utility>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "registration/match.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps::registration {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Lanes are features of the second view.
void FindNearest(const DescriptorIndex& first, const DescriptorIndex& second, const Nearest& nearest)
{
    const hn::CappedTag<std::uint32_t, DescriptorIndex::kBlock> d;
    const auto lanes = hn::Lanes(d);
    std::fill(nearest.ofSecond.begin(), nearest.ofSecond.end(), ~std::uint32_t{0});
    for (std::uint32_t i = 0; i < first.features().size(); ++i) {
        const corners::CornerDescriptor& bits = first.features()[i].bits;
        auto best = hn::Set(d, ~std::uint32_t{0});
        const std::uint32_t* words = second.words().data();
        for (std::size_t block = 0; block < nearest.ofSecond.size(); block += DescriptorIndex::kBlock) {
            for (std::size_t k = 0; k < DescriptorIndex::kBlock; k += lanes) {
                auto sum = hn::Zero(d);
                for (std::size_t w = 0; w < DescriptorIndex::kWords; ++w) {
                    const auto word = hn::Set(d, std::uint32_t(bits[w / 2] >> (w % 2 * 32)));
                    const auto other = hn::LoadU(d, words + w * DescriptorIndex::kBlock + k);
                    sum = hn::Add(sum, hn::PopulationCount(hn::Xor(word, other)));
                }
                const auto distance = hn::ShiftLeft<16>(sum);
                best = hn::Min(best, hn::Or(distance, hn::Iota(d, std::uint32_t(block + k))));
                std::uint32_t* back = nearest.ofSecond.data() + block + k;
                hn::StoreU(hn::Min(hn::LoadU(d, back), hn::Or(distance, hn::Set(d, i))), d, back);
            }
            words += DescriptorIndex::kWords * DescriptorIndex::kBlock;
        }
        nearest.ofFirst[i] = hn::GetLane(hn::MinOfLanes(d, best));
    }
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::registration
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::registration {

void DescriptorIndex::assign(std::span<const corners::CornerFeature> features)
{
    features_ = features;
    words_.clear();
    for (std::size_t block = 0; block < features.size(); block += kBlock)
        for (std::size_t w = 0; w < kWords; ++w)
            for (std::size_t k = 0; k < kBlock; ++k) {
                const corners::CornerFeature& f = features[std::min(block + k, features.size() - 1)];
                words_.push_back(std::uint32_t(f.bits[w / 2] >> (w % 2 * 32)));
            }
}

HWY_EXPORT(FindNearest);

void findNearest(const DescriptorIndex& first, const DescriptorIndex& second, const Nearest& nearest)
{
    HWY_DYNAMIC_DISPATCH(FindNearest)(first, second, nearest);
}

namespace scalar {

void findNearest(const DescriptorIndex& first, const DescriptorIndex& second, const Nearest& nearest)
{
    std::ranges::fill(nearest.ofFirst, ~std::uint32_t{0});
    std::ranges::fill(nearest.ofSecond, ~std::uint32_t{0});
    const auto last = std::uint32_t(second.features().size() - 1);
    for (std::uint32_t i = 0; i < first.features().size(); ++i)
        for (std::uint32_t j = 0; j < nearest.ofSecond.size(); ++j) {
            const auto distance = std::uint32_t(corners::hammingDistance(
                first.features()[i].bits, second.features()[std::min(j, last)].bits));
            nearest.ofFirst[i] = std::min(nearest.ofFirst[i], distance << 16 | j);
            nearest.ofSecond[j] = std::min(nearest.ofSecond[j], distance << 16 | i);
        }
}

}  // namespace scalar

namespace {

// Leaves the best of the pairs between two places, which are adjacent as they have the same coordinates.
void dropRepetitions(const DescriptorIndex& first, const DescriptorIndex& second, std::vector<Match>& matches)
{
    const auto samePlace = [](const corners::CornerFeature& a, const corners::CornerFeature& b) {
        return a.x == b.x && a.y == b.y;
    };
    std::size_t kept = 0;
    for (const Match& m : matches) {
        if (kept > 0 && samePlace(first.features()[matches[kept - 1].first], first.features()[m.first]) &&
            samePlace(second.features()[matches[kept - 1].second], second.features()[m.second])) {
            if (m.distance < matches[kept - 1].distance) matches[kept - 1] = m;
            continue;
        }
        matches[kept++] = m;
    }
    matches.resize(kept);
}

}  // namespace

void matchFeatures(const DescriptorIndex& first, const DescriptorIndex& second, int maxDistance,
                   std::vector<Match>& matches, Scratch scratch)
{
    matches.clear();
    if (first.features().empty() || second.features().empty()) return;
    std::pmr::vector<std::uint32_t> there(first.features().size(), scratch);
    std::pmr::vector<std::uint32_t> back(second.words().size() / DescriptorIndex::kWords, scratch);
    findNearest(first, second, {there, back});
    for (std::uint32_t i = 0; i < there.size(); ++i) {
        const std::uint32_t j = there[i] & 0xFFFF;
        const int distance = int(there[i] >> 16);
        if (distance <= maxDistance && (back[j] & 0xFFFF) == i) matches.push_back({i, j, distance});
    }
    dropRepetitions(first, second, matches);
    std::ranges::sort(matches, {}, [](const Match& m) { return std::pair(m.distance, m.first); });
}

}  // namespace scansteps::registration
#endif
