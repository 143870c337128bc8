// Base of the steps ccanny5old, ccanny5 and ccanny7: edges at a scale chosen from the frame's width, and the
// motion from the frame before to this one.
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

    /// Scale level: the whole part of log2(width), less 8, limited to 0 ... 4.
    int level() const { return level_; }
    int width() const { return frameSize_.width; }
    int frameNumber() const { return frames_; }
    /// What the step prints when it is initialised, and for a frame; may add to the record.
    virtual void announce() const {}
    virtual void report(const Registration& motion, varitype& record) const = 0;

  private:
    void drawEdges(std::span<std::uint16_t> frame);

    MotionModel model_;
    FrameSize frameSize_;
    int level_ = 0, frames_ = 0;
    grey::SampleCoding coding_ = grey::SampleCoding::Offset16;
    TextureSet in_, spare_;  // the second is kept for hosts that count on two handles a step
    grey::GreyImage grey_;
    corners::CornerDetector detector_;
    PreparedView view_, before_;
    edges::FloatPlane plane_;
    edges::CannyWorkspace work_;
    ScratchArena memory_;
    Registration motion_;
    std::optional<regions::MSER> detectRegions_;
    std::vector<regions::Region> regions_;
};

/// Mean scale of a motion, and its turn in degrees, counter-clockwise as one sees the image (its y runs
/// down).
double scaleOf(const Eigen::Matrix3d& motion);
double turnOf(const Eigen::Matrix3d& motion);

}  // namespace scansteps::registration
