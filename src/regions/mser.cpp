// Builds the component tree by flooding the image from its darkest level, and selects the stable regions.
#include "regions/mser.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numbers>

#include "hwy/cache_control.h"
#include "scansteps/error.h"

namespace scansteps::regions {
namespace {

constexpr int kSentinelLevel = 256;
constexpr std::size_t kFirstBlock = 256;

void require(bool holds, const char* text, int line)
{
    if (!holds) failf("%s mser %d", text, line);
}
#define MSER_REQUIRE(condition) require(condition, #condition, __LINE__)

// Stacks of the pixels that wait at each grey level, and a bitmap of the levels whose stack is not empty.
class Boundary
{
  public:
    Boundary(std::span<const std::uint8_t> bits, std::vector<std::uint32_t>& cells) : cells_(cells.data())
    {
        std::array<std::uint32_t, 256> count{};
        for (const std::uint8_t level : bits) ++count[level];
        std::uint32_t begin = 0;
        for (std::size_t level = 0; level < 256; ++level) {
            begin_[level] = end_[level] = begin;
            begin += count[level];
        }
    }
    void push(std::uint8_t level, std::uint32_t cell)
    {
        cells_[end_[level]++] = cell;
        used_[level >> 6] |= std::uint64_t{1} << (level & 63);
    }
    bool empty() const { return (used_[0] | used_[1] | used_[2] | used_[3]) == 0; }
    int lowestLevel() const
    {
        int word = 0;
        while (used_[std::size_t(word)] == 0) ++word;
        return 64 * word + std::countr_zero(used_[std::size_t(word)]);
    }
    std::uint32_t pop(int level)
    {
        const auto l = std::size_t(level);
        const std::uint32_t cell = cells_[--end_[l]];
        if (end_[l] == begin_[l])
            used_[l >> 6] &= ~(std::uint64_t{1} << (l & 63));
        else
            next_ = cells_[end_[l] - 1];
        return cell;
    }

    /// Likely result of the next pop: the cell below the one popped last.
    std::uint32_t guess() const { return next_; }

  private:
    std::uint32_t* cells_;
    std::uint32_t next_ = 0;
    std::array<std::uint32_t, 256> begin_;
    std::array<std::uint32_t, 256> end_;
    std::array<std::uint64_t, 4> used_{};
};

}  // namespace

const double Region::kUnknownVariation = std::numeric_limits<double>::infinity();

void Region::merge(Region* child)
{
    MSER_REQUIRE(!child->parent_);
    MSER_REQUIRE(!child->next_);
    area_ += child->area_;
    for (std::size_t i = 0; i < moments_.size(); ++i) moments_[i] += child->moments_[i];
    child->next_ = child_;
    child_ = child;
    child->parent_ = this;
}

RegionEllipse ellipseOf(const Region& region)
{
    const double n = std::max(region.area_, 1);
    const double x = region.moments_[0] / n;
    const double y = region.moments_[1] / n;
    const double xx = region.moments_[2] / n - x * x;
    const double xy = region.moments_[3] / n - x * y;
    const double yy = region.moments_[4] / n - y * y;
    const double mean = (xx + yy) / 2;
    const double spread = std::hypot((xx - yy) / 2, xy);
    const double angle = spread > 0 ? std::atan2(2 * xy, xx - yy) / 2 * (180 / std::numbers::pi) : 0;
    return {x, y, 2 * std::sqrt(mean + spread), 2 * std::sqrt(std::max(mean - spread, 0.0)), angle};
}

MSER::MSER(int delta, double minArea, double maxArea, double maxVariation, double minDiversity, bool eight)
    : delta_(delta),
      minArea_(minArea),
      maxArea_(maxArea),
      maxVariation_(maxVariation),
      minDiversity_(minDiversity),
      eight_(eight)
{
    MSER_REQUIRE(delta > 0);
    MSER_REQUIRE(minArea >= 0.0);
    MSER_REQUIRE(maxArea <= 1.0);
    MSER_REQUIRE(minArea < maxArea);
    MSER_REQUIRE(maxVariation > 0.0);
    MSER_REQUIRE(minDiversity >= 0.0);
    MSER_REQUIRE(minDiversity < 1.0);
    growPool();
}

double MSER::fractionOf(int pixels, int imageArea)
{
    if (pixels >= imageArea) return 1.0;
    double fraction = double(pixels) / imageArea;
    while (fraction * imageArea < pixels) fraction = std::nextafter(fraction, 1.0);
    return fraction;
}

void MSER::growPool()
{
    std::size_t size = kFirstBlock;
    for (const Block& block : pool_) size = std::max(size, 2 * block.size);
    pool_.push_back({std::make_unique_for_overwrite<Region[]>(size), size});
}

inline Region* MSER::take(int level, int pixel)
{
    if (free_ == pool_[block_].size) {
        if (++block_ == pool_.size()) growPool();
        free_ = 0;
    }
    Region* region = &pool_[block_].regions[free_++];
    *region = Region{};
    region->level_ = level;
    region->pixel_ = pixel;
    return region;
}

template <class Visit>
void MSER::forEachRegion(Visit visit)
{
    for (std::size_t b = 0; b <= block_; ++b)
        for (std::size_t i = 0; i < (b < block_ ? pool_[b].size : free_); ++i) visit(pool_[b].regions[i]);
}

// Floods the image: pixels are processed lowest level first, and the open regions form a stack of descending
// levels. A pixel with a lower neighbour waits at its own level until the basin of that neighbour has been
// flooded, so basins that touch only across it stay separate until then. A cell is an index into the image
// with a border of one pixel.
class MSER::Flood
{
  public:
    Flood(MSER& owner, std::span<const std::uint8_t> bits, int width, int height)
        : owner_(owner),
          width_(std::uint32_t(width)),
          stride_(std::uint32_t(width) + 2),
          inverse_(~std::uint64_t{0} / stride_ + 1),
          boundary_(bits, owner.boundary_)
    {
        padImage(bits, std::uint32_t(height));
        neighbourMask_ = owner.eight_ ? 0xFFU : 0x5AU;
        const auto s = std::int32_t(stride_);
        steps_ = {-s - 1, -s, -s + 1, -1, 1, s - 1, s, s + 1};
    }

    void run()
    {
        open_[depth_++] = owner_.take(kSentinelLevel, 0);
        std::uint32_t cell = stride_ + 1;
        markVisited(cell);
        openRegion(cell);
        for (;;) {
            cell = descend(cell);
            accept(cell);
            if (boundary_.empty()) return;
            const int level = boundary_.lowestLevel();
            cell = boundary_.pop(level);
            prefetchAround(boundary_.guess());
            if (level > top()->level_) raiseTo(level, cell);
        }
    }

  private:
    void padImage(std::span<const std::uint8_t> bits, std::uint32_t height)
    {
        const std::size_t total = std::size_t{stride_} * (height + 2);
        owner_.levels_.resize(total);
        owner_.visited_.assign(total / 32 + 2, ~std::uint32_t{0});
        levels_ = owner_.levels_.data();
        visited_ = owner_.visited_.data();
        for (std::uint32_t y = 0; y < height; ++y) {
            const std::size_t row = std::size_t{y + 1} * stride_ + 1;
            std::copy_n(bits.data() + std::size_t{y} * width_, width_, levels_ + row);
            clearBits(row, row + width_);
        }
    }
    void clearBits(std::size_t begin, std::size_t end)
    {
        for (; begin < end && begin % 32 != 0; ++begin) visited_[begin / 32] &= ~(1U << (begin % 32));
        for (; begin + 32 <= end; begin += 32) visited_[begin / 32] = 0;
        for (; begin < end; ++begin) visited_[begin / 32] &= ~(1U << (begin % 32));
    }
    void markVisited(std::uint32_t cell) { visited_[cell / 32] |= 1U << (cell % 32); }

    std::uint32_t threeBits(std::uint32_t cell) const
    {
        const std::uint64_t low = visited_[cell / 32];
        const std::uint64_t high = visited_[cell / 32 + 1];
        return std::uint32_t((low | high << 32) >> (cell % 32)) & 7U;
    }
    /// One bit for each of `steps_`.
    std::uint32_t unvisitedNeighbours(std::uint32_t cell) const
    {
        const std::uint32_t above = threeBits(cell - stride_ - 1);
        const std::uint32_t beside = threeBits(cell - 1);
        const std::uint32_t below = threeBits(cell + stride_ - 1);
        return ~(above | (beside & 1U) << 3 | (beside & 4U) << 2 | below << 5) & neighbourMask_;
    }

    /// Descends from `cell` until no unvisited neighbour is lower, opening a region at each step. The other
    /// neighbours and the cells left behind are put on the boundary.
    std::uint32_t descend(std::uint32_t cell)
    {
        std::uint32_t todo = unvisitedNeighbours(cell);
        std::uint8_t level = levels_[cell];
        while (todo != 0) {
            const std::uint32_t neighbour = cell + std::uint32_t(steps_[std::size_t(std::countr_zero(todo))]);
            todo &= todo - 1;
            markVisited(neighbour);
            const std::uint8_t its = levels_[neighbour];
            if (its >= level) {
                boundary_.push(its, neighbour);
                continue;
            }
            boundary_.push(level, cell);
            cell = neighbour;
            level = its;
            openRegion(cell);
            todo = unvisitedNeighbours(cell);
        }
        return cell;
    }

    struct Point
    {
        std::uint32_t x, y;
    };
    Point pointOf(std::uint32_t cell) const
    {
        // division by multiplication: Lemire, Kaser and Kurz, "Faster remainder by direct
        // computation", 2019
        __extension__ using Wide = unsigned __int128;
        const auto row = std::uint32_t(Wide{inverse_} * cell >> 64);
        return {cell - row * stride_ - 1, row - 1};
    }
    int pixelOf(std::uint32_t cell) const
    {
        const Point p = pointOf(cell);
        return int(p.y * width_ + p.x);
    }

    void accept(std::uint32_t cell)
    {
        const Point p = pointOf(cell);
        const double x = p.x;
        const double y = p.y;
        Region* region = top();
        ++region->area_;
        region->moments_[0] += x;
        region->moments_[1] += y;
        region->moments_[2] += x * x;
        region->moments_[3] += x * y;
        region->moments_[4] += y * y;
    }

    void prefetchAround(std::uint32_t cell) const
    {
        hwy::Prefetch(levels_ + cell);
        hwy::Prefetch(levels_ + cell - std::min(cell, stride_));
        hwy::Prefetch(levels_ + cell + stride_);
    }

    Region* top() const { return open_[depth_ - 1]; }
    void openRegion(std::uint32_t cell) { open_[depth_++] = owner_.take(levels_[cell], pixelOf(cell)); }

    /// Raises the water to `level`, at which `cell` was found: closes the open regions below.
    void raiseTo(int level, std::uint32_t cell)
    {
        do {
            Region* closed = open_[--depth_];
            if (level < top()->level_) openRegion(cell);
            top()->merge(closed);
        } while (level > top()->level_);
    }

    MSER& owner_;
    std::uint32_t width_;
    std::uint32_t stride_;
    std::uint64_t inverse_;
    std::uint32_t neighbourMask_ = 0;
    std::array<std::int32_t, 8> steps_{};
    std::uint8_t* levels_ = nullptr;
    std::uint32_t* visited_ = nullptr;
    Boundary boundary_;
    std::array<Region*, kSentinelLevel + 1> open_{};
    std::size_t depth_ = 0;
};

void MSER::operator()(std::span<const std::uint8_t> bits, int width, int height, std::vector<Region>& regions)
{
    if (width <= 0 || height <= 0) return;
    const std::uint64_t pixels = std::uint64_t(width) * std::uint64_t(height);
    if (bits.size() < pixels) fail("MSER image too small");
    if (std::uint64_t(width + 2LL) * std::uint64_t(height + 2LL) > std::numeric_limits<std::int32_t>::max())
        fail("MSER image too large");
    MSER_REQUIRE(!pool_.empty());
    block_ = free_ = 0;
    boundary_.resize(pixels);
    Flood(*this, bits.first(pixels), width, height).run();
    markStable(std::trunc(minArea_ * double(pixels)), std::trunc(maxArea_ * double(pixels)));
    save(regions);
}

// Both passes may visit the pool in any order: areas and levels are final, and in the second pass variations
// too.
void MSER::markStable(double minPixels, double maxPixels)
{
    forEachRegion([this](Region& region) {
        const Region* above = &region;
        while (above->parent_ && above->parent_->level_ - region.level_ <= delta_) above = above->parent_;
        region.variation_ = double(above->area_ - region.area_) / region.area_;
    });
    candidates_.clear();
    forEachRegion([&](Region& region) {
        Region* parent = region.parent_;
        if (parent && region.variation_ > parent->variation_)
            parent->aboveChild_ = true;
        else if (region.area_ >= minPixels && region.area_ <= maxPixels && region.variation_ <= maxVariation_)
            candidates_.push_back(&region);
    });
    std::erase_if(candidates_, [](Region* region) {
        region->stable_ = !region->child_ || region->aboveChild_;
        return !region->stable_;
    });
}

namespace {

// The next region in pre-order in the tree under `root`, skipping children unless `enter`; null at the end.
const Region* nextInTree(const Region* region, const Region* root, bool enter)
{
    if (enter && region->child_) return region->child_;
    while (region != root && !region->next_) region = region->parent_;
    return region == root ? nullptr : region->next_;
}

bool suppressedByParent(const Region& region, int minParentArea)
{
    for (const Region* p = region.parent_; p && p->area_ < minParentArea; p = p->parent_)
        if (p->stable_ && p->variation_ <= region.variation_) return true;
    return false;
}

bool suppressedByChild(const Region& region, int maxChildArea)
{
    bool enter = true;
    for (const Region* c = nextInTree(&region, &region, true); c; c = nextInTree(c, &region, enter)) {
        enter = c->area_ > maxChildArea;
        if (enter && c->stable_ && c->variation_ < region.variation_) return true;
    }
    return false;
}

int pixelCount(double area)
{
    return area < std::numeric_limits<int>::max() ? int(area) : std::numeric_limits<int>::max();
}

}  // namespace

// Whether a relative suppresses a region depends on which of its ancestors are still stable, and not on other
// branches of the tree: any order that puts ancestors first gives the same result.
void MSER::save(std::vector<Region>& regions)
{
    std::array<std::size_t, kSentinelLevel + 1> end{};  // end index of the regions at a level and above
    for (const Region* r : candidates_) ++end[std::size_t(r->level_)];
    for (std::size_t level = kSentinelLevel; level-- > 0;) end[level] += end[level + 1];
    ordered_.resize(candidates_.size());
    for (Region* r : candidates_) ordered_[--end[std::size_t(r->level_)]] = r;
    for (Region* r : ordered_) {
        r->stable_ = !suppressedByParent(*r, pixelCount(r->area_ / (1.0 - minDiversity_) + 0.5)) &&
                     !suppressedByChild(*r, pixelCount(r->area_ * (1.0 - minDiversity_) + 0.5));
        if (r->stable_) regions.push_back(*r);
    }
}

}  // namespace scansteps::regions
