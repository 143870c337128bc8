// Base of the steps c2rege and c2rege5: registers each view with earlier ones and adds the result to its
// record.
#pragma once

#include <utility>

#include "core/print.h"
#include "corners/feature_record.h"
#include "grey/grey_from_frame.h"
#include "grey/sample_coding.h"
#include "registration/draw_views.h"
#include "registration/motion_record.h"
#include "registration/view_sequence.h"
#include "scansteps/frame.h"
#include "scansteps/settings.h"

namespace scansteps::registration {

/// A float array with one row per match: x, y in the earlier view, x, y in this one, differing bits, 1 for
/// inliers.
inline Array matchArray(const std::vector<ViewMatch>& matches)
{
    Array array(Kind::Float, 6, std::uint32_t(matches.size()));
    float* to = array.elements<float>().data();
    for (const ViewMatch& m : matches)
        for (const float v : {m.x1, m.y1, m.x2, m.y2, float(m.distance), m.inlier ? 1.0F : 0.0F}) *to++ = v;
    return array;
}

class RegisteringStep : public CPUBase
{
  public:
    void process(varitype& params) override
    {
        FrameScope frame(*this, params, in_, FrameCheck::Samples16);
        const auto samples = frame.input<std::uint16_t>();
        const ViewPose& pose = sequence_.add(prepared(samples, frame.record()), knownMotion(frame.record()));
        print::field(std::int64_t(pose.matches.size()), " matches.size()\n");
        print::field(pose.inliers, " inliers\n");
        report(pose, frame.record());
        if (!draw_) return frame.forwardUnchanged();
        drawPose(samples, frameSize_.width, frameSize_.height, pose, coding_);
        frame.forward();
    }

  protected:
    void start(const Settings& settings, varitype& params, bool draw, int features, ViewSequence sequence)
    {
        frameSize_ = settings.frameSize();
        coding_ = grey::sampleCoding(settings);
        draw_ = draw;
        features_ = features;
        sequence_ = std::move(sequence);
        in_.create(frameSize_.width, frameSize_.height, 1, formatOrMismatch(*this, params, format::kF1x32));
        forward(*this, params);
    }

    /// Selects the support points of the view, at which grey values are compared.
    virtual void support(const varitype&, PreparedView&) {}

  private:
    PreparedView prepared(std::span<const std::uint16_t> samples, const varitype& record)
    {
        grey::greyFromFrame(samples, frameSize_.width, frameSize_.height, coding_, grey_);
        PreparedView view = sequence_.recycled();
        if (corners::holdsFeatures(record)) {
            std::vector<corners::CornerFeature> features = corners::featuresOf(record);
            if (features.size() > corners::kMaxFeatures) features.resize(corners::kMaxFeatures);
            prepareView(grey_.view(), std::move(features), view);
        } else {
            prepareView(detector_, grey_.view(), registrationCorners(features_), view);
        }
        support(record, view);
        return view;
    }

    // What an earlier registration has found out.
    static std::optional<KnownMotion> knownMotion(const varitype& record)
    {
        const std::optional<Eigen::Matrix3d> motion = motionOf(record);
        if (!motion) return std::nullopt;
        KnownMotion known{*motion};
        if (record.has("inliers")) known.inliers = record["inliers"].as<std::int32_t>();
        if (record.has("expectedError")) known.error = double(record["expectedError"].as<float>());
        if (!(known.error >= 0)) known.error = 1;
        return known;
    }

    // Replaces the entries of an earlier registration.
    static void report(const ViewPose& pose, varitype& record)
    {
        record.set("transform", matrixArray(pose.transform));
        record.set("inliers", pose.inliers);
        record.set("expectedError", float(pose.error));
        record.set("matches", matchArray(pose.matches));
        record.set("view", pose.number);
        record.set("reference", pose.reference);
        record.set("first", pose.first);
        record.set("toFirst", matrixArray(pose.toFirst));
        record.set("toFirstError", float(pose.toFirstError));
    }

    FrameSize frameSize_;
    bool draw_ = false;
    int features_ = 0;
    grey::SampleCoding coding_ = grey::SampleCoding::Offset16;
    TextureSet in_;
    grey::GreyImage grey_;
    corners::CornerDetector detector_;
    ViewSequence sequence_;
};

}  // namespace scansteps::registration
