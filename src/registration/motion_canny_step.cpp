// The base of ccanny5old, ccanny5 and ccanny7: estimates the motion, then replaces the frame by its edges.
#include "registration/motion_canny_step.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>
#include <utility>

#include "core/print.h"
#include "grey/sample_coding.h"
#include "regions/mser.h"
#include "registration/motion_record.h"
#include "scansteps/frame.h"
#include "scansteps/settings.h"

namespace scansteps::registration {
namespace {

// Thresholds of the 3 x 3 Sobel magnitude, after smoothing.
constexpr double kLow = 60;
constexpr double kHigh = 160;

}  // namespace

void MotionCanny::init(varitype& params)
{
    const Settings settings(*this, params);
    frameSize_ = settings.frameSize();
    const bool debug = settings.integer("canny5.debug") != 0;
    features_ = settings.integer("canny5.features");
    coding_ = grey::sampleCoding(settings);
    level_ = std::clamp(int(std::bit_width(unsigned(std::max(frameSize_.width, 1)))) - 1 - 8, 0, 4);
    announce();
    const std::uint32_t code = formatOrMismatch(*this, params, format::kF1x32);
    in_.create(frameSize_.width, frameSize_.height, 1, code);
    spare_.create(frameSize_.width, frameSize_.height, 1, code);
    frames_ = 0;
    previous_ = PreparedView{};
    detectRegions_.reset();
    if (const auto area = std::int64_t{frameSize_.width} * frameSize_.height;
        debug && area > 8 && area <= INT32_MAX)
        detectRegions_.emplace(1, regions::MSER::fractionOf(4, int(area)), 0.6, 0.7, 0.33, true);
    forward(*this, params);
}

void MotionCanny::process(varitype& params)
{
    FrameScope frame(*this, params, in_, FrameCheck::Samples16);
    const auto samples = frame.input<std::uint16_t>();
    grey::greyFromFrame(samples, frameSize_.width, frameSize_.height, coding_, grey_);
    prepareView(detector_, grey_.view(), registrationCorners(features_), view_);
    if (frames_++ > 0)
        registerViews(previous_, view_, model_, motion_, &memory_);
    else
        motion_ = Registration{};
    std::swap(previous_, view_);
    frame.record().insert("transform", matrixArray(motion_.motion));
    frame.record().insert("inliers", motion_.inliers);
    frame.record().insert("expectedError", motion_.inliers > 0 ? float(motion_.deviation) : -1.0F);
    report(motion_, frame.record());
    if (detectRegions_) {
        regions_.clear();
        (*detectRegions_)(grey_.samples, frameSize_.width, frameSize_.height, regions_);
        print::field(std::int64_t(regions_.size()), " regions.size()\n");
    }
    drawEdges(samples);
    frame.forward();
}

// Two box filter passes as wide as the scale, then edge detection at full resolution.
void MotionCanny::drawEdges(std::span<std::uint16_t> frame)
{
    if (frameSize_.width == 0 || frameSize_.height == 0) return;
    edges::frame16ToPlane(frame, plane_, std::size_t(frameSize_.width), std::size_t(frameSize_.height),
                          coding_);
    const int size = (1 << level_) | 1;
    for (int pass = 0; pass < 2 && size > 1; ++pass) edges::lowPass(plane_, size, &memory_);
    edges::edgesToFrame16(edges::detectFiltered16(plane_, kLow, kHigh, 3, work_), frame);
}

double scaleOf(const Eigen::Matrix3d& motion)
{
    return std::sqrt(std::abs(motion(0, 0) * motion(1, 1) - motion(0, 1) * motion(1, 0)));
}

double rotationOf(const Eigen::Matrix3d& motion)
{
    return std::atan2(motion(0, 1) - motion(1, 0), motion(0, 0) + motion(1, 1)) * 180 / std::numbers::pi;
}

}  // namespace scansteps::registration
