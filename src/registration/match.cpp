// Multi-index hash tables of descriptors, and mutual nearest neighbours.
#include "registration/match.h"

#include <algorithm>
#include <utility>

namespace scansteps::registration {

std::size_t DescriptorIndex::keyOf(const corners::CornerDescriptor& bits, std::size_t table)
{
    const std::size_t at = table * kKeyBits;
    const std::size_t word = at / 64;
    const std::size_t shift = at % 64;
    std::uint64_t key = bits[word] >> shift;
    if (shift > 64 - kKeyBits) key |= bits[word + 1] << (64 - shift);
    return key & (kKeys - 1);
}

void DescriptorIndex::assign(std::span<const corners::CornerFeature> features)
{
    // A counting sort by table and key. While entries are inserted, begin_[k + 1] is the position of the next
    // entry of key k, so that in the end it is the start of key k + 1.
    features_ = features;
    begin_.assign(kTables * kKeys + 2, 0);
    entries_.resize(kTables * features.size());
    for (const corners::CornerFeature& f : features)
        for (std::size_t t = 0; t < kTables; ++t) ++begin_[t * kKeys + keyOf(f.bits, t) + 2];
    for (std::size_t i = 1; i < begin_.size(); ++i) begin_[i] += begin_[i - 1];
    for (std::uint32_t i = 0; i < features.size(); ++i)
        for (std::size_t t = 0; t < kTables; ++t)
            entries_[begin_[t * kKeys + keyOf(features[i].bits, t) + 1]++] = i;
}

DescriptorIndex::Found DescriptorIndex::nearest(const corners::CornerDescriptor& bits, Visits& visits) const
{
    Found best;
    if (begin_.empty()) return best;
    ++visits.query;
    for (std::size_t t = 0; t < kTables; ++t) {
        const std::size_t key = t * kKeys + keyOf(bits, t);
        for (std::uint32_t e = begin_[key]; e < begin_[key + 1]; ++e) {
            const std::uint32_t i = entries_[e];
            if (visits.last[i] == visits.query) continue;
            visits.last[i] = visits.query;
            const int distance = corners::hammingDistance(bits, features_[i].bits);
            if (distance < best.distance || (distance == best.distance && i < best.index))
                best = {i, distance};
        }
    }
    return best;
}

void matchFeatures(const DescriptorIndex& first, const DescriptorIndex& second, int maxDistance,
                   std::vector<Match>& matches, Scratch scratch)
{
    DescriptorIndex::Visits inFirst(first, scratch), inSecond(second, scratch);
    matches.clear();
    for (std::uint32_t i = 0; i < first.features().size(); ++i) {
        const auto there = second.nearest(first.features()[i].bits, inSecond);
        if (there.distance > maxDistance) continue;
        if (first.nearest(second.features()[there.index].bits, inFirst).index != i) continue;
        matches.push_back({i, there.index, there.distance});
    }
    std::ranges::sort(matches, {}, [](const Match& m) { return std::pair(m.distance, m.first); });
}

}  // namespace scansteps::registration
