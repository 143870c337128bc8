// A list of paths of different lengths, stored contiguously: pixels of edges, vertices of polylines. Reused
// from frame to frame it needs no allocation per path.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace scansteps::edges {

template <class T>
class RaggedList
{
  public:
    struct Path
    {
        std::span<const T> items;
        bool closed;  ///< the last item is joined to the first
    };

    void clear()
    {
        items_.clear();
        ends_.clear();
    }
    /// Appends an item to the current path.
    void add(const T& item) { items_.push_back(item); }
    /// Completes the current path.
    void finish(bool closed) { ends_.push_back({items_.size(), closed}); }

    std::size_t size() const { return ends_.size(); }
    bool empty() const { return ends_.empty(); }
    Path operator[](std::size_t i) const
    {
        const std::size_t first = i == 0 ? 0 : ends_[i - 1].item;
        return {std::span(items_).subspan(first, ends_[i].item - first), ends_[i].closed};
    }
    bool operator==(const RaggedList&) const = default;

  private:
    struct End
    {
        std::size_t item;
        bool closed;
        bool operator==(const End&) const = default;
    };
    std::vector<T> items_;
    std::vector<End> ends_;
};

}  // namespace scansteps::edges
