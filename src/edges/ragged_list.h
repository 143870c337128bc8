// Many short lists one behind the other in memory: chains of pixels, vertices of lines. Kept from frame to
// frame they cost no memory for each list.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace scansteps::edges {

template <class T>
class RaggedList
{
  public:
    struct Chain
    {
        std::span<const T> items;
        bool closed;  ///< the last is joined to the first
    };

    void clear()
    {
        items_.clear();
        ends_.clear();
    }
    /// Adds to the chain that is being made.
    void add(const T& item) { items_.push_back(item); }
    /// Ends it.
    void finish(bool closed) { ends_.push_back({items_.size(), closed}); }

    std::size_t size() const { return ends_.size(); }
    bool empty() const { return ends_.empty(); }
    Chain operator[](std::size_t i) const
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
