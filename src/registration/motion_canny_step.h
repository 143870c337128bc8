// Base of the steps ccanny5old, ccanny5 and ccanny7: edges at a scale chosen from the frame's width, and the
// motion from the previous frame to this one.
#pragma once

#include <Eigen/Core>
#include <optional>

#include "edges/canny_frame16.h"
#include "grey/grey_from_frame.h"
#include "regions/mser.h"
#include "registration/register_views.h"
#include "scansteps/chain.h"
#include "scansteps/settings.h"
#include "scansteps/texture.h"

namespace scansteps::registration {

class MotionCanny : public CPUBase
{
  public:
    void init(varitype& params) override;
    void process(varitype& params) override;

  protected:
    explicit MotionCanny(MotionModel model) : model_(model) {}

    /// Scale level: the integer part of log2(width), minus 8, clamped to 0 ... 4.
    int level() const { return level_; }
    int width() const { return frameSize_.width; }
    int frameNumber() const { return frames_; }
    /// Prints what the step prints on initialisation.
    virtual void announce() const {}
    /// Prints what the step prints for every frame; may add entries to the record.
    virtual void report(const Registration& motion, varitype& record) const = 0;

  private:
    void drawEdges(std::span<std::uint16_t> frame);

    MotionModel model_;
    FrameSize frameSize_;
    int level_ = 0, frames_ = 0, features_ = 0;
    grey::SampleCoding coding_ = grey::SampleCoding::Offset16;
    TextureSet in_, spare_;  // the second is for hosts that expect two handles per step
    grey::GreyImage grey_;
    corners::CornerDetector detector_;
    PreparedView view_, previous_;
    edges::FloatPlane plane_;
    edges::CannyWorkspace work_;
    ScratchArena memory_;
    Registration motion_;
    std::optional<regions::MSER> detectRegions_;
    std::vector<regions::Region> regions_;
};

/// Mean scale of a motion.
double scaleOf(const Eigen::Matrix3d& motion);
/// Rotation of a motion in degrees, counter-clockwise in the image as displayed (y pointing down).
double rotationOf(const Eigen::Matrix3d& motion);

}  // namespace scansteps::registration
