#include "features/match.h"

#include <algorithm>

namespace scansteps {

std::size_t DescriptorIndex::keyOf(const CornerDescriptor& bits, std::size_t table)
{
    const std::size_t at = table * kKeyBits;
    const std::size_t word = at / 64;
    const std::size_t shift = at % 64;
    std::uint64_t key = bits[word] >> shift;
    if (shift > 64 - kKeyBits) key |= bits[word + 1] << (64 - shift);
    return key & (kKeys - 1);
}

DescriptorIndex::DescriptorIndex(std::span<const CornerFeature> features)
    : features_(features), begin_(kTables * kKeys + 1), entries_(kTables * features.size())
{
    // a counting sort by table and key
    for (const CornerFeature& f : features)
        for (std::size_t t = 0; t < kTables; ++t) ++begin_[t * kKeys + keyOf(f.bits, t) + 1];
    for (std::size_t i = 1; i < begin_.size(); ++i) begin_[i] += begin_[i - 1];
    std::vector<std::uint32_t> next(begin_.begin(), begin_.end() - 1);
    for (std::uint32_t i = 0; i < features.size(); ++i)
        for (std::size_t t = 0; t < kTables; ++t)
            entries_[next[t * kKeys + keyOf(features[i].bits, t)]++] = i;
}

DescriptorIndex::Found DescriptorIndex::nearest(const CornerDescriptor& bits, Visits& visits) const
{
    Found best;
    if (begin_.empty()) return best;
    visits.last.resize(features_.size());
    ++visits.query;
    for (std::size_t t = 0; t < kTables; ++t) {
        const std::size_t key = t * kKeys + keyOf(bits, t);
        for (std::uint32_t e = begin_[key]; e < begin_[key + 1]; ++e) {
            const std::uint32_t i = entries_[e];
            if (visits.last[i] == visits.query) continue;
            visits.last[i] = visits.query;
            const int distance = hammingDistance(bits, features_[i].bits);
            if (distance < best.distance || (distance == best.distance && i < best.index))
                best = {i, distance};
        }
    }
    return best;
}

std::vector<Match> matchFeatures(const DescriptorIndex& first, const DescriptorIndex& second, int maxDistance)
{
    DescriptorIndex::Visits inFirst, inSecond;
    std::vector<Match> matches;
    for (std::uint32_t i = 0; i < first.features().size(); ++i) {
        const auto there = second.nearest(first.features()[i].bits, inSecond);
        if (there.distance > maxDistance) continue;
        if (first.nearest(second.features()[there.index].bits, inFirst).index != i) continue;
        matches.push_back({i, there.index, there.distance});
    }
    std::stable_sort(matches.begin(), matches.end(),
                     [](const Match& a, const Match& b) { return a.distance < b.distance; });
    return matches;
}

std::vector<Match> matchFeatures(std::span<const CornerFeature> first, std::span<const CornerFeature> second,
                                 int maxDistance)
{
    return matchFeatures(DescriptorIndex(first), DescriptorIndex(second), maxDistance);
}

}  // namespace scansteps
