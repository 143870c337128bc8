// Corner features of an 8-bit image over a pyramid: positions to a fraction of a pixel, an orientation and a
// binary descriptor. The steps that match views, and the neighbour filter, share them.
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
    float x, y;           ///< position in pixels of the whole image, the centre of its first pixel at 0, 0
    float score;          ///< see scoreOf; corners of coarse levels count a little less
    float angle;          ///< radians, from +x towards +y
    float size;           ///< pixels of the whole image for each pixel of the level it was found on
    std::uint32_t level;  ///< of the pyramid: sizes 1, 3/2, 2, 3, 4, 6 ...
    CornerDescriptor bits;
};
static_assert(sizeof(CornerFeature) == 64);

struct CornerSettings
{
    CornerKind kind = CornerKind::minEigenvalue;
    float threshold = 40;  ///< least score
    int lowPass1 = 1;      ///< see ResponseSettings
    int lowPass2 = 3;
    bool bucketing = true;
    int density = 4;   ///< features a bucket
    bool fast = true;  ///< the short descriptor
    int levels = 6;    ///< at most
};

/// Side of a bucket in pixels of the whole image.
inline constexpr int kBucketSize = 16;

/// The most features a frame can have: without bucketing only the strongest are kept.
inline constexpr std::size_t kMaxFeatures = 8192;

/// Holds its work planes from frame to frame. One object must not be used by two threads at a time.
///
/// Levels are halved from level to level in two chains, one from the image and one from the image at two
/// thirds, so that sizes are never more than a factor of 1.5 apart. On each, local maxima of the response are
/// refined by a paraboloid through their 3 × 3 neighbours. Of each bucket of the image (16 × 16 pixels) the
/// `density` strongest are kept; equal scores are ordered by level, row and column. The result is ordered by
/// falling score.
class CornerDetector
{
  public:
    const std::vector<CornerFeature>& detect(grey::GreyView image, const CornerSettings& settings);

    /// Copies a level of the last frame, smoothed for the descriptors; empty when there is no such level.
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
        grey::GreyImage image;   // unused on level 0, which is the caller's
        grey::GreyImage smooth;  // for the descriptors
        grey::GreyView view;
        float size = 1;
    };

    void buildLevels(grey::GreyView image, int count);
    void findOnLevel(std::uint32_t level, const CornerSettings& settings);
    void select(grey::GreyView image, const CornerSettings& settings);

    std::vector<Level> levels_;
    std::size_t used_ = 0;  // of the levels, by the last frame
    std::vector<float> response_;
    std::vector<Peak> peaks_;
    std::vector<CornerFeature> found_, kept_;
    std::unique_ptr<ScratchArena> memory_ = std::make_unique<ScratchArena>();
};

}  // namespace scansteps::corners
