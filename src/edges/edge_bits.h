// Bitmaps of an image, 64 pixels a word, and the spread of edges along them (the hysteresis of the detector).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace scansteps::edges {

/// Candidates and edges of one image. Pixel x of row y is bit x % 64 of word row(y)[x / 64]; bits beyond the
/// width are 0. A word that is always 0 lies before and after every row, and a row of them above and below
/// the image.
class EdgeBits
{
  public:
    /// Keeps the buffers when the size is the same.
    void resize(std::size_t width, std::size_t height);

    std::size_t width() const { return width_; }
    std::size_t height() const { return height_; }
    std::size_t wordsPerRow() const { return words_; }
    std::uint64_t* candidates(std::size_t y) { return candidates_.data() + at(y); }
    std::uint64_t* edges(std::size_t y) { return edges_.data() + at(y); }
    const std::uint64_t* edges(std::size_t y) const { return edges_.data() + at(y); }

    bool isEdge(std::size_t x, std::size_t y) const { return (edges(y)[x / 64] >> x % 64 & 1) != 0; }
    void setEdge(std::size_t x, std::size_t y) { edges(y)[x / 64] |= std::uint64_t{1} << x % 64; }

    /// Call for every row from the top on, once its candidates are set and its edges hold the seeds (a subset
    /// of the candidates): takes in what the row above reaches.
    void propagateDown(std::size_t y);

    /// Call after the last row: completes the edges to all candidates that are connected with a seed through
    /// candidates, diagonal neighbours included.
    void spreadAll();

  private:
    std::size_t at(std::size_t y) const { return (y + 1) * pitch_ + 1; }
    void grow(std::size_t word, std::uint64_t reached);

    std::size_t words_ = 0, pitch_ = 0, width_ = 0, height_ = 0;
    std::vector<std::uint64_t> candidates_, edges_;
    std::vector<std::uint32_t> stack_;
    std::vector<std::uint8_t> queued_;
};

}  // namespace scansteps::edges
