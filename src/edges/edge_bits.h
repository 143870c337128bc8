// Bitmaps of edges and edge candidates, 64 pixels per word, and the detector's hysteresis on them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace scansteps::edges {

/// Candidates and edges of one image. Pixel x of row y is bit x % 64 of word row(y)[x / 64]; bits beyond the
/// width are 0. Every row is preceded and followed by a zero word, and the image by a row of zeros above and
/// below.
class EdgeBits
{
  public:
    /// Keeps buffers and contents when the size is unchanged. Throws "edge map too large" when words cannot
    /// be indexed with 32 bits.
    void resize(std::size_t width, std::size_t height);

    std::size_t width() const { return width_; }
    std::size_t height() const { return height_; }
    std::size_t wordsPerRow() const { return words_; }
    std::uint64_t* candidates(std::size_t y) { return candidates_.data() + at(y); }
    std::uint64_t* edges(std::size_t y) { return edges_.data() + at(y); }
    const std::uint64_t* edges(std::size_t y) const { return edges_.data() + at(y); }

    bool isEdge(std::size_t x, std::size_t y) const { return (edges(y)[x / 64] >> x % 64 & 1) != 0; }
    void setEdge(std::size_t x, std::size_t y) { edges(y)[x / 64] |= std::uint64_t{1} << x % 64; }

    /// Marks the candidates of row y that are connected with its seeds and with edges of the row above. Call
    /// for every row from the top down, after its candidates are set and its edges hold the seeds, a subset
    /// of the candidates.
    void propagateDown(std::size_t y);

    /// Completes the hysteresis: marks all candidates that are 8-connected with a seed through candidates.
    /// Call after propagateDown of the last row.
    void propagateAll();

  private:
    std::size_t at(std::size_t y) const { return (y + 1) * pitch_ + 1; }
    void grow(std::size_t word, std::uint64_t reached);

    std::size_t words_ = 0, pitch_ = 0, width_ = 0, height_ = 0;
    std::vector<std::uint64_t> candidates_, edges_;
    std::vector<std::uint32_t> stack_;
    std::vector<std::uint8_t> queued_;
};

}  // namespace scansteps::edges
