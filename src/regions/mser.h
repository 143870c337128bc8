// Maximally stable extremal regions of an 8-bit grey image: the dark components of all threshold sets whose
// area changes least from level to level. Knows neither records nor handles.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace scansteps::regions {

/// One node of the component tree: a connected set of pixels that are all at or below `level_` and cannot
/// grow without passing that level.
struct Region
{
    int level_ = 0;                    ///< grey level at which the region was created, 256 in the sentinel
    int pixel_ = 0;                    ///< index of the seed pixel, y * width + x
    int area_ = 0;                     ///< number of pixels
    std::array<double, 5> moments_{};  ///< sums of x, y, x * x, x * y, y * y over the pixels
    double variation_ = kUnknownVariation;  ///< relative area change over `delta` levels
    bool stable_ = false;
    bool aboveChild_ = false;   ///< some child varies more
    Region* parent_ = nullptr;  ///< links of the tree; in a copy they lead into the detector's pool and
    Region* child_ = nullptr;   ///< hold until its next run
    Region* next_ = nullptr;    ///< next sibling

    static const double kUnknownVariation;  ///< +infinity

    /// Takes over area and moments of `child`, a region without parent and sibling, and makes it the first
    /// child.
    void merge(Region* child);
};

/// Centre and axes of the ellipse that has a region's second moments.
struct RegionEllipse
{
    double x, y;          ///< centre in pixels
    double major, minor;  ///< half axes in pixels (two standard deviations), major >= minor
    double angle;         ///< of the major axis in degrees, -90 < angle <= 90, from +x towards +y (down)
};
RegionEllipse ellipseOf(const Region& region);

/// The detector. Floods the image in linear time and without an allocation for each region, after D. Nistér
/// and H. Stewénius, "Linear Time Maximally Stable Extremal Regions", ECCV 2008. An object keeps its memory
/// from run to run; runs of one object must not overlap.
class MSER
{
  public:
    /// Checks its arguments: delta > 0, 0 <= minArea < maxArea <= 1 (fractions of the image area),
    /// maxVariation > 0, 0 <= minDiversity < 1. A failed check throws its text, "mser" and the line.
    MSER(int delta, double minArea, double maxArea, double maxVariation, double minDiversity, bool eight);

    /// Appends the stable regions of `bits`, height rows of width bytes, to `regions`, parents before their
    /// children. An image without pixels has none; fewer bytes than pixels, or 2^31 pixels, is an error.
    void operator()(std::span<const std::uint8_t> bits, int width, int height, std::vector<Region>& regions);

    /// The fraction that stands for `pixels` pixels of an image of `imageArea` pixels: the least one whose
    /// product with the area, truncated, gives `pixels` again. At most 1.
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

    // The pool is a row of blocks, each as large as all before it, so that regions never move.
    struct Block
    {
        std::unique_ptr<Region[]> regions;
        std::size_t size;
    };
    std::vector<Block> pool_;
    std::size_t block_ = 0;  // of the next free region, and its place in there
    std::size_t free_ = 0;

    std::vector<Region*> candidates_;
    std::vector<Region*> ordered_;
    std::vector<std::uint8_t> levels_;     // the image with a frame of one pixel around it
    std::vector<std::uint32_t> visited_;   // one bit a pixel of the same
    std::vector<std::uint32_t> boundary_;  // a stack for every level, each as long as the level has pixels
};

}  // namespace scansteps::regions
