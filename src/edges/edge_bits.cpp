// Hysteresis on bitmaps, 64 pixels at a time.
#include "edges/edge_bits.h"

#include "scansteps/error.h"

namespace scansteps::edges {

namespace {

// All bits of those runs in `candidates` that contain a bit of `seeds`, a subset of `candidates`. Towards
// higher bits, the carry of an addition fills a run from its lowest seed on; towards lower bits, the filled
// length doubles with every step.
std::uint64_t fillRuns(std::uint64_t candidates, std::uint64_t seeds)
{
    std::uint64_t filled = seeds | (candidates & ~(candidates + seeds));
    std::uint64_t more = candidates & ~filled & (filled >> 1);
    if (more == 0) return filled;
    filled |= more;
    std::uint64_t runs = candidates;
    for (int step = 1; step < 64; step *= 2) {
        filled |= runs & (filled >> step);
        runs &= runs >> step;
    }
    return filled;
}

// The middle one of three neighbouring words, dilated by one pixel to either side.
std::uint64_t widened(std::uint64_t left, std::uint64_t middle, std::uint64_t right)
{
    return middle | middle << 1 | middle >> 1 | left >> 63 | right << 63;
}

}  // namespace

void EdgeBits::resize(std::size_t width, std::size_t height)
{
    if (width == width_ && height == height_) return;
    words_ = (width + 63) / 64;
    pitch_ = words_ + 1;
    const std::size_t total = pitch_ * (height + 2) + 1;
    if (total > UINT32_MAX) fail("edge map too large");
    width_ = height_ = 0;  // stays so if an allocation throws
    candidates_.assign(total, 0);
    edges_.assign(total, 0);
    queued_.assign(total, 0);
    stack_.clear();
    stack_.reserve(total);
    width_ = width;
    height_ = height;
}

void EdgeBits::propagateDown(std::size_t y)
{
    const std::uint64_t* above = edges_.data() + at(y) - pitch_;
    const std::uint64_t* candidate = candidates(y);
    std::uint64_t* edge = edges(y);
    for (std::ptrdiff_t w = 0; w < std::ptrdiff_t(words_); ++w) {
        if (candidate[w] == 0) continue;
        const std::uint64_t reached =
            edge[w] | (candidate[w] & (widened(above[w - 1], above[w], above[w + 1]) | edge[w - 1] >> 63));
        if (reached != 0) edge[w] = fillRuns(candidate[w], reached);
    }
}

inline void EdgeBits::grow(std::size_t word, std::uint64_t reached)
{
    const std::uint64_t fresh = candidates_[word] & ~edges_[word] & reached;
    if (fresh == 0) return;
    edges_[word] = fillRuns(candidates_[word], edges_[word] | fresh);
    if (queued_[word] != 0) return;
    queued_[word] = 1;
    stack_.push_back(static_cast<std::uint32_t>(word));  // capacity for every word is reserved
}

void EdgeBits::propagateAll()
{
    // One upward sweep does most of the remaining work; the words it changes are queued and propagated to all
    // their neighbours.
    for (std::size_t y = height_; y-- > 0;) {
        const std::size_t row = at(y);
        for (std::size_t word = row + words_; word-- > row;) {
            if ((candidates_[word] & ~edges_[word]) == 0) continue;
            const std::size_t below = word + pitch_;
            grow(word, widened(edges_[below - 1], edges_[below], edges_[below + 1]) | edges_[word + 1] << 63 |
                           edges_[word - 1] >> 63);
        }
    }
    while (!stack_.empty()) {
        const std::size_t word = stack_.back();
        stack_.pop_back();
        queued_[word] = 0;
        const std::uint64_t edge = edges_[word];
        grow(word - pitch_, widened(0, edge, 0));
        grow(word + pitch_, widened(0, edge, 0));
        for (const std::size_t row : {word - pitch_, word, word + pitch_}) {
            if ((edge & 1) != 0) grow(row - 1, edge << 63);
            if (edge >> 63 != 0) grow(row + 1, 1);
        }
    }
}

}  // namespace scansteps::edges
