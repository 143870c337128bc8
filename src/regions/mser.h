// Maximally stable extremal regions (MSER) of an 8-bit grey image: the dark components of all threshold sets
// whose area changes least from level to level.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace scansteps::regions {

/// One node of the component tree: a maximal connected set of pixels at or below `level_`.
struct Region
{
    int level_ = 0;                    ///< grey level at which the region was created, 256 in the sentinel
    int pixel_ = 0;                    ///< index of the seed pixel, y * width + x
    int area_ = 0;                     ///< number of pixels
    std::array<double, 5> moments_{};  ///< sums of x, y, x * x, x * y, y * y over the pixels
    double variation_ = kUnknownVariation;  ///< relative area change over `delta` levels
    bool stable_ = false;
    bool aboveChild_ = false;   ///< some child has a larger variation
    Region* parent_ = nullptr;  ///< links of the tree; in a copy they point into the detector's pool and are
    Region* child_ = nullptr;   ///< valid until its next run
    Region* next_ = nullptr;    ///< next sibling

    static const double kUnknownVariation;  ///< +infinity

    /// Adds area and moments of `child`, a region without parent and sibling, and makes it the first child.
    void merge(Region* child);
};

/// The ellipse with the same second moments as a region.
struct RegionEllipse
{
    double x, y;          ///< centre in pixels
    double major, minor;  ///< half axes in pixels (two standard deviations), major >= minor
    double angle;         ///< of the major axis in degrees, -90 < angle <= 90, from +x towards +y (down)
};
RegionEllipse ellipseOf(const Region& region);

/// The detector. Runs in linear time and without an allocation per region, after D. Nistér
/// and H. Stewénius, "Linear Time Maximally Stable Extremal Regions", ECCV 2008. An object keeps its memory
/// from run to run; runs of one object must not overlap.
class MSER
{
  public:
    /// Checks its arguments: delta > 0, 0 <= minArea < maxArea <= 1 (fractions of the image area),
    /// maxVariation > 0, 0 <= minDiversity < 1. A failed check throws its text, "mser" and the line. `eight`
    /// selects 8-connectivity instead of 4-connectivity.
    MSER(int delta, double minArea, double maxArea, double maxVariation, double minDiversity, bool eight);

    /// Appends the stable regions of `bits`, height rows of width bytes, to `regions`, parents before their
    /// children. An image without pixels has none. Throws "MSER image too small" when there are fewer bytes
    /// than pixels, and "MSER image too large" at about 2^31 pixels.
    void operator()(std::span<const std::uint8_t> bits, int width, int height, std::vector<Region>& regions);

    /// The smallest fraction, at most 1, whose product with `imageArea`, truncated, is `pixels`: converts an
    /// area in pixels for the constructor.
    static double fractionOf(int pixels, int imageArea);

  private:
    class Flood;

    Region* take(int level, int pixel);
    void growPool();
    template <class Visit>
    void forEachRegion(Visit visit);
    void markStable(double minPixels, double maxPixels);
    void save(std::vector<Region>& regions);

    int delta_;
    double minArea_;
    double maxArea_;
    double maxVariation_;
    double minDiversity_;
    bool eight_;

    // The pool consists of blocks, each twice the size of the previous one, so that regions never move.
    struct Block
    {
        std::unique_ptr<Region[]> regions;
        std::size_t size;
    };
    std::vector<Block> pool_;
    std::size_t block_ = 0;  // block of the next free region
    std::size_t free_ = 0;   // and its index there

    std::vector<Region*> candidates_;
    std::vector<Region*> ordered_;
    std::vector<std::uint8_t> levels_;     // the image with a border of one pixel
    std::vector<std::uint32_t> visited_;   // one bit per pixel of the same
    std::vector<std::uint32_t> boundary_;  // one stack per level, with room for all its pixels
};

}  // namespace scansteps::regions
