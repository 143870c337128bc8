// Corner features of an 8-bit image over a pyramid: sub-pixel positions, an orientation and a binary
// descriptor. Used by the steps ccorner5 and cneig, and by the registration of views.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "core/scratch_arena.h"
#include "corners/corner_descriptor.h"
#include "corners/corner_response.h"
#include "grey/grey_image.h"

namespace scansteps::corners {

struct CornerFeature
{
    float x, y;           ///< position in pixels of the full image, the centre of its first pixel at 0, 0
    float score;          ///< see scoreOf and CornerSettings::sizeExponent
    float angle;          ///< radians, from +x towards +y
    float size;           ///< pixels of the full image per pixel of the level it was found on
    std::uint32_t level;  ///< pyramid level; sizes are 1, 3/2, 2, 3, 4, 6 ...
    CornerDescriptor bits;
};
static_assert(sizeof(CornerFeature) == 64);

struct CornerSettings
{
    CornerKind kind = CornerKind::minEigenvalue;
    float threshold = 40;  ///< minimum score
    int lowPass1 = 1;      ///< see ResponseSettings
    int lowPass2 = 3;
    bool bucketing = true;
    int density = 4;        ///< features per bucket
    bool fast = true;       ///< the short descriptor
    int levels = 6;         ///< maximum number of pyramid levels
    bool smooth = false;    ///< responses are computed from the smoothed levels, which noise affects less
    std::size_t count = 0;  ///< not 0: the number of features aimed at; buckets are then as large as to
                            ///< spread them over the frame, and `density` has no effect
    float strong = 0;       ///< features with a lower score are kept only while there are fewer than `few`
    std::size_t few = 0;
    int firstLevel = 0;          ///< finest level that is searched, of frames that are large enough
    float sizeExponent = -0.2F;  ///< scores of corners are multiplied by the level's size to this power
    bool gradients = false;      ///< describeGradients() instead of describe(); a place with two orientations
                                 ///< gives two features
};

/// Side of a bucket in pixels of the full image, unless CornerSettings::count is given.
inline constexpr int kBucketSize = 16;

/// Maximum number of features per frame; only the strongest are kept.
inline constexpr std::size_t kMaxFeatures = 8192;

/// Keeps its work memory from frame to frame. One object must not be used by two threads at a time.
///
/// The pyramid consists of two octave sequences, one from the image and one from the image at two thirds, so
/// that successive sizes differ by a factor of at most 1.5. On each level, local maxima of the response are
/// refined by a paraboloid through their 3 × 3 neighbourhood. In each bucket of 16 × 16 pixels the `density`
/// strongest are kept; equal scores are ordered by level, row and column. The result is in order of
/// descending score.
class CornerDetector
{
  public:
    /// The result is valid until the next call.
    const std::vector<CornerFeature>& detect(grey::GreyView image, const CornerSettings& settings);

    /// Copies a smoothed level of the last frame; `out` is empty when there is no such level.
    void smoothLevel(std::size_t level, grey::GreyImage& out) const
    {
        if (level < used_)
            out = levels_[level].smooth;
        else
            out.reshape(0, 0);
    }

  private:
    struct Level
    {
        grey::GreyImage image;   // unused on level 0, which is the caller's image
        grey::GreyImage smooth;  // for the descriptors
        grey::GreyView view;
        float size = 1;
    };

    void buildLevels(grey::GreyView image, int count);
    void findOnLevel(std::uint32_t level, const CornerSettings& settings);
    void select(grey::GreyView image, const CornerSettings& settings);
    void describeKept(const CornerSettings& settings);

    std::vector<Level> levels_;
    std::size_t used_ = 0;  // number of levels of the last frame
    std::vector<float> response_;
    std::vector<Peak> peaks_;
    std::vector<CornerFeature> found_, kept_, described_;
    std::unique_ptr<ScratchArena> memory_ = std::make_unique<ScratchArena>();
};

}  // namespace scansteps::corners
