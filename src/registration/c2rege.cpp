// Steps c2rege and c2rege5: how a view lies to earlier ones, by its features and edges. c2rege looks at the
// view before and estimates a similarity; c2rege5 looks at all views it still holds and estimates a
// homography.
#include <utility>

#include "registration/edge_support.h"
#include "corners/feature_record.h"
#include "grey/grey_from_frame.h"
#include "grey/sample_coding.h"
#include "registration/motion_record.h"
#include "edges/polyline_record.h"
#include "core/print.h"
#include "core/step_factory.h"
#include "registration/draw_views.h"
#include "registration/view_sequence.h"
#include "scansteps/frame.h"
#include "scansteps/settings.h"

namespace scansteps {
namespace {

// One row a match: x, y in the earlier view, x, y in this one, bits that differ, 1 for an inlier.
Array matchArray(const std::vector<ViewMatch>& matches)
{
    Array array(Kind::Float, 6, std::uint32_t(matches.size()));
    float* to = array.elements<float>().data();
    for (const ViewMatch& m : matches)
        for (const float v : {m.x1, m.y1, m.x2, m.y2, float(m.distance), m.inlier ? 1.0F : 0.0F}) *to++ = v;
    return array;
}

// What the two share.
class RegisteringStep : public CPUBase
{
  public:
    void process(varitype& params) override
    {
        FrameScope frame(*this, params, in_, FrameCheck::Samples16);
        const auto samples = frame.input<std::uint16_t>();
        const ViewPlace place = sequence_.add(prepared(samples, frame.record()), motionOf(frame.record()));
        print::field(std::int64_t(place.matches.size()), " matches.size()\n");
        print::field(place.inliers, " inliers\n");
        report(place, frame.record());
        if (!draw_) return frame.forwardUnchanged();
        drawPlace(samples, width_, height_, place, meaning_);
        frame.forward();
    }

  protected:
    void start(const Settings& settings, varitype& params, bool draw, ViewSequence sequence)
    {
        width_ = settings.integer("dataX");
        height_ = settings.integer("dataY");
        meaning_ = frameMeaning(settings);
        draw_ = draw;
        sequence_ = std::move(sequence);
        in_.create(width_, height_, 1, formatOrMismatch(*this, params, format::kF1x32));
        forward(*this, params);
    }

    /// Chooses the points of the view at which grey values are compared.
    virtual void support(const varitype&, PreparedView&) {}

  private:
    PreparedView prepared(std::span<const std::uint16_t> samples, const varitype& record)
    {
        frame16ToBytes(samples, width_, height_, meaning_, grey_);
        PreparedView view;
        if (holdsFeatures(record)) {
            std::vector<CornerFeature> features = featuresOf(record);
            if (features.size() > kMostFeatures) features.resize(kMostFeatures);
            prepareView(grey_.view(), std::move(features), view);
        } else {
            prepareView(detector_, grey_.view(), registrationCorners(), view);
        }
        support(record, view);
        return view;
    }

    // Entries of an earlier registration give way.
    static void report(const ViewPlace& place, varitype& record)
    {
        record.set("transform", matrixArray(place.transform));
        record.set("inliers", place.inliers);
        record.set("matches", matchArray(place.matches));
        record.set("view", place.number);
        record.set("reference", place.reference);
        record.set("first", place.first);
        record.set("toFirst", matrixArray(place.toFirst));
    }

    int width_ = 0, height_ = 0;
    bool draw_ = false;
    Frame16 meaning_ = Frame16::Offset;
    TextureSet in_;
    GreyImage grey_;
    CornerDetector detector_;
    ViewSequence sequence_;
};

}  // namespace

class CpuRegE final : public RegisteringStep
{
  public:
    const char* getName() override { return "CpuRegE"; }

    void init(varitype& params) override
    {
        const Settings settings(*this, params);
        start(settings, params, settings.integer("rege.draw") != 0, ViewSequence(MotionModel::similarity, 1));
    }
};

class CpuRegE5 final : public RegisteringStep
{
  public:
    const char* getName() override { return "CpuRegE5"; }

    void init(varitype& params) override
    {
        const Settings settings(*this, params);
        const auto views = std::size_t(settings.integer("rege5.views"));
        start(settings, params, settings.integer("rege5.draw") != 0,
              ViewSequence(MotionModel::homography, views));
    }

  private:
    // A record with polylines comes with a frame in which edges are drawn: the polylines themselves are
    // compared then, instead of grey values along edges that the view finds in itself.
    void support(const varitype& record, PreparedView& view) override
    {
        std::size_t count = 0;
        if (record.has("fvertsArray")) {
            polylinesOf(record, lines_);
            compareEdges(lines_, view);
            count = lines_.size();
        } else {
            const Polylines& lines = finder_.edgesOf(view.full.view());
            view.support = pointsOnEdges(lines, view.full.view());
            count = lines.size();
        }
        print::field(std::int64_t(count), " fvertsArray.size()\n");
    }

    EdgeFinder finder_;
    Polylines lines_;  // of a record
};

SCANSTEPS_STEP(CpuRegE)
SCANSTEPS_STEP(CpuRegE5)

}  // namespace scansteps
